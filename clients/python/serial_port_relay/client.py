# SPDX-License-Identifier: MIT
"""The relay service's end of the link."""

import collections
from collections.abc import Callable, Iterator
from types import TracebackType
from typing import NoReturn

from .engine import Engine, Kept, deadline
from .errors import LinkEnded, NoAnswer, NotListening, Refused, RelayError
from .message import Message, shown
from .packet import (
    CLOSE,
    DONE,
    FENCE,
    NO_PORT,
    OPEN,
    OPEN_ALREADY,
    Block,
    Packet,
    Port,
    block_bytes,
    close_command,
    data_command,
    open_command,
    status_text,
)
from .told import Change, Event, Received

DEFAULT_PORT = 60004
# A full line takes more when all but 256 of the kernel's 4096 bytes are sent: at 2400 baud, 16 s.
_REPLY_TIMEOUT = 20.0
# A write sends so many bytes in front of each fence: few, so that a slow line answers some often;
# and so many before the first of them are taken: enough to keep the fastest line busy.
_PIECE, _WINDOW = 1024, 32768


class Client(Engine):
    """Connects, sends commands, and takes replies and received data.

    One thread at a time may use it, and it has none of its own: it reads in each of its methods
    while they wait, and in between nobody does. Whoever has ports open calls `receive` often.
    Times are in seconds; a limit of None is none.

    `patience`: how long `connect` tries a service that does not listen yet, and any call one that
    resets a new link because the peer before has just left.
    `reply_timeout`: how long a command may take, and how long the service may take no byte of a
    `write`. When it passes, the link is given up.
    `reconnect`: when the link ends, each call makes it again, until the call's own limit, and opens
    the kept ports again; kept ports that were refused are tried again. `open`, `close`, `write`
    and `send` have `reply_timeout` for it.
    `on_received`: is called with each piece instead of its being kept for `receive`.
    `on_event`: is called with each Event; without it, they go to the log "serial_port_relay".
    Neither must call the client.
    """

    def __init__(
        self,
        port: int = DEFAULT_PORT,
        *,
        patience: float = 1.0,
        reply_timeout: float | None = _REPLY_TIMEOUT,
        reconnect: bool = False,
        on_received: Callable[[Received], None] | None = None,
        on_event: Callable[[Event], None] | None = None,
    ) -> None:
        super().__init__(port, patience, reconnect)
        self.reply_timeout = reply_timeout
        self.on_received = on_received
        self.on_event = on_event

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

    def connect(self) -> None:
        """Does nothing when connected. Opens the kept ports. Raises NotListening."""
        self._begin_call()
        self._is_wanted = True
        try:
            self._need_link(deadline(self.patience))
        except NotListening:
            if not self.reconnect:
                self._leave()
            raise

    def disconnect(self) -> None:
        """Leaves: the service closes all ports. What came before can still be received."""
        self._leave()

    def open(self, port: str | Port, *, keep: bool = False) -> None:
        """`keep`: open it on each link to come, too, whatever the answer now; with `reconnect`, one
        that is refused is tried again each half second. Raises Refused, NoAnswer, LinkEnded."""
        identity = Port.from_text(port)
        status = None
        try:
            status = self._command(OPEN, identity, open_command(identity))
        finally:
            if keep:
                self._keep(identity, status)
        _refuse(OPEN, identity, status)

    def close(self, port: str | Port) -> None:
        """Keeps it open no more. Raises Refused, NoAnswer, LinkEnded. Ids of an adapter that is not
        plugged in end the service."""
        identity = Port.from_text(port)
        try:
            status = self._command(CLOSE, identity, close_command(identity))
        finally:
            self._kept.pop(identity, None)
        _refuse(CLOSE, identity, status)

    def write(self, port: str | Port, data: bytes, block_size: int = 0) -> None:
        """Sends data of any length, and returns when the service has taken them; takes what comes
        in meanwhile. What the device does with them nobody tells: one that fails, or is gone, may
        lose them without a word.

        Raises Refused for a port that is not open; NoAnswer when the service takes nothing for
        `reply_timeout`, as a line does that its device holds up; LinkEnded when the link ends,
        with `reconnect` too: some of the data may have been written. The error's `taken` tells how
        many bytes the service had certainly taken."""
        identity = Port.from_text(port)
        step = block_bytes(identity, block_size or _PIECE)
        fence = open_command(identity, FENCE)
        self._begin_call()
        progress = _Progress()
        try:
            self._need_port(identity)
            number = self._number
            for start in range(0, len(data), step):
                self._wait_until_taken(progress, start - _WINDOW, number)
                piece = data[start : start + step]
                packets = data_command(identity, [Block(1, piece)]) + fence
                self._ask(OPEN, identity, packets, progress.answer(start + len(piece)))
            self._wait_until_taken(progress, len(data), number)
        except RelayError as error:
            error.taken = progress.taken
            raise

    def send(self, raw: bytes) -> None:
        """Any bytes. What they are answered with, `reply` takes."""
        self._begin_call()
        self._need_link(deadline(self.reply_timeout))
        self._is_raw = True
        self._send(raw)

    def reply(self, timeout: float | None = None) -> Packet:
        """The next reply that no command waited for. Raises NoAnswer, LinkEnded."""
        self._begin_call()
        number = self._number
        if not self._run(lambda: self._replies or not self._is_on(number), deadline(timeout)):
            raise NoAnswer("no reply came in time")
        if not self._replies:
            raise LinkEnded("the link ended before the reply")
        return self._replies.popleft()

    def receive(self, timeout: float | None = None) -> Received | None:
        """The next piece that any port has received, or None when `timeout` passes. Raises
        LinkEnded, unless `reconnect`. With `on_received` it returns None only."""
        self._begin_call()
        if self._run(lambda: self._incoming, deadline(timeout)):
            return self._incoming.popleft()
        return None

    def received(self, silence: float | None = None) -> Iterator[Received]:
        """Pieces as they come, until nothing has come for `silence`."""
        while (piece := self.receive(silence)) is not None:
            yield piece

    def read_until(self, port: str | Port, end: bytes, timeout: float | None = None) -> bytes:
        """What this port receives, up to and with `end`; the rest, and other ports' data, stay.
        Nothing is joined across the end of a link: bytes of the link before without an `end` are
        dropped when some of a new one come, which an Event tells. Raises NoAnswer, and then takes
        nothing; LinkEnded, unless `reconnect`."""
        self._begin_call()
        message = Message(Port.from_text(port), end)
        limit = deadline(timeout)
        others: collections.deque[Received] = collections.deque()
        try:
            while not message.is_whole:
                if not self._run(lambda: self._incoming, limit):
                    raise NoAnswer(f"{message}, in time")
                piece = self._incoming.popleft()
                if piece.port != message.port:
                    others.append(piece)
                elif dropped := message.add(piece):
                    what = f"dropped {shown(dropped)}, cut off by the end of the link"
                    self._tell(Change.DROPPED, f"{message.port.shown}: {what}", message.port)
        finally:
            self._incoming = message.rest() + others + self._incoming
        return message.taken()

    def _command(self, command: int, port: Port, packet: bytes) -> int:
        """The status. Asks again on another link."""
        self._begin_call()
        end = deadline(self.reply_timeout)
        answer: list[int] = []
        while not answer:
            self._need_link(end)
            number = self._number
            self._ask(command, port, packet, answer.append)
            if not self._run(lambda: answer or not self._is_on(number), end):
                self._give_up(f"the service did not answer for {port.shown} in time")
        return answer[0]

    def _send(self, data: bytes) -> None:
        """Until the system has taken it."""
        number = self._number
        self._put(data)
        while self._outgoing:
            before = len(self._outgoing)
            limit = deadline(self.reply_timeout)
            if not self._run(lambda: len(self._outgoing) != before, limit):
                self._give_up("the service took no bytes in time")
        if not self._is_on(number):
            raise self._failure or LinkEnded("the link ended")

    def _need_port(self, port: Port) -> None:
        """A link, and on it the port's open answered, if it is kept."""
        end = deadline(self.reply_timeout)
        self._need_link(end)
        kept = self._kept.get(port, Kept(DONE))
        if not self._run(lambda: self.is_connected and kept.status is not None, end):
            self._give_up(f"the service did not answer for {port.shown} in time")
        if port.as_answered() not in self._opened:
            raise Refused(f"{port.shown} is not open: nothing was sent to it", NO_PORT)

    def _wait_until_taken(self, progress: "_Progress", count: int, number: int) -> None:
        while progress.taken < count:
            before = progress.taken
            if not self._run(
                lambda: progress.has_moved(before) or not self._is_on(number),
                deadline(self.reply_timeout),
            ):
                self._give_up(f"the service took {before} bytes, and no more in time")
            if progress.refusal is not None:
                raise Refused("the port was not open: data were dropped", progress.refusal)
            if not progress.has_moved(before):
                raise LinkEnded(f"the link ended when the service had taken {before} bytes")

    def _give_up(self, problem: str) -> NoReturn:
        # An answer that still comes would be taken for the next command's.
        self._end(NoAnswer(problem))
        raise NoAnswer(problem)


def _refuse(command: int, port: Port, status: int) -> None:
    if status:
        text = status_text(command, status)
        raise Refused(f"{port.shown}: status {status}: {text}", status)


class _Progress:
    """Of a write, as the answers to its fences tell it."""

    def __init__(self) -> None:
        self.taken = 0
        self.refusal: int | None = None  # the status of a fence that found the port closed

    def has_moved(self, before: int) -> bool:
        return self.taken != before or self.refusal is not None

    def answer(self, up_to: int) -> Callable[[int], None]:
        def take(status: int) -> None:
            if status != OPEN_ALREADY:
                self.refusal = status
            elif self.refusal is None:
                self.taken = up_to

        return take
