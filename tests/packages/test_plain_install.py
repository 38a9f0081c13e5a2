# SPDX-License-Identifier: MIT
"""`cmake --install`, for those who do not use Debian: what is where, and the steps of
docs/install.md for other Linux systems, in a clean one with systemd."""

import os
import re
import subprocess
import sys
from pathlib import Path

import pytest
from box import CHECKOUT, HERE, NATIVE, Box
from service import SERVICE, allow_all_ports, converse

PAGE = (CHECKOUT / "docs/install.md").read_text(encoding="utf-8")
MANIFEST = "/root/build/plain/install_manifest.txt"
FILES = [
    "etc/vost.conf",
    "lib/serial-port-handler/libKXLogger.so",
    "lib/serial-port-handler/libvost.so",
    "lib/systemd/system/serial-port-handler.service",
    "lib/udev/rules.d/60-serial-port-handler.rules",
    "libexec/serial-port-handler/wait-until-listening",
    "sbin/SerialPortHandler",
]


def run(*command: str | Path, folder: Path = CHECKOUT, **environment: str) -> str:
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          env={**os.environ, **environment}, cwd=folder)
    assert done.returncode == 0, f"{command}: status {done.returncode}\n{done.stdout}"
    return done.stdout


@pytest.fixture(scope="module")
def build(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """What the page says, but for the folder."""
    folder = tmp_path_factory.mktemp("plain")
    found = re.search(r"^cmake -S .*?\ncmake --build .*?$", PAGE, re.DOTALL | re.MULTILINE)
    assert found
    told = run("sh", "-ec", found[0].replace("build/plain", str(folder)))
    assert "warning" not in told.lower(), told
    return folder


def files_below(folder: Path) -> list[str]:
    return sorted(str(path.relative_to(folder)) for path in folder.rglob("*") if path.is_file())


def test_an_image_gets_everything_below_the_prefix(build: Path, tmp_path: Path) -> None:
    run("cmake", "--install", build, "--component", "service", DESTDIR=str(tmp_path))
    assert files_below(tmp_path) == ["usr/local/" + name for name in FILES]
    unit = (tmp_path / "usr/local/lib/systemd/system/serial-port-handler.service").read_text()
    assert "\nExecStart=/usr/local/sbin/SerialPortHandler\n" in unit
    assert "\nEnvironment=VOST_CONFIG=/usr/local/etc/vost.conf\n" in unit


def test_a_scratch_prefix_works_and_keeps_its_configuration(build: Path, tmp_path: Path) -> None:
    prefix = tmp_path / "prefix"
    install = ("cmake", "--install", build, "--component", "service", "--prefix", prefix)
    run(*install)
    assert files_below(prefix) == FILES
    configuration = prefix / "etc/vost.conf"
    configuration.write_text(allow_all_ports(configuration.read_text()))
    run(*install)
    assert "\n[#PhysicalPort0]\n" in configuration.read_text()

    # The sandbox leaves the folder in its /tmp, and ends the service.
    run(CHECKOUT / "tests/e2e/support/sandbox", "--", "sh", "-c",
        f"sbin/SerialPortHandler & '{sys.executable}' -B '{HERE}/conversation.py' /dev",
        folder=prefix, VOST_CONFIG=str(configuration))


def steps(name: str) -> str:
    """A block of the page, for root. A box has no devices for udev to look after, and no editor."""
    found = re.search(rf"^```sh {name}\n(.*?)^```", PAGE, re.DOTALL | re.MULTILINE)
    assert found
    return "cd /root\n" + re.sub(r"(?m)^sudo ((udevadm|sudoedit) .*)?|^sudoedit .*", "", found[1])


def files_of(box: Box) -> list[str]:
    return sorted(box.run("find", "/usr", "/etc", "/lib/systemd", "-type", "f").splitlines())


def test_it_is_installed_started_and_removed(build: Path) -> None:
    with Box(NATIVE) as box:
        before = files_of(box)
        run("cmake", "--install", build, "--strip", DESTDIR=str(box.path("/")))
        box.path(MANIFEST).parent.mkdir(parents=True)
        box.path(MANIFEST).write_bytes((build / "install_manifest.txt").read_bytes())
        configuration = box.path("/usr/local/etc/vost.conf")
        configuration.write_text(allow_all_ports(configuration.read_text()))
        box.run("sh", "-exc", steps("start"))
        converse(box)
        assert box.run("systemctl", "is-enabled", SERVICE).strip() == "enabled"

        box.run("sh", "-exc", steps("remove"))
        assert "could not be found" in box.run("systemctl", "status", SERVICE, check=False)
        box.run("rm", "-r", "/root/build")
        assert files_of(box) == before
