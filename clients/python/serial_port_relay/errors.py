# SPDX-License-Identifier: MIT
"""What this package raises. Each message is one line for a person, without a full stop."""


class RelayError(Exception):
    """The base of all."""

    taken = 0  # raised by a write: how many bytes the service had certainly taken


class UsageError(RelayError, ValueError):
    """The caller's own mistake, such as a port name of no length."""


class NotListening(RelayError, ConnectionError):
    """Nobody listens on the port, or the link was reset before anything came."""


class NoAnswer(RelayError, TimeoutError):
    """A command was not answered, or data did not go out or come in, in time."""


class LinkEnded(RelayError, ConnectionError):
    """The service left, or died."""


class NonsenseError(RelayError):
    """What came is no packet of the service. Nothing that follows can be understood."""


class MalformedPacket(RelayError, ValueError):
    """A packet with a wrong inside."""


class Refused(RelayError):
    """The service answered an open or a close with a status other than 0."""

    def __init__(self, text: str, status: int) -> None:
        super().__init__(text)
        self.status = status
