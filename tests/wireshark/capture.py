# SPDX-License-Identifier: MIT
"""Captures of a TCP stream: taken from "lo", or written with the segments that a test wants."""

import pathlib
import socket
import struct
import subprocess
import time
from collections.abc import Iterable
from typing import NamedTuple

RELAY_PORT = 40000
_END = b"the capture ends here"
_DISCARD = ("127.0.0.1", 9)
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


class Loopback:
    """Captures what goes over "lo", from construction to `stop`."""

    def __init__(self, path: str) -> None:
        self._path = pathlib.Path(path)
        self._dumpcap = subprocess.Popen(
            ["dumpcap", "-q", "-P", "-i", "lo", "-w", path], stderr=subprocess.PIPE, text=True
        )
        assert self._dumpcap.stderr is not None
        # It names the file once it captures.
        seen = iter(self._dumpcap.stderr.readline, "")
        assert any(line.startswith("File:") for line in seen), "dumpcap does not capture"

    def stop(self, patience: float) -> None:
        """Returns when all that was sent before is in the file."""
        deadline = time.monotonic() + patience
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            sender.sendto(_END, _DISCARD)
        while _END not in self._path.read_bytes():
            assert time.monotonic() < deadline, "dumpcap does not write"
            time.sleep(0.01)
        self._dumpcap.terminate()  # not kill: that could cut the last frame short
        self._dumpcap.wait(patience)

    def remove(self) -> None:
        self._dumpcap.kill()
        self._dumpcap.wait()
        assert self._dumpcap.stderr is not None
        self._dumpcap.stderr.close()
