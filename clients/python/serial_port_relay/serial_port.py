# SPDX-License-Identifier: MIT
"""A port with the habits of pyserial."""

import io
from typing import TYPE_CHECKING

from .errors import LinkEnded
from .packet import Port

if TYPE_CHECKING:
    from _typeshed import ReadableBuffer, WriteableBuffer

    from .calls import Calls
    from .client import Client


class PortOfClient:
    """What it is with a blocking client and with one of asyncio."""

    def __init__(
        self, client: "Calls", port: str | Port, timeout: float | None = None, *, keep: bool = False
    ) -> None:
        self.port = Port.from_text(port)
        self.timeout = timeout
        self._calls = client
        self._keep = keep

    def __repr__(self) -> str:
        return f"<SerialPort {self.port.shown}, {'open' if self.is_open else 'closed'}>"

    @property
    def name(self) -> str:
        return str(self.port)

    @property
    def is_open(self) -> bool:
        """As far as the service has told, and the link stands."""
        return self._calls.is_open(self.port)

    @property
    def in_waiting(self) -> int:
        return self._calls.waiting(self.port)

    def reset_input_buffer(self) -> None:
        """Forgets what has come so far. More may be on its way."""
        self._calls.drop(self.port)


class SerialPort(PortOfClient, io.RawIOBase):
    """A port of a client, which must be connected. Names and meanings are those of pyserial's
    Serial, but its errors are this package's, and there are no line settings: the service has them.

    `timeout`: of each read, in seconds. None waits for as many bytes as are asked for, 0 takes what
    has come. After it, a read returns what there is, and iteration ends.
    """

    def __init__(
        self, client: "Client", port: str | Port, timeout: float | None = None, *, keep: bool = False
    ) -> None:
        super().__init__(client, port, timeout, keep=keep)
        self.client = client

    def __del__(self) -> None:
        pass  # the base class would close, and thus talk to the service at any time

    def open(self) -> None:
        """Raises Refused, also when it is open already."""
        self.client.open(self.port, keep=self._keep)

    def close(self) -> None:
        """Does nothing when it is closed. It can be opened again."""
        try:
            if self.is_open:
                self.client.close(self.port)
        except LinkEnded:
            pass  # which closes it, too

    def read(self, size: int = 1) -> bytes:
        return self.client.read(self.port, size, self.timeout)

    def read_until(self, expected: bytes = b"\n", size: int | None = None) -> bytes:
        """What there is, when `timeout` passes or there are `size` bytes."""
        return self.client.read_part(self.port, expected, size, self.timeout)

    def read_all(self) -> bytes:
        """What has come."""
        return self.client.read(self.port, self.in_waiting, 0.0)

    def readline(self, size: int | None = -1) -> bytes:
        return self.read_until(size=None if size is None or size < 0 else size)

    def readinto(self, buffer: "WriteableBuffer") -> int:
        view = memoryview(buffer).cast("B")
        data = self.read(len(view))
        view[: len(data)] = data
        return len(data)

    def write(self, data: "ReadableBuffer") -> int:
        """Returns when the service has taken all. See Client.write."""
        raw = bytes(data)
        self.client.write(self.port, raw)
        return len(raw)

    def flush(self) -> None:
        """A write has done all that can be done from here."""

    def fileno(self) -> int:
        """See Client.fileno: it is the link's, which all ports share."""
        return self.client.fileno()

    def readable(self) -> bool:
        return True

    def writable(self) -> bool:
        return True
