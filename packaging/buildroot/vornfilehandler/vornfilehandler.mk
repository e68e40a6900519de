################################################################################
#
# vornfilehandler
#
################################################################################

# Follows the conventions of Buildroot; this project has never built it.

VORNFILEHANDLER_VERSION = 1.1.0
# A checkout next to Buildroot.
VORNFILEHANDLER_SITE = $(TOPDIR)/../vornfilehandler
VORNFILEHANDLER_SITE_METHOD = local
VORNFILEHANDLER_LICENSE = MIT
VORNFILEHANDLER_LICENSE_FILES = LICENSE
VORNFILEHANDLER_INSTALL_STAGING = YES
VORNFILEHANDLER_DEPENDENCIES = host-pkgconf qt5base exiv2
VORNFILEHANDLER_CONF_OPTS = \
	-DVORN_FILE_HANDLER_TESTS=OFF \
	-DVORN_FILE_HANDLER_TOOLS=OFF

$(eval $(cmake-package))
