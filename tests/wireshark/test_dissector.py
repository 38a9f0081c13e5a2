# SPDX-License-Identifier: MIT
"""The dissector, in tshark, on a conversation with the real service (SPH_SERVICE)."""

import os
import socket
import tempfile
import time
import unittest

from capture import Loopback, Segment, write
from dissector import tshark
from workplace import PATIENCE, Device, make

NAME = "000E 23506879736963616C506F727430"  # #PhysicalPort0
P0 = "#PhysicalPort0"
FIELDS = """to_service length command form vendor product name_length name port parameter status
    block_count block.type block.length block.data reply_in request_in""".split()

# What is sent, what the service answers, and the fields of both. Frames count from 1.
EXCHANGES = [
    (f"0014 01 02 {NAME}", f"0016 01 02 {NAME} 0000"),
    ("0009 01 02 0001 58 0005", "0009 01 02 0001 58 0002"),
    ("000A 01 02 0004 58590058", "000A 01 02 0002 5859 0002"),
    ("0008 01 01 0403 6001", "000A 01 01 0403 6001 0002"),
    ("000A 02 01 0403 6001 0007", "000A 02 01 0403 6001 0002"),
    (f"0020 04 02 {NAME} 02 01 0003 414243 FF 0002 0D0A", f"001A 04 02 {NAME} 01 02 0002 4F4B"),
    ("000F 04 01 0403 6001 01 01 0003 414243", ""),
    ("0007 03 02 0001 58", ""),
    ("0008 02 03 0403 6001", ""),
    ("0006 01 02 0000", ""),
    ("000C 04 02 0001 58 02 01 0001 41", ""),
    ("000D 04 02 0001 58 01 01 0001 41 00", ""),
    ("0008 01 02 0001 58 00", ""),
    (f"0016 01 02 {NAME} 4645", f"0016 01 02 {NAME} 0003"),
    (f"0014 02 02 {NAME}", f"0016 02 02 {NAME} 0000"),
    ("0002", ""),
]
ROWS = [
    f"1|20|1|2|||14|{P0}|{P0}|||||||2|",
    f"0|22|1|2|||14|{P0}|{P0}||0||||||1",
    "1|9|1|2|||1|X|X|5||||||4|",
    "0|9|1|2|||1|X|X||2||||||3",
    "1|10|1|2|||4|XY|XY|||||||6|",
    "0|10|1|2|||2|XY|XY||2||||||5",
    "1|8|1|1|0x0403|0x6001|||0403:6001|||||||8|",
    "0|10|1|1|0x0403|0x6001|||0403:6001||2||||||7",
    "1|10|2|1|0x0403|0x6001|||0403:6001|7||||||10|",
    "0|10|2|1|0x0403|0x6001|||0403:6001||2||||||9",
    f"1|32|4|2|||14|{P0}|{P0}|||2|1,255|3,2|414243,0d0a||",
    f"0|26|4|2|||14|{P0}|{P0}|||1|2|2|4f4b||",
    "1|15|4|1|0x0403|0x6001|||0403:6001|||1|1|3|414243||",
    "1|7|3|2|||1|X|X||||||||",
    "1|8|2|3|||||||||||||",
    "1|6|1|2|||0||||||||||",
    "1|12|4|2|||1|X|X|||2|1|1|41||",
    "1|13|4|2|||1|X|X|||1|1|1|41||",
    "1|8|1|2|||1|X|X||||||||",
    f"1|22|1|2|||14|{P0}|{P0}|17989||||||21|",
    f"0|22|1|2|||14|{P0}|{P0}||3||||||20",
    f"1|20|2|2|||14|{P0}|{P0}|||||||23|",
    f"0|22|2|2|||14|{P0}|{P0}||0||||||22",
    "1|2|||||||||||||||",
]
PROBLEMS = {
    14: "there is no command 3",
    15: "there is no port form 3",
    16: "the port's name is empty",
    17: "the packet ends within a block's type",
    18: "bytes too many: 1",
    19: "the packet ends within the parameter",
    24: "a length of 2: the service takes it for the end of the link",
}


