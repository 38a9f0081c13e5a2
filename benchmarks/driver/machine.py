# SPDX-License-Identifier: MIT
"""What a run was made on, and with."""

from __future__ import annotations

import datetime
import os
import pathlib
import platform
import subprocess


def _first_line(*command: str) -> str:
    done = subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT)
    return done.stdout.splitlines()[0]


def _package(name: str) -> str:
    return _first_line("dpkg-query", "-W", "-f", "${Version}", name)


def _processor() -> str:
    for line in pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8").splitlines():
        if line.startswith("model name"):
            return line.partition(":")[2].strip()
    return platform.machine()


def describe() -> dict[str, str]:
    """Name and text of everything that a figure may depend on."""
    system = platform.freedesktop_os_release()["PRETTY_NAME"]
    return {
        "date": datetime.date.today().isoformat(),
        "service": _first_line("git", "describe", "--always", "--dirty"),
        "processor": f"{os.cpu_count()} × {_processor()}, {platform.machine()}",
        "load before": f"{os.getloadavg()[2]:.2f} (15 minutes)",
        "kernel": f"{platform.system()} {platform.release()}",
        "system": f"{system}, glibc {platform.libc_ver()[1]}",
        "compiler": _first_line("c++", "--version"),
        "socat": _package("socat"),
        "ser2net": _package("ser2net"),
    }
