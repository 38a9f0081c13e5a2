# SPDX-License-Identifier: MIT
"""The relay service's end of the link, for asyncio."""

import asyncio
import contextlib
from collections.abc import AsyncIterator, Callable, Iterator
from types import TracebackType

from .calls import Calls
from .client import DEFAULT_PORT, REPLY_TIMEOUT
from .clock import has_passed, left
from .errors import LinkEnded
from .message import Message
from .packet import Packet, Port
from .serial_port import PortOfClient
from .told import Change, Event, Received

_LIMIT = 1 << 20


class Client(Calls):
    """Like the blocking Client; what is said there of each call and parameter holds here, but:

    It has a task, from `connect` to `disconnect`, that reads whenever something comes and makes the
    link again with `reconnect`. Any task may call, several at a time; writes to one port that go on
    at the same time may mix. What `on_event` is told comes from the event loop.

    `limit`: with so many bytes to be received and no call under way, it stops reading, so that the
    service, and with it the devices, wait. A command then reads all that was held up first.

    A call that is cancelled leaves the link as it is. A `read` or `receive` has then taken nothing;
    of a `write`, some may be written; a port that a cancelled `open` opens is closed again.
    """

    def __init__(
        self,
        port: int = DEFAULT_PORT,
        *,
        patience: float = 1.0,
        reply_timeout: float | None = REPLY_TIMEOUT,
        reconnect: bool = False,
        on_event: Callable[[Event], None] | None = None,
        limit: int = _LIMIT,
    ) -> None:
        super().__init__(port, patience, reconnect)
        self.reply_timeout = reply_timeout
        self.on_event = on_event
        self.limit = limit
        self._task: asyncio.Task[None] | None = None
        self._stir = asyncio.Event()  # there is something for the task to do
        self._stepped = asyncio.Event()  # the task has done something; each step has another
        self._under_way = 0  # calls
        self._is_held_up = False  # something may have waited to be read

    async def __aenter__(self) -> "Client":
        try:
            await self.connect()
        except BaseException:
            await self.disconnect()
            raise
        return self

    async def __aexit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        await self.disconnect()

    async def connect(self) -> None:
        if self._task is None:
            self._task = asyncio.create_task(self._serve())
        try:
            with self._call():
                await self._do_connect()
        except BaseException:
            if not self.reconnect:
                await self.disconnect()
            raise

    async def disconnect(self) -> None:
        self._leave()
        task, self._task = self._task, None
        if task is not None:
            task.cancel()
            await asyncio.wait([task])

    async def open(self, port: str | Port, *, keep: bool = False) -> None:
        with self._call():
            await self._do_open(Port.from_text(port), keep)

    async def close(self, port: str | Port) -> None:
        with self._call():
            await self._do_close(Port.from_text(port))

    def serial(
        self, port: str | Port, timeout: float | None = None, *, keep: bool = False
    ) -> "SerialPort":
        """The port with the habits of pyserial. `async with` or `open` opens it."""
        return SerialPort(self, port, timeout, keep=keep)

    async def write(self, port: str | Port, data: bytes, block_size: int = 0) -> None:
        with self._call():
            await self._do_write(Port.from_text(port), data, block_size)

    async def send(self, raw: bytes) -> None:
        with self._call():
            await self._do_send(raw)

    async def reply(self, timeout: float | None = None) -> Packet:
        with self._call():
            return await self._do_reply(timeout)

    async def receive(self, timeout: float | None = None) -> Received | None:
        with self._call():
            return await self._do_receive(timeout)

    async def received(self, silence: float | None = None) -> AsyncIterator[Received]:
        while (piece := await self.receive(silence)) is not None:
            yield piece

    async def read(self, port: str | Port, size: int = 1, timeout: float | None = None) -> bytes:
        with self._call():
            return await self._do_read(Port.from_text(port), size, timeout)

    async def read_until(
        self, port: str | Port, end: bytes, timeout: float | None = None
    ) -> bytes:
        with self._call():
            return await self._do_read_until(Message(Port.from_text(port), end), timeout)

    async def read_part(
        self, port: str | Port, end: bytes, most: int | None, timeout: float | None
    ) -> bytes:
        with self._call():
            message = Message(Port.from_text(port), end, most)
            return await self._do_read_until(message, timeout, takes_part=True)

    @contextlib.contextmanager
    def _call(self) -> Iterator[None]:
        # Before and after it, the task may have to wait for something else.
        self._under_way += 1
        self._stir.set()
        try:
            yield
        finally:
            self._under_way -= 1
            self._stir.set()

    async def _until(self, done: Callable[[], object], end: float | None) -> bool:
        while not done():
            self._need_hope()
            if self._task is not None and self._task.done():
                self._task.result()  # raises what is wrong in here
            if has_passed(end):
                self._act()  # so that a limit of 0 takes what has come
                return bool(done())
            await _either(self._stepped, end)
        return True

    async def _need_link(self, end: float | None) -> None:
        await super()._need_link(end)
        while self._is_held_up:
            # An answer must not meet a notification that stands half in a full buffer.
            if not await self._until(lambda: not self._is_held_up, end):
                self._give_up("what the service sent before could not be read in time")
            await super()._need_link(end)

    async def _serve(self) -> None:
        try:
            while True:
                await self._watch()
                if not self._is_full:
                    self._act()
                    if self._is_held_up:
                        self._is_held_up = not (self._drain() and self._cutter.is_empty)
                self._wake()
        finally:
            self._wake()

    @property
    def _is_full(self) -> bool:
        is_idle = not (self._under_way or self._questions or self._outgoing or self._is_raw)
        return is_idle and self.is_connected and self._inbox.size >= self.limit

    async def _watch(self) -> None:
        """Until there is something to do."""
        self._stir.clear()
        loop = asyncio.get_running_loop()
        due = self._due
        if self._link is not None:
            if self._outgoing or not self.is_connected:
                loop.add_writer(self._link, self._stir.set)
            if self._is_full:
                self._is_held_up, due = True, None
            elif self.is_connected:
                loop.add_reader(self._link, self._stir.set)
        try:
            await _either(self._stir, due)
        finally:
            self._unwatch()

    def _unwatch(self) -> None:
        if self._link is not None:
            loop = asyncio.get_running_loop()
            loop.remove_reader(self._link)
            loop.remove_writer(self._link)

    def _drop_link(self) -> None:
        if self._link is not None:
            self._unwatch()  # before the descriptor is another's
        super()._drop_link()
        self._is_held_up = False
        self._stir.set()
        self._wake()

    def _put(self, data: bytes) -> None:
        super()._put(data)
        if self._outgoing:
            self._stir.set()

    def _tell(self, what: Change, text: str, port: Port | None = None) -> None:
        asyncio.get_running_loop().call_soon(super()._tell, what, text, port)

    def _wake(self) -> None:
        self._stepped.set()
        self._stepped = asyncio.Event()


