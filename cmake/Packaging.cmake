# One Debian package for each component: "cmake --build build/debian --target package" (preset debian).
set(debian_dir ${PROJECT_SOURCE_DIR}/packaging/debian)
file(STRINGS ${debian_dir}/changelog newest_entry LIMIT_COUNT 1)
if(NOT newest_entry MATCHES "^vornfilehandler \\(${PROJECT_VERSION}-([0-9]+)\\)")
    message(FATAL_ERROR "packaging/debian/changelog begins with \"${newest_entry}\" instead of ${PROJECT_VERSION}")
endif()
set(CPACK_DEBIAN_PACKAGE_RELEASE ${CMAKE_MATCH_1})
set(debian_version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# A distributor of the packages sets the maintainer: -D CPACK_PACKAGE_CONTACT="Name <address>".
if(NOT CPACK_PACKAGE_CONTACT)
    set(CPACK_PACKAGE_CONTACT "vornFileHandler developers <developers@vornfilehandler.example>")
endif()
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL Runtime Development)
if(VORN_FILE_HANDLER_TOOLS)
    list(APPEND CPACK_COMPONENTS_ALL Tool)
endif()
if(VORN_FILE_HANDLER_EXAMPLES)
    list(APPEND CPACK_COMPONENTS_ALL examples)
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE vornfilehandler)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})

# The programs that the library runs: cat, cp and df; grep; awk; ffprobe. coreutils and grep are essential packages,
# which a dependency may name only with a version: here, that of the oldest release on which they were tested.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libvornfilehandler${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "coreutils (>= 9.1), ffmpeg, grep (>= 3.8), mawk | gawk")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${debian_dir}/triggers)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "media of a camera in numbered folders - library
libvornFileHandler manages the media of an embedded camera or recorder:
numbered files in numbered folders on its storage devices (internal eMMC, SD
card, USB storage). It returns the path of the next recording, lists, counts,
copies, moves and deletes files, and reports the capacity of a device.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvornfilehandler-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${debian_version}), qtbase5-dev (>= 5.15)")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "media of a camera in numbered folders - development files
libvornFileHandler manages the media of an embedded camera or recorder:
numbered files in numbered folders on its storage devices.

This package contains the header, the CMake package and the pkg-config file.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME vornfh)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${debian_version})")
set(CPACK_DEBIAN_TOOL_DESCRIPTION "media of a camera in numbered folders - command-line tool
vornfh manages the media of an embedded camera or recorder from the command
line or a script: it records, lists, checks, copies, moves and deletes the
files in the numbered folders of libvornFileHandler.")

set(CPACK_DEBIAN_EXAMPLES_PACKAGE_NAME vornfilehandler-examples)
set(CPACK_DEBIAN_EXAMPLES_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_EXAMPLES_PACKAGE_DEPENDS "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${debian_version}), ffmpeg")
set(CPACK_DEBIAN_EXAMPLES_DESCRIPTION "media of a camera in numbered folders - examples
libvornFileHandler manages the media of an embedded camera or recorder:
numbered files in numbered folders on its storage devices.

This package contains hosts that a product can start from, with their sources.")

execute_process(COMMAND gzip --best --no-name --stdout ${debian_dir}/changelog
    OUTPUT_FILE ${PROJECT_BINARY_DIR}/changelog.Debian.gz COMMAND_ERROR_IS_FATAL ANY)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} upper)
    set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
    install(FILES ${debian_dir}/copyright ${PROJECT_BINARY_DIR}/changelog.Debian.gz
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
    install(FILES ${debian_dir}/${package}.lintian-overrides
        DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME ${package} COMPONENT ${component})
endforeach()
include(CPack)
