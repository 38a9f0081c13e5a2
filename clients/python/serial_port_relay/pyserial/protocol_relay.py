# SPDX-License-Identifier: MIT
"""relay://#USBSerialPort0: pyserial finds the scheme's handler by this module's name."""

import asyncio
import socket
import urllib.parse
from collections.abc import Callable, Coroutine
from typing import Any, ParamSpec, TypeVar

import serial  # type: ignore[import]

from ..client import DEFAULT_PORT
from ..errors import LinkEnded, RelayError
from ..packet import Port
from . import links

# Seconds. Behind data that a line does not take, a close waits as long as they. It stays with the
# service even so, and the port closes with it, or with the link.
_CLOSE_PATIENCE = 1.0

_Arguments = ParamSpec("_Arguments")
_Result = TypeVar("_Result")


class Serial(serial.SerialBase):  # type: ignore[misc]
    """The line's settings are the service's. They can be set here, and so can DTR and RTS, without
    an effect, as with pyserial's socket://. Asking for modem lines or a break is an error.

    Different threads may use it at a time, such as one that reads and one that writes."""

    is_open: bool

    def __del__(self) -> None:
        pass  # the base class would close, and thus talk to the service at any time

    def open(self) -> None:
        if self._port is None:
            raise serial.SerialException("Port must be configured before it can be used.")
        if self.is_open:
            raise serial.SerialException("Port is already open.")
        tcp_port, self._relayed = parse(self.portstr)
        try:
            self._link = links.take(tcp_port)
            self._open_on(self._link)
        except RelayError as error:
            raise serial.SerialException(f"could not open port {self.portstr}: {error}") from error
        # For select: what the one sends, none or one byte, the other shows.
        self._ready: tuple[socket.socket, socket.socket] | None = None
        self._is_shown = False
        self._behind: asyncio.Task[None] | None = None  # the last write that was not waited for
        self.is_open = True

    def close(self) -> None:
        if self.is_open:
            self.is_open = False
            try:
                self._link.run(self._close())
            except (RelayError, TimeoutError):
                pass  # the link has ended, and the port with it; or a line holds the service up
            finally:
                self._link.release()

    @property
    def in_waiting(self) -> int:
        return self._run(self._waiting)

    def read(self, size: int = 1) -> bytes:
        return self._run(self._read, size)

    def write(self, data: Any) -> int:
        """Returns when the service has taken all, with a write_timeout of 0 at once: whether that
        went well, the next write or flush tells."""
        raw: bytes = serial.to_bytes(data)
        self._run(self._write if self._write_timeout != 0 else self._write_behind, raw)
        return len(raw)

    def flush(self) -> None:
        """Until the service has taken all. When the line has sent it nobody tells."""
        self._run(self._flush)

    def reset_input_buffer(self) -> None:
        self._run(self._drop)

    def reset_output_buffer(self) -> None:
        self._need_open()  # the service takes nothing back

    def fileno(self) -> int:
        """For select: readable while bytes are waiting, and when the link has ended; writable
        always, as a write waits itself."""
        return self._run(self._watch)

    @property
    def cts(self) -> bool:
        raise self._cannot("modem lines")

    dsr = ri = cd = cts

    def send_break(self, duration: float = 0.25) -> None:
        raise self._cannot("break")

    def _update_break_state(self) -> None:
        if self._break_state:
            raise self._cannot("break")

    def _update_dtr_state(self) -> None:
        pass

    def _update_rts_state(self) -> None:
        pass

    def _reconfigure_port(self) -> None:
        pass

    def _cannot(self, what: str) -> Exception:
        self._need_open()
        error: Exception = serial.SerialException(f"SerialPortHandler's link has no {what}")
        return error

    def _need_open(self) -> None:
        if not self.is_open:
            raise serial.PortNotOpenError()

    def _open_on(self, link: links.Link) -> None:
        try:
            link.run(link.client.open(self._relayed))
        except BaseException:
            link.release()
            raise

    def _run(
        self,
        call: Callable[_Arguments, Coroutine[Any, Any, _Result]],
        *arguments: _Arguments.args,
        **named: _Arguments.kwargs,
    ) -> _Result:
        self._need_open()
        try:
            return self._link.run(call(*arguments, **named))
        except RelayError as error:
            raise serial.SerialException(f"{self.portstr}: {error}") from error

    # What follows runs in the link's event loop.

    async def _read(self, size: int) -> bytes:
        await self._need_port()
        try:
            return await self._link.client.read(self._relayed, size, self._timeout)
        finally:
            self._show()

    async def _write(self, data: bytes) -> None:
        try:
            async with asyncio.timeout(self._write_timeout):
                await self._flush()
                await self._link.client.write(self._relayed, data)
        except TimeoutError as error:  # NoAnswer is one, too
            raise serial.SerialTimeoutException(f"Write timeout {error}") from error

    async def _write_behind(self, data: bytes) -> None:
        before = self._behind

        async def write() -> None:
            if before is not None:
                await before
            await self._link.client.write(self._relayed, data)

        if before is not None and before.done():
            before.result()  # raises
        self._behind = asyncio.create_task(write())

    async def _flush(self) -> None:
        if self._behind is not None:
            await asyncio.shield(self._behind)

    async def _waiting(self) -> int:
        await self._need_port()
        return self._link.client.waiting(self._relayed)

    async def _drop(self) -> None:
        self._link.client.drop(self._relayed)
        self._show()

    async def _need_port(self) -> None:
        client = self._link.client
        if not client.waiting(self._relayed) and not client.is_open(self._relayed):
            raise LinkEnded("the link has ended since the port was opened")

    async def _close(self) -> None:
        if self._ready is not None:
            self._link.client.watchers.remove(self._show)
            self._ready[0].close()
            self._ready[1].close()
            self._ready = None
        try:
            async with asyncio.timeout(_CLOSE_PATIENCE):
                await self._flush()
                await self._link.client.serial(self._relayed).close()
        finally:
            self._link.client.drop(self._relayed)

    async def _watch(self) -> int:
        if self._ready is None:
            self._ready = socket.socketpair()
            self._link.client.watchers.append(self._show)
            self._show()
        return self._ready[0].fileno()

    def _show(self) -> None:
        client = self._link.client
        is_ready = client.has(self._relayed) or not client.is_open(self._relayed)
        if self._ready is not None and is_ready != self._is_shown:
            self._is_shown = is_ready
            if is_ready:
                self._ready[1].send(b"!")
            else:
                self._ready[0].recv(1)


def parse(url: str) -> tuple[int, Port]:
    """The service's TCP port and the serial port of relay://[?port=TCP_PORT]#USBSerialPort0."""
    parts = urllib.parse.urlsplit(url)
    try:
        if parts.scheme != "relay" or parts.netloc or parts.path or not parts.fragment:
            raise ValueError("not of that form")
        options = dict(urllib.parse.parse_qsl(parts.query, keep_blank_values=True))
        number = int(options.pop("port", DEFAULT_PORT))
        if options:
            raise ValueError(f"unknown option {next(iter(options))!r}")
        if not 0 < number < 65536:
            raise ValueError("port not in range 1...65535")
    except ValueError as error:
        form = "relay://#USBSerialPort0 or relay://?port=TCP_PORT#USBSerialPort0"
        raise serial.SerialException(f"expected {form}, not {url!r}: {error}") from None
    return number, Port.from_text(f"#{parts.fragment}")
