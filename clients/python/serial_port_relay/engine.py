# SPDX-License-Identifier: MIT
"""Beneath the calls of a client: makes the link, keeps it, and takes what comes. It waits for nothing:
who drives it calls `_act` whenever something can be done."""

import collections
import logging
import time
from collections.abc import Callable
from dataclasses import dataclass
from typing import NamedTuple

from .clock import earliest
from .errors import LinkEnded, MalformedPacket, NonsenseError, RelayError
from .inbox import Inbox
from .link import Link, not_listening
from .packet import (
    DATA,
    DONE,
    NOT_CLOSED,
    OPEN,
    OPEN_ALREADY,
    Direction,
    Packet,
    PacketCutter,
    Port,
    open_command,
    parse_packet,
    status_text,
)
from .told import Change, Event, Received

_RETRY_PAUSE = 0.1  # seconds between two tries to connect
_REOPEN_PAUSE = 0.5  # between two opens of a kept port that the service refused
_MOST_MALFORMED = 16  # the last so many are told
_MOST_RECEIVES = 256  # more than a socket's buffer holds, and an end of a flood

_log = logging.getLogger("serial_port_relay")


class _Question(NamedTuple):
    command: int
    port: Port
    answer: Callable[[int], None]


@dataclass
class Kept:
    """A port that is opened on each link."""

    status: int | None = None  # of its open on this link; None: not answered yet
    retry_at: float | None = None
    told: int | None = None  # the status that the caller knows


