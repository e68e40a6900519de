# Written to the conventions of OpenEmbedded (kirkstone and later, with meta-qt5); never built by this project.
SUMMARY = "Numbered folders and files on a camera's storages"
DESCRIPTION = "Manages the media storages of an embedded camera or recorder (internal eMMC, SD card, USB): numbered \
folders with numbered files in a DCIM directory."
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=f2a40b0ab8e3ac815f1e2c75d1cdd46c"

# A checkout beside the build directory. Point it to your mirror and fix SRCREV for a product.
SRC_URI = "git://${TOPDIR}/../vornfilehandler;protocol=file;branch=main"
SRCREV = "${AUTOREV}"
S = "${WORKDIR}/git"

inherit cmake_qt5 pkgconfig

DEPENDS = "qtbase exiv2"

PACKAGECONFIG ??= ""
PACKAGECONFIG[tool] = "-DVORN_FILE_HANDLER_TOOLS=ON,-DVORN_FILE_HANDLER_TOOLS=OFF,cli11"
EXTRA_OECMAKE = "-DVORN_FILE_HANDLER_TESTS=OFF"

# Started at run time: sh, cat, cp and df, grep, awk, ffprobe. No link tells the build system of them.
RDEPENDS:${PN} = "coreutils grep gawk ffmpeg"

PACKAGES =+ "${PN}-tool"
SUMMARY:${PN}-tool = "Command line tool for ${PN}"
FILES:${PN}-tool = "${bindir}/vornfh ${datadir}/bash-completion"
