# SPDX-License-Identifier: MIT
"""Unplugging an adapter under an open port, whatever the port is doing."""

from __future__ import annotations

import random
import time

import pytest

from background import Background
from figures import Figure
from machine import Machine
from process import Process
from relay import CLOSE, OPEN, Relay, named

PORT, NODE, ADAPTER = "#USBSerialPort0", "/dev/ttyUSB0", "usb0"
OPENED, NO_SUCH_PORT, CANNOT_OPEN = 0, 2, 4


@pytest.fixture
def relay(machine: Machine) -> Relay:
    """With one adapter, and its port not open."""
    machine.plug_all([ADAPTER])
    machine.start_service()
    return machine.relay()


@pytest.fixture
def process(relay: Relay, machine: Machine) -> Process:
    return Process(machine)


def data_flow(relay: Relay, machine: Machine) -> None:
    machine.line(ADAPTER).sends(b"from the line")
    relay.expects(PORT, b"from the line")
    relay.writes(PORT, b"to the line")
    machine.line(ADAPTER).expects(b"to the line")


def split_by_one_gap(found: bytes, sent: bytes) -> int:
    """How many bytes are missing at the one place where the found bytes leave the sent ones."""
    before = next((at for at, byte in enumerate(found) if byte != sent[at]), len(found))
    gap = len(sent) - len(found)
    assert found == sent[:before] + sent[before + gap:], f"more than one gap, first at {before}"
    return gap


def test_while_idle(machine: Machine, relay: Relay, process: Process, figure: Figure) -> None:
    relay.opens(PORT)
    closed, flowing = [], []
    for opens in range(2, 12):
        began = time.monotonic()
        machine.unplug(ADAPTER)
        process.waits_until_closed(NODE)
        closed.append(time.monotonic() - began)
        machine.plug(ADAPTER)
        machine.waits(f"[ -e {NODE} ]", pause=0.01)
        began = time.monotonic()
        process.waits_for_opens(opens)
        data_flow(relay, machine)
        flowing.append(time.monotonic() - began)
    assert process.is_the_same()
    assert max(closed) < 5
    assert max(flowing) < 5  # the port looks for its node twice a second
    figure("unplug to descriptor closed, median and longest of 10, s",
                    f"{sorted(closed)[5]:.2f}, {max(closed):.2f}")
    figure("node present to data flowing both ways, median and longest of 10, s",
                    f"{sorted(flowing)[5]:.2f}, {max(flowing):.2f}")


def test_the_operator_sees_it(machine: Machine, relay: Relay, process: Process) -> None:
    relay.opens(PORT)
    machine.unplug(ADAPTER)
    process.waits_until_closed(NODE)
    machine.waits(f"grep -q 'Close serial device. .Port {NODE}.' /run/service.log")
    assert machine.run("cat /run/service.err") == "recv error:Input/output error"
    assert machine.run("tail -n 1 /run/service.out") == f"({NODE})port close"


def test_waiting_for_an_adapter_takes_no_time(
        machine: Machine, relay: Relay, process: Process, figure: Figure) -> None:
    relay.opens(PORT)
    machine.unplug(ADAPTER)
    process.waits_until_closed(NODE)
    share = process.cpu_share(4)
    assert share < 10
    figure("processor while unplugged and idle, %", share)


def test_a_session_leader_survives_the_hang_up(machine: Machine) -> None:
    machine.plug_all([ADAPTER])
    machine.start_service(prefix="setsid")
    relay = machine.relay()
    process = Process(machine)
    assert machine.run(f"cut -d' ' -f6 /proc/{process.pid}/stat") == str(process.pid)  # the session
    relay.opens(PORT)
    machine.unplug(ADAPTER)
    process.waits_until_closed(NODE)
    machine.plug(ADAPTER)
    process.waits_for_opens(2)
    data_flow(relay, machine)
    assert process.is_the_same()


