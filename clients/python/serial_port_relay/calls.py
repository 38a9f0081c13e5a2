# SPDX-License-Identifier: MIT
"""What a client can be asked to do, written once. The blocking client runs these to their end in one
go, as its `_until` blocks instead of suspending; the one of asyncio suspends in it."""

import abc
from collections.abc import Callable
from typing import NoReturn

from .clock import deadline
from .engine import Engine, Kept
from .errors import LinkEnded, NoAnswer, NotListening, Refused, RelayError
from .link import not_listening
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
from .told import Change, Received

# A write sends so many bytes in front of each fence: few, so that a slow line answers some often;
# and so many before the first of them are taken: enough to keep the fastest line busy.
_PIECE, _WINDOW = 1024, 32768


class Calls(Engine, abc.ABC):
    """Client describes those that begin with _do."""

    reply_timeout: float | None

    def is_open(self, port: str | Port) -> bool:
        """As far as the service has told: on this link, and not closed since."""
        return Port.from_text(port).as_answered() in self._opened

    def has(self, port: str | Port) -> bool:
        """Whether something of the port has been taken from the link, and from here not yet."""
        return self._inbox.has(Port.from_text(port))

    def waiting(self, port: str | Port) -> int:
        """How many bytes of the port can be taken without waiting."""
        self._drain()
        return self._inbox.waiting(Port.from_text(port))

    def drop(self, port: str | Port) -> None:
        """Forgets what the port has received so far."""
        self._drain()
        self._inbox.drop(Port.from_text(port))

    @abc.abstractmethod
    async def _until(self, done: Callable[[], object], end: float | None) -> bool:
        """False: the end has passed. Raises why the link ended when it is not tried again."""

    async def _need_link(self, end: float | None) -> None:
        self._drain()  # so that one that has ended meanwhile is noticed
        if not await self._until(lambda: self.is_connected, end):
            raise self._failure or not_listening(self.port)

    async def _do_connect(self) -> None:
        self._begin_call()
        self._is_wanted = True
        try:
            await self._need_link(deadline(self.patience))
        except NotListening:
            if not self.reconnect:
                self._leave()
            raise

    async def _do_open(self, port: Port, keep: bool) -> None:
        try:
            status = await self._command(OPEN, port, open_command(port))
        except RelayError:
            if keep:
                self._keep(port, None)
            raise
        if keep:
            self._keep(port, status)
        _refuse(OPEN, port, status)

    async def _do_close(self, port: Port) -> None:
        try:
            status = await self._command(CLOSE, port, close_command(port))
        finally:
            self._kept.pop(port, None)
        _refuse(CLOSE, port, status)

    async def _do_write(self, port: Port, data: bytes, block_size: int) -> None:
        step = block_bytes(port, block_size or _PIECE)
        fence = open_command(port, FENCE)
        self._begin_call()
        progress = _Progress()
        try:
            await self._need_port(port)
            number = self._number
            for start in range(0, len(data), step):
                await self._wait_until_taken(progress, start - _WINDOW, number)
                piece = data[start : start + step]
                packets = data_command(port, [Block(1, piece)]) + fence
                self._ask(OPEN, port, packets, progress.answer(start + len(piece)))
            await self._wait_until_taken(progress, len(data), number)
        except RelayError as error:
            error.taken = progress.taken
            raise

    async def _do_send(self, raw: bytes) -> None:
        self._begin_call()
        await self._need_link(deadline(self.reply_timeout))
        self._is_raw = True
        number = self._number
        self._put(raw)
        while self._outgoing and self._is_on(number):
            before = len(self._outgoing)
            limit = deadline(self.reply_timeout)
            if not await self._until(lambda: len(self._outgoing) != before, limit):
                self._give_up("the service took no bytes in time")
        if not self._is_on(number):
            raise self._failure or LinkEnded("the link ended")

    async def _do_reply(self, timeout: float | None) -> Packet:
        self._begin_call()
        number = self._number
        end = deadline(timeout)
        if not await self._until(lambda: self._replies or not self._is_on(number), end):
            raise NoAnswer("no reply came in time")
        if not self._replies:
            raise LinkEnded("the link ended before the reply")
        return self._replies.popleft()

    async def _do_receive(self, timeout: float | None) -> Received | None:
        self._begin_call()
        if await self._until(lambda: self._inbox, deadline(timeout)):
            return self._inbox.next()
        return None

    async def _do_read(self, port: Port, size: int, timeout: float | None) -> bytes:
        """Fewer when `timeout` passes, or where the link was made anew."""
        self._begin_call()
        try:
            await self._until(lambda: self._inbox.can_give(port, size), deadline(timeout))
        except RelayError as error:
            if not self._inbox.has(port):
                raise
            self._failure = error  # for the next call
        return self._inbox.take(port, size)

    async def _do_read_until(
        self, message: Message, timeout: float | None, takes_part: bool = False
    ) -> bytes:
        """`takes_part`: when `timeout` passes, what has come is taken as it is."""
        self._begin_call()
        end = deadline(timeout)
        try:
            while not message.is_whole:
                if await self._until(lambda: self._inbox.has(message.port), end):
                    self._add(message, self._inbox.next_of(message.port))
                elif takes_part:
                    message.end_here()
                else:
                    raise NoAnswer(f"{message}, in time")
        finally:
            self._inbox.put_back(message.rest())
        return message.taken()

    def _add(self, message: Message, piece: Received) -> None:
        if dropped := message.add(piece):
            what = f"dropped {shown(dropped)}, cut off by the end of the link"
            self._tell(Change.DROPPED, f"{message.port.shown}: {what}", message.port)

    async def _command(self, command: int, port: Port, packet: bytes) -> int:
        """The status. Asks again on another link."""
        self._begin_call()
        end = deadline(self.reply_timeout)
        answer = _Answer()
        while answer.status is None:
            await self._need_link(end)
            number = self._number
            self._ask(command, port, packet, answer.take)
            try:
                is_in_time = await self._until(
                    lambda: answer.status is not None or not self._is_on(number), end
                )
            except BaseException:
                if command == OPEN:
                    answer.when_late = lambda status: self._undo_open(port, status)
                raise
            if not is_in_time:
                self._give_up(f"the service did not answer for {port.shown} in time")
        return answer.status

    def _undo_open(self, port: Port, status: int) -> None:
        """Of a call that was cancelled: nobody knows that the port is open."""
        if status == DONE:
            self._ask(CLOSE, port, close_command(port), lambda status: None)

    async def _need_port(self, port: Port) -> None:
        """A link, and on it the port's open answered, if it is kept."""
        end = deadline(self.reply_timeout)
        await self._need_link(end)
        kept = self._kept.get(port, Kept(DONE))
        if not await self._until(lambda: self.is_connected and kept.status is not None, end):
            self._give_up(f"the service did not answer for {port.shown} in time")
        if port.as_answered() not in self._opened:
            raise Refused(f"{port.shown} is not open: nothing was sent to it", NO_PORT)

    async def _wait_until_taken(self, progress: "_Progress", count: int, number: int) -> None:
        while progress.taken < count:
            before = progress.taken
            if not await self._until(
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


class _Answer:
    def __init__(self) -> None:
        self.status: int | None = None
        self.when_late: Callable[[int], None] | None = None  # when nobody waits for it any more

    def take(self, status: int) -> None:
        self.status = status
        if self.when_late is not None:
            self.when_late(status)


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
