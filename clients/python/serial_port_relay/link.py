# SPDX-License-Identifier: MIT
"""One TCP connection to the service, or one try to make it. Never blocks but in `wait`."""

import errno
import math
import os
import select
import socket

from .errors import NotListening

_CHUNK = 65536
_LONGEST_WAIT = 3600.0  # seconds; poll counts milliseconds in an int


class Link:
    """Raises OSError when it cannot be made."""

    def __init__(self, port: int) -> None:
        self.is_connected = False
        self._socket = _bound_elsewhere(port)
        self._poll = select.poll()  # select would end at a descriptor above 1023
        try:
            self._socket.setblocking(False)
            # A small command does not wait for the acknowledgement of the one before.
            self._socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            error = self._socket.connect_ex(("127.0.0.1", port))
            if error != errno.EINPROGRESS:
                self._take_result(error)
            else:
                self.go_on()  # on this machine it is decided already, as a rule
        except BaseException:
            self.close()
            raise

    def close(self) -> None:
        self._socket.close()

    def fileno(self) -> int:
        return self._socket.fileno()

    def wait(self, has_more_to_send: bool, seconds: float | None) -> bool:
        """Until something can be done, at most so long. False: it took so long."""
        events = select.POLLIN if self.is_connected else select.POLLOUT
        self._poll.register(self._socket, events | (select.POLLOUT if has_more_to_send else 0))
        limit = None if seconds is None else math.ceil(1000 * min(seconds, _LONGEST_WAIT))
        return bool(self._poll.poll(limit))

    def go_on(self) -> None:
        """Notices that it is connected. Raises OSError when that has failed."""
        if not self.is_connected and self.wait(False, 0.0):
            self._take_result(self._socket.getsockopt(socket.SOL_SOCKET, socket.SO_ERROR))

    def send(self, data: bytearray) -> None:
        """Removes what it has sent from the front."""
        try:
            if data:
                del data[: self._socket.send(data)]
        except OSError:
            pass  # full, or broken: then `receive` tells, behind what came before

    def receive(self) -> bytes | None:
        """None: nothing has come; no bytes: the other side has left."""
        try:
            data = self._socket.recv(_CHUNK)
            if data:
                _acknowledge_at_once(self._socket)
        except BlockingIOError:
            return None
        return data

    def _take_result(self, error: int) -> None:
        if error:
            raise OSError(error, os.strerror(error))
        self.is_connected = True
        _acknowledge_at_once(self._socket)


def not_listening(port: int, error: OSError | None = None) -> NotListening:
    """Why there is no link."""
    address = f"127.0.0.1:{port}"
    if error is None:
        return NotListening(f"{address} does not take the link")
    if isinstance(error, ConnectionRefusedError):
        return NotListening(f"nothing listens on {address}: is the service running?")
    return NotListening(f"cannot connect to {address}: {error.strerror}")


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
