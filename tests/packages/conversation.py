# SPDX-License-Identifier: MIT
"""Plays the relay service and the device behind the first physical port, for one short exchange.

usage: conversation.py DEV [GROUP], with the /dev of the system in which the service runs, and the
number of the group that may open the device. To be run in the network namespace of that system.
Prints what went wrong, if anything, and then has status 1.
"""

import fcntl
import os
import pathlib
import select
import struct
import sys
import tty

sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "clients/python"))
from serial_port_relay import Client  # noqa: E402

PATIENCE = 20.0  # seconds
TIOCGPTN, TIOCSPTLCK = 0x80045430, 0x40045431  # Python has no names for these
PORT = "#PhysicalPort0"


class Device:
    """A pseudo-terminal at /dev/ttyS2."""

    def __init__(self, dev: pathlib.Path, group: int) -> None:
        self.master = os.open(dev / "pts" / "ptmx", os.O_RDWR | os.O_NOCTTY)
        fcntl.ioctl(self.master, TIOCSPTLCK, struct.pack("i", 0))
        number = struct.unpack("I", fcntl.ioctl(self.master, TIOCGPTN, bytes(4)))[0]
        node = dev / "pts" / str(number)
        os.chown(node, -1, group)
        node.chmod(0o660)
        self.keeper = os.open(node, os.O_RDWR | os.O_NOCTTY)
        tty.setraw(self.keeper)
        port = dev / "ttyS2"
        port.unlink(missing_ok=True)
        port.symlink_to(f"pts/{number}")

    def sends(self, data: bytes) -> None:
        os.write(self.master, data)

    def receives(self, expected: bytes) -> None:
        received = b""
        while received != expected:
            readable, _, _ = select.select([self.master], [], [], PATIENCE)
            check(bool(readable), f"the device received {received!r}, not {expected!r}")
            received += os.read(self.master, 1000)
            check(expected.startswith(received), f"the device received {received!r}")


def check(condition: bool, fault: str) -> None:
    if not condition:
        sys.exit(fault)


def main() -> None:
    group = int(sys.argv[2]) if len(sys.argv) > 2 else -1
    device = Device(pathlib.Path(sys.argv[1]), group)
    with Client(patience=PATIENCE, reply_timeout=PATIENCE) as relay:
        relay.open(PORT)
        relay.write(PORT, b"ping")
        device.receives(b"ping")
        device.sends(b"pong")
        received = relay.read_until(PORT, b"g", PATIENCE)
        check(received == b"pong", f"the relay service received {received!r}")
        relay.close(PORT)


main()
