# SPDX-License-Identifier: MIT
"""relayctl and the two client libraries beside the link itself: a byte goes to a device that sends
it back. All of it runs on one processor, and the others are kept busy."""

from __future__ import annotations

import collections.abc
import contextlib
import json
import os
import pathlib
import select
import signal
import socket
import statistics
import subprocess
import sys
import time
import tty

from contestants import CHECKOUT, SCRATCH, Programs
from results import DIRECT

sys.path.append(str(CHECKOUT / "clients/python"))
from serial_port_relay import Block, Client, data_command, open_command  # noqa: E402

PORT = "#PhysicalPort0"
TCP_PORT = 60004
SHARED_PORT = 60010
BYTE = b"U"
WARM_UP = 100
ROUNDS = 5
DEADLINE_SECONDS = 30

Once = collections.abc.Callable[[], object]
Figures = dict[str, float]


def _clock_of(pid: int) -> int:
    """The system's clock that tells a process's processor time."""
    return ~pid << 3 | 2


def _cpu_us(pids: list[int]) -> float:
    return sum(time.clock_gettime(_clock_of(pid)) for pid in pids) * 1e6


@contextlib.contextmanager
def _forked(work: collections.abc.Callable[[], object]) -> collections.abc.Iterator[None]:
    """Another process does that meanwhile."""
    pid = os.fork()
    if pid == 0:
        with contextlib.suppress(OSError):
            work()
        os._exit(0)
    try:
        yield
    finally:
        os.kill(pid, signal.SIGKILL)
        os.waitpid(pid, 0)


@contextlib.contextmanager
def _one_processor() -> collections.abc.Iterator[None]:
    every = os.sched_getaffinity(0)
    here = min(every)

    def spin(processor: int) -> None:
        os.sched_setaffinity(0, {processor})
        while True:
            pass

    with contextlib.ExitStack() as stack:
        for processor in every - {here}:
            stack.enter_context(_forked(lambda processor=processor: spin(processor)))
        os.sched_setaffinity(0, {here})
        stack.callback(os.sched_setaffinity, 0, every)
        yield


def _await_port(terminal: int) -> None:
    """Until the port is open, what is written to it is lost."""
    while not select.select([terminal], [], [], 0.1)[0]:
        os.write(terminal, BYTE)
    while select.select([terminal], [], [], 0.2)[0]:
        os.read(terminal, 4096)


@contextlib.contextmanager
def _service(programs: Programs) -> collections.abc.Iterator[int]:
    """The service and a device that sends back what it gets; the service's process id."""
    master, slave = os.openpty()
    tty.setraw(slave)
    node = pathlib.Path("/dev/ttyS2")
    node.unlink(missing_ok=True)
    node.symlink_to(os.ttyname(slave))

    def echo() -> None:
        while True:
            os.write(master, os.read(master, 4096))

    with _forked(echo), subprocess.Popen(
            [programs.service], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL) as service:
        try:
            yield service.pid
        finally:
            service.kill()
    os.close(master)
    os.close(slave)


def _ping(once: Once, pids: list[int], count: int) -> Figures:
    """Times, and the processor time of these processes, for one byte there and back."""
    for _ in range(WARM_UP):
        once()
    before = _cpu_us(pids)
    samples = []
    for _ in range(count):
        begin = time.perf_counter()
        once()
        samples.append((time.perf_counter() - begin) * 1e6)
    return {"echo_p50": statistics.median(samples), "cpu_us": (_cpu_us(pids) - before) / count}


def _connected(port: int) -> socket.socket:
    deadline = time.monotonic() + DEADLINE_SECONDS
    while True:
        try:
            connection = socket.create_connection(("127.0.0.1", port))
        except ConnectionRefusedError:
            if time.monotonic() > deadline:
                raise SystemExit("bench: the service does not listen") from None
            time.sleep(0.001)
            continue
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        return connection


def _expect(connection: socket.socket, answer: bytes) -> None:
    came = connection.recv(len(answer), socket.MSG_WAITALL)
    if came != answer:
        raise SystemExit(f"bench: {came.hex()} came instead of {answer.hex()}")


def _link(pids: list[int], count: int, port: int) -> Figures:
    with _connected(port) as connection:
        connection.sendall(open_command(PORT))
        _expect(connection, open_command(PORT, 0))  # a status is where a parameter is
        command = data_command(PORT, [Block(1, BYTE)])
        answer = data_command(PORT, [Block(2, BYTE)])

        def once() -> None:
            connection.sendall(command)
            _expect(connection, answer)

        return _ping(once, [*pids, os.getpid()], count)


def _direct(service: int, count: int, _programs: Programs) -> Figures:
    return _link([service], count, TCP_PORT)


def _share(service: int, count: int, programs: Programs) -> Figures:
    with subprocess.Popen([programs.folder / "relayctl", "share", "-p", str(TCP_PORT),
                           "--listen", str(SHARED_PORT)], stderr=subprocess.DEVNULL) as relayctl:
        try:
            return _link([service, relayctl.pid], count, SHARED_PORT)
        finally:
            relayctl.terminate()


def _python(service: int, count: int, _programs: Programs) -> Figures:
    with Client(patience=DEADLINE_SECONDS) as client:
        client.open(PORT)

        def once() -> None:
            client.write(PORT, BYTE)
            if client.read(PORT, 1, timeout=DEADLINE_SECONDS) != BYTE:
                raise SystemExit("bench: another byte came back to the Python library")

        return _ping(once, [service, os.getpid()], count)


def _library(service: int, count: int, programs: Programs) -> Figures:
    """Here the service's processor time is that of the warm-up, too."""
    before = _cpu_us([service])
    done = subprocess.run([programs.folder / "library-ping", str(count)], check=True, text=True,
                          stdout=subprocess.PIPE, timeout=DEADLINE_SECONDS)
    figures = json.loads(done.stdout)
    service_us = (_cpu_us([service]) - before) / (WARM_UP + count)
    return {"echo_p50": figures["echo_p50"], "cpu_us": figures["cpu_us"] + service_us}


def _pty(service: int, count: int, programs: Programs) -> Figures:
    link = SCRATCH / "pty"
    with subprocess.Popen([programs.folder / "relayctl", "pty", PORT, "--link", link],
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as relayctl:
        deadline = time.monotonic() + DEADLINE_SECONDS
        while not link.exists():
            if time.monotonic() > deadline or relayctl.poll() is not None:
                raise SystemExit("bench: relayctl makes no pseudo-terminal")
            time.sleep(0.001)
        terminal = os.open(link, os.O_RDWR | os.O_NOCTTY)
        tty.setraw(terminal)
        try:
            _await_port(terminal)
            return _ping(lambda: (os.write(terminal, BYTE), os.read(terminal, 1)),
                         [service, relayctl.pid, os.getpid()], count)
        finally:
            os.close(terminal)
            relayctl.terminate()


WAYS = {DIRECT: _direct, "C++ library": _library, "relayctl pty": _pty,
        "relayctl share": _share, "Python library": _python}


def measure(programs: Programs, scale: int) -> dict[str, dict[str, list[float]]]:
    """By way and metric: the samples of all rounds."""
    samples: dict[str, dict[str, list[float]]] = {way: {} for way in WAYS}
    with _one_processor():
        for _ in range(ROUNDS):
            for way, once in WAYS.items():
                with _service(programs) as service:
                    for metric, value in once(service, 4 * scale, programs).items():
                        samples[way].setdefault(metric, []).append(value)
    return samples