class Dissector(unittest.TestCase):
    segments: list[Segment]
    live: str  # the same conversation, captured
    port: int  # in it

    @classmethod
    def setUpClass(cls) -> None:
        service = make(os.environ["SPH_SERVICE"], cls.addClassCleanup)
        service.wait_until_it_listens()
        device = Device("/dev/ttyS2")
        cls.addClassCleanup(device.remove)
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.live, cls.port = folder.name + "/live.pcap", service.port
        loopback = Loopback(cls.live)
        cls.addClassCleanup(loopback.remove)
        cls.segments = []
        began = time.monotonic()
        with socket.create_connection(("127.0.0.1", service.port), PATIENCE) as link:
            link.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)  # a segment for each packet
            for command, answer in EXCHANGES:
                for to_service, packet in ((True, command), (False, answer)):
                    data = bytes.fromhex(packet)
                    if to_service:
                        link.sendall(data)
                    elif data:
                        if data[2] == 4:  # what the device has received, it answers
                            assert device.receives(5) == b"ABC\r\n"
                            device.sends(b"OK")
                        got = link.recv(len(data), socket.MSG_WAITALL)
                        assert got == data, got.hex()
                    now = round((time.monotonic() - began) * 1e6)
                    if data:
                        cls.segments.append(Segment(now, to_service, data))
            assert link.recv(1) == b""
        loopback.stop(PATIENCE)

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.path = folder.name + "/capture.pcap"

    def shown(self, segments: list[Segment], fields: list[str], *options: str) -> list[str]:
        write(self.path, segments)
        return tshark(self.path, fields, *options)

    def test_the_conversation(self) -> None:
        names = [f"serialrelay.{field}" for field in FIELDS]
        others = ["serialrelay.response_time", "_ws.expert.message", "_ws.col.Protocol",
                  "_ws.col.Info"]
        # Read twice, so that a request knows its reply.
        shown = self.shown(self.segments, names + others, "-2", "-R", "tcp")
        rows = [row.split("|") for row in shown]
        self.assertEqual(["|".join(row[: len(names)]) for row in rows], ROWS)
        times, messages, protocols, texts = [list(column) for column in zip(*rows)][len(names) :]
        self.check_times(times)
        wanted = {frame: f"Malformed packet: {text}" for frame, text in PROBLEMS.items()}
        wanted |= {frame: "The command failed" for frame in (4, 6, 8, 10)}
        self.assertEqual({at: text for at, text in enumerate(messages, 1) if text}, wanted)
        self.assertEqual(set(protocols), {"SerialRelay"})
        self.assertEqual(texts[0], f"open {P0}")
        self.assertEqual(texts[3], "reply to open X: status 2")
        self.assertEqual(texts[10], f"data for {P0}: 5 bytes")
        self.assertEqual(texts[11], f"data from {P0}: 2 bytes")
        self.assertEqual(texts[13], "malformed: there is no command 3")
        self.assertEqual(texts[19], f"fence {P0}")
        self.assertEqual(texts[20], f"reply to fence {P0}: status 3")

    def test_captured_on_the_loopback_interface(self) -> None:
        names = [f"serialrelay.{field}" for field in FIELDS]
        shown = tshark(self.live, ["frame.number", *names, "serialrelay.response_time"], "-2", "-R",
                       "tcp", "-Y", "serialrelay", "-o", f"serialrelay.port:{self.port}")
        rows = [row.split("|") for row in shown]
        frames = [row[0] for row in rows]
        # The handshake and acknowledgements have frames, too.
        wanted = [row.split("|") for row in ROWS]
        for row in wanted:
            row[-2:] = [frames[int(number) - 1] if number else "" for number in row[-2:]]
        self.assertEqual([row[1:-1] for row in rows], wanted)
        for row in rows:
            if row[-2]:
                self.assertTrue(0 < float(row[-1]) < PATIENCE, row)
            else:
                self.assertEqual(row[-1], "")

    def test_segments_that_keep_no_packet_together(self) -> None:
        for size in (1, 7, 25):
            with self.subTest(size=size):
                self.check_segments_of(size)

    def check_segments_of(self, size: int) -> None:
        pieces: list[Segment] = []
        ends: dict[bool, list[tuple[str, int]]] = {True: [], False: []}
        for to_service in (True, False):
            stream, before = b"", len(pieces)
            for row, whole in zip(ROWS, self.segments):
                if whole.to_service == to_service:
                    stream += whole.data
                    ends[to_service].append((row, before - -len(stream) // size))
            pieces += [Segment(1000 * (before + number), to_service, stream[at : at + size])
                       for number, at in enumerate(range(0, len(stream), size))]
        frame_of = {row: frame for packets in ends.values() for row, frame in packets}
        wanted = [str(frame_of[ROWS[int(row.split("|")[-1]) - 1]])
                  for row, _ in ends[False] if row.split("|")[-1]]
        shown = self.shown(pieces, ["frame.number", "serialrelay.length", "serialrelay.request_in",
                                    "serialrelay.response_time"], "-Y", "serialrelay")
        rows = [[column.split(",") for column in row.split("|")] for row in shown]
        lengths = [(row[0][0], length) for row in rows for length in row[1]]
        self.assertEqual(lengths, [(str(frame), row.split("|")[1])
                                   for packets in ends.values() for row, frame in packets])
        self.assertEqual([frame for row in rows for frame in row[2] if frame], wanted)
        times = [float(text) for row in rows for text in row[3] if text]
        answers = [frame for row, frame in ends[False] if row.split("|")[-1]]
        self.assertEqual(times, [(came - int(sent)) / 1000 for came, sent in zip(answers, wanted)])

    def check_times(self, times: list[str]) -> None:
        answered = {2: 1, 4: 3, 6: 5, 8: 7, 10: 9, 21: 20, 23: 22}
        for frame, text in enumerate(times, 1):
            if frame not in answered:
                self.assertEqual(text, "")
                continue
            asked = self.segments[answered[frame] - 1].microseconds
            passed = (self.segments[frame - 1].microseconds - asked) / 1e6
            self.assertAlmostEqual(float(text), passed, delta=1e-6)

    def test_packets_in_one_segment(self) -> None:
        sent = b"".join(part.data for part in self.segments if part.to_service)
        came = b"".join(part.data for part in self.segments if not part.to_service)
        rows = self.shown([Segment(0, True, sent), Segment(500, False, came)],
                          ["serialrelay.status", "serialrelay.request_in",
                           "serialrelay.response_time", "serialrelay.unasked"])
        times = ",".join(["0.000500000"] * 7)
        self.assertEqual(rows[1], f"0,2,2,2,2,3,0|1,1,1,1,1,1,1|{times}|")

    def test_a_reply_without_its_request(self) -> None:
        rows = self.shown(self.segments[1:], ["frame.number"], "-Y", "serialrelay.unasked")
        self.assertEqual(rows, ["1"])

    def test_a_fence_is_marked_and_its_status_3_no_failure(self) -> None:
        rows = self.shown(self.segments, ["frame.number"], "-Y", "serialrelay.fence")
        self.assertEqual(rows, ["20", "21"])
        rows = self.shown(self.segments, ["frame.number"], "-Y", "serialrelay.failed")
        self.assertEqual(rows, ["4", "6", "8", "10"])

    def test_a_fence_that_found_the_port_closed(self) -> None:
        fence, reopened = self.segments[19], self.segments[1]
        rows = self.shown([fence, reopened], ["frame.number", "_ws.expert.message"], "-Y",
                          "serialrelay.failed")
        self.assertEqual(rows, ["2|The port was not open: data before the fence were dropped"])

    def test_a_reply_that_was_lost(self) -> None:
        rows = self.shown([self.segments[0], *self.segments[2:4]], ["serialrelay.request_in"])
        self.assertEqual(rows, ["", "", "2"])

    def test_a_length_that_wraps_round_on_another_port(self) -> None:
        data = b"\0\0" + bytes(65534) + self.segments[0].data
        pieces = [Segment(0, True, data[at : at + 16384]) for at in range(0, len(data), 16384)]
        write(self.path, pieces, port=50000)
        rows = tshark(self.path, ["serialrelay.length", "serialrelay.port", "_ws.expert.message"],
                      "-o", "serialrelay.port:50000", "-Y", "serialrelay")
        problem = "Malformed packet: the length does not count itself"
        self.assertEqual(rows, [f"0||{problem}", f"20|{P0}|"])


if __name__ == "__main__":
    unittest.main()
