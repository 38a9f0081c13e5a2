# SPDX-License-Identifier: MIT
"""The packages under test."""

import subprocess
from pathlib import Path

from box import CHECKOUT

PACKAGE = "serial-port-handler"


def built(architecture: str) -> Path:
    """What ./package has made."""
    found = sorted((CHECKOUT / "build" / "packages").glob(f"{PACKAGE}_*_{architecture}.deb"))
    assert len(found) == 1, f"run ./package {architecture} first: {found}"
    return found[0]


def older(package: Path, scratch: Path) -> Path:
    """The same package as an earlier version, whose configuration file read otherwise."""
    tree = scratch / "older"
    subprocess.run(["dpkg-deb", "--raw-extract", package, tree], check=True)
    control = tree / "DEBIAN" / "control"
    lines = control.read_text().splitlines(keepends=True)
    control.write_text("".join(
        "Version: 0.9.0\n" if line.startswith("Version:") else line for line in lines))
    configuration = tree / "etc" / "vost.conf"
    configuration.write_text("; An older text.\n" + configuration.read_text())
    sums = tree / "DEBIAN" / "md5sums"
    subprocess.run(f"cd '{tree}' && md5sum $(cut -c35- '{sums}') >'{sums}.new' && "
                   f"mv '{sums}.new' '{sums}'", shell=True, check=True)
    result = scratch / "older.deb"
    subprocess.run(["dpkg-deb", "--root-owner-group", "--build", tree, result], check=True,
                   stdout=subprocess.DEVNULL)
    return result
