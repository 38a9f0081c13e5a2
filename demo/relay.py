# SPDX-License-Identifier: MIT
"""The relay's side of the service's protocol: packets as hex and in words, and the link."""

import socket
import time
from dataclasses import dataclass
from enum import IntEnum

NAMED_PORT = 2


class Command(IntEnum):
    OPEN = 1
    CLOSE = 2
    DATA = 4


STATUS_WORDS = {
    (Command.OPEN, 0): "opened",
    (Command.OPEN, 2): "no such port here",
    (Command.OPEN, 3): "already open",
    (Command.OPEN, 4): "the device cannot be opened",
    (Command.CLOSE, 0): "closed",
    (Command.CLOSE, 2): "not open",
    (Command.CLOSE, 5): "the device cannot be closed",
}


class ProtocolError(Exception):
    """The service sent something else than was due, or nothing."""


def in_words(data: bytes) -> str:
    """The bytes as quoted text, with escapes for what is not printable."""
    return '"' + repr(data)[2:-1].replace('"', '\\"') + '"'


@dataclass(frozen=True)
class Packet:
    """One packet, either way: its fields in the order of the wire, without the length."""

    command: Command
    port: str
    fields: tuple[bytes, ...]
    words: str

    def wire_fields(self) -> list[bytes]:
        name = self.port.encode()
        header = [bytes([self.command]), bytes([NAMED_PORT]), len(name).to_bytes(2), name]
        body = [*header, *self.fields]
        length = 2 + sum(len(field) for field in body)
        return [length.to_bytes(2), *body]

    def to_bytes(self) -> bytes:
        return b"".join(self.wire_fields())

    def hex(self) -> str:
        """The fields as hex, two blanks between them."""
        return "  ".join(field.hex(" ").upper() for field in self.wire_fields() if field)


def open_command(port: str) -> Packet:
    return Packet(Command.OPEN, port, (), f"open {port}")


def close_command(port: str) -> Packet:
    return Packet(Command.CLOSE, port, (), f"close {port}")


def data_command(port: str, *blocks: bytes) -> Packet:
    fields = [bytes([len(blocks)])]
    for block in blocks:
        fields += [b"\x01", len(block).to_bytes(2), block]
    texts = " and ".join(in_words(block) for block in blocks)
    return Packet(Command.DATA, port, tuple(fields), f"write {texts} to {port}")


@dataclass(frozen=True)
class Reply(Packet):
    status: int


@dataclass(frozen=True)
class Notification(Packet):
    data: bytes


class Cursor:
    """Takes the fields of a received packet from its front."""

    def __init__(self, data: bytes) -> None:
        self.rest = data

    def take(self, count: int) -> bytes:
        if len(self.rest) < count:
            raise ProtocolError(f"a packet ends too early: {self.rest.hex(' ')}")
        field, self.rest = self.rest[:count], self.rest[count:]
        return field

    def number(self, count: int) -> int:
        return int.from_bytes(self.take(count))

    def finish(self) -> None:
        if self.rest:
            raise ProtocolError(f"a packet has bytes left over: {self.rest.hex(' ')}")


def parse(packet: bytes) -> Reply | Notification:
    """Reads one packet from the service. All of the demonstration's ports are named ones."""
    cursor = Cursor(packet)
    if cursor.number(2) != len(packet):
        raise ProtocolError(f"a length field that is wrong: {packet.hex(' ')}")
    try:
        command = Command(cursor.number(1))
    except ValueError as error:
        raise ProtocolError(str(error)) from None
    if cursor.number(1) != NAMED_PORT:
        raise ProtocolError(f"a port that is not named: {packet.hex(' ')}")
    port = cursor.take(cursor.number(2)).decode(errors="backslashreplace")

    if command is Command.DATA:
        count, kind = cursor.take(1), cursor.take(1)
        length = cursor.take(2)
        data = cursor.take(int.from_bytes(length))
        cursor.finish()
        fields = (count, kind, length, data)
        return Notification(command, port, fields, f"{port} received {in_words(data)}", data)

    status = cursor.take(2)
    cursor.finish()
    number = int.from_bytes(status)
    meaning = STATUS_WORDS.get((command, number), "unknown")
    words = f"{command.name.lower()} {port}: status {number}, {meaning}"
    return Reply(command, port, (status,), words, number)


class Relay:
    """The connection to the service. Every wait ends at `patience` seconds."""

    def __init__(self, port: int, patience: float) -> None:
        self.patience = patience
        self.link = socket.create_connection(("127.0.0.1", port), timeout=patience)

    def close(self) -> None:
        self.link.close()

    def send(self, packet: Packet) -> None:
        self.link.sendall(packet.to_bytes())

    def receive(self) -> Reply | Notification:
        """The next packet."""
        deadline = time.monotonic() + self.patience
        length = self._exactly(2, deadline)
        return parse(length + self._exactly(int.from_bytes(length) - 2, deadline))

    def _exactly(self, count: int, deadline: float) -> bytes:
        data = b""
        while len(data) < count:
            self.link.settimeout(max(deadline - time.monotonic(), 0.001))
            try:
                chunk = self.link.recv(count - len(data))
            except TimeoutError:
                raise ProtocolError(f"no packet within {self.patience:.0f} s") from None
            if not chunk:
                raise ProtocolError("the service has closed the connection")
            data += chunk
        return data
