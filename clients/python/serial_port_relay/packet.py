# SPDX-License-Identifier: MIT
"""The packets of the link: built, cut out of a stream, and parsed."""

import enum
import re
import struct
from collections.abc import Sequence
from dataclasses import dataclass

from .errors import MalformedPacket, NonsenseError, UsageError

OPEN, CLOSE, DATA = 1, 2, 4
NUMBERED, NAMED = 1, 2
DONE, NO_PORT, OPEN_ALREADY, OPEN_FAILED, NOT_CLOSED = 0, 2, 3, 4, 5  # statuses
RECEIVED_DATA_BLOCK = 2
MAX_PACKET = 65535
MAX_BLOCKS = 255
# The parameter of an open that is sent behind data, to a port that is open, for its answer only.
# The service does not look at it; recordings and the dissector tell by it what is no user's
# command.
FENCE = 0x4645  # "FE"
MIN_LENGTH = 3  # with less there is no next packet; what is too short for one is malformed
_MOST_SHOWN = 64

_COMMAND_NAMES = {OPEN: "open", CLOSE: "close", DATA: "data"}
_STATUS_TEXTS = {
    (OPEN, DONE): "open",
    (OPEN, NO_PORT): "this machine's configuration has no such port, or the name leads to no "
    "device",
    (OPEN, OPEN_ALREADY): "the port is open already",
    (OPEN, OPEN_FAILED): "the device is missing, or cannot be opened or set up",
    (CLOSE, DONE): "closed",
    (CLOSE, NO_PORT): "the port is not open",
    (CLOSE, NOT_CLOSED): "the port could not be closed, and stays open",
}


class Direction(enum.Enum):
    TO_SERVICE = "to the service"
    FROM_SERVICE = "from the service"


@dataclass(frozen=True, order=True)
class Port:
    """A port as packets name it: by a name, or by the USB ids of its adapter."""

    name: bytes = b""  # empty: the numbered form
    vendor_id: int = 0
    product_id: int = 0

    @staticmethod
    def from_text(text: "str | Port") -> "Port":
        """`0403:6001` is the numbered form, anything else a name."""
        if isinstance(text, Port):
            return text
        if re.fullmatch(r"[0-9A-Fa-f]{4}:[0-9A-Fa-f]{4}", text):
            return Port(b"", int(text[:4], 16), int(text[5:], 16))
        name = text.encode("utf-8", "surrogateescape")
        if not name:
            raise UsageError("a port's name cannot be empty")
        if len(name) > MAX_PACKET - 8:
            raise UsageError("a port's name does not fit into a packet")
        return Port(name)

    def as_answered(self) -> "Port":
        """The service ends a name at its first zero byte, in its answers too."""
        return Port(self.name.split(b"\0")[0], self.vendor_id, self.product_id)

    @property
    def shown(self) -> str:
        """For messages, which stay short whatever the name."""
        text = str(self)
        return text if len(text) <= _MOST_SHOWN else f"{text[:_MOST_SHOWN]}..."

    @property
    def is_numbered(self) -> bool:
        return not self.name

    def __str__(self) -> str:
        if self.is_numbered:
            return f"{self.vendor_id:04x}:{self.product_id:04x}"
        return self.name.decode("utf-8", "backslashreplace")


@dataclass(frozen=True)
class Block:
    type: int
    data: bytes


@dataclass(frozen=True)
class Packet:
    command: int
    port: Port
    number: int | None = None  # to the service: the parameter; from it: the status
    blocks: tuple[Block, ...] = ()

    @property
    def data(self) -> bytes:
        """Of all blocks."""
        return b"".join(block.data for block in self.blocks)


def status_text(command: int, status: int) -> str:
    return _STATUS_TEXTS.get((command, status), "not a status that the service is known to send")


