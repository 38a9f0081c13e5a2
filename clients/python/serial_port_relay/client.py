# SPDX-License-Identifier: MIT
"""The relay service's end of the link."""

import collections
import select
import socket
import time
from collections.abc import Callable, Iterator
from types import TracebackType
from typing import NamedTuple, NoReturn

from .errors import LinkEnded, MalformedPacket, NoAnswer, NonsenseError, NotListening, Refused
from .packet import (
    CLOSE,
    DATA,
    OPEN,
    Direction,
    Packet,
    PacketCutter,
    Port,
    close_command,
    data_commands,
    open_command,
    parse_packet,
    status_text,
)

DEFAULT_PORT = 60004
_RETRY_PAUSE = 0.1  # seconds between two tries to connect
_CHUNK = 65536


class Received(NamedTuple):
    """Bytes that a port has received: a piece of its stream, not a message of the device."""

    port: Port
    data: bytes


class Client:
    """Connects, sends commands, and takes replies and received data.

    One thread at a time may use it, and it has none of its own: it reads in each of its methods
    while they wait, and in between nobody does. Whoever has ports open calls `receive` often.
    Times are in seconds; a limit of None is none.

    `patience`: how long `connect` tries a service that does not listen yet, and `open` one that
    resets a new link because the peer before has just left.
    `reply_timeout`: how long a command may take. When it passes, the link is given up.
    `reconnect`: `receive` connects again when the link ends, and opens the ports kept open.
    `on_received`: is called with each piece instead of its being kept for `receive`. It must not
    call the client.
    """

    def __init__(
        self,
        port: int = DEFAULT_PORT,
        *,
        patience: float = 1.0,
        reply_timeout: float | None = 10.0,
        reconnect: bool = False,
        on_received: Callable[[Received], None] | None = None,
    ) -> None:
        self.port = port
        self.patience = patience
        self.reply_timeout = reply_timeout
        self.reconnect = reconnect
        self.on_received = on_received
        self.malformed: list[tuple[bytes, str]] = []  # packets with a wrong inside, and why
        self._kept: dict[Port, None] = {}  # in the order of their opening
        self._incoming: collections.deque[Received] = collections.deque()
        self._replies: collections.deque[Packet] = collections.deque()
        self._refusals: collections.deque[Refused] = collections.deque()  # of kept ports
        self._cutter = PacketCutter()
        self._socket: socket.socket | None = None
        self._is_served = False  # something came on this link

    def __enter__(self) -> "Client":
        self.connect()
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        self.disconnect()

    @property
    def is_connected(self) -> bool:
        return self._socket is not None

    def connect(self) -> None:
        """Does nothing when connected. Raises NotListening."""
        if self._socket is not None:
            return
        deadline = time.monotonic() + self.patience
        while True:
            try:
                self._try_to_connect()
                return
            except OSError as error:
                if time.monotonic() >= deadline:
                    raise NotListening(
                        f"nothing listens on 127.0.0.1:{self.port}: is the service running?"
                    ) from error
                time.sleep(_RETRY_PAUSE)

    def disconnect(self) -> None:
        """Leaves: the service closes all ports. What came before can still be received."""
        if self._socket is not None:
            self._socket.close()
            self._socket = None
        self._cutter = PacketCutter()
        self._replies.clear()

    def open(self, port: str | Port, *, keep: bool = False) -> None:
        """`keep`: open it again on each link to come. Raises Refused, NoAnswer, LinkEnded."""
        identity = Port.from_text(port)
        self._open(identity)
        if keep:
            self._kept[identity] = None

    def close(self, port: str | Port) -> None:
        """Raises Refused, NoAnswer, LinkEnded. Ids of an adapter that is not plugged in end the
        service."""
        identity = Port.from_text(port)
        self._kept.pop(identity, None)
        self._ask(CLOSE, identity, close_command(identity))

    def write(self, port: str | Port, data: bytes, block_size: int = 0) -> None:
        """Sends data of any length; takes what comes in meanwhile. The service never answers it:
        data for a port that is not open are dropped. Raises NoAnswer when the service takes
        nothing for `reply_timeout`, LinkEnded."""
        for command in data_commands(port, data, block_size):
            self._send(command)

    def send(self, raw: bytes) -> None:
        """Any bytes. What they are answered with, `reply` takes."""
        self._send(raw)

    def reply(self, timeout: float | None = None) -> Packet:
        """The next reply that no command waited for. Raises NoAnswer, LinkEnded."""
        deadline = _deadline(timeout)
        while not self._replies:
            if not self._process(deadline):
                raise NoAnswer("no reply came in time")
        return self._replies.popleft()

    def receive(self, timeout: float | None = None) -> Received | None:
        """The next piece that any port has received, or None when `timeout` passes. Raises
        LinkEnded, or, with `reconnect`, what `connect` raises, and Refused once for each kept
        port that a new link could not open. With `on_received` it returns None only."""
        deadline = _deadline(timeout)
        while not self._incoming:
            if self._refusals:
                raise self._refusals.popleft()
            try:
                if not self._process(deadline):
                    return None
            except (LinkEnded, NonsenseError):
                if not self.reconnect:
                    raise
                self._relink()
        return self._incoming.popleft()

    def received(self, silence: float | None = None) -> Iterator[Received]:
        """Pieces as they come, until nothing has come for `silence`."""
        while (piece := self.receive(silence)) is not None:
            yield piece

    def read_until(self, port: str | Port, end: bytes, timeout: float | None = None) -> bytes:
        """What this port receives, up to and with `end`; the rest, and other ports' data, stay.
        Raises NoAnswer, and then takes nothing."""
        identity = Port.from_text(port)
        deadline = _deadline(timeout)
        while True:
            text = b"".join(piece.data for piece in self._incoming if piece.port == identity)
            found = text.find(end)
            if found >= 0:
                break
            if not self._process(deadline):
                raise NoAnswer(f"{identity} received {text!r}, without {end!r}, in time")
        cut = found + len(end)
        others = [piece for piece in self._incoming if piece.port != identity]
        rest = [Received(identity, text[cut:])] if text[cut:] else []
        self._incoming = collections.deque(rest + others)
        return text[:cut]

    def _try_to_connect(self) -> None:
        link = _bound_elsewhere(self.port)
        try:
            link.settimeout(max(self.patience, 1.0))
            link.connect(("127.0.0.1", self.port))
            # A small command does not wait for the acknowledgement of the one before.
            link.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            _acknowledge_at_once(link)
            link.setblocking(False)
        except BaseException:
            link.close()
            raise
        self._socket = link
        self._is_served = False

    def _relink(self) -> None:
        deadline = time.monotonic() + self.patience
        while True:
            self.disconnect()
            self.connect()
            try:
                self._open_kept()
                return
            except (LinkEnded, NonsenseError):
                if time.monotonic() >= deadline:
                    raise
                time.sleep(_RETRY_PAUSE)

    def _open_kept(self) -> None:
        self._refusals.clear()
        for port in self._kept:
            try:
                self._open(port)
            except Refused as refused:
                self._refusals.append(refused)  # the others are opened all the same

    def _open(self, port: Port) -> None:
        deadline = time.monotonic() + self.patience
        while True:
            try:
                self._ask(OPEN, port, open_command(port))
                return
            except LinkEnded:
                # A link from the queue of the one before is reset when the service listens anew.
                if self._is_served or time.monotonic() >= deadline:
                    raise
                time.sleep(_RETRY_PAUSE)
                self.connect()

    def _ask(self, command: int, port: Port, packet: bytes) -> None:
        self._replies.clear()
        self._send(packet)
        try:
            answer = self.reply(self.reply_timeout)
        except NoAnswer:
            # An answer that still comes would be taken for the next command's.
            self.disconnect()
            raise NoAnswer(f"the service did not answer for {port} in time") from None
        wanted = Port(port.name.split(b"\0")[0], port.vendor_id, port.product_id)
        if (answer.command, answer.port) != (command, wanted):
            self.disconnect()
            raise NonsenseError(f"the service answered for {answer.port} instead of {port}")
        if answer.number:
            text = status_text(command, answer.number)
            raise Refused(f"{port}: status {answer.number}: {text}", answer.number)

    def _link(self) -> socket.socket:
        if self._socket is None:
            raise LinkEnded("not connected to the service")
        return self._socket

    def _send(self, data: bytes) -> None:
        rest = memoryview(data)
        while rest:
            deadline = _deadline(self.reply_timeout)
            link = self._link()
            # Reads too: a peer that only sends can bring both sides to a halt.
            readable, writable, _ = select.select([link], [link], [], _left(deadline))
            if readable:
                self._take(link)
            if writable:
                try:
                    rest = rest[link.send(rest) :]
                except BlockingIOError:
                    pass
                except OSError as error:
                    self._fail(error)
            elif not readable:
                self.disconnect()
                raise NoAnswer("the service took no bytes in time")

    def _process(self, deadline: float | None) -> bool:
        """Waits for bytes and takes them. False: the deadline has passed."""
        link = self._link()
        readable, _, _ = select.select([link], [], [], _left(deadline))
        if readable:
            self._take(link)
        return bool(readable)

    def _take(self, link: socket.socket) -> None:
        try:
            data = link.recv(_CHUNK)
            if data:
                _acknowledge_at_once(link)
        except BlockingIOError:
            return
        except OSError as error:
            self._fail(error)
        if not data:
            self._fail(None)
        self._is_served = True
        self._cutter.add(data)
        try:
            while (packet := self._cutter.next()) is not None:
                self._take_packet(packet)
        except NonsenseError:
            self.disconnect()
            raise

    def _take_packet(self, raw: bytes) -> None:
        try:
            packet = parse_packet(raw, Direction.FROM_SERVICE)
        except MalformedPacket as error:
            self.malformed.append((raw, str(error)))
            return
        if packet.command != DATA:
            self._replies.append(packet)
        elif self.on_received is not None:
            self.on_received(Received(packet.port, packet.data))
        else:
            self._incoming.append(Received(packet.port, packet.data))

    def _fail(self, cause: OSError | None) -> NoReturn:
        self.disconnect()
        raise LinkEnded("the service ended the link") from cause


def _bound_elsewhere(port: int) -> socket.socket:
    # The service's port may lie in the range that the kernel takes local ports from. While nothing
    # listens, a socket that is given this very number connects to itself, answers itself, and keeps
    # the service from binding.
    taken: list[socket.socket] = []
    try:
        while True:
            link = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
            try:
                link.bind(("127.0.0.1", 0))
            except BaseException:
                link.close()
                raise
            if link.getsockname()[1] != port:
                return link
            taken.append(link)  # held, so that the next one is given another
    finally:
        for link in taken:
            link.close()


def _acknowledge_at_once(link: socket.socket) -> None:
    # The service lets Nagle's algorithm gather its answers: one in two notifications would wait
    # about 40 ms for a delayed acknowledgement. The kernel clears the option by itself.
    link.setsockopt(socket.IPPROTO_TCP, socket.TCP_QUICKACK, 1)


def _deadline(timeout: float | None) -> float | None:
    return None if timeout is None else time.monotonic() + timeout


def _left(deadline: float | None) -> float | None:
    return None if deadline is None else max(0.0, deadline - time.monotonic())
