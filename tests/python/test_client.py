# SPDX-License-Identifier: MIT
"""The client, with the real service."""

import contextlib
import io
import pathlib
import re
import socket
import threading
import time
import unittest

from serial_port_relay import Client, LinkEnded, NoAnswer, NotListening, Port, Received, Refused
from serial_port_relay.packet import OPEN
from with_service import PROGRAM, WithService
from workplace import PATIENCE, PHYSICAL, USB, Device, make

README = pathlib.Path(__file__).parents[2] / "clients/python/README.md"


class ClientTest(WithService):
    def refusal(self, client: Client, port: str, close: bool = False) -> int:
        with self.assertRaises(Refused) as caught:
            if close:
                client.close(port)
            else:
                client.open(port)
        self.assertIn(f"status {caught.exception.status}: ", str(caught.exception))
        return caught.exception.status

    def test_statuses(self) -> None:
        client = self.connect()
        self.assertEqual(self.refusal(client, "X"), 2)
        self.assertEqual(self.refusal(client, "0403:6001"), 2)
        self.assertEqual(self.refusal(client, USB), 4)  # no node
        client.open(PHYSICAL)
        self.assertEqual(self.refusal(client, PHYSICAL), 3)
        client.close(PHYSICAL)
        self.assertEqual(self.refusal(client, PHYSICAL, close=True), 2)
        self.assertEqual(self.refusal(client, "0403:6001", close=True), 2)

    def test_a_name_with_a_zero_byte(self) -> None:
        self.assertEqual(self.refusal(self.connect(), "XY\0X"), 2)

    def test_two_ports(self) -> None:
        usb = Device("/dev/ttyUSB0")
        self.addCleanup(usb.remove)
        client = self.connect()
        client.open(PHYSICAL)
        client.open(USB)
        client.write(PHYSICAL, b"to the one")
        client.write(USB, b"to the other", block_size=5)
        self.assertEqual(self.device.receives(10), b"to the one")
        self.assertEqual(usb.receives(12), b"to the other")
        usb.sends(b"one\ntwo\nrest")
        self.device.sends(b"physical")
        self.assertEqual(client.read_until(USB, b"\n", PATIENCE), b"one\n")
        self.assertEqual(client.read_until(PHYSICAL, b"al", PATIENCE), b"physical")
        self.assertEqual(client.read_until(USB, b"rest", PATIENCE), b"two\nrest")

    def test_received_is_an_iterator(self) -> None:
        client = self.connect()
        client.open(PHYSICAL)
        self.device.sends(b"abc")
        self.assertEqual(next(client.received(PATIENCE)), Received(Port(PHYSICAL.encode()), b"abc"))
        self.assertEqual(list(client.received(silence=0.0)), [])

    def test_much_data_both_ways(self) -> None:
        client = self.connect()
        client.open(PHYSICAL)
        sent = bytes(range(256)) * 800  # more than a packet, and more than the line's buffers
        echo = threading.Thread(target=self.echo, args=(len(sent),))
        echo.start()
        client.write(PHYSICAL, sent[:100000])
        client.write(PHYSICAL, sent[100000:], block_size=65536)
        self.assertEqual(client.read_until(PHYSICAL, sent, PATIENCE), sent)
        echo.join()

    def test_write_returns_when_the_service_has_taken_the_data(self) -> None:
        client = self.connect()
        client.open(PHYSICAL)
        client.reply_timeout = 2.0
        sent = bytes(range(256)) * 400  # more than the line's buffers, less than the link's
        with self.assertRaises(NoAnswer) as caught:
            client.write(PHYSICAL, sent)
        taken = caught.exception.taken
        self.assertTrue(1024 <= taken < len(sent), taken)
        self.assertIn(f"took {taken} bytes, and no more", str(caught.exception))
        self.assertEqual(self.device.receives(taken), sent[:taken])

    def echo(self, count: int) -> None:
        while count > 0 and (data := self.device.receives(min(count, 256))):
            count -= len(data)
            self.device.sends(data)

    def test_options(self) -> None:
        client = self.connect()
        assert client._link is not None
        link = client._link._socket
        self.assertNotEqual(link.getsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY), 0)
        for _ in range(10):  # by then the kernel has cleared it, unless set after each
            self.refusal(client, "X")
        self.assertEqual(link.getsockopt(socket.IPPROTO_TCP, socket.TCP_QUICKACK), 1)

    def test_packets_of_ones_own(self) -> None:
        client = self.connect()
        client.send(bytes.fromhex("0007 03 02 0001 58  0007 01 02 0001 58"))
        answer = client.reply(PATIENCE)  # to the second: the first is refused
        self.assertEqual((answer.command, answer.port, answer.number), (OPEN, Port(b"X"), 2))
        with self.assertRaises(NoAnswer):
            client.reply(0.0)

    def test_a_length_of_two_ends_the_link(self) -> None:
        client = self.connect()
        client.open(PHYSICAL)
        client.send(b"\0\2")
        with self.assertRaises(LinkEnded):
            client.receive(PATIENCE)
        self.assertFalse(client.is_connected)
        client.connect()
        client.open(PHYSICAL)  # also when the new link is reset first

    def test_no_answer(self) -> None:
        with socket.create_server(("127.0.0.1", 0)) as mute:
            client = self.make(mute.getsockname()[1], reply_timeout=0.1)
            self.addCleanup(client.disconnect)
            client.connect()
            with self.assertRaisesRegex(NoAnswer, "#PhysicalPort0"):
                client.open(PHYSICAL)
            self.assertFalse(client.is_connected)

    def test_nobody_listens(self) -> None:
        with self.assertRaisesRegex(NotListening, "127.0.0.1:60999: is the service running"):
            self.make(60999, patience=0.0).connect()

    def test_nobody_is_connected_to_himself(self) -> None:
        ipv4 = pathlib.Path("/proc/sys/net/ipv4")
        (ipv4 / "ip_local_reserved_ports").write_text("\n")
        local_ports = ipv4 / "ip_local_port_range"
        self.addCleanup(local_ports.write_text, local_ports.read_text())
        # These lead bind and connect to the service's own port.
        for ports in ("60003 60004", "60004 60005"):
            local_ports.write_text(ports)
            with self.subTest(ports), self.assertRaises(NotListening):
                self.make(patience=0.0).connect()


