# SPDX-License-Identifier: MIT
"""A port with the habits of pyserial, with the real service."""

import io
import select
import time

from serial_port_relay import Client, LinkEnded, Refused, SerialPort
from with_service import WithService
from workplace import PATIENCE, PHYSICAL, USB, Device


class WithPort(WithService):
    def opened(self, timeout: float | None = PATIENCE) -> SerialPort:
        return self.connect().serial(PHYSICAL, timeout)

    def sends(self, port: SerialPort, data: bytes) -> None:
        """And waits until they have come."""
        before = port.in_waiting
        self.device.sends(data)
        end = time.monotonic() + PATIENCE
        while port.in_waiting < before + len(data):
            self.assertLess(time.monotonic(), end)


class Habits(WithPort):
    def test_read_takes_as_many_bytes_as_it_is_asked_for(self) -> None:
        port = self.opened(timeout=None)
        self.sends(port, b"abcdef")
        self.assertEqual((port.read(), port.read(3), port.in_waiting), (b"a", b"bcd", 2))
        self.assertEqual((port.read(0), port.read_all(), port.in_waiting), (b"", b"ef", 0))

    def test_a_timeout_is_one(self) -> None:
        port = self.opened(timeout=0.2)
        self.sends(port, b"ab")
        began = time.monotonic()
        self.assertEqual(port.read(3), b"ab")
        passed = time.monotonic() - began
        self.assertTrue(0.2 <= passed < PATIENCE / 4, passed)
        port.timeout = 0
        began = time.monotonic()
        self.assertEqual(port.read(3), b"")
        self.assertLess(time.monotonic() - began, PATIENCE / 4)

    def test_read_until_takes_what_there_is_at_its_limits(self) -> None:
        port = self.opened()
        self.sends(port, b"one\ntwo>three")
        self.assertEqual(port.read_until(), b"one\n")
        self.assertEqual(port.read_until(b">", size=2), b"tw")
        self.assertEqual(port.read_until(b">", size=2), b"o>")
        port.timeout = 0
        self.assertEqual((port.read_until(), port.in_waiting), (b"three", 0))

    def test_iteration_gives_lines_until_nothing_comes(self) -> None:
        port = self.opened()
        self.sends(port, b"one\ntwo\nrest")
        port.timeout = 0
        self.assertEqual(list(port), [b"one\n", b"two\n", b"rest"])

    def test_write_tells_how_much(self) -> None:
        port = self.opened()
        self.assertEqual((port.write(b"abc"), port.write(b"")), (3, 0))
        self.assertEqual(self.device.receives(3), b"abc")

    def test_reset_input_buffer(self) -> None:
        port = self.opened()
        self.sends(port, b"old")
        port.reset_input_buffer()
        self.sends(port, b"new")
        self.assertEqual(port.read_all(), b"new")

    def test_it_is_open_in_its_block(self) -> None:
        client = self.connect()
        with client.serial(PHYSICAL) as port:
            self.assertTrue(port.is_open)
            with self.assertRaisesRegex(Refused, "status 3"):
                client.serial(PHYSICAL)
        self.assertFalse(port.is_open)
        port.close()
        with self.assertRaises(Refused):
            port.write(b"abc")
        port.open()
        port.write(b"abc")
        self.assertEqual(self.device.receives(3), b"abc")
        client.disconnect()
        self.assertFalse(port.is_open)
        port.close()

    def test_two_ports_of_a_client(self) -> None:
        usb = Device("/dev/ttyUSB0")
        self.addCleanup(usb.remove)
        client = self.connect()
        with client.serial(PHYSICAL, PATIENCE) as one, client.serial(USB, PATIENCE) as other:
            usb.sends(b"usb")
            self.device.sends(b"physical")
            self.assertEqual((one.read(8), other.read(3)), (b"physical", b"usb"))

    def test_the_link_ends(self) -> None:
        port = self.opened(timeout=None)
        self.sends(port, b"abc")
        self.service.kill()
        self.assertEqual(port.read(4), b"abc")
        with self.assertRaises(LinkEnded):
            port.read(4)

    def test_a_read_ends_where_the_link_was_made_anew(self) -> None:
        client: Client = self.connect(reconnect=True)
        port = client.serial(PHYSICAL, PATIENCE, keep=True)
        self.sends(port, b"abc")
        self.service.kill()
        self.service.start()
        port.write(b"x")
        self.sends(port, b"def")
        self.assertEqual((port.read(6), port.read(3)), (b"abc", b"def"))


class OfPythonsStreams(WithPort):
    def test_as_a_stream_of_text(self) -> None:
        port = self.opened()
        self.sends(port, "grün\r\nrot\r\n".encode())
        port.timeout = 0
        self.assertEqual(io.TextIOWrapper(io.BufferedReader(port)).readlines(), ["grün\n", "rot\n"])

    def test_select(self) -> None:
        port = self.opened()
        self.assertEqual(select.select([port], [], [], 0.0)[0], [])
        self.device.sends(b"abc")
        self.assertEqual(select.select([port], [], [], PATIENCE)[0], [port])
        self.assertEqual(port.read(3), b"abc")

    def test_readinto_and_write_of_any_buffer(self) -> None:
        port = self.opened()
        self.assertEqual(port.write(memoryview(b"abc")), 3)
        self.sends(port, b"defg")
        buffer = bytearray(4)
        self.assertEqual((port.readinto(buffer), buffer), (4, b"defg"))
