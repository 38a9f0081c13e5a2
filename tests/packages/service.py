# SPDX-License-Identifier: MIT
"""The installed service in a box: put there, started, and talked to."""

import re
import subprocess
import sys
from pathlib import Path
from types import TracebackType

from box import HERE, Box

SERVICE = "serial-port-handler"
UNIT = "/lib/systemd/system/serial-port-handler.service"


def install(box: Box, package: Path) -> str:
    """dpkg without anybody to ask: where it would, it takes the default."""
    box.path("/run/package.deb").write_bytes(package.read_bytes())
    return box.run("dpkg", "--force-confdef", "--install", "/run/package.deb")


def install_all(box: Box, packages: list[Path]) -> str:
    """As the page says: by apt, which here has nothing else to choose from; --reinstall because the
    machine may have another build of the same version."""
    folder = box.path("/run/packages")
    folder.mkdir()
    for package in packages:
        (folder / package.name).write_bytes(package.read_bytes())
    told = box.run("sh", "-c", "apt-get --yes --option Dpkg::Options::=--force-confdef "
                   "install --reinstall /run/packages/*.deb")
    box.run("rm", "-r", "/run/packages")
    return told


def allow_all_ports(configuration: str) -> str:
    """The shipped file after somebody has taken the ";" away in front of its sections."""
    return re.sub(r"(?m)^;(?! )", "", configuration)


def group_number(box: Box, name: str = "dialout") -> str:
    return box.run("getent", "group", name).split(":")[2]


def converse(box: Box) -> None:
    """A relay service opens the port, and data go both ways."""
    done = subprocess.run(
        [*box.enter_network(), sys.executable, "-B", HERE / "conversation.py", box.path("/dev"),
         group_number(box)], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    assert done.returncode == 0, done.stdout


class StartedAsInTheUnit:
    """The service started as systemd would: not root, in the unit's group, without capabilities.

    Stopped by SIGTERM; `status` is what it ended with.
    """

    def __init__(self, box: Box) -> None:
        self.box = box
        self.status: int | None = None

    def __enter__(self) -> "StartedAsInTheUnit":
        text = self.box.path(UNIT).read_text()
        settings = dict(line.split("=", 1) for line in text.splitlines() if "=" in line)
        group = group_number(self.box, settings["SupplementaryGroups"])
        self.process = subprocess.Popen(
            [*self.box.enter(), "sh", "-c", 'echo $$ >/run/pid; exec "$@"', "sh",
             "setpriv", "--reuid", "61184", "--regid", "61184", "--groups", group,
             "--bounding-set=-all", "--no-new-privs", settings["ExecStart"]],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.box.run("sh", "-c", "kill $(cat /run/pid)")
        self.status = self.process.wait(timeout=60)