class SlowLine(WithService):
    def test_a_slow_line_is_no_failure(self) -> None:
        client = self.connect()
        client.open(PHYSICAL)
        # A full line is offered more when it has room for some 20 kB, and not before.
        client.reply_timeout = 2.5
        sent = bytes(range(256)) * 800
        began = time.monotonic()
        reader = threading.Thread(target=self.receive_slowly, args=(sent,))
        reader.start()
        client.write(PHYSICAL, sent)
        self.assertGreater(time.monotonic() - began, client.reply_timeout)
        reader.join()

    def receive_slowly(self, wanted: bytes) -> None:
        for at in range(0, len(wanted), 1024):
            time.sleep(0.02)  # the line's speed
            assert self.device.receives(1024) == wanted[at : at + 1024]


class Callback(WithService):
    def test_callback(self) -> None:
        client = self.connect()
        came: list[bytes] = []
        client.on_received = lambda piece: came.append(piece.data)
        client.open(PHYSICAL)
        self.device.sends(b"abc")
        self.receive_until(client, lambda: bool(came))
        self.assertEqual(came, [b"abc"])


class Readme(unittest.TestCase):
    def test_the_examples(self) -> None:
        examples = re.findall(r"```python\n(.*?)```", README.read_text(encoding="utf-8"), re.DOTALL)
        examples = [example for example in examples if not example.startswith("import serial\n")]
        self.assertEqual(len(examples), 3)  # tests of their own have that of pyserial
        service = make(PROGRAM, self.addCleanup, port=60004)
        device = Device("/dev/ttyS2")
        self.addCleanup(device.remove)
        service.wait_until_it_listens()  # the first example is impatient
        for example in examples:
            with self.subTest(example):
                self.assertEqual(self.output_of(example, device), "M100\n")

    def output_of(self, example: str, device: Device) -> str:
        answer = threading.Thread(target=self.answer, args=(device,))
        answer.start()
        output = io.StringIO()
        with contextlib.redirect_stdout(output):
            exec(example, {})
        answer.join()
        return output.getvalue()

    def answer(self, device: Device) -> None:
        if device.receives(6) == b"*IDN?\n":
            device.sends(b"M100\n")


if __name__ == "__main__":
    unittest.main()
