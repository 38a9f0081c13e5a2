# SPDX-License-Identifier: MIT
"""The far end of a serial line: what stands behind an adapter or the UART."""

from __future__ import annotations

import hashlib
import socket
import threading

from received import Received


class Line(Received):
    """Reads all the time: a full adapter stops the whole guest."""

    def __init__(self, name: str, peer: socket.socket) -> None:
        super().__init__(name)
        self._peer = peer
        self._looped = False
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def _read(self) -> None:
        while True:
            try:
                chunk = self._peer.recv(65536)
            except OSError:
                return
            if not chunk:
                return
            if self._looped:
                self._peer.sendall(chunk)
            else:
                self.adds(chunk)

    def loops_back(self) -> None:
        """From now on what comes goes back at once, as through a loop-back plug."""
        self._looped = True

    def sends(self, data: bytes) -> None:
        self._peer.sendall(data)

    def close(self) -> None:
        self._peer.shutdown(socket.SHUT_RDWR)
        self._reader.join(10)
        self._peer.close()


def checksum(data: bytes) -> str:
    return hashlib.sha256(data).hexdigest()
