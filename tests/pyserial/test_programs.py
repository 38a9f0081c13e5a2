# SPDX-License-Identifier: MIT
"""Programs and libraries above pyserial that are given a relay:// URL."""

import asyncio
import contextlib
import importlib
import io
import os
import pathlib
import pty
import re
import select
import shlex
import subprocess
import sys
import tty
from typing import Any

import serial_asyncio  # type: ignore[import]
from pymodbus.client import ModbusSerialClient  # type: ignore[import]
from with_service import PROGRAM
from with_url import WithUrl
from workplace import PATIENCE, make

can: Any = importlib.import_module("can")  # typed, but read by mypy also where it is missing
RUN = [sys.executable, "-B", "-m", "serial_port_relay.pyserial"]


class Libraries(WithUrl):
    def test_pymodbus(self) -> None:
        self.answers(
            (bytes.fromhex("01 03 0000 0002 C40B"), bytes.fromhex("01 03 04 002A 002B 9BE4")),
            (bytes.fromhex("01 06 0001 0017 9804"), bytes.fromhex("01 06 0001 0017 9804")),
        )
        with ModbusSerialClient(self.url, timeout=PATIENCE) as client:
            self.assertEqual(client.read_holding_registers(0, 2, slave=1).registers, [42, 43])
            self.assertFalse(client.write_register(1, 23, slave=1).isError())

    def test_python_can(self) -> None:
        self.answers((b"O\rt12322A3B\r", b"t45631122AA\r"))
        with can.Bus(self.url, interface="slcan", sleep_after_open=0.0) as bus:
            bus.send(can.Message(arbitration_id=0x123, data=b"*;", is_extended_id=False))
            message = bus.recv(PATIENCE)
        self.assertEqual((message.arbitration_id, message.data), (0x456, bytearray(b"\x11\x22\xaa")))

    def test_pyserial_asyncio(self) -> None:
        self.answers((b"*IDN?\n", b"M100\n"))

        async def ask() -> bytes:
            reader, writer = await serial_asyncio.open_serial_connection(url=self.url)
            writer.write(b"*IDN?\n")
            line: bytes = await asyncio.wait_for(reader.readline(), PATIENCE)
            writer.close()
            await writer.wait_closed()
            return line

        self.assertEqual(asyncio.run(ask()), b"M100\n")


class Readme(WithUrl):
    TEXT = (pathlib.Path(__file__).parents[2] / "clients/python/README.md").read_text("utf-8")

    def setUp(self) -> None:
        super().setUp()
        make(PROGRAM, self.addCleanup, port=60004).wait_until_it_listens()

    def test_the_example(self) -> None:
        [example] = re.findall(r"```python\n(import serial\n.*?)```", self.TEXT, re.DOTALL)
        self.answers((b"*IDN?\n", b"M100\n"))
        output = io.StringIO()
        with contextlib.redirect_stdout(output):
            exec(example, {})
        self.assertEqual(output.getvalue(), "M100\n")

    def test_miniterm(self) -> None:
        [command] = re.findall(r"^python3 -m (.* -m serial.tools.miniterm .*)$", self.TEXT, re.M)
        self.start(*shlex.split(command))
        self.sees(b"Quit: Ctrl+]")
        self.types(b"hi")
        self.assertEqual(self.device.receives(2), b"hi")
        self.device.sends(b"there")
        self.sees(b"there")
        self.types(b"\x14\x09")  # the port's state, modem lines among it
        self.sees(b"RTS: active")
        self.types(b"\x1d")
        self.assertEqual(self.process.wait(PATIENCE), 0)

    def start(self, *arguments: str) -> None:
        self.screen, terminal = pty.openpty()
        tty.setraw(terminal)
        self.addCleanup(os.close, self.screen)
        self.process = subprocess.Popen([sys.executable, "-B", "-m", *arguments],
                                        stdin=terminal, stdout=terminal, stderr=terminal)
        self.addCleanup(self.process.wait)
        self.addCleanup(self.process.kill)
        os.close(terminal)

    def types(self, keys: bytes) -> None:
        os.write(self.screen, keys)

    def sees(self, text: bytes) -> None:
        seen = b""
        while text not in seen:
            self.assertTrue(select.select([self.screen], [], [], PATIENCE)[0], seen)
            seen += os.read(self.screen, 1000)


class Runner(WithUrl):
    def run_it(self, *arguments: str) -> tuple[int, str]:
        done = subprocess.run([*RUN, *arguments], capture_output=True, text=True, timeout=PATIENCE)
        return done.returncode, done.stderr

    def test_what_it_cannot_run(self) -> None:
        usage = "usage: python3 -m serial_port_relay.pyserial [-m MODULE | PROGRAM] [ARGUMENT...]\n"
        self.assertEqual(self.run_it("-m"), (1, usage))
        for arguments, what in (
            (["no-such", "x"], "program no-such"),
            (["-m", "serial.no_such"], "module serial.no_such"),
            (["-m", "no.such"], "module no.such"),
        ):
            told = f"serial_port_relay.pyserial: there is no {what}\n"
            self.assertEqual(self.run_it(*arguments), (1, told))

    def test_without_pyserial(self) -> None:
        done = subprocess.run([sys.executable, "-B", "-S", *RUN[2:], "-m", "x"],
                              capture_output=True, text=True, timeout=PATIENCE)
        self.assertEqual(done.returncode, 1)
        told = "ImportError: serial_port_relay.pyserial needs pyserial (Debian: python3-serial)\n"
        self.assertTrue(done.stderr.endswith(told), done.stderr)

    def test_a_program(self) -> None:
        status, told = self.run_it("pyserial-miniterm", "relay://?port=1#X")
        self.assertEqual(status, 1)
        self.assertIn("could not open port 'relay://?port=1#X': could not open port", told)
        self.assertIn("nothing listens on 127.0.0.1:1: is the service running?", told)