def build_packet(packet: Packet) -> bytes:
    """Any packet, either way. Raises UsageError for one that cannot be."""
    if packet.command not in _COMMAND_NAMES:
        raise UsageError(f"there is no command {packet.command}")
    port = packet.port
    try:
        if port.is_numbered:
            identity = struct.pack(">BHH", NUMBERED, port.vendor_id, port.product_id)
        else:
            identity = struct.pack(">BH", NAMED, len(port.name)) + port.name
        if packet.command == DATA:
            body = struct.pack("B", len(packet.blocks)) + b"".join(
                struct.pack(">BH", block.type, len(block.data)) + block.data
                for block in packet.blocks
            )
        else:
            body = b"" if packet.number is None else struct.pack(">H", packet.number)
        rest = struct.pack("B", packet.command) + identity + body
        return struct.pack(">H", 2 + len(rest)) + rest
    except struct.error:
        raise UsageError("this does not fit into a packet") from None


def open_command(port: str | Port, parameter: int | None = None) -> bytes:
    return build_packet(Packet(OPEN, Port.from_text(port), parameter))


def close_command(port: str | Port, parameter: int | None = None) -> bytes:
    return build_packet(Packet(CLOSE, Port.from_text(port), parameter))


def data_command(port: str | Port, blocks: Sequence[Block]) -> bytes:
    return build_packet(Packet(DATA, Port.from_text(port), None, tuple(blocks)))


def block_bytes(port: str | Port, most: int) -> int:
    """`most`, or as many bytes as a data command of one block can carry to this port."""
    size = min(most, MAX_PACKET - len(data_command(port, [Block(1, b"")])))
    if size <= 0:
        raise UsageError("a block cannot be that small")
    return size


class _Reader:
    def __init__(self, packet: bytes) -> None:
        self.packet = packet
        self.at = 2  # behind the length

    def take(self, count: int, what: str) -> bytes:
        taken = self.packet[self.at : self.at + count]
        if len(taken) < count:
            raise MalformedPacket(f"the packet ends within {what}")
        self.at += count
        return taken

    def number(self, size: int, what: str) -> int:
        return int.from_bytes(self.take(size, what), "big")

    @property
    def at_end(self) -> bool:
        return self.at == len(self.packet)


def parse_packet(packet: bytes, direction: Direction) -> Packet:
    """`packet` is one whole packet, its length included. Raises MalformedPacket."""
    reader = _Reader(packet)
    command = reader.number(1, "the command")
    port = _parse_port(reader)
    number = None
    blocks: tuple[Block, ...] = ()
    if command == DATA:
        blocks = tuple(_parse_block(reader) for _ in range(reader.number(1, "the block count")))
    elif command not in _COMMAND_NAMES:
        raise MalformedPacket(f"there is no command {command}")
    elif direction is Direction.FROM_SERVICE or not reader.at_end:
        what = "the status" if direction is Direction.FROM_SERVICE else "the parameter"
        number = reader.number(2, what)
    if not reader.at_end:
        raise MalformedPacket(f"{len(packet) - reader.at} bytes too many")
    return Packet(command, port, number, blocks)


def _parse_port(reader: _Reader) -> Port:
    form = reader.number(1, "the port form")
    if form == NUMBERED:
        vendor_id = reader.number(2, "the vendor id")
        return Port(b"", vendor_id, reader.number(2, "the product id"))
    if form != NAMED:
        raise MalformedPacket(f"there is no port form {form}")
    length = reader.number(2, "the name's length")
    if length == 0:
        raise MalformedPacket("the port's name is empty")
    return Port(reader.take(length, "the name"))


def _parse_block(reader: _Reader) -> Block:
    block_type = reader.number(1, "a block's type")
    length = reader.number(2, "a block's length")
    return Block(block_type, reader.take(length, "a block's data"))


class PacketCutter:
    """Cuts a stream into packets."""

    def __init__(self) -> None:
        self._stream = bytearray()

    @property
    def is_empty(self) -> bool:
        """No packet has begun."""
        return not self._stream

    def add(self, data: bytes) -> None:
        self._stream += data

    def next(self) -> bytes | None:
        """The next whole packet, or None as yet. Raises NonsenseError for a length that no packet
        has; there is no way to go on from there."""
        if len(self._stream) < 2:
            return None
        length = int.from_bytes(self._stream[:2], "big")
        if length < MIN_LENGTH:
            raise NonsenseError(f"the service sent a packet of length {length}")
        if len(self._stream) < length:
            return None
        packet = bytes(self._stream[:length])
        del self._stream[:length]
        return packet
