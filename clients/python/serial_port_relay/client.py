# SPDX-License-Identifier: MIT
"""The relay service's end of the link."""

import time
from collections.abc import Callable, Coroutine, Iterator
from types import TracebackType
from typing import TypeVar

from .calls import Calls
from .clock import earliest, has_passed, left
from .link import not_listening
from .message import Message
from .packet import Packet, Port
from .serial_port import SerialPort
from .told import Event, Received

DEFAULT_PORT = 60004
# A full line takes more when all but 256 of the kernel's 4096 bytes are sent: at 2400 baud, 16 s.
REPLY_TIMEOUT = 20.0

_Result = TypeVar("_Result")


class Client(Calls):
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
        reply_timeout: float | None = REPLY_TIMEOUT,
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
        _at_once(self._do_connect())

    def disconnect(self) -> None:
        """Leaves: the service closes all ports. What came before can still be received."""
        self._leave()

    def fileno(self) -> int:
        """Of the link, for select: readable when something has come that no call has taken from it
        yet. Calls take all that has come, for each port: ask for what is waiting there before you
        wait here. Another link has another one. Raises LinkEnded."""
        self._need_hope()
        if self._link is None:
            raise not_listening(self.port)
        return self._link.fileno()

    def open(self, port: str | Port, *, keep: bool = False) -> None:
        """`keep`: open it on each link to come, too, whatever the answer now; with `reconnect`, one
        that is refused is tried again each half second. Raises Refused, NoAnswer, LinkEnded."""
        _at_once(self._do_open(Port.from_text(port), keep))

    def close(self, port: str | Port) -> None:
        """Keeps it open no more. Raises Refused, NoAnswer, LinkEnded. Ids of an adapter that is not
        plugged in end the service."""
        _at_once(self._do_close(Port.from_text(port)))

    def serial(
        self, port: str | Port, timeout: float | None = None, *, keep: bool = False
    ) -> SerialPort:
        """Opens the port, and gives it with the habits of pyserial."""
        serial = SerialPort(self, port, timeout, keep=keep)
        serial.open()
        return serial

    def write(self, port: str | Port, data: bytes, block_size: int = 0) -> None:
        """Sends data of any length, and returns when the service has taken them; takes what comes
        in meanwhile. What the device does with them nobody tells: one that fails, or is gone, may
        lose them without a word.

        Raises Refused for a port that is not open; NoAnswer when the service takes nothing for
        `reply_timeout`, as a line does that its device holds up; LinkEnded when the link ends,
        with `reconnect` too: some of the data may have been written. The error's `taken` tells how
        many bytes the service had certainly taken."""
        _at_once(self._do_write(Port.from_text(port), data, block_size))

    def send(self, raw: bytes) -> None:
        """Any bytes. What they are answered with, `reply` takes."""
        _at_once(self._do_send(raw))

    def reply(self, timeout: float | None = None) -> Packet:
        """The next reply that no command waited for. Raises NoAnswer, LinkEnded."""
        return _at_once(self._do_reply(timeout))

    def receive(self, timeout: float | None = None) -> Received | None:
        """The next piece that any port has received, or None when `timeout` passes. Raises
        LinkEnded, unless `reconnect`. With `on_received` it returns None only."""
        return _at_once(self._do_receive(timeout))

    def received(self, silence: float | None = None) -> Iterator[Received]:
        """Pieces as they come, until nothing has come for `silence`."""
        while (piece := self.receive(silence)) is not None:
            yield piece

    def read(self, port: str | Port, size: int = 1, timeout: float | None = None) -> bytes:
        """So many bytes of what this port receives: fewer, or none, when `timeout` passes, and
        fewer where the link was made anew. Raises LinkEnded when there are none, unless
        `reconnect`."""
        return _at_once(self._do_read(Port.from_text(port), size, timeout))

    def read_until(self, port: str | Port, end: bytes, timeout: float | None = None) -> bytes:
        """What this port receives, up to and with `end`; the rest, and other ports' data, stay.
        Nothing is joined across the end of a link: bytes of the link before without an `end` are
        dropped when some of a new one come, which an Event tells. Raises NoAnswer, and then takes
        nothing; LinkEnded, unless `reconnect`."""
        return _at_once(self._do_read_until(Message(Port.from_text(port), end), timeout))

    def read_part(self, port: str | Port, end: bytes, most: int | None, timeout: float | None
                  ) -> bytes:
        """Like `read_until`, but takes what there is when there are `most` bytes of it, or when
        `timeout` passes."""
        message = Message(Port.from_text(port), end, most)
        return _at_once(self._do_read_until(message, timeout, takes_part=True))

    async def _until(self, done: Callable[[], object], end: float | None) -> bool:
        while not done():
            self._need_hope()
            is_late = has_passed(end)
            if self._link is None:
                time.sleep(left(earliest(end, self._due)) or 0.0)
            else:
                self._link.wait(bool(self._outgoing), left(earliest(end, self._due)))
            self._act()
            if is_late and not done():
                return False
        return True


def _at_once(call: Coroutine[None, None, _Result]) -> _Result:
    """Its `_until` has done all the waiting."""
    try:
        call.send(None)
    except StopIteration as end:
        result: _Result = end.value
        return result
    raise AssertionError("a blocking client has suspended")
