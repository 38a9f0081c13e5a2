# SPDX-License-Identifier: MIT
"""One direction of one port: makes the frames that go in at one end, and checks byte for byte what
comes out at the other.

While port and link are up, the bytes that come out are exactly those that went in: nothing lost,
nothing doubled, nothing out of order, from the first byte after the port came up.

A border begins with a fault and ends when the port is up again; then a new epoch starts. Bytes of
the old epoch may be lost between the moment the fault begins and the new epoch's first frame, and
only there. These are the legitimate reasons:
  - unplugged: a line that hangs up drops what lies in its buffers, both ways; data commands for a
    port whose device is away are dropped;
  - closed and opened: both flush the line, both ways; data commands for a closed port are dropped,
    and nobody reads what its device sends;
  - link broken: what was under way between service and relay, and all of the above, as the service
    closes its ports.
Old frames never come out of order or twice, with one exception towards the device: a block that is
being written when the device goes away is offered again, whole, to the device that comes back, so
that its beginning may come twice: once for each unplugging, and no more than one block.
"""

import hashlib
import struct
from typing import NamedTuple

FRAME_BYTES = 64
_HEAD = struct.Struct(">2sBBII")


class FrameId(NamedTuple):
    """Counted from 0 within an epoch, which ends where a fault may have cost bytes."""

    epoch: int = 0
    sequence: int = 0

    def __str__(self) -> str:
        return f"{self.epoch}/{self.sequence}"

    def following(self) -> "FrameId":
        return FrameId(self.epoch, self.sequence + 1)


def make_frame(lane: int, at: FrameId) -> bytes:
    """Every byte depends on the number, so that one in the wrong place never looks right. `lane`
    tells ports and directions apart."""
    head = _HEAD.pack(b"SK", lane, 255 - lane, *at)
    return head + hashlib.shake_128(head).digest(FRAME_BYTES - len(head))


def _id_of(lane: int, frame: bytes) -> FrameId | None:
    """None unless all bytes are as they were made."""
    at = FrameId(*_HEAD.unpack_from(frame)[3:])
    return at if frame == make_frame(lane, at) else None


class CheckedStream:
    def __init__(self, name: str, lane: int) -> None:
        self._name = name
        self._lane = lane
        self._next = FrameId()  # to be sent
        self._expected = FrameId()  # to arrive
        self._sent_of_epoch: dict[int, int] = {}  # frames, from the expected epoch on
        self._at_border = True
        self._in_step = False
        self._repeatable = 0  # frames
        self._rest = b""  # arrived, not yet a frame
        self.sent_bytes = 0
        self.arrived_bytes = 0  # whole frames
        self.lost_frames = 0  # these three at borders
        self.cut_bytes = 0
        self.repeated_frames = 0
        self.defects: list[str] = []

    def frames(self, count: int) -> bytes:
        """The next ones to send."""
        made = []
        for _ in range(count):
            made.append(make_frame(self._lane, self._next))
            self._next = self._next.following()
        self._sent_of_epoch[self._next.epoch] = self._next.sequence
        self.sent_bytes += count * FRAME_BYTES
        return b"".join(made)

    def border_begins(self, repeatable: int = 0) -> None:
        """A fault begins. When the first byte comes twice afterwards, no more than so many frames
        do."""
        self._at_border = True
        self._repeatable = max(self._repeatable, repeatable)

    def border_ends(self) -> None:
        """The port is up: from the next frame on everything arrives."""
        self._next = FrameId(self._next.epoch + 1)
        self._at_border = False

    @property
    def is_drained(self) -> bool:
        """Whether everything that was sent since the last border has arrived."""
        return (not self._at_border and self._in_step and not self._rest
                and self._expected == self._next)

    def arrives(self, data: bytes) -> None:
        self._rest += data
        while self._rest and (self._check_in_step() if self._in_step else self._find_frame()):
            pass

    def _check_in_step(self) -> bool:
        """False when more bytes are needed."""
        frame = make_frame(self._lane, self._expected)
        if self._rest.startswith(frame):
            self._rest = self._rest[FRAME_BYTES:]
            self.arrived_bytes += FRAME_BYTES
            self._expected = self._expected.following()
            return True
        if frame.startswith(self._rest):
            return False
        self._in_step = False
        if not self._at_border and self._expected.epoch == self._next.epoch:
            self._defect(f"other bytes than frame {self._expected}: {self._rest[:64].hex()}")
        return True

    def _find_frame(self) -> bool:
        """False when more bytes are needed."""
        for at in range(len(self._rest) - FRAME_BYTES + 1):
            found = _id_of(self._lane, self._rest[at : at + FRAME_BYTES])
            if found:
                self._skip(at)
                self._steps_in(found)
                return True
        self._skip(max(0, len(self._rest) - (FRAME_BYTES - 1)))
        return False

    def _skip(self, count: int) -> None:
        self.cut_bytes += count
        self._rest = self._rest[count:]

    def _steps_in(self, found: FrameId) -> None:
        if found >= self._next:
            self._defect(f"frame {found} that was never sent")
        elif found >= self._expected:
            self._count_lost(found)
        else:
            again = self._expected.sequence - found.sequence
            if found.epoch == self._expected.epoch and again <= self._repeatable:
                self.repeated_frames += again
                self._repeatable = 0
            else:
                self._defect(f"frame {found} again or late, instead of {self._expected}")
        self._expected = found
        self._in_step = True

    def _count_lost(self, found: FrameId) -> None:
        first = self._expected.sequence if self._expected.epoch == found.epoch else 0
        if not self._at_border and found.epoch == self._next.epoch and found.sequence != first:
            self._defect(f"frame {found} instead of {self._expected}: frames are lost")
        past = {epoch: sent for epoch, sent in self._sent_of_epoch.items() if epoch < found.epoch}
        self.lost_frames += sum(past.values()) + found.sequence - self._expected.sequence
        if found.epoch > self._expected.epoch:
            self._repeatable = 0
        for epoch in past:
            del self._sent_of_epoch[epoch]

    def _defect(self, text: str) -> None:
        self.defects.append(f"{self._name}: {text}")
