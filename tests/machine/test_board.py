# SPDX-License-Identifier: MIT
"""The cases for a real board, with loop-back plugs on the emulated lines."""

from __future__ import annotations

import pathlib
import subprocess
import sys

from machine import ADAPTERS, UART, Machine

BOARD = pathlib.Path(__file__).with_name("board.py")
NAMES = [f"#USBSerialPort{number}" for number in range(len(ADAPTERS))] + ["#PhysicalPort0"]


def board(machine: Machine, *arguments: str) -> subprocess.Popen[str]:
    return subprocess.Popen(
        [sys.executable, "-B", str(BOARD), "--port", str(machine.relay_port()), *arguments],
        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)


def test_a_good_board_passes(service: Machine) -> None:
    for line in (*ADAPTERS, UART):
        service.line(line).loops_back()
    with board(service, "--unplug", "--size", "16384", *NAMES) as run:
        said = []
        assert run.stdout
        for text in run.stdout:
            said.append(text)
            word, _, name = text.rstrip().partition(" the adapter of ")
            adapter = f"usb{name[14:15]}"
            if word == "unplug":
                service.unplug(adapter)
            elif word == "plug":
                service.plug(adapter)
    assert run.returncode == 0, "".join(said)
    assert len([text for text in said if text.startswith("ok: ")]) == 1 + 7 + 6


def test_a_port_that_does_not_open_fails(service: Machine) -> None:
    service.line("usb1").loops_back()
    with board(service, "--size", "64", "#USBSerialPort1", "#USBSerialPort9") as run:
        said, _ = run.communicate(timeout=60)
    assert run.returncode == 1
    assert said == "failed: open #USBSerialPort9: status 2\n"
