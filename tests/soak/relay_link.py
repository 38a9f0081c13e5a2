# SPDX-License-Identifier: MIT
"""The relay's side of the link. It never waits."""

import socket
import struct

from serial_port_relay import DEFAULT_PORT, Direction, Packet, PacketCutter, parse_packet


class RelayLink:
    def __init__(self) -> None:
        self._stream: socket.socket | None = None
        self.waiting = b""
        self.has_ended = False

    @property
    def is_connected(self) -> bool:
        return self._stream is not None

    def connect(self) -> None:
        try:
            self._stream = socket.create_connection(("127.0.0.1", DEFAULT_PORT))
        except ConnectionRefusedError:
            return
        self._stream.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self._stream.setblocking(False)
        self.waiting = b""
        self.has_ended = False
        self._received = PacketCutter()

    def flush(self) -> None:
        """Sends what the link takes."""
        if self._stream and self.waiting:
            try:
                self.waiting = self.waiting[self._stream.send(self.waiting):]
            except OSError:
                pass  # what ends the link shows in recv

    def receives(self) -> list[Packet]:
        """The packets that have come. Sets has_ended when the service has ended the link. Raises
        RelayError for what the service never sends."""
        assert self._stream
        try:
            data = self._stream.recv(65536)
            self.has_ended = not data
            self._received.add(data)
        except BlockingIOError:
            pass
        except OSError:
            self.has_ended = True
        packets = []
        while (packet := self._received.next()) is not None:
            packets.append(parse_packet(packet, Direction.FROM_SERVICE))
        return packets

    def ends_sending(self) -> None:
        assert self._stream
        try:
            self._stream.shutdown(socket.SHUT_WR)
        except OSError:
            pass  # the service was first

    def leaves(self) -> None:
        if self._stream:
            self._stream.close()
        self._stream = None

    def resets(self) -> None:
        assert self._stream
        self._stream.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.leaves()
