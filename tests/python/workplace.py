# SPDX-License-Identifier: MIT
"""The real service with devices to talk to. For the sandbox only: replaces files in /dev."""

import itertools
import os
import pathlib
import re
import select
import subprocess
import tempfile
import time
import tty
from collections.abc import Callable

PATIENCE = 20.0  # seconds
PHYSICAL = "#PhysicalPort0"
USB = "#USBSerialPort0"
_PLACE = "/devices/pci0000:00/0000:00:1d.2/usb4/4-1"  # of USB
_ports = itertools.count(61000)  # each service has its own: no link of the one before is in its way


class Device:
    """A pseudo-terminal at a serial port's node."""

    def __init__(self, node: str) -> None:
        assert os.environ.get("SPH_SANDBOX"), "to be run in tests/e2e/support/sandbox"
        self.master, self._keeper = os.openpty()
        tty.setraw(self._keeper)
        self._node = pathlib.Path(node)
        self._node.unlink(missing_ok=True)
        self._node.symlink_to(os.ttyname(self._keeper))

    def sends(self, data: bytes) -> None:
        os.write(self.master, data)

    def receives(self, count: int) -> bytes:
        """Fewer bytes when no more come in time."""
        data = b""
        while len(data) < count and select.select([self.master], [], [], PATIENCE)[0]:
            data += os.read(self.master, count - len(data))
        return data

    def remove(self) -> None:
        self._node.unlink()
        os.close(self.master)
        os.close(self._keeper)


class Service:
    """PHYSICAL is configured, and USB with an adapter 0403:6001 at /dev/ttyUSB0."""

    def __init__(self, program: str, port: int = 0) -> None:
        self.port = port or next(_ports)
        self._program = program
        self._folder = tempfile.TemporaryDirectory()
        folder = pathlib.Path(self._folder.name)
        words = "baud = 9600\ndata = 8\nparity = none\nstop = 1\nflow = none\n"
        (folder / "vost.conf").write_text(
            f"[connect]\nport = {self.port}\n[{PHYSICAL}]\n{words}[{USB}]\n{words}"
        )
        ids = "E: ID_BUS=usb\nE: ID_VENDOR_ID=0403\nE: ID_MODEL_ID=6001\n\n"
        (folder / "database").write_text(
            f"P: {_PLACE}\nN: bus/usb/002/002\nE: DEVNAME=/dev/bus/usb/002/002\n{ids}"
            f"P: {_PLACE}/1:1.0/ttyUSB0/tty/ttyUSB0\nN: ttyUSB0\nE: DEVNAME=/dev/ttyUSB0\n{ids}"
        )
        udevadm = folder / "udevadm"
        udevadm.write_text(f"#!/bin/sh\ncat {folder}/database\n")
        udevadm.chmod(0o700)
        self._environment = dict(
            os.environ,
            VOST_CONFIG=str(folder / "vost.conf"),
            KXLOGGER_FILE=str(folder / "log"),
            PATH=f"{folder}:{os.environ['PATH']}",
        )
        self.start()

    def start(self) -> None:
        self._process = subprocess.Popen(
            [self._program],
            env=self._environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
        )

    def wait_until_it_listens(self) -> None:
        deadline = time.monotonic() + PATIENCE
        row = re.compile(rf"^ *\d+: \w+:{self.port:04X} \w+:0000 0A ", re.MULTILINE)
        while not row.search(pathlib.Path("/proc/net/tcp").read_text()):
            assert time.monotonic() < deadline, f"nothing listens on port {self.port}"
            time.sleep(0.01)

    def kill(self) -> None:
        self._process.kill()
        self._process.wait()

    def remove(self) -> None:
        self.kill()
        self._folder.cleanup()


def make(program: str, at_end: Callable[[Callable[[], None]], object], port: int = 0) -> Service:
    """A service that `at_end` is asked to remove."""
    service = Service(program, port)
    at_end(service.remove)
    return service
