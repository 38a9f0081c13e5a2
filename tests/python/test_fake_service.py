# SPDX-License-Identifier: MIT
"""The client, with a service that cuts its packets anywhere, errs, and goes at the wrong time."""

import socket
import time
import unittest
from collections.abc import Callable, Sequence

from serial_port_relay import (
    Change,
    Client,
    Event,
    LinkEnded,
    NoAnswer,
    NonsenseError,
    Port,
    Received,
    Refused,
)
from fake_service import FakeService
from workplace import PATIENCE

X, Y = Port(b"X"), Port(b"Y")
OPEN_X, OPENED_X = "> 0007 01 02 0001 58", "< 0009 01 02 0001 58 0000"
OPEN_Y, OPENED_Y = "> 0007 01 02 0001 59", "< 0009 01 02 0001 59 0000"
DATA_OF_X = "< 000D 04 02 0001 58 01 02 0002 4F4B"
CLOSE_X = "> 0007 02 02 0001 58"
AB_AND_FENCE = "> 000D 04 02 0001 58 01 01 0002 4142  0009 01 02 0001 58 4645"
OPEN_ALREADY = "< 0009 01 02 0001 58 0003"
GO = "> 474F"  # from the test: what was received before is taken


class WithFakeService(unittest.TestCase):
    make: Callable[..., Client] = Client

    def connect(self, *scripts: Sequence[str], reconnect: bool = False) -> Client:
        service = FakeService(*scripts)
        self.addCleanup(service.finish)
        self.events: list[Event] = []
        client = self.make(
            service.port, patience=PATIENCE, reconnect=reconnect, on_event=self.events.append
        )
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

    def test_data_before_the_reply_are_kept(self) -> None:
        client = self.connect([OPEN_X, DATA_OF_X, OPENED_X])
        client.open("X")
        self.assertEqual(client.receive(0.0), Received(X, b"OK"))

    def test_a_port_has_its_bytes_to_itself(self) -> None:
        client = self.connect(
            [f"{DATA_OF_X}  000E 04 02 0001 59 01 02 0003 616263  000E 04 02 0001 58 01 02 0003 646566"]
        )
        self.assertEqual(client.read("X", 5, PATIENCE), b"OKdef")
        self.assertEqual(client.read("Y", 4, 0.0), b"abc")

    def test_what_is_waiting(self) -> None:
        client = self.connect(
            [f"{DATA_OF_X}  000E 04 02 0001 58 01 02 0003 616263", GO, DATA_OF_X]
        )
        self.assertEqual(client.read("X", 2, PATIENCE), b"OK")
        self.assertEqual(client.waiting("X"), 3)
        client.send(b"GO")
        self.assertEqual(client.read("X", 4, PATIENCE), b"abcO")
        self.assertEqual(client.waiting("X"), 1)
        client.drop("X")
        self.assertEqual(client.read("X", 1, 0.0), b"")

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

    def test_the_last_malformed_packets_are_kept(self) -> None:
        wrong = " ".join(f"0007 04 02 0001 {name:02X}" for name in range(1, 101))
        client = self.connect([f"< {wrong} 000D 04 02 0001 58 01 02 0002 4F4B"])
        self.assertEqual(client.receive(PATIENCE), Received(X, b"OK"))
        self.assertEqual([packet[-1] for packet, _ in client.malformed], [*range(85, 101)])

    def test_nonsense_ends_the_link(self) -> None:
        for text in ("0000", "0001", "0002"):
            with self.subTest(text):
                client = self.connect([f"< {text}"])
                with self.assertRaisesRegex(NonsenseError, f"of length {int(text[:4], 16)}"):
                    client.receive(PATIENCE)
                self.assertFalse(client.is_connected)
                with self.assertRaises(LinkEnded):
                    client.write("X", b"abc")

    def test_data_before_nonsense_are_kept(self) -> None:
        client = self.connect(["< 000D 04 02 0001 58 01 02 0002 4F4B  0000"])
        self.assertEqual(client.receive(PATIENCE), Received(X, b"OK"))
        with self.assertRaises(NonsenseError):
            client.receive(PATIENCE)

    def test_an_answer_for_another_port(self) -> None:
        client = self.connect([OPEN_X, OPENED_Y])
        with self.assertRaisesRegex(NonsenseError, "answered for Y instead of X"):
            client.open("X")
        self.assertFalse(client.is_connected)

    def test_the_link_ends_before_the_reply(self) -> None:
        client = self.connect([OPEN_X, "< 0009 01", "!"])
        with self.assertRaises(LinkEnded):
            client.open("X")

    def test_a_message_stays_short_whatever_came(self) -> None:
        client = self.connect([OPEN_X, f"< EA6B 04 02 0001 58 01 02 EA60 {'00' * 60000}", OPENED_X])
        client.open("X")
        with self.assertRaisesRegex(NoAnswer, "X received 60000 bytes .the last: b'") as caught:
            client.read_until("X", b"\n" * 60001, 0.0)
        self.assertLess(len(str(caught.exception)), 400)

    def test_a_message_stays_short_whatever_the_name(self) -> None:
        name = "EA60" + "58" * 60000
        client = self.connect([f"> EA66 02 02 {name}", f"< EA68 02 02 {name} 0002"])
        with self.assertRaisesRegex(Refused, "^X{64}[.]{3}: status 2") as caught:
            client.close("X" * 60000)
        self.assertLess(len(str(caught.exception)), 200)

    def test_a_service_that_takes_no_bytes(self) -> None:
        with socket.create_server(("127.0.0.1", 0)) as deaf:
            client = self.make(deaf.getsockname()[1], reply_timeout=0.1)
            self.addCleanup(client.disconnect)
            client.connect()
            with self.assertRaisesRegex(NoAnswer, "took no bytes"):
                client.send(bytes(1 << 26))  # more than the buffers between hold
            self.assertFalse(client.is_connected)


