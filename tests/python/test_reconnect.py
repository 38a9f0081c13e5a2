# SPDX-License-Identifier: MIT
"""A client that reconnects, with the real service."""

import fcntl
import os
import resource
import socket
import struct
import termios
import time
import unittest
from collections.abc import Callable

from serial_port_relay import Change, Client, Event, NotListening, Port, Received, Refused
from with_service import WithService
from workplace import PATIENCE, PHYSICAL, USB, Device


class Reconnecting(WithService):
    def kept(self) -> Client:
        client = self.connect(reconnect=True)
        client.open(PHYSICAL, keep=True)
        return client

    def restart(self) -> None:
        self.service.kill()
        self.service.start()

    def told(self) -> list[Change]:
        return [event.what for event in self.events]


class Restart(Reconnecting):
    def test_write(self) -> None:
        client = self.kept()
        for data in (b"one", b"two"):
            self.restart()
            client.write(PHYSICAL, data)
            self.assertEqual(self.device.receives(3), data)

    def test_open(self) -> None:
        client = self.connect(reconnect=True)
        self.restart()
        client.open(PHYSICAL)
        self.restart()
        client.open(PHYSICAL, keep=True)
        self.restart()
        with self.assertRaisesRegex(Refused, "status 2"):
            client.open("X")
        client.write(PHYSICAL, b"abc")
        self.assertEqual(self.device.receives(3), b"abc")

    def test_close(self) -> None:
        client = self.kept()
        self.restart()
        client.close(PHYSICAL)
        with self.assertRaisesRegex(Refused, "status 2"):
            client.close(PHYSICAL)

    def test_packets_of_ones_own(self) -> None:
        client = self.connect(reconnect=True)
        self.restart()
        client.send(bytes.fromhex("0007 01 02 0001 58"))
        self.assertEqual(client.reply(PATIENCE).number, 2)


class Limits(Reconnecting):
    def test_receive_takes_its_timeout(self) -> None:
        client = self.kept()
        self.service.kill()
        began = time.monotonic()
        self.assertIsNone(client.receive(0.1))
        passed = time.monotonic() - began
        self.assertTrue(0.1 <= passed < PATIENCE / 4, passed)

    def test_commands_take_the_reply_timeout(self) -> None:
        client = self.connect(reconnect=True)
        client.open(PHYSICAL)
        self.service.kill()
        client.reply_timeout = 0.2
        calls: list[Callable[[], None]] = [
            lambda: client.open("X"),
            lambda: client.close(PHYSICAL),
            lambda: client.write(PHYSICAL, b"abc"),
        ]
        for call in calls:
            began = time.monotonic()
            with self.assertRaisesRegex(NotListening, "is the service running"):
                call()
            passed = time.monotonic() - began
            self.assertTrue(0.2 <= passed < PATIENCE / 4, passed)
        self.service.start()
        client.reply_timeout = PATIENCE
        client.open(PHYSICAL)

    def test_a_descriptor_above_1023(self) -> None:
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        resource.setrlimit(resource.RLIMIT_NOFILE, (min(hard, 2048), hard))
        self.addCleanup(resource.setrlimit, resource.RLIMIT_NOFILE, (soft, hard))
        taken: list[int] = []
        while not taken or taken[-1] < 1024:
            taken.append(os.dup(0))
            self.addCleanup(os.close, taken[-1])
        client = self.kept()
        client.write(PHYSICAL, b"abc")
        self.assertEqual(self.device.receives(3), b"abc")


class KeptPorts(Reconnecting):
    def test_an_adapter_that_comes_later(self) -> None:
        client = self.connect(reconnect=True)
        with self.assertRaisesRegex(Refused, "status 4"):
            client.open(USB, keep=True)
        usb = Device("/dev/ttyUSB0")
        self.addCleanup(usb.remove)
        self.receive_until(client, lambda: bool(self.events))
        self.assertEqual(self.events, [Event(Change.OPENED, f"{USB}: open", Port(USB.encode()))])
        client.write(USB, b"abc")
        self.assertEqual(usb.receives(3), b"abc")

    def test_an_adapter_that_is_away_after_a_restart(self) -> None:
        usb = Device("/dev/ttyUSB0")
        client = self.connect(reconnect=True)
        client.open(USB, keep=True)
        usb.remove()
        self.restart()
        self.receive_until(client, lambda: Change.REFUSED in self.told())
        with self.assertRaisesRegex(Refused, "not open"):
            client.write(USB, b"abc")
        usb = Device("/dev/ttyUSB0")
        self.addCleanup(usb.remove)
        self.receive_until(client, lambda: Change.OPENED in self.told())
        client.write(USB, b"abc")
        self.assertEqual(usb.receives(3), b"abc")

    def test_disconnect_and_connect(self) -> None:
        for reconnect in (True, False):
            with self.subTest(reconnect=reconnect):
                client = self.connect(reconnect=reconnect)
                client.open(PHYSICAL, keep=True)
                client.disconnect()
                client.connect()
                client.write(PHYSICAL, b"abc")
                self.assertEqual(self.device.receives(3), b"abc")
                client.disconnect()


class Disconnect(unittest.TestCase):
    make: Callable[..., Client] = Client

    def test_what_had_come_is_kept(self) -> None:
        with socket.create_server(("127.0.0.1", 0)) as server:
            client = self.make(server.getsockname()[1])
            client.connect()
            link, _ = server.accept()
            with link:
                link.sendall(bytes.fromhex("000D 04 02 0001 58 01 02 0002 4F4B"))
                while struct.unpack("i", fcntl.ioctl(link, termios.TIOCOUTQ, b"\0" * 4)) != (0,):
                    pass  # until the client's side has it
                client.disconnect()
        self.assertEqual(client.receive(0.0), Received(Port(b"X"), b"OK"))


if __name__ == "__main__":
    unittest.main()
