# SPDX-License-Identifier: MIT
"""Packets as docs/protocol.md has them, each with its own chances, and what damage makes of them."""

import random
from typing import NamedTuple

_OPEN, _CLOSE, _DATA = b"\1", b"\2", b"\4"
_NUMBERED, _NAMED = b"\1", b"\2"
_NAMES = (b"#PhysicalPort0", b"#USBSerialPort3", b"X")
# What a reader of names could stumble over.
_ODD_LETTERS = b"\0Az9#:,|;\\\"' \t\n\x0b\r\x1b\x7f\x80\xa4\xc3\xff"
# Commands, forms and counts, and what is just beside them.
_SMALL = bytes(range(7)) + b"\x7f\x80\xff"
_LONGEST = 60000  # of the content: what a segment of a capture takes


class Packet(NamedTuple):
    is_to_service: bool
    data: bytes


def _with_length(content: bytes) -> bytes:
    content = content[:_LONGEST] or b"\1"
    return (2 + len(content)).to_bytes(2, "big") + content


class Source:
    """The same packets for the same seed."""

    def __init__(self, seed: int) -> None:
        self._dice = random.Random(seed)

    def packet(self, is_to_service: bool) -> Packet:
        """Well formed, or damaged, or now and then one of the other direction."""
        way = is_to_service if self._dice.random() < 0.95 else not is_to_service
        content = self._content(way)
        if self._dice.random() < 0.5:
            for _ in range(self._dice.randint(1, 3)):
                content = self._damaged(content)
        return Packet(is_to_service, _with_length(content))

    def _content(self, is_to_service: bool) -> bytes:
        command = self._dice.choice((_OPEN, _CLOSE, _DATA))
        if command == _DATA:
            return command + self._port() + self._blocks()
        has_number = not is_to_service or self._dice.random() < 0.5
        return command + self._port() + (self._number() if has_number else b"")

    def _number(self) -> bytes:
        return self._dice.choice((b"\0\0", b"\0\2", b"FE", self._dice.randbytes(2)))

    def _port(self) -> bytes:
        if self._dice.random() < 0.3:
            return _NUMBERED + self._dice.randbytes(4)
        name = self._odd_name() if self._dice.random() < 0.4 else self._dice.choice(_NAMES)
        return _NAMED + len(name).to_bytes(2, "big") + name

    def _odd_name(self) -> bytes:
        count = 300 if self._dice.random() < 0.02 else self._dice.randint(1, 12)
        return bytes(self._dice.choices(_ODD_LETTERS, k=count))

    def _blocks(self) -> bytes:
        count = self._dice.choice((0, 1, 1, 1, 2, 3)) if self._dice.random() < 0.99 else 255
        return bytes([count]) + b"".join(self._block() for _ in range(count))

    def _block(self) -> bytes:
        size = self._dice.choice((0, 1, 2, 10)) if self._dice.random() < 0.99 else 300
        kind = self._dice.choice(_SMALL)
        return bytes([kind]) + size.to_bytes(2, "big") + self._dice.randbytes(size)

    def _damaged(self, content: bytes) -> bytes:
        at = self._dice.randrange(len(content) + 1)
        near = min(at, self._dice.randrange(10))  # where the header is
        small = bytes([self._dice.choice(_SMALL)])
        return self._dice.choice((
            content[:near] + small + content[near + 1:],
            content[:at] + small + content[at + 1:],
            content[:at] + small + content[at:],
            content[:at] + content[at + 1:],
            content[:at],
            content + self._dice.randbytes(self._dice.randint(1, 3)),
            bytes(self._dice.choices(_SMALL, k=self._dice.randint(1, 15))),
        ))
