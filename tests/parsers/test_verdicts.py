# SPDX-License-Identifier: MIT
"""One verdict of every parser on every packet: whether it has the form, and if so what it says.

Asked of every packet are the Python module, the C++ client and the dissector, each with what cuts its
stream into packets; with SPH_KAITAI, a folder that make-parser has filled, the description of the
packets for Kaitai Struct, too. The service's parser is asked of packets to the service only, as it
reads no others, and an open or close without a parameter has the parameter 0 to it.

A verdict is "refused", or like "open <58> 0005", "data 0403:6001 1:4142 2:".
"""

import collections
import importlib
import io
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest
from collections.abc import Callable, Iterable
from typing import Any

from capture import Segment, write
from dissector import tshark
from packets import Packet, Source
from serial_port_relay import Direction, MalformedPacket, PacketCutter, parse_packet

RECORDINGS = pathlib.Path(__file__).parents[1] / "recordings"
PROGRAM = os.environ["SPH_VERDICTS"]
REFUSED = "refused"
EACH_WAY = 5000
CONTROL = {8: rb"\b", 9: rb"\t", 10: rb"\n", 12: rb"\f", 13: rb"\r"}
COMMANDS = {1: "open", 2: "close", 4: "data"}

Verdicts = list[str]


def verdict(command: int, port: str, number: int | None,
            blocks: Iterable[tuple[int, bytes]]) -> str:
    words = [COMMANDS[command], port] + ([] if number is None else [f"{number:04X}"])
    return " ".join(words + [f"{kind}:{data.hex().upper()}" for kind, data in blocks])


def ids(vendor: int, product: int) -> str:
    return f"{vendor:04X}:{product:04X}"


def named(name: bytes) -> str:
    return f"<{name.hex().upper()}>"


def of_python(packets: list[Packet]) -> Verdicts:
    cutters = {True: PacketCutter(), False: PacketCutter()}
    verdicts = []
    for is_to_service, data in packets:
        cutter = cutters[is_to_service]
        cutter.add(data)
        assert cutter.next() == data and cutter.is_empty, data.hex()
        direction = Direction.TO_SERVICE if is_to_service else Direction.FROM_SERVICE
        try:
            packet = parse_packet(data, direction)
        except MalformedPacket:
            verdicts.append(REFUSED)
            continue
        port = packet.port
        text = (ids(port.vendor_id, port.product_id) if port.is_numbered
                else named(port.as_answered().name))
        blocks = [(block.type, block.data) for block in packet.blocks]
        verdicts.append(verdict(packet.command, text, packet.number, blocks))
    return verdicts


def of_cpp(packets: list[Packet]) -> tuple[Verdicts, Verdicts]:
    """Of the client, and of the service."""
    lines = [f"{'>' if is_to_service else '<'} {data.hex()}\n" for is_to_service, data in packets]
    done = subprocess.run([PROGRAM], input="".join(lines), capture_output=True, text=True,
                          timeout=60)
    assert done.returncode == 0, done.stderr
    rows = [line.split("\t") for line in done.stdout.splitlines()]
    return [row[0] for row in rows], [row[1] for row in rows if len(row) > 1]


class OfDissector:
    """One segment for each packet. What comes from the service first: no reply then looks for its
    request."""

    FIELDS = "command vendor product parameter status block.type block.length block.data name"

    def __init__(self, packets: list[Packet]) -> None:
        order = sorted(range(len(packets)), key=lambda at: packets[at].is_to_service)
        with tempfile.TemporaryDirectory() as folder:
            path = f"{folder}/packets.pcap"
            write(path, [Segment(at, *packets[at]) for at in order])
            names = [f"serialrelay.{field}" for field in self.FIELDS.split()]
            rows = tshark(path, ["_ws.expert.message", *names])
        assert len(rows) == len(packets), f"{len(rows)} rows"
        self.verdicts = [text for _, text in sorted(zip(order, map(self._of_row, rows)))]

    @staticmethod
    def _of_row(row: str) -> str:
        problem, command, vendor, product, *numbers, kinds, sizes, data, name = row.split("|", 9)
        if "Malformed packet: " in problem:
            return REFUSED
        port = ids(int(vendor, 0), int(product, 0)) if vendor else named(os.fsencode(name))
        number = next((int(text) for text in numbers if text), None)
        # An empty block has no data to show.
        shown = iter(data.split(","))
        blocks = [(int(kind), bytes.fromhex(next(shown)) if size != "0" else b"")
                  for kind, size in zip(kinds.split(","), sizes.split(",")) if kind]
        return verdict(int(command), port, number, blocks)


class _Link(io.RawIOBase):
    """Bytes without a position, as from a socket."""

    def __init__(self, data: bytes) -> None:
        self._data = io.BytesIO(data)

    def readable(self) -> bool:
        return True

    def readinto(self, buffer: Any) -> int:
        return self._data.readinto(buffer)


