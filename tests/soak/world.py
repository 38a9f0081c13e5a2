# SPDX-License-Identifier: MIT
"""The machine of the soak: every port with its device, and the service, of whose standard streams
whole lines are read without ever waiting. For the sandbox only: replaces files in /dev."""

import enum
import fcntl
import os
import random
import re
import subprocess
import time
from pathlib import Path
from typing import IO, NamedTuple

from serial_port_relay import Block, data_command
from stream import FRAME_BYTES, CheckedStream
from workplace import Device

CHECKOUT = Path(__file__).resolve().parents[2]
BYTES_PER_SECOND = 11520  # 115200 baud, ten bits each
MAX_BURST = 4096
MAX_CHUNK = 400
BLOCK_FRAMES = 8
NORMAL = ("Received(", "recv error:", "終了")  # on standard error


class Door(enum.Enum):
    """A port, as the relay's commands left it."""

    CLOSED = enum.auto()
    OPENING = enum.auto()
    OPEN = enum.auto()
    CLOSING = enum.auto()


class Pace:
    """A line's speed: what may pass now, and never more than a moment's worth at once."""

    def __init__(self) -> None:
        self._begin = time.monotonic()
        self._spent = 0

    def allowed(self) -> int:
        due = int((time.monotonic() - self._begin) * BYTES_PER_SECOND)
        self._spent = max(self._spent, due - MAX_BURST)
        return due - self._spent

    def spends(self, count: int) -> None:
        self._spent += count


class SoakPort:
    """One port: its device, and what relay and device know of its state."""

    def __init__(self, name: str, node: str, number: int, plan: random.Random) -> None:
        self.name = name
        self.node = node
        self.door = Door.CLOSED
        self.from_device = CheckedStream(f"{name} from device", number * 2)
        self.to_device = CheckedStream(f"{name} to device", number * 2 + 1)
        self._plan = plan
        self._is_line_open = False  # since the last border
        self._open_at = self._plug_at = self._last_up = 0.0
        self._paces = (Pace(), Pace())  # of the device, of the relay
        self._chunk = 1
        self._unsent = b""  # the device's
        self._plug()

    def _plug(self) -> None:
        self._device: Device | None = Device(self.node)
        os.set_blocking(self._device.master, False)

    @property
    def is_up(self) -> bool:
        return self.door is Door.OPEN and self._is_line_open and self._device is not None

    @property
    def may_open(self) -> bool:
        return (self.door is Door.CLOSED and self._device is not None
                and time.monotonic() >= self._open_at)

    def line_opens(self) -> None:
        """The service names a device on its standard output once it is open and flushed: what the
        device sends from then on has to arrive. For the relay the port is up when the answer has
        come, too."""
        if self._device and not self._is_line_open and self.door in (Door.OPENING, Door.OPEN):
            self._is_line_open = True
            self.from_device.border_ends()
            if self.door is Door.OPEN:
                self.to_device.border_ends()

    def opens(self) -> None:
        self.door = Door.OPEN
        if self._is_line_open:
            self.to_device.border_ends()

    def closes(self, open_after: float) -> None:
        self.door = Door.CLOSED
        self._open_at = time.monotonic() + open_after

    def border_begins(self, repeatable: int = 0) -> None:
        self._is_line_open = False
        self.from_device.border_begins()
        self.to_device.border_begins(repeatable)

    def unplugs(self, plug_after: float) -> None:
        assert self._device
        self.border_begins(BLOCK_FRAMES)
        self._unsent = b""
        self._device.remove()
        self._device = None
        self._plug_at = time.monotonic() + plug_after

    def tick(self, sends: bool) -> None:
        """The device reads, sends, and comes back when its time is there."""
        if self._device is None:
            if time.monotonic() < self._plug_at:
                return
            self._plug()
        assert self._device
        try:
            while data := os.read(self._device.master, 4096):
                self.to_device.arrives(data)
        except BlockingIOError:
            pass
        self._send(self._device, sends)

    def _send(self, device: Device, more: bool) -> None:
        """In pieces of any size, so that frames are cut anywhere."""
        pace = self._paces[0]
        allowed = pace.allowed()
        if more and allowed < self._chunk:
            return
        while more and len(self._unsent) < allowed:
            self._unsent += self.from_device.frames(1)
        try:
            count = os.write(device.master, self._unsent[:allowed]) if self._unsent else 0
        except BlockingIOError:
            return  # the line takes no more
        pace.spends(count)
        self._unsent = self._unsent[count:]
        self._chunk = self._plan.randint(1, MAX_CHUNK)

    def next_command(self) -> bytes:
        """The next data command at the pace of the line; empty when it is too early."""
        pace = self._paces[1]
        if pace.allowed() < BLOCK_FRAMES * FRAME_BYTES:
            return b""
        pace.spends(BLOCK_FRAMES * FRAME_BYTES)
        blocks = []
        left = BLOCK_FRAMES
        while left:
            count = self._plan.randint(1, left)
            blocks.append(Block(1, self.to_device.frames(count)))
            left -= count
        return data_command(self.name, blocks)

    def is_down_for(self, seconds: float) -> bool:
        """True once when the port has not been up for so long."""
        now = time.monotonic()
        is_long = not self.is_up and now - (self._last_up or now) > seconds
        if self.is_up or is_long or not self._last_up:
            self._last_up = now
        return is_long


