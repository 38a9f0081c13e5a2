# SPDX-License-Identifier: MIT
"""Starts the service under a counter, has the same message pass so many times, and ends it.

Runs in the sandbox of the end-to-end tests: it makes /dev/ttyS2.
usage: conversation.py CASE MESSAGES COMMAND...
"""

from __future__ import annotations

import os
import pathlib
import signal
import socket
import subprocess
import sys
import time
import tty

sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "clients/python"))
from serial_port_relay import Block, data_command, open_command  # noqa: E402

SCRATCH = pathlib.Path("/tmp/counts")
PORT = "#PhysicalPort0"
DEADLINE_SECONDS = 60


def make_line() -> int:
    """The far end of the service's serial line."""
    master, slave = os.openpty()
    tty.setraw(slave)
    os.symlink(os.ttyname(slave), "/dev/ttyS2")
    return master


def start(words: list[str]) -> subprocess.Popen[bytes]:
    """The service, in the same environment on every machine: that is part of what is counted."""
    SCRATCH.mkdir()
    (SCRATCH / "vost.conf").write_text("[#PhysicalPort0]\nbaud = 9600\ndata = 8\nparity = none\n"
                                       "stop = 1\nflow = none\n")
    environment = {
        "PATH": "/usr/bin:/bin",
        "VOST_CONFIG": str(SCRATCH / "vost.conf"),
        "KXLOGGER_FILE": str(SCRATCH / "log"),
        # The C library would choose its string functions by the processor.
        "GLIBC_TUNABLES": "glibc.cpu.hwcaps=-AVX512F,-AVX512VL,-AVX512BW,-AVX2,-AVX,-BMI2,-ERMS,"
                          "-FSRM,-SSSE3,-SSE4_1,-SSE4_2,-MOVBE,-AVX_Fast_Unaligned_Load",
    }
    return subprocess.Popen(words, env=environment, stdin=subprocess.DEVNULL,
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def connect(service: subprocess.Popen[bytes]) -> socket.socket:
    """A connection, as soon as the service listens."""
    deadline = time.monotonic() + DEADLINE_SECONDS
    while True:
        try:
            connection = socket.create_connection(("127.0.0.1", 60004))
            connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            connection.settimeout(DEADLINE_SECONDS)
            return connection
        except ConnectionRefusedError:
            if service.poll() is not None or time.monotonic() > deadline:
                raise SystemExit("counts: the service does not listen") from None
            time.sleep(0.02)


def receive(connection: socket.socket, count: int) -> bytes:
    """Exactly so many bytes."""
    received = b""
    while len(received) < count:
        piece = connection.recv(count - len(received))
        if not piece:
            raise SystemExit("counts: the service has closed the connection")
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_QUICKACK, 1)
        received += piece
    return received


def expect(connection: socket.socket, wanted: bytes) -> None:
    """The next bytes must be these."""
    came = receive(connection, len(wanted))
    if came != wanted:
        raise SystemExit(f"counts: {came.hex()} came instead of {wanted.hex()}")


def pass_message(case: str, line: int, connection: socket.socket) -> None:
    """One data command or one notification, and only one, of so many bytes."""
    way, size = case.split("-")
    data = bytes(index * 7 & 0xFF for index in range(int(size)))
    if way == "notification":
        os.write(line, data)
        expect(connection, data_command(PORT, [Block(2, data)]))
        return
    connection.sendall(data_command(PORT, [Block(1, data)]))
    came = b""
    while len(came) < len(data):
        came += os.read(line, len(data) - len(came))
    if came != data:
        raise SystemExit("counts: other bytes came to the line than were sent")


def main() -> None:
    """The conversation; it ends with the link, so that no receive thread has to be stopped."""
    case, messages, words = sys.argv[1], int(sys.argv[2]), sys.argv[3:]
    line = make_line()
    service = start(words)
    try:
        connection = connect(service)
        connection.sendall(open_command(PORT))
        expect(connection, open_command(PORT, 0))  # a status is where a parameter is
        for _ in range(messages):
            pass_message(case, line, connection)
        connection.close()
        service.send_signal(signal.SIGTERM)
        service.wait(DEADLINE_SECONDS)
    finally:
        service.kill()
        service.wait()


main()
