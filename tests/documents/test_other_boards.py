# SPDX-License-Identifier: MIT
"""docs/other-boards.md: its udevadm in front of the list of another board, and its table of files.
For the sandbox of the end-to-end tests. tests/machine tries the udev rules.

usage: python3 test_other_boards.py BUILD
"""

import os
import re
import subprocess
import sys
import tempfile
import unittest
from collections.abc import Iterator
from pathlib import Path

CHECKOUT = Path(__file__).resolve().parents[2]
sys.path += [str(CHECKOUT / "clients/python"), str(CHECKOUT / "tests/python")]
from serial_port_relay import Client  # noqa: E402
from workplace import PATIENCE, Device  # noqa: E402

BIN = Path(sys.argv[1]).resolve() / "bin"
PAGE = (CHECKOUT / "docs/other-boards.md").read_text(encoding="utf-8")
RELAY_PORT = 60004

# Of this board, at which adapters are plugged in.
LIST = CHECKOUT / "tests/testdata/udev-db-arm-board.txt"
CONTROLLERS = "/devices/platform/3f000000.pcie/pci0000:00"
PLACES = {
    "/devices/platform/soc/3f980000.usb/usb1/1-1/1-1.2/": f"{CONTROLLERS}/0000:00:1c.0/usb1/1-1/",
    "/devices/platform/soc/3f980000.usb/usb1/1-1/1-1.3/": f"{CONTROLLERS}/0000:00:1d.0/usb3/3-1/",
}
PORTS = {"#USBSerialPort0": "/dev/ttyUSB0", "#USBSerialPort1": "/dev/ttyUSB1"}


class OwnUdevadm(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.program("board", f"#!/bin/sh\ncat {LIST}\n")
        subprocess.run(["mount", "--bind", self.folder / "board", "/usr/bin/udevadm"], check=True)
        self.addCleanup(subprocess.check_call, ["umount", "/usr/bin/udevadm"])
        found = re.search(r"^```sh\n(.*?)^```", PAGE, re.DOTALL | re.MULTILINE)
        assert found
        text = found[1]
        for shown, real in PLACES.items():
            self.assertIn(shown, text)
            text = text.replace(shown, real)
        self.program("udevadm", text)
        words = "baud = 9600\ndata = 8\nparity = none\nstop = 1\nflow = none\n"
        (self.folder / "vost.conf").write_text("".join(f"[{port}]\n{words}" for port in PORTS))
        self.environment = dict(os.environ, VOST_CONFIG=str(self.folder / "vost.conf"),
                                PATH=f"{self.folder}:/usr/bin:/bin")

    def program(self, name: str, text: str) -> None:
        (self.folder / name).write_text(text)
        (self.folder / name).chmod(0o755)

    def test_the_service_finds_the_adapters(self) -> None:
        devices = [Device(node) for node in PORTS.values()]
        for device in devices:
            self.addCleanup(device.remove)
        service = subprocess.Popen([BIN / "SerialPortHandler"], env=self.environment,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(service.wait)
        self.addCleanup(service.kill)
        with Client(RELAY_PORT, patience=PATIENCE) as client:
            for port, device in zip(PORTS, devices):
                client.open(port)
                client.write(port, port.encode())
                self.assertEqual(device.receives(len(port)), port.encode())

    def test_relayctl_tells_before(self) -> None:
        told = subprocess.run([BIN / "relayctl", "suggest", "--once"], env=self.environment,
                              stdout=subprocess.PIPE, text=True, check=True).stdout
        found = re.findall(r"^(/dev/\S+).*?^  name: +(\S+)", told, re.DOTALL | re.MULTILINE)
        self.assertEqual(PORTS, {port: node for node, port in found})


class Files(unittest.TestCase):
    def test_each_file_that_names_a_place_is_named(self) -> None:
        table = (CHECKOUT / "src/serial/UsbPlaces.h").read_text(encoding="utf-8")
        places = re.findall(r'"/devices/pci0000:00/([^"]+)"', table)
        named = dict(files_with(re.compile("|".join(map(re.escape, places)))))
        uart = re.compile(r'/dev/ttyS2|KERNEL=="ttyS2"')
        named |= {name: text for name, text in files_with(uart) if not name.startswith("tests/")}
        self.assertEqual([], sorted(name for name in named if f"`{name}`" not in PAGE))

    def test_each_named_file_is_there(self) -> None:
        names = re.findall(r"`((?:src|packaging|tests|relayctl|demo|benchmarks|docs)/[^` ]+)`", PAGE)
        self.assertGreater(len(names), 20)
        self.assertEqual([], [name for name in names if not (CHECKOUT / name).exists()])


def files_with(wanted: re.Pattern[str]) -> Iterator[tuple[str, str]]:
    """Names and texts. Without recorded lists, which are of real machines, and what is built."""
    for place, folders, files in os.walk(CHECKOUT):
        folders[:] = [name for name in folders
                      if name not in ("build", "testdata", "corpus") and not name.startswith(".")]
        for path in (Path(place, name) for name in files):
            text = path.read_text(encoding="utf-8", errors="replace")
            if wanted.search(text) and path.name != "other-boards.md":
                yield str(path.relative_to(CHECKOUT)), text


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
