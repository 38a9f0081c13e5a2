# SPDX-License-Identifier: MIT
"""A test of the client with the real service. The environment's SPH_SERVICE names its program."""

import os
import time
import unittest
from collections.abc import Callable

from serial_port_relay import Client, Event
from workplace import PATIENCE, Device, make

PROGRAM = os.environ["SPH_SERVICE"]


class WithService(unittest.TestCase):
    make: Callable[..., Client] = Client

    def setUp(self) -> None:
        self.service = make(PROGRAM, self.addCleanup)
        self.device = Device("/dev/ttyS2")
        self.addCleanup(self.device.remove)
        self.events: list[Event] = []

    def connect(self, reconnect: bool = False) -> Client:
        client = self.make(self.service.port, patience=PATIENCE, reconnect=reconnect,
                           reply_timeout=PATIENCE, on_event=self.events.append)
        self.addCleanup(client.disconnect)
        client.connect()
        return client

    def receive_until(self, client: Client, done: Callable[[], bool]) -> None:
        deadline = time.monotonic() + PATIENCE
        while not done():
            self.assertLess(time.monotonic(), deadline, f"events: {self.events}")
            self.assertIsNone(client.receive(0.01))
