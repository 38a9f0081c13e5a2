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
import socket
import struct
import sys
import time
import tty

PATIENCE = 20.0  # seconds
TIOCGPTN, TIOCSPTLCK = 0x80045430, 0x40045431  # Python has no names for these
NAME = "000E 23506879736963616C506F727430"  # #PhysicalPort0


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


class Relay:
    def __init__(self) -> None:
        deadline = time.monotonic() + PATIENCE
        while True:
            try:
                self.link = socket.create_connection(("127.0.0.1", 60004), PATIENCE)
                return
            except ConnectionRefusedError:
                check(time.monotonic() < deadline, "nothing listens on port 60004")
                time.sleep(0.05)

    def sends(self, packet: str) -> None:
        self.link.sendall(bytes.fromhex(packet))

    def expects(self, packet: str) -> None:
        wanted = bytes.fromhex(packet)
        received = b""
        while len(received) < len(wanted):
            chunk = self.link.recv(len(wanted) - len(received))
            check(chunk != b"", f"the service left after {received.hex()}")
            received += chunk
        check(received == wanted, f"the service sent {received.hex()}, not {wanted.hex()}")


def check(condition: bool, fault: str) -> None:
    if not condition:
        sys.exit(fault)


def main() -> None:
    group = int(sys.argv[2]) if len(sys.argv) > 2 else -1
    device = Device(pathlib.Path(sys.argv[1]), group)
    relay = Relay()
    relay.sends(f"0014 01 02 {NAME}")
    relay.expects(f"0016 01 02 {NAME} 0000")
    relay.sends(f"001C 04 02 {NAME} 01 01 0004 70696E67")
    device.receives(b"ping")
    device.sends(b"pong")
    relay.expects(f"001C 04 02 {NAME} 01 02 0004 706F6E67")
    relay.sends(f"0014 02 02 {NAME}")
    relay.expects(f"0016 02 02 {NAME} 0000")


main()
