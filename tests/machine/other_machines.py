# SPDX-License-Identifier: MIT
"""Guests beside the usual PC: one of 32 bits, an ARM board, and the PC with a program for ARM."""

from __future__ import annotations

import pathlib
import shutil

import guest
import packages
from machine import UART, command_line

ARM_BUILD = packages.ROOT / "build" / "armhf"
I386_BUILD = packages.ROOT / "build" / "i386"

# How the program for ARM is started in the PC.
EMULATOR = "/opt/arm/qemu-arm-static -L /opt/arm"
ARM_LIBRARIES = ["libc6", "libgcc-s1", "libstdc++6"]

BOARD_USB_PORT = ("xhci.0", "1")


def pc_of_32_bits(folder: pathlib.Path) -> list[str]:
    """The same PC, with a kernel and programs for i386."""
    return command_line(guest.image(
        guest.Kind("i386", "linux-image-686-pae", I386_BUILD), folder))


def pc_with_the_arm_build(folder: pathlib.Path) -> list[str]:
    """The usual PC, but the service is the one for ARM; it runs behind EMULATOR."""
    overlay = folder / "overlay"
    arm = overlay / "opt/arm"
    arm.mkdir(parents=True)
    for package in packages.unpacked(ARM_LIBRARIES, "armhf"):
        for libraries in filter(pathlib.Path.is_dir, (package / "lib", package / "usr/lib")):
            shutil.copytree(libraries, arm / "lib", symlinks=True, dirs_exist_ok=True,
                            ignore=shutil.ignore_patterns("gconv"))
    emulator = shutil.which("qemu-arm-static")
    if not emulator:
        raise FileNotFoundError("qemu-arm-static; the package is qemu-user-static")
    shutil.copy(emulator, arm)
    image = guest.image(guest.Kind("amd64", "linux-image-amd64", ARM_BUILD, overlay=overlay),
                        folder)
    shutil.rmtree(overlay)
    return command_line(image)


def arm_board(folder: pathlib.Path) -> list[str]:
    """A board with an ARM processor: /dev/ttyS2 is the third port of a PCI card, and USB adapters
    are at none of the PC's places."""
    image = guest.image(
        guest.Kind("armhf", "linux-image-armmp", ARM_BUILD, drivers=("xhci_pci",)), folder)
    command = ["qemu-system-arm", "-accel", "tcg", "-machine", "virt,highmem=off",
               "-cpu", "cortex-a15", "-m", "512", "-smp", "1", "-nodefaults", "-display", "none",
               "-no-reboot", "-kernel", str(image.kernel), "-initrd", str(image.disk),
               "-append", "console=ttyAMA0 quiet loglevel=6 panic=-1 net.ifnames=0",
               "-D", "trace.log", "-msg", "timestamp=on",
               "-chardev", "file,id=console,path=console.log", "-serial", "chardev:console",
               "-netdev", "user,id=net,restrict=on"]
    for name in ("ctl", UART, "usb0"):
        command += ["-chardev", f"socket,id={name},path={name},server=on,wait=off"]
    unused = ("card1", "card2", "card4")
    for name in unused:
        command += ["-chardev", f"null,id={name}"]
    for device in ("virtio-serial-pci,id=vs", "virtserialport,bus=vs.0,chardev=ctl,name=ctl",
                   "virtio-net-pci,netdev=net,romfile=", "qemu-xhci,id=xhci",
                   f"pci-serial-4x,chardev1=card1,chardev2=card2,chardev3={UART},chardev4=card4"):
        command += ["-device", device]
    return command
