# SPDX-License-Identifier: MIT
"""The PC with systemd as its first process, and the service as `cmake --install` leaves it."""

from __future__ import annotations

import os
import pathlib
import shutil
import subprocess

import guest
import packages
from machine import command_line

SERVICE = "serial-port-handler.service"

SYSTEMD = ("systemd", "libsystemd-shared", "libsystemd0", "libapparmor1", "libaudit1", "libcap-ng0",
           "libcrypt1", "libgcrypt20", "libgpg-error0", "libip4tc2", "liblz4-1", "libmount1",
           "libpam0g", "libseccomp2", "libfdisk1", "libuuid1", "libcryptsetup12", "libjson-c5",
           "libdevmapper1.02.1", "libargon2-1")
FIREWALL = ("nftables", "libnftables1", "libnftnl11", "libmnl0", "libgmp10", "libjansson4",
            "libxtables12", "libedit2", "libbsd0", "libmd0", "libtinfo6")
STARTED = ("test-network.service", "test-shell.service", "test-journal.service",
           "test-heartbeat.service", SERVICE)
# Nobody logs in, and there are no disks.
NOT_STARTED = ("getty.target", "systemd-logind.service", "systemd-firstboot.service",
               "systemd-sysusers.service", "systemd-update-utmp.service",
               "systemd-update-utmp-runlevel.service", "e2scrub_reap.service", "quotaon.service")


def _install_service(build: pathlib.Path, root: pathlib.Path) -> None:
    subprocess.run(["cmake", "--install", build, "--component", "service"], check=True,
                   stdout=subprocess.DEVNULL, env={**os.environ, "DESTDIR": str(root)})
    # In all guests the tests write this one.
    installed = root / "usr/local/etc/vost.conf"
    installed.replace(root / "etc/vost.conf")
    installed.symlink_to("/etc/vost.conf")


def _add_units(root: pathlib.Path) -> None:
    for package in packages.unpacked(["systemd", "udev"], "amd64"):
        shutil.copytree(package / "lib/systemd/system", root / "usr/lib/systemd/system",
                        symlinks=True, dirs_exist_ok=True)
    units = root / "etc/systemd/system"
    (units / "default.target").symlink_to("/usr/lib/systemd/system/multi-user.target")
    wanted = units / "multi-user.target.wants"
    wanted.mkdir()
    for name in STARTED:
        found, = [folder for folder in (units, root / "usr/local/lib/systemd/system")
                  if (folder / name).exists()]
        (wanted / name).symlink_to("/" / found.relative_to(root) / name)
    for name in NOT_STARTED:
        (units / name).symlink_to("/dev/null")


def pc(build: pathlib.Path, folder: pathlib.Path) -> list[str]:
    """QEMU's command for it."""
    overlay = folder / "overlay"
    shutil.copytree(guest.HERE / "guest-systemd", overlay)
    for name in ("tmp", "var/tmp", "var/log"):
        (overlay / name).mkdir(parents=True)
    (overlay / "tmp").chmod(0o1777)
    (overlay / "var/tmp").chmod(0o1777)
    (overlay / "etc/machine-id").write_text("5e71a1907e574be0a5e71a1907e574be\n")
    _install_service(build, overlay)
    _add_units(overlay)
    kind = guest.Kind("amd64", "linux-image-amd64", build, ("SerialPortHandler", "relayctl"),
                      (*SYSTEMD, *FIREWALL), (*guest.Kind.drivers, "nft_reject_inet"), overlay)
    command = command_line(guest.image(kind, folder))
    shutil.rmtree(overlay)
    return command
