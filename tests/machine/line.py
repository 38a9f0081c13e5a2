# SPDX-License-Identifier: MIT
"""The far end of a serial line: what stands behind an adapter or the UART."""

from __future__ import annotations

import hashlib
import socket
import threading


class Line:
    """Reads all the time: a full adapter stops the whole guest."""

    def __init__(self, name: str, peer: socket.socket) -> None:
        self.name = name
        self._peer = peer
        self._received = bytearray()
        self._looped = False
        self._arrived = threading.Condition()
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def _read(self) -> None:
        while True:
            try:
                chunk = self._peer.recv(65536)
            except OSError:
                chunk = b""
            if self._looped and chunk:
                self._peer.sendall(chunk)
                continue
            with self._arrived:
                self._received += chunk
                self._arrived.notify_all()
            if not chunk:
                return

    def loops_back(self) -> None:
        """From now on what comes goes back at once, as through a loop-back plug."""
        self._looped = True

    def sends(self, data: bytes) -> None:
        self._peer.sendall(data)

    def has_received(self) -> bytes:
        with self._arrived:
            return bytes(self._received)

    def waits_for(self, count: int, seconds: float = 60) -> None:
        """Until so many bytes have come, which stay for others to take."""
        with self._arrived:
            assert self._arrived.wait_for(lambda: len(self._received) >= count, seconds), (
                f"{self.name} is silent")

    def expects(self, data: bytes, seconds: float = 60) -> None:
        """Takes exactly these bytes as the next ones."""
        found = self.takes(len(data), seconds)
        assert found == data, f"{self.name} received {found!r} instead of {data!r}"

    def takes(self, count: int, seconds: float = 60) -> bytes:
        with self._arrived:
            self._arrived.wait_for(lambda: len(self._received) >= count, seconds)
            found = bytes(self._received[:count])
            del self._received[:count]
        return found

    def takes_all_until(self, mark: bytes, seconds: float = 60) -> bytes:
        """Everything up to `mark`, which is taken too."""
        with self._arrived:
            self._arrived.wait_for(lambda: mark in self._received, seconds)
            end = self._received.find(mark)
            assert end >= 0, f"{self.name} received {bytes(self._received)!r} without {mark!r}"
            found = bytes(self._received[:end])
            del self._received[:end + len(mark)]
        return found

    def close(self) -> None:
        self._peer.shutdown(socket.SHUT_RDWR)
        self._reader.join(10)
        self._peer.close()


def checksum(data: bytes) -> str:
    return hashlib.sha256(data).hexdigest()
