# SPDX-License-Identifier: MIT
"""The relay service, played by the test."""

from __future__ import annotations

import socket
import struct
import threading

from received import Received

OPEN, CLOSE, DATA = 1, 2, 4
NUMBERED, NAMED = 1, 2


def named(name: str) -> bytes:
    return struct.pack(">BH", NAMED, len(name)) + name.encode()


def numbered(vendor: int, product: int) -> bytes:
    return struct.pack(">BHH", NUMBERED, vendor, product)


def packet(command: int, identity: bytes, body: bytes = b"") -> bytes:
    rest = bytes([command]) + identity + body
    return struct.pack(">H", len(rest) + 2) + rest


class Relay:
    """Replies wait in a queue; what ports received is put together for each port."""

    def __init__(self, port: int) -> None:
        self._peer = socket.create_connection(("127.0.0.1", port), timeout=60)
        self._peer.settimeout(None)
        self._peer.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self._changed = threading.Condition()
        self._replies: list[bytes] = []
        self._received: dict[str, Received] = {}
        self._packets: list[bytes] = []
        self._ended = False
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def _read_packet(self, stream: "socket.SocketIO") -> bytes:
        head = stream.read(2)
        if len(head) < 2:
            return b""
        length = struct.unpack(">H", head)[0]
        rest = stream.read(length - 2)
        return head + rest if len(rest) == length - 2 else b""

    def _read(self) -> None:
        with self._peer.makefile("rb") as stream:
            while True:
                try:
                    whole = self._read_packet(stream)
                except OSError:
                    whole = b""
                with self._changed:
                    if whole:
                        self._sort(whole)
                    self._ended = not whole
                    self._changed.notify_all()
                if not whole:
                    return

    def _sort(self, whole: bytes) -> None:
        self._packets.append(whole)
        if whole[2] != DATA:
            self._replies.append(whole)
            return
        size = struct.unpack(">H", whole[4:6])[0]
        name, body = whole[6:6 + size], whole[6 + size + 4:]
        self.port(name.decode()).adds(body)

    def sends_bytes(self, data: bytes) -> None:
        self._peer.sendall(data)

    def sends(self, command: int, identity: bytes, body: bytes = b"") -> None:
        self._peer.sendall(packet(command, identity, body))

    def writes(self, name: str, data: bytes) -> None:
        for start in range(0, len(data), 4096):
            block = data[start:start + 4096]
            self.sends(DATA, named(name), struct.pack(">BBH", 1, 1, len(block)) + block)

    def asks(self, command: int, identity: bytes, seconds: float = 60) -> int:
        """Sends an open or a close, and gives the status in the reply."""
        self.sends(command, identity)
        return self.next_status(command, identity, seconds)

    def next_status(self, command: int, identity: bytes, seconds: float = 60) -> int:
        with self._changed:
            self._changed.wait_for(lambda: self._replies or self._ended, seconds)
            assert self._replies, "no reply: " + ("link ended" if self._ended else "waited in vain")
            reply = self._replies.pop(0)
        head = reply[2:-2]
        assert head == bytes([command]) + identity, f"the reply is to something else: {reply!r}"
        return struct.unpack(">H", reply[-2:])[0]

    def opens(self, name: str) -> None:
        status = self.asks(OPEN, named(name))
        assert status == 0, f"open {name}: status {status}"

    def cannot_open(self, name: str, status: int) -> None:
        answer = self.asks(OPEN, named(name))
        assert answer == status, f"open {name}: status {answer} instead of {status}"

    def closes(self, name: str) -> None:
        status = self.asks(CLOSE, named(name))
        assert status == 0, f"close {name}: status {status}"

    def port(self, name: str) -> Received:
        """What a port brings."""
        with self._changed:
            if name not in self._received:
                self._received[name] = Received(name)
            return self._received[name]

    def expects(self, name: str, data: bytes) -> None:
        self.port(name).expects(data)

    def next_packet(self, seconds: float = 60) -> bytes:
        """The next packet of any kind, as it came: for tests that use nothing else."""
        with self._changed:
            self._changed.wait_for(lambda: self._packets or self._ended, seconds)
            assert self._packets, "no packet"
            return self._packets.pop(0)

    def waits_for_end(self, seconds: float = 60) -> None:
        with self._changed:
            self._changed.wait_for(lambda: self._ended, seconds)
            assert self._ended, "the link stands"

    def close(self) -> None:
        try:
            self._peer.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass  # the other side was faster
        self._reader.join(10)
        self._peer.close()
