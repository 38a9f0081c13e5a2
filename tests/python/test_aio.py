# SPDX-License-Identifier: MIT
"""The client of asyncio: the blocking client's tests, and what it alone can do."""

import unittest

import test_client
import test_fake_service
import test_reconnect
import test_serial_port
from driven import Loop


class OfAsyncio(unittest.TestCase):
    def setUp(self) -> None:
        loop = Loop()
        self.addCleanup(loop.stop)  # when the client has left
        self.make = loop.client
        super().setUp()


class Client(OfAsyncio, test_client.ClientTest):
    pass


class SerialPort(OfAsyncio, test_serial_port.Habits):
    pass


class Stream(OfAsyncio, test_fake_service.Stream):
    pass


class Errors(OfAsyncio, test_fake_service.Errors):
    pass


class Write(OfAsyncio, test_fake_service.Write):
    pass


class Reconnect(OfAsyncio, test_fake_service.Reconnect):
    pass


class Restart(OfAsyncio, test_reconnect.Restart):
    pass


class Limits(OfAsyncio, test_reconnect.Limits):
    pass


class KeptPorts(OfAsyncio, test_reconnect.KeptPorts):
    pass


class Disconnect(OfAsyncio, test_reconnect.Disconnect):
    pass


if __name__ == "__main__":
    unittest.main()
