# SPDX-License-Identifier: MIT
"""The recipes for Buildroot and Yocto, as far as it goes without them: make reads the one, their
options exist, what is installed with them is what they pack. Nothing is compiled: what would be is
empty here, as only the places are looked at."""

import fnmatch
import hashlib
import re
import shlex
from pathlib import Path

import pytest
from box import CHECKOUT
from output import output_of

RECIPE = CHECKOUT / "packaging/yocto/serial-port-handler_1.0.0.bb"
MAKEFILE = CHECKOUT / "packaging/buildroot/serial-port-handler/serial-port-handler.mk"
LICENSE = (CHECKOUT / "LICENSE").read_bytes()
COMPILED = ["bin/SerialPortHandler", "lib/serial-port-handler/libvost.so",
            "lib/serial-port-handler/libKXLogger.so"]

# What Yocto's bitbake.conf and systemd.bbclass say, for a machine with systemd.
VARIABLES = {
    "sysconfdir": "/etc", "bindir": "/usr/bin", "sbindir": "/usr/sbin", "libdir": "/usr/lib",
    "nonarch_libdir": "/usr/lib", "base_libdir": "/lib", "nonarch_base_libdir": "/lib",
    "systemd_system_unitdir": "/lib/systemd/system", "PN": "serial-port-handler",
    "WORKDIR": "/work",
}
PACKED_ANYWAY = ["/usr/bin/*", "/usr/sbin/*", "/usr/libexec/*", "/usr/lib/lib*.so.*", "/etc/*"]


def recipe() -> dict[str, str]:
    """Its variables, expanded. One that is not known here ends the test."""
    text = RECIPE.read_text()
    found = dict(re.findall(r'^([\w:${}]+) \+?= "(.*)"$', text, re.MULTILINE))
    assert len(found) == text.count(' = "') + text.count(' += "')
    return {name: re.sub(r"\$\{(\w+)\}", lambda match: VARIABLES[match[1]], value)
            for name, value in found.items()}


def installed(options: list[str], folder: Path) -> list[str]:
    """The files, when the options are given to CMake beside those that both systems give."""
    told = output_of("cmake", "-S", CHECKOUT, "-B", folder / "build", "-G", "Ninja",
                     "-DCMAKE_INSTALL_PREFIX=/usr", "-DCMAKE_INSTALL_SYSCONFDIR=/etc",
                     "-DCMAKE_INSTALL_LIBDIR=lib", "-Werror=dev", *options)
    assert "not used" not in told, told  # CMake's word for an option that does not exist
    for name in COMPILED:
        file = folder / "build" / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.touch()
    root = folder / "root"
    output_of("sh", "-ec", f"DESTDIR='{root}' cmake --install '{folder}/build'")
    return sorted("/" + str(path.relative_to(root)) for path in root.rglob("*") if path.is_file())


def test_yocto_s_licence_is_the_one_here() -> None:
    assert recipe()["LIC_FILES_CHKSUM"] == f"file://LICENSE;md5={hashlib.md5(LICENSE).hexdigest()}"


def test_yocto_packs_all_that_is_installed(tmp_path: Path) -> None:
    variables = recipe()
    files = installed(shlex.split(variables["EXTRA_OECMAKE"]), tmp_path)
    packed = PACKED_ANYWAY + variables["FILES:${PN}"].split()
    for file in files:
        assert any(fnmatch.fnmatch(file, pattern) or file.startswith(pattern + "/")
                   for pattern in packed), file
    unit = f"{VARIABLES['systemd_system_unitdir']}/{variables['SYSTEMD_SERVICE:${PN}']}"
    assert {unit, variables["CONFFILES:${PN}"], "/lib/udev/rules.d/60-serial-port-handler.rules",
            "/usr/sbin/SerialPortHandler"} <= set(files)


def made(name: str, *settings: str) -> str:
    """A variable of the makefile, with Buildroot's own names standing for nothing."""
    return output_of("make", "-s", "-f", MAKEFILE, "--eval", f"show: ; $(info $({name}))@:",
                     *settings, "show").strip()


@pytest.mark.parametrize("systemd", ["y", ""])
def test_buildroot_installs_the_unit_where_systemd_is(systemd: str, tmp_path: Path) -> None:
    options = made("SERIAL_PORT_HANDLER_CONF_OPTS", f"BR2_INIT_SYSTEMD={systemd}").split()
    assert len(options) == 3
    files = installed(options, tmp_path)
    assert ("/usr/lib/systemd/system/serial-port-handler.service" in files) == bool(systemd)
    assert {"/etc/vost.conf", "/usr/lib/udev/rules.d/60-serial-port-handler.rules"} <= set(files)


def test_buildroot_s_licence_is_the_one_here() -> None:
    file = made("SERIAL_PORT_HANDLER_LICENSE_FILES")
    digest = hashlib.sha256(LICENSE).hexdigest()
    assert MAKEFILE.with_suffix(".hash").read_text() == f"sha256  {digest}  {file}\n"


def test_buildroot_s_menu_offers_what_the_makefile_defines() -> None:
    menu = MAKEFILE.with_name("Config.in").read_text()
    symbol = MAKEFILE.stem.upper().replace("-", "_")
    assert menu.startswith(f"config BR2_PACKAGE_{symbol}\n\tbool \"{MAKEFILE.stem}\"\n")
    assert all(line.startswith(symbol + "_") for line in MAKEFILE.read_text().splitlines()
               if " = " in line)
