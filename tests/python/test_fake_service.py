# SPDX-License-Identifier: MIT
"""The client, with a service that cuts its packets anywhere, errs, and goes at the wrong time."""

import socket
import unittest
from collections.abc import Sequence

from serial_port_relay import Client, LinkEnded, NoAnswer, NonsenseError, Port, Received, Refused
from fake_service import FakeService
from workplace import PATIENCE

X, Y = Port(b"X"), Port(b"Y")
OPEN_X, OPENED_X = "> 0007 01 02 0001 58", "< 0009 01 02 0001 58 0000"
OPEN_Y, OPENED_Y = "> 0007 01 02 0001 59", "< 0009 01 02 0001 59 0000"
DATA_OF_X = "< 000D 04 02 0001 58 01 02 0002 4F4B"
CLOSE_X = "> 0007 02 02 0001 58"
GO = "> 474F"  # from the test: what was received before is taken


class WithFakeService(unittest.TestCase):
    def connect(self, *scripts: Sequence[str], reconnect: bool = False) -> Client:
        service = FakeService(*scripts)
        self.addCleanup(service.finish)
        client = Client(service.port, patience=PATIENCE, reconnect=reconnect)
        self.addCleanup(client.disconnect)  # runs before finish
        client.connect()
        return client

    def close_status(self, client: Client) -> tuple[int, str]:
        with self.assertRaises(Refused) as caught:
            client.close("X")
        return caught.exception.status, str(caught.exception)


class Stream(WithFakeService):
    def test_a_packet_in_two_pieces(self) -> None:
        client = self.connect(
            ["< 000D 04 02 0001 58 01 02 0002 4F4B  000E 04 02", GO, "< 0001 58 01 02 0003 616263"]
        )
        self.assertEqual(client.receive(PATIENCE), Received(X, b"OK"))
        self.assertIsNone(client.receive(0.0))
        client.send(b"GO")
        self.assertEqual(client.receive(PATIENCE), Received(X, b"abc"))

    def test_a_reply_byte_by_byte(self) -> None:
        pieces = [f"< {byte:02X}" for byte in bytes.fromhex(OPENED_X[1:])]
        client = self.connect([OPEN_X, *pieces])
        client.open("X")

    def test_data_before_the_reply_are_kept(self) -> None:
        client = self.connect([OPEN_X, DATA_OF_X, OPENED_X])
        client.open("X")
        self.assertEqual(client.receive(0.0), Received(X, b"OK"))

    def test_a_numbered_notification(self) -> None:
        client = self.connect(["< 000E 04 01 0403 6001 01 02 0002 0D0A"])
        self.assertEqual(client.receive(PATIENCE), Received(Port.from_text("0403:6001"), b"\r\n"))


