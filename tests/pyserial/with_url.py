# SPDX-License-Identifier: MIT
"""A test with URLs of the real service's ports."""

import threading
from typing import Any

import serial  # type: ignore[import]
import serial_port_relay.pyserial  # tells pyserial of them
from with_service import WithService
from workplace import PATIENCE, PHYSICAL


class WithUrl(WithService):
    def setUp(self) -> None:
        super().setUp()
        self.service.wait_until_it_listens()
        self.url = self.url_of(PHYSICAL)

    def url_of(self, port: str) -> str:
        return f"relay://?port={self.service.port}{port}"

    def open(self, port: str = PHYSICAL, **named: Any) -> Any:
        opened = serial.serial_for_url(self.url_of(port), **{"timeout": PATIENCE, **named})
        self.addCleanup(opened.close)
        return opened

    def answers(self, *conversation: tuple[bytes, bytes]) -> None:
        """The device takes each question, and sends its answer."""

        def serve() -> None:
            for question, answer in conversation:
                if (came := self.device.receives(len(question))) != question:
                    self.wrong.append(came)
                self.device.sends(answer)

        self.wrong: list[bytes] = []
        thread = threading.Thread(target=serve)
        thread.start()
        self.addCleanup(lambda: self.assertEqual(self.wrong, []))
        self.addCleanup(thread.join)
