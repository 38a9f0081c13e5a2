SUMMARY = "Gives one local program the machine's serial ports over TCP"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=63287107d2e84efe5df9b6bef52548df"
SRC_URI = "git://FILL_IN;protocol=https;branch=main"
SRCREV = "FILL_IN"
S = "${WORKDIR}/git"

inherit cmake systemd

EXTRA_OECMAKE = "-DSPH_BUILD_TESTS=OFF -DSPH_BUILD_CLIENT=OFF -DSPH_SYSTEMD_UNIT_DIR=${systemd_system_unitdir} -DSPH_UDEV_RULES_DIR=${nonarch_base_libdir}/udev/rules.d"

RDEPENDS:${PN} = "udev"
SYSTEMD_SERVICE:${PN} = "serial-port-handler.service"
CONFFILES:${PN} = "${sysconfdir}/vost.conf"
FILES:${PN} += "${nonarch_base_libdir} ${libdir}/serial-port-handler"
