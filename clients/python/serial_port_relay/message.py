# SPDX-License-Identifier: MIT
"""What read_until puts together."""

from .packet import Port
from .told import Received

_MOST_SHOWN = 32  # bytes


class Message:
    """The bytes of a port, up to a delimiter, or so many of them."""

    def __init__(self, port: Port, end: bytes, most: int | None = None) -> None:
        self.port = port
        self._end = end
        self._most = most
        self._text = bytearray()
        self._link = 0
        self._size = -1 if end and most != 0 else 0  # of the message; -1: not known yet

    @property
    def is_whole(self) -> bool:
        return self._size >= 0

    def add(self, piece: Received) -> bytes:
        """What it drops: the bytes of another link."""
        dropped = b""
        if piece.link != self._link:
            dropped = bytes(self._text)
            self._text.clear()
            self._link = piece.link
        start = max(0, len(self._text) - len(self._end) + 1)
        self._text += piece.data
        found = self._text.find(self._end, start, self._most)
        if found >= 0:
            self._size = found + len(self._end)
        elif self._most is not None and len(self._text) >= self._most:
            self._size = self._most
        return dropped

    def end_here(self) -> None:
        """What there is is the message."""
        self._size = len(self._text)

    def taken(self) -> bytes:
        return bytes(self._text[: self._size])

    def rest(self) -> list[Received]:
        """What stays to be received."""
        data = bytes(self._text[max(0, self._size) :])
        return [Received.of_link(self._link, self.port, data)] if data else []

    def __str__(self) -> str:
        return f"{self.port.shown} received {shown(self._text)}, without {shown(self._end)}"


def shown(data: bytes | bytearray) -> str:
    """The last bytes, and how many they are, so that a message stays short."""
    if len(data) <= _MOST_SHOWN:
        return repr(bytes(data))
    return f"{len(data)} bytes (the last: {bytes(data[-_MOST_SHOWN:])!r})"
