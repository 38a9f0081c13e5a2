# SPDX-License-Identifier: MIT
"""The packages under test."""

import re
import subprocess
from collections.abc import Callable
from pathlib import Path

from box import CHECKOUT

PACKAGE = "serial-port-handler"
MACHINES = {"amd64": "x86_64-linux-gnu", "arm64": "aarch64-linux-gnu",
            "armhf": "arm-linux-gnueabihf"}
OF_EACH_MACHINE = [PACKAGE, "relayctl", "librelayclient-dev", "wireshark-serialrelay"]
OF_ALL = ["python3-serial-port-relay", "serial-port-handler-doc"]
ALL = OF_EACH_MACHINE + OF_ALL


def built(architecture: str, package: str = PACKAGE) -> Path:
    """What ./package has made."""
    if package in OF_ALL:
        architecture = "all"
    found = sorted((CHECKOUT / "build" / "packages").glob(f"{package}_*_{architecture}.deb"))
    assert len(found) == 1, f"run ./package {architecture} first: {found}"
    return found[0]


def _changed(package: Path, scratch: Path, change: Callable[[Path], None]) -> Path:
    tree = scratch / "changed"
    subprocess.run(["dpkg-deb", "--raw-extract", package, tree], check=True)
    change(tree)
    sums = tree / "DEBIAN" / "md5sums"
    subprocess.run(f"cd '{tree}' && md5sum $(find -path ./DEBIAN -prune -o -path ./etc -prune -o "
                   f"-type f -printf '%P\\n') >'{sums}'", shell=True, check=True)
    result = scratch / "changed.deb"
    subprocess.run(["dpkg-deb", "--root-owner-group", "--build", tree, result], check=True,
                   stdout=subprocess.DEVNULL)
    return result


def _edit(file: Path, pattern: str, text: str) -> None:
    before = file.read_text()
    after = re.sub(pattern, text, before)
    assert after != before, f"{file} has no {pattern}"
    file.write_text(after)


def older(package: Path, scratch: Path) -> Path:
    """The same package as an earlier version, whose configuration file read otherwise."""
    def change(tree: Path) -> None:
        _edit(tree / "DEBIAN/control", r"(?m)^Version: .*$", "Version: 0.9.0")
        _edit(tree / "etc/vost.conf", r"\A", "; An older text.\n")
    return _changed(package, scratch, change)


def alone(package: Path, scratch: Path) -> Path:
    """The same version as it was built before it had other packages beside it: it recommended
    none, and had the drivers loaded at each boot."""
    def change(tree: Path) -> None:
        _edit(tree / "DEBIAN/control", r"(?m)^(Recommends|Suggests): .*\n", "")
        modules = tree / "usr/lib/modules-load.d/serial-port-handler.conf"
        modules.parent.mkdir(parents=True)
        modules.write_text("usbserial\ncdc_acm\n")
    return _changed(package, scratch, change)