class Engine:
    """See Client for the public attributes, and the table of states in the README."""

    def __init__(self, port: int, patience: float, reconnect: bool) -> None:
        self.port = port
        self.patience = patience
        self.reconnect = reconnect
        self.on_received: Callable[[Received], None] | None = None
        self.on_event: Callable[[Event], None] | None = None
        self.malformed = collections.deque[tuple[bytes, str]](maxlen=_MOST_MALFORMED)
        self._link: Link | None = None
        self._number = 0  # of the link that stands, or of the last one
        self._is_wanted = False  # with no link: it is tried again
        self._failure: RelayError | None = None  # why there is no link
        self._retry_at = 0.0
        self._patience_end = 0.0
        self._is_served = False  # something came on this link
        self._is_cut = False  # since ENDED was told
        self._is_raw = False  # bytes of the caller's own making were sent on this link
        self._outgoing = bytearray()
        self._cutter = PacketCutter()
        self._questions: collections.deque[_Question] = collections.deque()
        self._opened: set[Port] = set()  # on this link, as its answers say
        self._kept: dict[Port, Kept] = {}  # in the order of their opening
        self._inbox = Inbox()
        self._replies: collections.deque[Packet] = collections.deque()

    @property
    def is_connected(self) -> bool:
        return self._link is not None and self._link.is_connected

    def _begin_call(self) -> None:
        self._patience_end = time.monotonic() + self.patience

    def _is_on(self, number: int) -> bool:
        """Whether it is still that link that stands."""
        return self.is_connected and self._number == number

    def _need_hope(self) -> None:
        """Raises why the link ended when it is not tried again."""
        if self._link is None and not self._is_wanted:
            failure, self._failure = self._failure, None
            raise failure or LinkEnded("not connected to the service")

    @property
    def _due(self) -> float | None:
        """When there is something to do even if nothing comes."""
        if self._link is None:
            return self._retry_at if self._is_wanted else None
        return earliest(*(kept.retry_at for kept in self._kept.values() if self.reconnect))

    def _act(self) -> None:
        """Does what can be done now."""
        if self._link is None:
            if self._is_wanted and time.monotonic() >= self._retry_at:
                self._connect()
            return
        was_connected = self.is_connected
        try:
            self._link.go_on()
        except OSError as error:
            self._end(not_listening(self.port, error), is_firm=False)
            return
        if self.is_connected and not was_connected:
            self._be_connected()
        elif self.is_connected:
            self._link.send(self._outgoing)
            self._receive()
            self._reopen()

    def _connect(self) -> None:
        try:
            self._link = Link(self.port)
        except OSError as error:
            self._end(not_listening(self.port, error), is_firm=False)
        else:
            self._is_served = self._is_raw = False
            if self.is_connected:
                self._be_connected()

    def _be_connected(self) -> None:
        self._number += 1
        for port in self._kept:
            self._open_kept(port)

    def _end(self, reason: RelayError, is_firm: bool = True) -> None:
        """`is_firm`: without `reconnect`, there is no further try."""
        self._drop_link()
        was_served, self._is_served = self._is_served, False
        self._outgoing.clear()
        self._cutter = PacketCutter()
        self._questions.clear()
        self._opened.clear()
        for kept in self._kept.values():
            kept.status = kept.retry_at = kept.told = None
        now = time.monotonic()
        self._is_wanted = self.reconnect or (not is_firm and now < self._patience_end)
        self._retry_at = now + _RETRY_PAUSE
        self._failure = reason
        if was_served and self.reconnect:
            self._is_cut = True
            self._tell(Change.ENDED, f"{reason}; trying again")

    def _drop_link(self) -> None:
        if self._link is not None:
            self._link.close()
            self._link = None

    def _leave(self) -> None:
        """As the caller wishes: there is no further try. What has come is taken."""
        reconnect, self.reconnect = self.reconnect, False
        try:
            self._drain()
        finally:
            self._end(LinkEnded("not connected to the service"))
            self.reconnect, self._is_cut = reconnect, False

    def _ask(self, command: int, port: Port, packet: bytes, answer: Callable[[int], None]) -> None:
        self._questions.append(_Question(command, port.as_answered(), answer))
        self._put(packet)

    def _put(self, data: bytes) -> None:
        assert self._link is not None
        self._outgoing += data
        self._link.send(self._outgoing)

    def _open_kept(self, port: Port) -> None:
        kept = self._kept[port]
        kept.status = kept.retry_at = None

        def answer(status: int) -> None:
            if self._kept.get(port) is kept:  # not closed meanwhile
                self._take_status(port, kept, status)

        self._ask(OPEN, port, open_command(port), answer)

    def _take_status(self, port: Port, kept: Kept, status: int) -> None:
        is_open = status in (DONE, OPEN_ALREADY)
        kept.status = status
        kept.retry_at = None if is_open else time.monotonic() + _REOPEN_PAUSE
        if status != kept.told:
            kept.told = status
            text = f"{port.shown}: {'open' if is_open else status_text(OPEN, status)}"
            self._tell(Change.OPENED if is_open else Change.REFUSED, text, port)

    def _keep(self, port: Port, status: int | None) -> None:
        """`status`: with which the caller has been answered."""
        kept = self._kept[port] = Kept(told=status)
        if status is not None:
            self._take_status(port, kept, status)
        elif self.is_connected:
            self._open_kept(port)

    def _reopen(self) -> None:
        now = time.monotonic()
        for port, kept in self._kept.items():
            if kept.retry_at is not None and now >= kept.retry_at and self.reconnect:
                self._open_kept(port)

    def _drain(self) -> bool:
        """Takes what has come. False: there may be more."""
        for _ in range(_MOST_RECEIVES):
            if not self.is_connected or not self._receive():
                return True
        return False

    def _receive(self) -> bool:
        """False: nothing came."""
        if self._link is None:
            return False
        try:
            data = self._link.receive()
        except OSError:
            data = b""
        if data is None:
            return False
        if not data:
            # The queue of a service that is about to listen anew, as its peer has just left, is
            # reset before anything came.
            self._end(LinkEnded("the service ended the link"), is_firm=self._is_served)
            return False
        if not self._is_served:
            self._is_served = True
            self._tell_linked()
        self._cutter.add(data)
        self._take_packets()
        return True

    def _take_packets(self) -> None:
        number = self._number
        while self._is_on(number):
            try:
                raw = self._cutter.next()
            except NonsenseError as error:
                self._end(error)
                return
            if raw is None:
                return
            self._take_packet(raw)

    def _take_packet(self, raw: bytes) -> None:
        try:
            packet = parse_packet(raw, Direction.FROM_SERVICE)
        except MalformedPacket as error:
            self.malformed.append((raw, str(error)))
            return
        if packet.command != DATA:
            self._take_reply(packet)
            return
        piece = Received.of_link(self._number, packet.port, packet.data)
        if self.on_received is not None:
            self.on_received(piece)
        else:
            self._inbox.add(piece)

    def _take_reply(self, packet: Packet) -> None:
        status = packet.number or 0
        if packet.command == OPEN and status in (DONE, OPEN_ALREADY):
            self._opened.add(packet.port)
        elif packet.command != OPEN and status != NOT_CLOSED:
            self._opened.discard(packet.port)
        question = self._questions[0] if self._questions else None
        if question and (question.command, question.port) == (packet.command, packet.port):
            self._questions.popleft()
            question.answer(status)
        elif question and not self._is_raw:
            self._end(
                NonsenseError(
                    f"the service answered for {packet.port.shown} instead of {question.port.shown}"
                )
            )
        else:
            self._replies.append(packet)

    def _tell_linked(self) -> None:
        if self._is_cut:
            self._is_cut = False
            self._tell(Change.LINKED, "the link stands again")

    def _tell(self, what: Change, text: str, port: Port | None = None) -> None:
        if self.on_event is not None:
            self.on_event(Event(what, text, port))
        else:
            is_good = what in (Change.LINKED, Change.OPENED)
            _log.log(logging.INFO if is_good else logging.WARNING, "%s", text)
