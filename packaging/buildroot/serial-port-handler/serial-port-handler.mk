################################################################################
#
# serial-port-handler
#
################################################################################

SERIAL_PORT_HANDLER_VERSION = 1.0.0
SERIAL_PORT_HANDLER_SITE = FILL_IN
SERIAL_PORT_HANDLER_SITE_METHOD = git
SERIAL_PORT_HANDLER_LICENSE = MIT
SERIAL_PORT_HANDLER_LICENSE_FILES = LICENSE
SERIAL_PORT_HANDLER_DEPENDENCIES = udev
SERIAL_PORT_HANDLER_CONF_OPTS = \
	-DSPH_BUILD_TESTS=OFF \
	-DSPH_BUILD_CLIENT=OFF \
	-DSPH_INSTALL_SYSTEMD=$(if $(BR2_INIT_SYSTEMD),ON,OFF)

$(eval $(cmake-package))
