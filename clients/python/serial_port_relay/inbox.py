# SPDX-License-Identifier: MIT
"""What ports have received, until it is taken."""

import collections
from collections.abc import Iterable

from .packet import Port
from .told import Received


class Inbox:
    """Pieces in the order of their coming, and each port's bytes."""

    def __init__(self) -> None:
        self.size = 0  # in bytes
        self._ports: dict[Port, _Queue] = {}  # none is empty
        self._count = 0  # of pieces that ever came

    def __bool__(self) -> bool:
        return bool(self._ports)

    def add(self, piece: Received) -> None:
        self._count += 1
        queue = self._ports.setdefault(piece.port, _Queue())
        queue.pieces.append((self._count, piece))
        self._grow(queue, len(piece.data))

    def has(self, port: Port) -> bool:
        return port in self._ports

    def waiting(self, port: Port) -> int:
        """How many bytes of the port there are, of whichever links."""
        return self._ports[port].size if self.has(port) else 0

    def can_give(self, port: Port, count: int) -> bool:
        """Whether `take` gives so many, or no more by waiting."""
        return self.waiting(port) >= count or self.has(port) and self._ports[port].has_seam

    def next(self) -> Received:
        """The oldest piece of all. There must be one."""
        return self.next_of(min(self._ports, key=lambda port: self._ports[port].pieces[0][0]))

    def next_of(self, port: Port) -> Received:
        queue = self._ports[port]
        _, piece = queue.pieces.popleft()
        self._grow(queue, -len(piece.data))
        if not queue.pieces:
            del self._ports[port]
        return piece

    def take(self, port: Port, count: int) -> bytes:
        """At most so many bytes, of one link."""
        taken: list[bytes] = []
        link: int | None = None
        while count > 0 and self.has(port):
            piece = self.next_of(port)
            if link is not None and piece.link != link:
                self.put_back([piece])
                break
            link = piece.link
            taken.append(piece.data[:count])
            if len(piece.data) > count:
                self.put_back([piece.part(count)])
            count -= len(taken[-1])
        return b"".join(taken)

    def put_back(self, pieces: Iterable[Received]) -> None:
        """In front of all others."""
        for piece in reversed(list(pieces)):
            queue = self._ports.setdefault(piece.port, _Queue())
            queue.pieces.appendleft((0, piece))
            self._grow(queue, len(piece.data))

    def drop(self, port: Port) -> None:
        if queue := self._ports.pop(port, None):
            self.size -= queue.size

    def _grow(self, queue: "_Queue", count: int) -> None:
        queue.size += count
        self.size += count


class _Queue:
    """One port's, each piece with its number among all."""

    def __init__(self) -> None:
        self.pieces: collections.deque[tuple[int, Received]] = collections.deque()
        self.size = 0

    @property
    def has_seam(self) -> bool:
        """The link was made anew between its first byte and its last."""
        return self.pieces[0][1].link != self.pieces[-1][1].link
