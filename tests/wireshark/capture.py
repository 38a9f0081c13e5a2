# SPDX-License-Identifier: MIT
"""Writes captures of a TCP stream, cut into segments as a test wants it."""

import struct
from collections.abc import Iterable
from typing import NamedTuple

RELAY_PORT = 40000
_RAW_IPV4 = 228  # the link type


class Segment(NamedTuple):
    microseconds: int  # since the capture began
    to_service: bool
    data: bytes


def write(path: str, segments: Iterable[Segment], port: int = 60004) -> None:
    sent = {True: 1, False: 1}  # sequence numbers, by direction
    with open(path, "wb") as file:
        file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, _RAW_IPV4))
        for segment in segments:
            ports = (RELAY_PORT, port) if segment.to_service else (port, RELAY_PORT)
            tcp = struct.pack(
                ">HHIIBBHHH",
                *ports,
                sent[segment.to_service],
                sent[not segment.to_service],
                5 << 4,
                0x18,  # PSH, ACK
                65535,
                0,
                0,
            )
            size = 20 + len(tcp) + len(segment.data)
            local = bytes((127, 0, 0, 1))
            ip = struct.pack(">BBHHHBBH4s4s", 0x45, 0, size, 0, 0x4000, 64, 6, 0, local, local)
            frame = ip + tcp + segment.data
            time = divmod(segment.microseconds, 1000000)
            file.write(struct.pack("<IIII", *time, len(frame), len(frame)) + frame)
            sent[segment.to_service] += len(segment.data)