class Write(WithFakeService):
    def opened(self, *script: str) -> Client:
        client = self.connect([OPEN_X, OPENED_X, *script])
        client.open("X")
        return client

    def test_data_and_the_fence_behind_them(self) -> None:
        client = self.opened(AB_AND_FENCE, OPEN_ALREADY)
        client.write("X", b"AB")

    def test_blocks_of_one_byte(self) -> None:
        client = self.opened(
            "> 000C 04 02 0001 58 01 01 0001 41  0009 01 02 0001 58 4645",
            "> 000C 04 02 0001 58 01 01 0001 42  0009 01 02 0001 58 4645",
            OPEN_ALREADY,
            OPEN_ALREADY,
        )
        client.write("X", b"AB", block_size=1)

    def test_a_port_that_is_not_open_gets_nothing(self) -> None:
        client = self.connect([CLOSE_X, "< 0009 02 02 0001 58 0002"])
        with self.assertRaisesRegex(Refused, "X is not open: nothing was sent to it") as caught:
            client.write("X", b"AB")
        self.assertEqual((caught.exception.status, caught.exception.taken), (2, 0))
        self.close_status(client)  # the next that is sent

    def test_a_fence_that_finds_the_port_closed(self) -> None:
        client = self.opened(AB_AND_FENCE, OPENED_X)
        with self.assertRaisesRegex(Refused, "data were dropped") as caught:
            client.write("X", b"AB")
        self.assertEqual(caught.exception.taken, 0)

    def test_a_fence_that_is_not_answered(self) -> None:
        client = self.opened(AB_AND_FENCE)
        client.reply_timeout = 0.1
        with self.assertRaisesRegex(NoAnswer, "the service took 0 bytes, and no more in time"):
            client.write("X", b"AB")
        self.assertFalse(client.is_connected)

    def test_the_link_ends_in_the_middle(self) -> None:
        ab = AB_AND_FENCE[1:]
        client = self.opened(f"> {ab} {ab}", OPEN_ALREADY, "!")
        with self.assertRaises(LinkEnded) as caught:
            client.write("X", b"ABAB", block_size=2)
        self.assertEqual(str(caught.exception), "the link ended when the service had taken 2 bytes")
        self.assertEqual(caught.exception.taken, 2)


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

    def test_after_a_command_without_an_answer(self) -> None:
        client = self.connect([OPEN_X], [OPEN_X, OPENED_X], reconnect=True)
        client.reply_timeout = 0.1
        with self.assertRaises(NoAnswer):
            client.open("X")
        client.reply_timeout = PATIENCE
        began = time.monotonic()
        client.open("X")
        self.assertLess(time.monotonic() - began, PATIENCE / 2)

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
        self.assertEqual(client.receive(PATIENCE), Received(X, b"OK"))
        self.assertIn((Change.REFUSED, Y), [(event.what, event.port) for event in self.events])

    def test_read_until_does_not_join_what_two_links_brought(self) -> None:
        # In one go with the answer: it is there when `open` returns.
        half = f"{OPENED_X} 000E 04 02 0001 58 01 02 0003 48616C"
        line = "< 000E 04 02 0001 58 01 02 0003 4F4B0A"
        client = self.connect(
            [OPEN_Y, OPENED_Y, OPEN_X, half, GO, "!"],
            [OPEN_Y, OPENED_Y, OPEN_X, OPENED_X, line],
            reconnect=True,
        )
        client.open("Y", keep=True)
        client.open("X", keep=True)
        with self.assertRaisesRegex(NoAnswer, "X received b'Hal', without"):
            client.read_until("X", b"\n", 0.0)
        client.send(b"GO")
        self.assertEqual(client.read_until("X", b"\n", PATIENCE), b"OK\n")
        told = [event.what for event in self.events]
        self.assertEqual(told, [Change.ENDED, Change.LINKED, *[Change.OPENED] * 2, Change.DROPPED])
        self.assertEqual(self.events[-1].text, "X: dropped b'Hal', cut off by the end of the link")

    def test_pieces_tell_their_link(self) -> None:
        opened = [OPEN_Y, OPENED_Y, OPEN_X, OPENED_X]
        client = self.connect(
            [*opened, DATA_OF_X, GO, DATA_OF_X, "!"], [*opened, DATA_OF_X], reconnect=True
        )
        client.open("Y", keep=True)
        client.open("X", keep=True)
        first = client.receive(PATIENCE)
        client.send(b"GO")
        second, third = client.receive(PATIENCE), client.receive(PATIENCE)
        assert first and second and third
        self.assertEqual(first.link, second.link)
        self.assertGreater(third.link, second.link)

    def test_a_closed_port_is_not_opened_again(self) -> None:
        closed = [OPEN_X, OPENED_X, CLOSE_X, "< 0009 02 02 0001 58 0000", GO, "!"]
        client = self.connect(closed, [DATA_OF_X], reconnect=True)
        client.open("X", keep=True)
        client.close("X")
        client.send(b"GO")
        self.assertEqual(client.receive(PATIENCE), Received(X, b"OK"))


if __name__ == "__main__":
    unittest.main()
