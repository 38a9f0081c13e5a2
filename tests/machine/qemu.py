# SPDX-License-Identifier: MIT
"""A QEMU process, and the commands of its monitor protocol (QMP)."""

from __future__ import annotations

import collections
import ctypes
import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import time
from typing import Any

PR_SET_PDEATHSIG = 1
_libc = ctypes.CDLL(None)


def deadline_passed(began: float, seconds: float) -> bool:
    return time.monotonic() - began > seconds


def _end_with_parent() -> None:
    _libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def connect(folder: pathlib.Path, name: str, seconds: float = 60) -> socket.socket:
    """Connects to a unix socket in `folder`, as soon as somebody listens there. A path below
    /proc: that of the folder may be longer than a socket's address can be."""
    began = time.monotonic()
    descriptor = os.open(folder, os.O_PATH)
    try:
        while True:
            peer = socket.socket(socket.AF_UNIX)
            try:
                peer.connect(f"/proc/self/fd/{descriptor}/{name}")
                return peer
            except (FileNotFoundError, ConnectionRefusedError):
                peer.close()
                if deadline_passed(began, seconds):
                    raise
                time.sleep(0.02)
    finally:
        os.close(descriptor)


class Qemu:
    """Runs in `folder`, with its sockets and files there. Dies with this process."""

    def __init__(self, command: list[str], folder: pathlib.Path) -> None:
        self._errors = (folder / "qemu.err").open("wb")
        self.process = subprocess.Popen(
            [*command, "-qmp", "unix:qmp,server=on,wait=off"], cwd=folder,
            stdin=subprocess.DEVNULL, stdout=self._errors, stderr=self._errors,
            preexec_fn=_end_with_parent)
        self._events: collections.deque[dict[str, Any]] = collections.deque()
        try:
            self._socket = connect(folder, "qmp")
            self._socket.settimeout(120)
            self._stream = self._socket.makefile("rw", encoding="utf-8")
            self._read()  # the greeting
            self.ask("qmp_capabilities")
        except BaseException:
            self.process.kill()
            raise

    def _read(self) -> dict[str, Any]:
        line = self._stream.readline()
        if not line:
            raise ConnectionError("QEMU has ended")
        return json.loads(line)

    def ask(self, command: str, **arguments: Any) -> Any:
        """Carries out a command; keys are written with _ for -."""
        named = {key.replace("_", "-"): value for key, value in arguments.items()}
        self._stream.write(json.dumps({"execute": command, "arguments": named}))
        self._stream.flush()
        while True:
            answer = self._read()
            if "event" in answer:
                self._events.append(answer)
            elif "error" in answer:
                raise RuntimeError(f"{command} {named}: {answer['error']['desc']}")
            else:
                return answer["return"]

    def tell(self, monitor_command: str) -> str:
        """A command of the monitor for people."""
        return self.ask("human-monitor-command", command_line=monitor_command)

    def wait_event(self, name: str, **data: Any) -> None:
        while True:
            event = self._events.popleft() if self._events else self._read()
            found = event.get("data", {})
            if event.get("event") == name and all(found.get(k) == v for k, v in data.items()):
                return

    def wait_status(self, wanted: str, seconds: float = 120) -> None:
        began = time.monotonic()
        while self.ask("query-status")["status"] != wanted:
            if deadline_passed(began, seconds):
                raise TimeoutError(f"QEMU is not {wanted}")
            time.sleep(0.05)

    def forward(self, guest_port: int) -> int:
        """A free port of the host that leads to one of the guest."""
        self.tell(f"hostfwd_add tcp:127.0.0.1:0-10.0.2.15:{guest_port}")
        found = re.search(rf"TCP\[HOST_FORWARD\]\s+\d+\s+127\.0\.0\.1\s+(\d+)\s+10\.0\.2\.15"
                          rf"\s+{guest_port}\b", self.tell("info usernet"))
        if not found:
            raise RuntimeError("no forwarded port:\n" + self.tell("info usernet"))
        return int(found[1])

    def end(self) -> None:
        self.process.kill()
        self.process.wait()
        self._stream.close()
        self._socket.close()
        self._errors.close()