def test_while_data_flow_in(
        machine: Machine, relay: Relay, process: Process, figure: Figure) -> None:
    sent = random.Random(1).randbytes(1 << 20)
    relay.opens(PORT)
    pour = Background(machine.line(ADAPTER).sends, sent)
    relay.port(PORT).waits_for(len(sent) // 8)
    machine.unplug(ADAPTER)
    process.waits_until_closed(NODE)
    machine.plug(ADAPTER)
    found = relay.port(PORT).takes_until(sent[-64:])
    pour.wait()
    lost = split_by_one_gap(found, sent)
    assert len(found) > len(sent) // 2
    figure("bytes lost by the unplugging itself, of 1 MB coming in", lost)


def test_while_data_flow_out(
        machine: Machine, relay: Relay, process: Process, figure: Figure) -> None:
    line = machine.line(ADAPTER)
    sent = random.Random(2).randbytes(1 << 20)
    relay.opens(PORT)
    pour = Background(relay.writes, PORT, sent)
    line.waits_for(len(sent) // 8)
    process.waits_in("tty_write")  # the device takes no more for the moment
    machine.unplug(ADAPTER)
    process.waits_until_closed(NODE)
    share = process.cpu_share(2)
    machine.plug(ADAPTER)
    found = line.takes_until(sent[-64:])
    pour.wait()
    lost = split_by_one_gap(found, sent)
    figure("bytes lost by the unplugging itself, of 1 MB going out", lost)
    figure("processor while unplugged and a write is pending, %", share)
    data_flow(relay, machine)
    assert process.is_the_same()


@pytest.mark.parametrize("delay", [0, 0.05, 0.1, 0.15, 0.2, 0.25, 0.3, 0.35, 0.4])
def test_during_an_open(machine: Machine, relay: Relay, process: Process, delay: float) -> None:
    relay.sends(OPEN, named(PORT))
    moment_passes(delay)
    machine.unplug(ADAPTER)
    status = relay.next_status(OPEN, named(PORT))
    assert status in (OPENED, NO_SUCH_PORT, CANNOT_OPEN)
    if status == OPENED:
        process.waits_until_closed(NODE)
    machine.waits_for_nodes(0)
    machine.plug(ADAPTER)
    machine.waits_for_nodes(1)
    if status == OPENED:
        process.waits_for_opens(2)
    else:
        relay.opens(PORT)
    data_flow(relay, machine)
    assert process.is_the_same()


def moment_passes(seconds: float) -> None:
    """So that the adapter goes at another stage of what the service does."""
    time.sleep(seconds)


@pytest.mark.parametrize("delay", [0, 0.005, 0.02, 0.05])
def test_during_a_close(machine: Machine, relay: Relay, process: Process, delay: float) -> None:
    relay.opens(PORT)
    relay.sends(CLOSE, named(PORT))
    moment_passes(delay)
    machine.unplug(ADAPTER)
    assert relay.next_status(CLOSE, named(PORT)) == 0
    process.waits_until_closed(NODE)
    machine.waits_for_nodes(0)
    machine.plug(ADAPTER)
    machine.waits_for_nodes(1)
    relay.opens(PORT)
    data_flow(relay, machine)
    assert process.is_the_same()


def goes_and_comes_twice(machine: Machine) -> float:
    """Within how many seconds."""
    began = time.monotonic()
    for _ in range(2):
        machine.unplug(ADAPTER)
        machine.plug(ADAPTER)
    return time.monotonic() - began


def test_twice_within_a_second(machine: Machine, relay: Relay, process: Process) -> None:
    """Whether the service opens the port once again or twice is not said."""
    relay.opens(PORT)
    for _ in range(5):  # this computer may be slow at one time or the other
        took = goes_and_comes_twice(machine)
        machine.waits_for_address(ADAPTER)
        process.waits_until_open_again(NODE)
        data_flow(relay, machine)
        if took < 1:
            break
    assert took < 1
    assert process.is_the_same()
