# SPDX-License-Identifier: MIT
"""The steps of docs/install.md for other Linux systems, in a clean system with systemd."""

import os
import re
import subprocess
from collections.abc import Iterator
from pathlib import Path

import pytest
from box import CHECKOUT, NATIVE, Box
from service import SERVICE, allow_all_ports, converse

PAGE = (CHECKOUT / "docs/install.md").read_text(encoding="utf-8")
MANIFEST = "/root/build/plain/install_manifest.txt"


def steps(name: str) -> str:
    """A block of the page, for root. A box has no devices for udev to look after, and no editor."""
    found = re.search(rf"^```sh {name}\n(.*?)^```", PAGE, re.DOTALL | re.MULTILINE)
    assert found
    return "cd /root\n" + re.sub(r"(?m)^sudo ((udevadm|sudoedit) .*)?|^sudoedit .*", "", found[1])


@pytest.fixture(scope="module")
def build(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """What the page says, but for the folder."""
    folder = tmp_path_factory.mktemp("plain")
    found = re.search(r"^cmake -S .*?\ncmake --build .*?$", PAGE, re.DOTALL | re.MULTILINE)
    assert found
    commands = found[0].replace("build/plain", str(folder))
    done = subprocess.run(["sh", "-ec", commands], cwd=CHECKOUT, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True)
    assert done.returncode == 0, done.stdout
    assert "warning" not in done.stdout.lower(), done.stdout
    return folder


@pytest.fixture(scope="module")
def box() -> Iterator[Box]:
    with Box(NATIVE) as running:
        yield running


def test_it_is_installed_started_and_removed(build: Path, box: Box) -> None:
    before = files_of(box)
    subprocess.run(["cmake", "--install", build, "--strip"], check=True,
                   stdout=subprocess.DEVNULL, env={**os.environ, "DESTDIR": str(box.path("/"))})
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


def files_of(box: Box) -> list[str]:
    return sorted(box.run("find", "/usr", "/etc", "/lib/systemd", "-type", "f").splitlines())
