################################################################################
#
# tovuutil
#
################################################################################

TOVUUTIL_VERSION = 0.1.0
# The sources that this folder belongs to. Local ones need no hash.
TOVUUTIL_SITE = $(BR2_EXTERNAL_TOVUUTIL_PATH)/../..
TOVUUTIL_SITE_METHOD = local
TOVUUTIL_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude /build --exclude /.git
# The owner has chosen no licence, and nothing may be passed on.
TOVUUTIL_LICENSE = none chosen
TOVUUTIL_REDISTRIBUTE = NO
TOVUUTIL_INSTALL_STAGING = YES
TOVUUTIL_SUPPORTS_IN_SOURCE_BUILD = NO
TOVUUTIL_DEPENDENCIES = boost xerces
TOVUUTIL_CONF_OPTS = -DTOVUUTIL_BUILD_TESTS=OFF

ifeq ($(BR2_PACKAGE_TOVUUTIL_VOLUMED),y)
TOVUUTIL_DEPENDENCIES += sqlite
TOVUUTIL_CONF_OPTS += -DTOVUUTIL_BUILD_EXAMPLES=ON
ifeq ($(BR2_INIT_SYSTEMD),y)
TOVUUTIL_CONF_OPTS += -DVOLUMED_UNIT_FOLDER=/usr/lib/systemd/system
endif

define TOVUUTIL_INSTALL_SETTINGS
	$(INSTALL) -D -m 0644 $(@D)/packaging/volumed/default/volumed \
		$(TARGET_DIR)/etc/default/volumed
endef
TOVUUTIL_POST_INSTALL_TARGET_HOOKS += TOVUUTIL_INSTALL_SETTINGS

define TOVUUTIL_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(TOVUUTIL_PKGDIR)/S90volumed \
		$(TARGET_DIR)/etc/init.d/S90volumed
endef

define TOVUUTIL_USERS
	volumed -1 volumed -1 * /var/lib/volumed - - Volume service
endef
else
TOVUUTIL_CONF_OPTS += -DTOVUUTIL_BUILD_EXAMPLES=OFF
endif

$(eval $(cmake-package))
