# SPDX-License-Identifier: MIT
"""The links of a process's ports. The service takes one peer: ports share it, whatever their threads."""

import asyncio
import concurrent.futures
import threading
from collections.abc import Callable, Coroutine
from typing import Any, TypeVar

from ..aio import Client

_Result = TypeVar("_Result")
_links: dict[int, "Link"] = {}
_lock = threading.Lock()  # over _links, and the coming and going of their users


class Link:
    """A client in an event loop in a thread of its own. It ends with its last user."""

    def __init__(self, port: int) -> None:
        self._users = 0
        self._loop = asyncio.new_event_loop()
        self._thread = threading.Thread(
            target=self._loop.run_forever, name=f"relay link {port}", daemon=True
        )
        self._thread.start()
        self.client = WatchedClient(port)

    def run(self, call: Coroutine[Any, Any, _Result]) -> _Result:
        """From any thread. If the wait is interrupted, the call is cancelled."""
        future = self.start(call)
        try:
            return future.result()
        finally:
            future.cancel()

    def start(self, call: Coroutine[Any, Any, _Result]) -> concurrent.futures.Future[_Result]:
        return asyncio.run_coroutine_threadsafe(call, self._loop)

    def release(self) -> None:
        with _lock:
            self._users -= 1
            if self._users == 0:
                del _links[self.client.port]
                self.run(self.client.disconnect())
                self._loop.call_soon_threadsafe(self._loop.stop)
                self._thread.join()
                self._loop.close()


def take(port: int) -> Link:
    """That to this TCP port, connected; to be released. Raises NotListening."""
    with _lock:
        if port not in _links:
            _links[port] = Link(port)
        link = _links[port]
        link._users += 1
    try:
        link.run(link.client.connect())
    except BaseException:
        link.release()
        raise
    return link


class WatchedClient(Client):
    """Calls each of `watchers` when something may have come, or the link has ended."""

    def __init__(self, port: int) -> None:
        super().__init__(port)
        self.watchers: list[Callable[[], None]] = []

    def _wake(self) -> None:
        super()._wake()
        for watcher in self.watchers:
            watcher()
