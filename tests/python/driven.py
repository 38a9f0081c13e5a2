# SPDX-License-Identifier: MIT
"""An object of asyncio, used as if it were the blocking one."""

import asyncio
import inspect
import threading
from collections.abc import Callable, Iterator
from typing import Any, cast

import serial_port_relay
from serial_port_relay import aio


class Loop:
    """Runs in a thread of its own."""

    def __init__(self) -> None:
        self._loop = asyncio.new_event_loop()
        self._thread = threading.Thread(target=self._loop.run_forever)
        self._thread.start()

    def run(self, function: Callable[..., Any], *arguments: Any, **named: Any) -> Any:
        async def call() -> Any:
            result = function(*arguments, **named)
            return await result if inspect.isawaitable(result) else result

        return asyncio.run_coroutine_threadsafe(call(), self._loop).result()

    def client(self, *arguments: Any, **named: Any) -> serial_port_relay.Client:
        client = self.run(aio.Client, *arguments, **named)
        return cast(serial_port_relay.Client, DrivenClient(self, client))

    def stop(self) -> None:
        left = self.run(lambda: asyncio.all_tasks(self._loop) - {asyncio.current_task(self._loop)})
        self._loop.call_soon_threadsafe(self._loop.stop)
        self._thread.join()
        self._loop.close()
        assert not left, f"tasks are left: {left}"


class Driven:
    def __init__(self, loop: Loop, driven: Any) -> None:
        self.__dict__.update(loop=loop, driven=driven)

    def __getattr__(self, name: str) -> Any:
        value = self.loop.run(getattr, self.driven, name)
        if not inspect.ismethod(value):
            return value
        return lambda *arguments, **named: self.loop.run(value, *arguments, **named)

    def __setattr__(self, name: str, value: Any) -> None:
        self.loop.run(setattr, self.driven, name, value)

    def __enter__(self) -> "Driven":
        self.loop.run(self.driven.__aenter__)
        return self

    def __exit__(self, *error: Any) -> None:
        self.loop.run(self.driven.__aexit__, *error)

    def __iter__(self) -> "Driven":
        return self

    def __next__(self) -> Any:
        try:
            return self.loop.run(self.driven.__anext__)
        except StopAsyncIteration:
            raise StopIteration from None


class DrivenClient(Driven):
    def serial(self, *arguments: Any, **named: Any) -> Driven:
        """Open, as the blocking client gives it."""
        return OpenPort(self.loop, self.loop.run(self.driven.serial, *arguments, **named))

    def received(self, silence: float | None = None) -> Iterator[Any]:
        return Driven(self.loop, self.driven.received(silence))


class OpenPort(Driven):
    def __init__(self, loop: Loop, driven: Any) -> None:
        super().__init__(loop, driven)
        loop.run(driven.open)

    def __enter__(self) -> Driven:
        return self
