# SPDX-License-Identifier: MIT
"""The bytes of one direction: one thread adds them, others wait for them."""

from __future__ import annotations

import threading


class Received:
    def __init__(self, name: str) -> None:
        self.name = name
        self._bytes = bytearray()
        self._arrived = threading.Condition()

    def adds(self, data: bytes) -> None:
        with self._arrived:
            self._bytes += data
            self._arrived.notify_all()

    def waits_for(self, count: int, seconds: float = 60) -> None:
        """Until so many bytes have come, which stay for others to take."""
        with self._arrived:
            assert self._arrived.wait_for(lambda: len(self._bytes) >= count, seconds), (
                f"{self.name} is silent")

    def takes(self, count: int, seconds: float = 60) -> bytes:
        """The next `count` bytes, or what came of them."""
        with self._arrived:
            self._arrived.wait_for(lambda: len(self._bytes) >= count, seconds)
            return self._take(count)

    def takes_what_comes(self, mark: bytes, seconds: float) -> bytes:
        """All bytes up to now: when `mark` is among them, or the time is over."""
        with self._arrived:
            self._arrived.wait_for(lambda: mark in self._bytes, seconds)
            return self._take(len(self._bytes))

    def takes_until(self, mark: bytes, seconds: float = 60) -> bytes:
        """All bytes up to `mark`, with it."""
        with self._arrived:
            assert self._arrived.wait_for(lambda: mark in self._bytes, seconds), (
                f"{self.name} brought {len(self._bytes)} bytes, and the mark is not among them")
            return self._take(self._bytes.find(mark) + len(mark))

    def expects(self, data: bytes, seconds: float = 60) -> None:
        """Takes exactly these bytes as the next ones."""
        found = self.takes(len(data), seconds)
        assert found == data, f"{self.name} brought {found!r} instead of {data!r}"

    def _take(self, count: int) -> bytes:
        found = bytes(self._bytes[:count])
        del self._bytes[:count]
        return found