class SerialPort(PortOfClient):
    """Like that of the blocking client. It is an iterator over lines, which ends when nothing comes
    for `timeout`."""

    def __init__(
        self, client: Client, port: str | Port, timeout: float | None = None, *, keep: bool = False
    ) -> None:
        super().__init__(client, port, timeout, keep=keep)
        self.client = client

    async def __aenter__(self) -> "SerialPort":
        await self.open()
        return self

    async def __aexit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        await self.close()

    def __aiter__(self) -> "SerialPort":
        return self

    async def __anext__(self) -> bytes:
        if line := await self.readline():
            return line
        raise StopAsyncIteration

    async def open(self) -> None:
        await self.client.open(self.port, keep=self._keep)

    async def close(self) -> None:
        try:
            if self.is_open:
                await self.client.close(self.port)
        except LinkEnded:
            pass  # which closes it, too

    async def read(self, size: int = 1) -> bytes:
        return await self.client.read(self.port, size, self.timeout)

    async def read_until(self, expected: bytes = b"\n", size: int | None = None) -> bytes:
        return await self.client.read_part(self.port, expected, size, self.timeout)

    async def readline(self) -> bytes:
        return await self.read_until()

    async def read_all(self) -> bytes:
        return await self.client.read(self.port, self.in_waiting, 0.0)

    async def write(self, data: bytes) -> int:
        await self.client.write(self.port, data)
        return len(data)


async def _either(event: asyncio.Event, end: float | None) -> None:
    """Until one of the two."""
    with contextlib.suppress(TimeoutError):
        async with asyncio.timeout(left(end)):
            await event.wait()
