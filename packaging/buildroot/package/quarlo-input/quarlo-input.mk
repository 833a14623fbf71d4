################################################################################
#
# quarlo-input
#
################################################################################

QUARLO_INPUT_VERSION = 0.1.0
# This tree is a part of the sources.
QUARLO_INPUT_SITE = $(BR2_EXTERNAL_QUARLO_INPUT_PATH)/../..
QUARLO_INPUT_SITE_METHOD = local
QUARLO_INPUT_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude /build
QUARLO_INPUT_SUPPORTS_IN_SOURCE_BUILD = NO

# None has been chosen yet: until one is, nobody but the authors may pass it on.
QUARLO_INPUT_LICENSE = PROPRIETARY
QUARLO_INPUT_LICENSE_FILES = packaging/copyright
QUARLO_INPUT_REDISTRIBUTE = NO

QUARLO_INPUT_INSTALL_STAGING = YES
QUARLO_INPUT_CONF_OPTS = -DQUARLO_BUILD_TESTS=OFF

ifeq ($(BR2_PACKAGE_QUARLO_INPUT_64_BIT_TIME),y)
QUARLO_INPUT_CONF_OPTS += -DQUARLO_64_BIT_TIME=ON
else
QUARLO_INPUT_CONF_OPTS += -DQUARLO_64_BIT_TIME=OFF
endif

ifeq ($(BR2_PACKAGE_QUARLO_INPUT_PROGRAM),y)
# Without Python there are no manual pages, for which the program would have to run here.
QUARLO_INPUT_CONF_OPTS += -DQUARLO_BUILD_TOOLS=ON -DCMAKE_DISABLE_FIND_PACKAGE_Python3=ON
QUARLO_INPUT_DEPENDENCIES += cli11 json-for-modern-cpp
ifeq ($(BR2_PACKAGE_QUARLO_INPUT_SCREEN),y)
QUARLO_INPUT_DEPENDENCIES += ncurses
else
QUARLO_INPUT_CONF_OPTS += -DCMAKE_DISABLE_FIND_PACKAGE_Curses=ON
endif
# The libraries are static, so a device needs the program alone.
define QUARLO_INPUT_INSTALL_TARGET_CMDS
	$(TARGET_MAKE_ENV) DESTDIR=$(TARGET_DIR) $(BR2_CMAKE) --install $(QUARLO_INPUT_BUILDDIR) --component program
endef
else
QUARLO_INPUT_CONF_OPTS += -DQUARLO_BUILD_TOOLS=OFF
QUARLO_INPUT_INSTALL_TARGET = NO
endif

$(eval $(cmake-package))
