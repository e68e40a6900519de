# Components: Runtime (the library), Development (what is needed to build a host), Tool (vornfh), and examples, whose
# rules are in examples/CMakeLists.txt.
include(CMakePackageConfigHelpers)

install(TARGETS vornFileHandler EXPORT vornFileHandlerTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime NAMELINK_COMPONENT Development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development)
install(FILES vornfilehandler.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT Development)

# What a host must link besides the library.
set(package_components Core)
set(pc_private "")
if(NOT BUILD_SHARED_LIBS)
    set(package_components Core Gui)
    set(pc_private "Requires.private: Qt5Gui >= 5.15, exiv2 >= 0.26\n")
endif()
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vornFileHandler)
install(EXPORT vornFileHandlerTargets NAMESPACE vornFileHandler::
    DESTINATION ${package_dir} COMPONENT Development)
configure_package_config_file(cmake/vornFileHandlerConfig.cmake.in vornFileHandlerConfig.cmake
    INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(vornFileHandlerConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/vornFileHandlerConfig.cmake
    ${PROJECT_BINARY_DIR}/vornFileHandlerConfigVersion.cmake
    DESTINATION ${package_dir} COMPONENT Development)

# Directories in the prefix are written relative to it, so that pkg-config --define-prefix can move them.
foreach(dir IN ITEMS LIBDIR INCLUDEDIR)
    set(pc_${dir} "${CMAKE_INSTALL_${dir}}")
    if(NOT IS_ABSOLUTE "${pc_${dir}}")
        string(PREPEND pc_${dir} "\${prefix}/")
    endif()
endforeach()
# The prefix is filled in at installation, because "cmake --install --prefix" may change it.
set(pc_prefix "@CMAKE_INSTALL_PREFIX@")
configure_file(cmake/vornFileHandler.pc.in vornFileHandler.pc.in @ONLY)
install(CODE "configure_file([[${PROJECT_BINARY_DIR}/vornFileHandler.pc.in]]
    [[${PROJECT_BINARY_DIR}/vornFileHandler.pc]] @ONLY)" COMPONENT Development)
install(FILES ${PROJECT_BINARY_DIR}/vornFileHandler.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)

if(VORN_FILE_HANDLER_TOOLS)
    set(man_page ${PROJECT_SOURCE_DIR}/tools/vornfh/vornfh.1)
    if(VORN_FILE_HANDLER_PACKAGES) # Debian policy requires compression
        execute_process(COMMAND gzip --best --no-name --stdout ${man_page}
            OUTPUT_FILE ${PROJECT_BINARY_DIR}/vornfh.1.gz COMMAND_ERROR_IS_FATAL ANY)
        set(man_page ${PROJECT_BINARY_DIR}/vornfh.1.gz)
        set(zsh_completions zsh/vendor-completions) # where Debian's zsh searches for those of packages
    else()
        set(zsh_completions zsh/site-functions)
    endif()
    vorn_find_library_from(vornfh ${CMAKE_INSTALL_FULL_BINDIR})
    install(TARGETS vornfh RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Tool)
    install(FILES ${man_page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT Tool)
    install(FILES tools/vornfh/vornfh-watch.service
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/vornfh/examples COMPONENT Tool)
    install(FILES tools/vornfh/vornfh.bash
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME vornfh COMPONENT Tool)
    install(FILES tools/vornfh/_vornfh DESTINATION ${CMAKE_INSTALL_DATADIR}/${zsh_completions} COMPONENT Tool)
    install(FILES tools/vornfh/vornfh.fish
        DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT Tool)
    install(FILES docs/json.md docs/vornfh.schema.json
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/vornfh COMPONENT Tool)
endif()

if(top_project) # another project may have such a target
    add_custom_target(uninstall COMMAND ${CMAKE_COMMAND} -D BUILD_DIR=${PROJECT_BINARY_DIR}
        -P ${PROJECT_SOURCE_DIR}/cmake/Uninstall.cmake)
endif()
