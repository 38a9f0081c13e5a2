# SPDX-License-Identifier: MIT
"""The soak's own judge: what it lets pass, and what it does not."""

import unittest

from stream import FRAME_BYTES, CheckedStream

FRAME = FRAME_BYTES


class Stream(unittest.TestCase):
    def setUp(self) -> None:
        self.stream = CheckedStream("stream", 3)
        self.stream.border_ends()

    def send_and_arrive(self, count: int) -> bytes:
        sent = self.stream.frames(count)
        self.stream.arrives(sent)
        return sent

    def test_what_arrives_as_it_was_sent_is_drained_without_a_defect(self) -> None:
        sent = self.stream.frames(50)
        for at in range(0, len(sent), 7):
            self.stream.arrives(sent[at : at + 7])
        self.assertEqual([], self.stream.defects)
        self.assertTrue(self.stream.is_drained)
        self.assertEqual(50 * FRAME, self.stream.arrived_bytes)

    def test_other_bytes_are_a_defect(self) -> None:
        other = CheckedStream("other", 4)
        other.border_ends()
        ten = self.stream.frames(10)
        wrong = {
            "the first byte is missing": ten[1:],
            "a byte is missing": ten[:200] + ten[201:],
            "a frame is missing": ten[: 2 * FRAME] + ten[3 * FRAME :],
            "a byte comes twice": ten[:200] + ten[199:],
            "a frame comes twice": ten + ten[-FRAME:],
            "two frames change places": ten[:FRAME] + ten[2 * FRAME : 3 * FRAME]
            + ten[FRAME : 2 * FRAME],
            "a byte is changed": ten[:100] + bytes([ten[100] ^ 255]) + ten[101:],
            "another lane's frames": ten[: 2 * FRAME] + other.frames(2),
        }
        for what, arrived in wrong.items():
            with self.subTest(what):
                self.setUp()
                self.stream.frames(10)
                self.stream.arrives(arrived)
                self.assertNotEqual([], self.stream.defects)

    def test_a_missing_tail_is_never_drained(self) -> None:
        self.stream.arrives(self.stream.frames(3)[:-1])
        self.assertFalse(self.stream.is_drained)

    def test_bytes_may_be_lost_at_a_border_and_are_counted(self) -> None:
        self.send_and_arrive(2)
        self.stream.border_begins()
        self.stream.arrives(self.stream.frames(4)[10 : 10 + 2 * FRAME])  # 3 whole, 2 and 4 cut
        self.stream.border_ends()
        self.send_and_arrive(2)
        self.assertEqual([], self.stream.defects)
        self.assertTrue(self.stream.is_drained)
        self.assertEqual(5 * FRAME, self.stream.arrived_bytes)
        self.assertEqual(3, self.stream.lost_frames)

    def test_a_loss_before_the_border_is_a_defect(self) -> None:
        sent = self.stream.frames(4)
        self.stream.arrives(sent[:FRAME] + sent[2 * FRAME :])
        self.stream.border_begins()
        self.assertNotEqual([], self.stream.defects)

    def test_old_frames_may_still_come_after_the_border(self) -> None:
        self.send_and_arrive(2)
        self.stream.border_begins()
        old = self.stream.frames(3)
        self.stream.border_ends()
        self.stream.arrives(old[FRAME:] + self.stream.frames(2))
        self.assertEqual([], self.stream.defects)
        self.assertTrue(self.stream.is_drained)

    def test_a_missing_first_frame_behind_a_border_is_a_defect(self) -> None:
        self.send_and_arrive(2)
        self.stream.border_begins()
        self.stream.border_ends()
        self.stream.arrives(self.stream.frames(3)[FRAME:])
        self.assertEqual(1, len(self.stream.defects))

    def test_a_block_may_begin_twice_once_after_an_unplugging(self) -> None:
        sent = self.stream.frames(8)
        self.stream.arrives(sent[: 5 * FRAME + 9])
        self.stream.border_begins(repeatable=8)
        self.stream.arrives(sent)
        self.assertEqual([], self.stream.defects)
        self.assertEqual(5, self.stream.repeated_frames)
        self.stream.arrives(sent[4 * FRAME :])
        self.assertEqual(1, len(self.stream.defects))

    def test_no_more_than_that_may_come_twice(self) -> None:
        for frames, repeatable in ((9, 8), (1, 0)):
            with self.subTest(frames=frames):
                self.setUp()
                sent = self.send_and_arrive(frames)
                self.stream.border_begins(repeatable)
                self.stream.arrives(sent)
                self.assertEqual(1, len(self.stream.defects))


if __name__ == "__main__":
    unittest.main()
