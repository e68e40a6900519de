# Follows the conventions of OpenEmbedded (kirkstone and later, with meta-qt5); this project has never built it.
SUMMARY = "Media of a camera in numbered folders"
DESCRIPTION = "Manages the media of an embedded camera or recorder: numbered files in numbered folders on its storage \
devices (internal eMMC, SD card, USB storage)."
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=f2a40b0ab8e3ac815f1e2c75d1cdd46c"

# A checkout next to the build directory. For a product, use your mirror and set SRCREV to a fixed revision.
SRC_URI = "git://${TOPDIR}/../vornfilehandler;protocol=file;branch=main"
SRCREV = "${AUTOREV}"
S = "${WORKDIR}/git"

inherit cmake_qt5 pkgconfig

DEPENDS = "qtbase exiv2"

PACKAGECONFIG ??= ""
PACKAGECONFIG[tool] = "-DVORN_FILE_HANDLER_TOOLS=ON,-DVORN_FILE_HANDLER_TOOLS=OFF,cli11"
EXTRA_OECMAKE = "-DVORN_FILE_HANDLER_TESTS=OFF -DCMAKE_SKIP_INSTALL_RPATH=ON"

# Programs that the library runs: sh, cat, cp and df, grep, awk, ffprobe. The build system cannot detect them.
RDEPENDS:${PN} = "coreutils grep gawk ffmpeg"

PACKAGES =+ "${PN}-tool"
SUMMARY:${PN}-tool = "Command-line tool for ${PN}"
FILES:${PN}-tool = "${bindir}/vornfh ${datadir}/bash-completion ${datadir}/zsh ${datadir}/fish"