class Errors(WithFakeService):
    def test_statuses_that_the_service_does_not_send(self) -> None:
        client = self.connect(
            [CLOSE_X, "< 0009 02 02 0001 58 0005", CLOSE_X, "< 0009 02 02 0001 58 0001"]
        )
        status_5 = "X: status 5: the port could not be closed, and stays open"
        self.assertEqual(self.close_status(client), (5, status_5))
        status_1 = "X: status 1: not a status that the service is known to send"
        self.assertEqual(self.close_status(client), (1, status_1))

    def test_a_malformed_packet_is_passed_over(self) -> None:
        client = self.connect(["< 0007 04 02 0001 58  000D 04 02 0001 58 01 02 0002 4F4B"])
        self.assertEqual(client.receive(PATIENCE), Received(X, b"OK"))
        [(packet, problem)] = client.malformed
        self.assertEqual(packet, bytes.fromhex("0007 04 02 0001 58"))
        self.assertIn("block count", problem)
        self.assertTrue(client.is_connected)

    def test_nonsense_ends_the_link(self) -> None:
        for text in ("0000", "0001", "0002", "0003 01"):
            with self.subTest(text):
                client = self.connect([f"< {text}"])
                with self.assertRaisesRegex(NonsenseError, f"of length {int(text[:4], 16)}"):
                    client.receive(PATIENCE)
                self.assertFalse(client.is_connected)
                with self.assertRaises(LinkEnded):
                    client.write("X", b"abc")

    def test_data_before_nonsense_are_kept(self) -> None:
        client = self.connect(["< 000D 04 02 0001 58 01 02 0002 4F4B  0000"])
        with self.assertRaises(NonsenseError):
            client.receive(PATIENCE)
        self.assertEqual(client.receive(0.0), Received(X, b"OK"))

    def test_an_answer_for_another_port(self) -> None:
        client = self.connect([OPEN_X, OPENED_Y])
        with self.assertRaisesRegex(NonsenseError, "answered for Y instead of X"):
            client.open("X")
        self.assertFalse(client.is_connected)

    def test_the_link_ends_before_the_reply(self) -> None:
        client = self.connect([OPEN_X, "< 0009 01", "!"])
        with self.assertRaises(LinkEnded):
            client.open("X")

    def test_a_service_that_takes_no_bytes(self) -> None:
        with socket.create_server(("127.0.0.1", 0)) as deaf:
            client = Client(deaf.getsockname()[1], reply_timeout=0.1)
            client.connect()
            with self.assertRaisesRegex(NoAnswer, "took no bytes"):
                client.write("X", bytes(1 << 26))  # more than the buffers between hold
            self.assertFalse(client.is_connected)


class Reconnect(WithFakeService):
    def test_a_reset_without_a_byte_is_tried_again(self) -> None:
        client = self.connect([OPEN_X, "!"], [OPEN_X, OPENED_X])
        client.open("X")
        self.assertTrue(client.is_connected)

    def kept(self, first_end: str, *later: Sequence[str]) -> Client:
        """A client that keeps Y and X open, and whose first link ends then."""
        first = [OPEN_Y, OPENED_Y, OPEN_X, OPENED_X, GO, first_end]
        client = self.connect(first, *later, reconnect=True)
        client.open("Y", keep=True)
        client.open("X", keep=True)
        client.send(b"GO")
        return client

    def test_ports_are_opened_in_their_order(self) -> None:
        client = self.kept("!", [OPEN_Y, OPENED_Y, OPEN_X, OPENED_X, DATA_OF_X])
        self.assertEqual(client.receive(PATIENCE), Received(X, b"OK"))

    def test_after_nonsense(self) -> None:
        client = self.kept("< 0000", [OPEN_Y, OPENED_Y, OPEN_X, OPENED_X, DATA_OF_X])
        self.assertEqual(client.receive(PATIENCE), Received(X, b"OK"))

    def test_the_new_link_ends_between_the_opens(self) -> None:
        client = self.kept(
            "!",
            [OPEN_Y, OPENED_Y, OPEN_X, "!"],
            [OPEN_Y, OPENED_Y, OPEN_X, OPENED_X, DATA_OF_X],
        )
        self.assertEqual(client.receive(PATIENCE), Received(X, b"OK"))

    def test_a_refused_port_does_not_keep_the_others_closed(self) -> None:
        client = self.kept(
            "!", [OPEN_Y, "< 0009 01 02 0001 59 0004", OPEN_X, OPENED_X, DATA_OF_X]
        )
        with self.assertRaisesRegex(Refused, "Y: status 4"):
            client.receive(PATIENCE)
        self.assertEqual(client.receive(PATIENCE), Received(X, b"OK"))

    def test_a_closed_port_is_not_opened_again(self) -> None:
        closed = [OPEN_X, OPENED_X, CLOSE_X, "< 0009 02 02 0001 58 0000", GO, "!"]
        client = self.connect(closed, [DATA_OF_X], reconnect=True)
        client.open("X", keep=True)
        client.close("X")
        client.send(b"GO")
        self.assertEqual(client.receive(PATIENCE), Received(X, b"OK"))


if __name__ == "__main__":
    unittest.main()
