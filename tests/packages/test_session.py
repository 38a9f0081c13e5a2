# SPDX-License-Identifier: MIT
"""All packages on a machine that had the service alone: installed over it, used as the README
tells, removed."""

import subprocess
from collections.abc import Iterator

import deb
import pytest
from box import CHECKOUT, Box
from service import SERVICE, allow_all_ports, install, install_all

CONFIGURATION = "/etc/vost.conf"
MODULES = "/usr/lib/modules-load.d/serial-port-handler.conf"
SESSION = "/root/checkout"


@pytest.fixture(scope="module", params=deb.MACHINES)
def box(request: pytest.FixtureRequest, tmp_path_factory: pytest.TempPathFactory) -> Iterator[Box]:
    """In which all are installed. The configuration had been changed before."""
    scratch = tmp_path_factory.mktemp(request.param)
    with Box(request.param) as running:
        install(running, deb.alone(deb.built(request.param), scratch))
        assert running.path(MODULES).exists()
        configuration = running.path(CONFIGURATION)
        configuration.write_text(allow_all_ports(configuration.read_text()))
        install_all(running, [deb.built(request.param, package) for package in deb.ALL])
        yield running


def test_all_are_installed_whole(box: Box) -> None:
    assert box.run("dpkg-query", "-W", "-f", "${db:Status-Status} ", *deb.ALL
                   ).split() == ["installed"] * len(deb.ALL)
    changed = box.run("dpkg", "--verify", *deb.ALL, check=False)
    assert changed.split() == ["??5??????", "c", CONFIGURATION]


def test_what_the_package_has_no_more_is_gone(box: Box) -> None:
    assert not box.path(MODULES).exists()


def test_the_readme_s_session_comes_as_it_is_shown(box: Box) -> None:
    """With the installed commands, where the README has those that were built."""
    box.run("mkdir", "-p", SESSION + "/installed/bin", SESSION + "/installed/lib")
    files = subprocess.run(["tar", "-C", CHECKOUT, "-c", "README.md", "demo",
                            "scripts/readme-session"], stdout=subprocess.PIPE, check=True).stdout
    subprocess.run([*box.enter(), "tar", "-C", SESSION, "-x"], input=files, check=True)
    for program in ("/usr/bin/relayctl", "/usr/sbin/SerialPortHandler"):
        box.run("ln", "-s", program, SESSION + "/installed/bin")
    assert box.run(SESSION + "/scripts/readme-session", "--check", SESSION + "/installed") == ""


def test_the_python_module_is_found(box: Box) -> None:
    program = "import serial_port_relay as it; print(it.__file__, it.Client.__name__)"
    assert box.run("python3", "-c", program).startswith("/usr/lib/python3/dist-packages/")
    version = "import importlib.metadata as it; print(it.version('serial-port-relay'))"
    assert box.run("python3", "-c", version).strip() in str(deb.built("all", deb.OF_ALL[0]))


def test_removing_all_leaves_the_configuration(box: Box) -> None:
    box.run("apt-get", "--yes", "remove", *deb.ALL)
    left = box.run("find", "/usr", "/lib", "/etc", "-xdev", "(", "-iname", "*serial?port*", "-o",
                   "-iname", "*relay*", ")", "-not", "-path", "/etc/systemd/*")
    assert left == ""
    assert "\n[#PhysicalPort0]\n" in box.path(CONFIGURATION).read_text()
    box.run("apt-get", "--yes", "purge", SERVICE)
    assert not box.path(CONFIGURATION).exists()
