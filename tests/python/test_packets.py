# SPDX-License-Identifier: MIT
"""Packets, without a service."""

import unittest

import serial_port_relay as relay
from serial_port_relay import Block, Direction, Packet, Port
from serial_port_relay.packet import CLOSE, DATA, OPEN, block_bytes

NAME = "000E 23506879736963616C506F727431"  # #PhysicalPort1
TO, FROM = Direction.TO_SERVICE, Direction.FROM_SERVICE
PACKETS = [
    (f"0014 02 02 {NAME}", TO, Packet(CLOSE, Port(b"#PhysicalPort1"))),
    (f"0016 02 02 {NAME} 0000", FROM, Packet(CLOSE, Port(b"#PhysicalPort1"), 0)),
    ("000A 02 01 0003 0007 0005", TO, Packet(CLOSE, Port(b"", 3, 7), 5)),
    ("000A 02 01 0003 0007 0002", FROM, Packet(CLOSE, Port(b"", 3, 7), 2)),
    ("0008 01 01 0403 6001", TO, Packet(OPEN, Port.from_text("0403:6001"))),
    ("0010 04 02 0003 434F4D 01 01 0003 414243", TO,
     Packet(DATA, Port(b"COM"), None, (Block(1, b"ABC"),))),
    ("0011 04 02 0001 58 02 00 0001 41 FF 0002 4243", TO,
     Packet(DATA, Port(b"X"), None, (Block(0, b"A"), Block(255, b"BC")))),
    ("0008 04 02 0001 58 00", TO, Packet(DATA, Port(b"X"))),
    ("000E 04 01 0001 0002 01 02 0002 0D0A", FROM,
     Packet(DATA, Port(b"", 1, 2), None, (Block(2, b"\r\n"),))),
]
REFUSED = [
    ("0003 01", "within the port form"),
    ("0004 01 02", "within the name's length"),
    ("0006 02 01 0403", "within the product id"),
    ("0008 01 02 0003 5859", "within the name"),
    ("0007 03 02 0001 58", "no command 3"),
    ("0008 01 00 0403 6001", "no port form 0"),
    ("0006 01 02 0000", "name is empty"),
    ("0008 01 02 0001 58 00", "within the parameter"),
    ("000A 02 02 0001 58 000500", "1 bytes too many"),
    ("0007 04 02 0001 58", "within the block count"),
    ("000B 04 02 0001 58 01  01 0002", "within a block's data"),
    ("000C 04 02 0001 58 02  01 0001 41", "within a block's type"),
    ("000D 04 02 0001 58 01  01 0001 41 00", "1 bytes too many"),
]


class Packets(unittest.TestCase):
    def test_built_and_parsed(self) -> None:
        for text, direction, packet in PACKETS:
            with self.subTest(text):
                self.assertEqual(relay.build_packet(packet), bytes.fromhex(text))
                self.assertEqual(relay.parse_packet(bytes.fromhex(text), direction), packet)

    def test_refused(self) -> None:
        for text, problem in REFUSED:
            with self.subTest(text):
                with self.assertRaisesRegex(relay.MalformedPacket, problem):
                    relay.parse_packet(bytes.fromhex(text), TO)

    def test_a_reply_has_a_status(self) -> None:
        with self.assertRaisesRegex(relay.MalformedPacket, "within the status"):
            relay.parse_packet(bytes.fromhex("0007 01 02 0001 58"), FROM)

    def test_the_longest_data(self) -> None:
        self.assertEqual(block_bytes("#PhysicalPort0", 65536), 65511)
        self.assertEqual(block_bytes("#PhysicalPort0", 65510), 65510)
        command = relay.data_command("#PhysicalPort0", [Block(1, bytes(65511))])
        self.assertEqual(len(command), 65535)
        with self.assertRaises(relay.UsageError):
            block_bytes("#PhysicalPort0", -1)

    def test_what_cannot_be_built(self) -> None:
        with self.assertRaises(relay.UsageError):
            relay.open_command("")
        with self.assertRaises(relay.UsageError):
            relay.open_command("X", 65536)
        with self.assertRaises(relay.UsageError):
            relay.data_command("X", [Block(1, b"")] * 256)
        with self.assertRaises(relay.UsageError):
            relay.data_command("X", [Block(1, bytes(65525))])


class Cutter(unittest.TestCase):
    def test_byte_by_byte(self) -> None:
        cutter = relay.PacketCutter()
        stream = b"".join(bytes.fromhex(text) for text, _, _ in PACKETS)
        cut = []
        for at in range(len(stream)):
            cutter.add(stream[at : at + 1])
            while (packet := cutter.next()) is not None:
                cut.append(packet)
        self.assertEqual(cut, [bytes.fromhex(text) for text, _, _ in PACKETS])

    def test_a_length_that_no_packet_has(self) -> None:
        cutter = relay.PacketCutter()
        cutter.add(b"\0\2")
        with self.assertRaises(relay.NonsenseError):
            cutter.next()

    def test_one_that_is_too_short_for_a_packet_is_cut_out(self) -> None:
        cutter = relay.PacketCutter()
        cutter.add(b"\0\3\1\0")
        self.assertEqual(cutter.next(), b"\0\3\1")
        self.assertIsNone(cutter.next())


if __name__ == "__main__":
    unittest.main()
