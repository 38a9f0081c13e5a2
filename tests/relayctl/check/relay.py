# SPDX-License-Identifier: MIT
"""A little relay service: it opens a port, asks the device on it, and acknowledges the line that
comes back. As it is it does right; each of the classes below gets one thing wrong.

usage: python3 relay.py PORT [CLASS]
"""

import select
import socket
import struct
import sys
import time

NAME = b"#USBSerialPort0"
IDENTITY = struct.pack(">BH", 2, len(NAME)) + NAME
OPEN, DATA = 1, 4
STATUS_AT = 4 + 2 + len(NAME)  # of an answer; the data of a notification begin four bytes behind it


class Relay:
    """One link after the other, for good."""

    def __init__(self, port: int) -> None:
        self.port = port
        self.link = socket.socket()
        self.unread = b""

    def run(self) -> None:
        while True:
            try:
                self.connect()
                self.talk()
            except OSError:
                pass
            self.link.close()
            self.pause()

    def pause(self) -> None:
        time.sleep(0.05)

    def connect(self) -> None:
        self.link = socket.socket()
        self.unread = b""
        self.bind()
        self.link.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.link.connect(("127.0.0.1", self.port))

    def bind(self) -> None:
        self.link.bind(("127.0.0.1", 0))
        if self.link.getsockname()[1] == self.port:
            raise OSError("its own address")

    def send(self, command: int, body: bytes = b"") -> None:
        packet = struct.pack(">HB", 3 + len(IDENTITY) + len(body), command) + IDENTITY + body
        self.link.sendall(packet)

    def write(self, data: bytes) -> None:
        self.send(DATA, struct.pack(">BBH", 1, 1, len(data)) + data)

    def read(self, count: int) -> bytes:
        while len(self.unread) < count:
            more = self.link.recv(65536)
            if not more:
                raise OSError("the link has ended")
            self.link.setsockopt(socket.IPPROTO_TCP, socket.TCP_QUICKACK, 1)
            self.unread += more
        data, self.unread = self.unread[:count], self.unread[count:]
        return data

    def next_packet(self) -> bytes:
        length = self.read(2)
        return length + self.read(struct.unpack(">H", length)[0] - 2)

    def next_own(self, command: int) -> bytes:
        """The next packet of that command for the port."""
        while True:
            packet = self.next_packet()
            if packet[2:3] == bytes([command]) and packet[3 : 3 + len(IDENTITY)] == IDENTITY:
                return packet

    def open(self) -> None:
        self.send(OPEN)
        while struct.unpack_from(">H", self.next_own(OPEN), STATUS_AT)[0] != 0:
            time.sleep(0.2)
            self.send(OPEN)

    def next_message(self) -> bytes:
        """A line, however many notifications it came in."""
        data = b""
        while not data.endswith(b"\n"):
            data += self.next_own(DATA)[STATUS_AT + 4 :]
        return data

    def talk(self) -> None:
        self.open()
        self.write(b"*IDN?\n")
        self.write(b"got " + self.next_message())
        self.stay()

    def stay(self) -> None:
        while True:
            self.next_packet()


class OneRecvIsOnePacket(Relay):
    """What comes in pieces is no packet to it, and of several it takes the first."""

    def next_packet(self) -> bytes:
        while True:
            data = self.link.recv(65536)
            if not data:
                raise OSError("the link has ended")
            self.link.setsockopt(socket.IPPROTO_TCP, socket.TCP_QUICKACK, 1)
            length = struct.unpack(">H", data[:2])[0] if len(data) > 1 else 0
            if length and len(data) >= length:
                return data[:length]


class StopsReading(Relay):
    """Has got what it wanted, and only waits for the link's end."""

    def stay(self) -> None:
        end = select.poll()
        end.register(self.link, select.POLLRDHUP)
        end.poll()


class SendsBeforeItReads(Relay):
    """Has much to say, and listens afterwards."""

    def talk(self) -> None:
        self.open()
        for _ in range(100):
            self.write(bytes(60000))
        self.stay()


class DiesOfAReset(Relay):
    """Knows an end, and no other one."""

    def read(self, count: int) -> bytes:
        try:
            return super().read(count)
        except ConnectionResetError:
            sys.exit("a reset")


class NeverPauses(Relay):
    """Tries again at once."""

    def pause(self) -> None:
        pass


class MeetsItself(Relay):
    """Leaves its own address to the kernel."""

    def bind(self) -> None:
        pass


class IgnoresTheStatus(Relay):
    """An answer is an answer."""

    def open(self) -> None:
        self.send(OPEN)
        self.next_own(OPEN)


class ANotificationIsAMessage(Relay):
    """Devices send in one go what belongs together."""

    def next_message(self) -> bytes:
        return self.next_own(DATA)[STATUS_AT + 4 :]


if __name__ == "__main__":
    kind = globals()[sys.argv[2]] if len(sys.argv) > 2 else Relay
    kind(int(sys.argv[1])).run()
