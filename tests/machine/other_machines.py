# SPDX-License-Identifier: MIT
"""Guests beside the usual PC: one of 32 bits, an ARM board, and the PC with a program for ARM."""

from __future__ import annotations

import pathlib
import shutil

import guest
import packages
from machine import UART, Board, command_line

ARM_BUILD = packages.ROOT / "build" / "armhf"
I386_BUILD = packages.ROOT / "build" / "i386"

# How the program for ARM is started in the PC.
EMULATOR = "/opt/arm/qemu-arm-static -L /opt/arm"
ARM_LIBRARIES = ["libc6", "libgcc-s1", "libstdc++6"]

BOARD_USB_PORT = ("xhci.0", "1")

# The UART that the service opens is the third port of a PCI card.
ARM_BOARD = Board("qemu-system-arm", (
    "-machine", "virt,highmem=off", "-cpu", "cortex-a15", "-m", "512",
    "-serial", "chardev:console", "-device", "qemu-xhci,id=xhci",
    "-chardev", "null,id=card1", "-chardev", "null,id=card2", "-chardev", "null,id=card4",
    "-device",
    f"pci-serial-4x,chardev1=card1,chardev2=card2,chardev3={UART},chardev4=card4"), "ttyAMA0")


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
    """A board with an ARM processor: USB adapters are at none of the PC's places."""
    image = guest.image(
        guest.Kind("armhf", "linux-image-armmp", ARM_BUILD, drivers=("xhci_pci",)), folder)
    return command_line(image, ARM_BOARD)