class Lines:
    """What has come on a stream since the last call, without line ends."""

    def __init__(self, stream: IO[bytes]) -> None:
        os.set_blocking(stream.fileno(), False)
        self._stream = stream
        self._rest = b""

    def read(self) -> list[str]:
        self._rest += self._stream.read() or b""
        *lines, self._rest = self._rest.split(b"\n")
        return [line.decode(errors="backslashreplace") for line in lines]


class Holdings(NamedTuple):
    """What the service holds at a moment."""

    descriptors: int
    threads: int
    kilobytes: int

    def __str__(self) -> str:
        return (f"{self.descriptors} descriptors, {self.threads} threads, "
                f"{self.kilobytes} kB resident")


class World:
    def __init__(self, program: str, folder: Path, plan: random.Random) -> None:
        table = (CHECKOUT / "src/serial/UsbPlaces.h").read_text(encoding="utf-8")
        places = re.findall(r'"(/devices/[^"]+)"', table)
        nodes = {"#PhysicalPort0": "/dev/ttyS2"}
        nodes |= {f"#USBSerialPort{usb}": f"/dev/ttyUSB{usb}" for usb in range(len(places))}
        self.ports = [SoakPort(name, node, number, plan)
                      for number, (name, node) in enumerate(nodes.items())]
        self.log = folder / "log"
        (folder / "vost.conf").write_text("".join(
            f"[{name}]\nbaud = 115200\ndata = 8\nparity = none\nstop = 1\nflow = none\n"
            for name in nodes))
        (folder / "database").write_text("".join(
            f"P: {place}/1:1.0/ttyUSB{usb}/tty/ttyUSB{usb}\nN: ttyUSB{usb}\n"
            f"E: DEVNAME=/dev/ttyUSB{usb}\nE: ID_BUS=usb\n\n" for usb, place in enumerate(places)))
        (folder / "udevadm").write_text(f"#!/bin/sh\ncat {folder}/database\n")
        (folder / "udevadm").chmod(0o700)
        environment = dict(os.environ, VOST_CONFIG=str(folder / "vost.conf"),
                           KXLOGGER_FILE=str(self.log), PATH=f"{folder}:{os.environ['PATH']}")
        self.service = subprocess.Popen(
            [program], env=environment, bufsize=0, start_new_session=True,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        assert self.service.stdout and self.service.stderr
        # The hex dump has three characters for each byte: room for some seconds of it.
        fcntl.fcntl(self.service.stderr, fcntl.F_SETPIPE_SZ, 1 << 20)
        self.output = Lines(self.service.stdout)
        self._errors = Lines(self.service.stderr)
        self.unexpected: list[str] = []

    @property
    def is_running(self) -> bool:
        return self.service.poll() is None

    def read_errors(self) -> None:
        """Keeps the lines that are no part of the service's normal work."""
        self.unexpected += [line for line in self._errors.read() if not line.startswith(NORMAL)]

    def held(self) -> Holdings:
        process = Path(f"/proc/{self.service.pid}")
        status = dict(line.split(":", 1) for line in (process / "status").read_text().splitlines())
        return Holdings(len(list((process / "fd").iterdir())), int(status["Threads"]),
                        int(status["VmRSS"].split()[0]))
