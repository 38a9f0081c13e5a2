# SPDX-License-Identifier: MIT
"""What a client tells its caller."""

import enum
from typing import NamedTuple

from .packet import Port


class _Piece(NamedTuple):
    port: Port
    data: bytes


class Received(_Piece):
    """Bytes that a port has received: a piece of its stream, not a message of the device.

    Another `link` than that of the piece before: the link was made anew between them, and what the
    port received in between is lost. What the one ends with does not join what the other begins
    with."""

    link = 0  # grows with each link

    @classmethod
    def of_link(cls, link: int, port: Port, data: bytes) -> "Received":
        piece = cls(port, data)
        piece.link = link
        return piece

    def part(self, start: int) -> "Received":
        return self.of_link(self.link, self.port, self.data[start:])


class Change(enum.Enum):
    ENDED = "the link has ended, and is tried again"
    LINKED = "the link stands again"
    OPENED = "a kept port is open"
    REFUSED = "a kept port could not be opened, and is tried again"
    DROPPED = "read_until has dropped the part of a message that the end of the link cut off"


class Event(NamedTuple):
    """A change that no call of the caller's own has made. `text` is one line for a person."""

    what: Change
    text: str
    port: Port | None = None