class OfKaitai:
    """Reads packet after packet: behind a refused one stands the next."""

    def __init__(self, folder: str) -> None:
        sys.path.insert(0, folder)
        self._runtime = importlib.import_module("kaitaistruct")
        self._parser = importlib.import_module("serial_relay").SerialRelay

    def verdicts(self, packets: list[Packet]) -> Verdicts:
        streams = {way: self._runtime.KaitaiStream(io.BufferedReader(_Link(
            b"".join(packet.data for packet in packets if packet.is_to_service == way))))
            for way in (True, False)}
        verdicts = [self._verdict(way, streams[way]) for way, _ in packets]
        assert not any(stream.read_bytes_full() for stream in streams.values())
        return verdicts

    def _verdict(self, is_to_service: bool, stream: Any) -> str:
        try:
            content = self._parser(is_to_service, stream).content
        except (EOFError, self._runtime.KaitaiStructError):
            return REFUSED
        port = content.port
        is_numbered = content.port_form.name == "numbered"
        text = ids(port.vendor_id, port.product_id) if is_numbered else named(port.name)
        number = getattr(content, "parameter" if is_to_service else "status", None)
        blocks = [(block.kind, block.data) for block in getattr(content, "blocks", ())]
        return verdict(content.command.value, text, number, blocks)


def recorded() -> list[Packet]:
    """What went over the link in the recordings. Their `;; bytes` are pieces of a stream."""
    files = sorted(str(file) for file in RECORDINGS.rglob("*.rec"))
    told = subprocess.run([PROGRAM, *files], capture_output=True, text=True, timeout=60, check=True)
    return [Packet(line[0] == ">", bytes.fromhex(line[2:])) for line in told.stdout.splitlines()]


def as_the_service_says(text: str) -> str:
    has_no_parameter = text.startswith(("open", "close")) and text.count(" ") == 1
    return f"{text} 0000" if has_no_parameter else text


def as_the_dissector_says(text: str) -> str:
    """tshark writes control characters of a name as C does."""
    return re.sub("<(.*)>", lambda found: named(b"".join(
        CONTROL.get(byte, bytes([byte])) for byte in bytes.fromhex(found[1]))), text)


class OneVerdict(unittest.TestCase):
    def setUp(self) -> None:
        source = Source(seed=1)
        self.packets = recorded()
        self.assertGreater(len(self.packets), 100)
        for is_to_service in (True, False):
            self.packets += [source.packet(is_to_service) for _ in range(EACH_WAY)]

    def test_of_every_parser(self) -> None:
        of_client, of_service = of_cpp(self.packets)
        wanted = of_python(self.packets)
        self.check_that_both_occur(wanted)
        self.compare("C++ client", of_client, self.packets, wanted)
        if folder := os.environ.get("SPH_KAITAI"):
            self.compare("Kaitai Struct", OfKaitai(folder).verdicts(self.packets), self.packets,
                         wanted)
        self.compare("dissector", OfDissector(self.packets).verdicts, self.packets,
                     list(map(as_the_dissector_says, wanted)))
        commands = [at for at, packet in enumerate(self.packets) if packet.is_to_service]
        self.compare("service", of_service, [self.packets[at] for at in commands],
                     [as_the_service_says(wanted[at]) for at in commands])

    def compare(self, name: str, verdicts: Verdicts, packets: list[Packet], wanted: Verdicts
                ) -> None:
        self.assertEqual(len(verdicts), len(packets), name)
        others = [f"{'>' if packet.is_to_service else '<'} {packet.data.hex(' ')}: "
                  f"{name}: {own}; Python module: {other}"
                  for packet, own, other in zip(packets, verdicts, wanted) if own != other]
        self.assertFalse(others, f"{len(others)} differ, such as\n" + "\n".join(others[:10]))

    def check_that_both_occur(self, verdicts: Verdicts) -> None:
        """And every kind of packet."""
        kinds: dict[str, Callable[[list[str]], bool]] = {
            "refused": lambda words: words == [REFUSED],
            "open": lambda words: words[0] == "open",
            "close": lambda words: words[0] == "close",
            "data": lambda words: words[0] == "data",
            "by ids": lambda words: words[-1] != REFUSED and words[1][0] != "<",
            "name that begins with a zero byte": lambda words: "<>" in words,
            "no block": lambda words: words[0] == "data" and len(words) == 2,
            "blocks": lambda words: words[0] == "data" and len(words) > 3,
            "an empty block": lambda words: words[-1].endswith(":"),
        }
        seen: collections.Counter[tuple[bool, str]] = collections.Counter()
        for packet, text in zip(self.packets, verdicts):
            seen.update((packet.is_to_service, kind) for kind, applies in kinds.items()
                        if applies(text.split(" ")))
        for is_to_service in (True, False):
            for kind in kinds:
                least = EACH_WAY // 4 if kind == "refused" else EACH_WAY // 250
                self.assertGreater(seen[is_to_service, kind], least, (is_to_service, kind))
            self.assertLess(seen[is_to_service, "refused"], EACH_WAY * 3 // 4)


if __name__ == "__main__":
    unittest.main()
