# SPDX-License-Identifier: MIT
"""The service on other processors than the usual PC's: i386 and 32-bit ARM.

The program for ARM runs twice: in the PC, where the adapters have their places and an emulator
carries out its instructions, and on an ARM board with a kernel of its own, where only the UART and
the search by ids can be tried.
"""

from __future__ import annotations

import dataclasses
import pathlib
import random
import shutil
import tempfile
from collections.abc import Callable, Iterator

import pytest

import other_machines
from background import Background
from line import checksum
from machine import ADAPTERS, UART, Machine, restored
from other_machines import BOARD_USB_PORT, EMULATOR
from relay import CLOSE, Relay
from test_topology import FTDI, NO_SUCH_PORT, USB_PORTS, leads_to

PHYSICAL_PORT = "#PhysicalPort0"


@dataclasses.dataclass(frozen=True)
class Saved:
    """A machine that has just been booted."""
    command: list[str]
    state: pathlib.Path


def _saved(make: Callable[[pathlib.Path], list[str]], scratch: pathlib.Path) -> Saved:
    folder = pathlib.Path(tempfile.mkdtemp(prefix="other-", dir=scratch))
    command = make(folder)
    booted = Machine(command, folder)
    try:
        booted.save(folder / "state")
    finally:
        booted.end()
    return Saved(command, folder / "state")


def _fresh(saved: Saved, scratch: pathlib.Path) -> Iterator[Machine]:
    folder = pathlib.Path(tempfile.mkdtemp(prefix="machine-", dir=scratch))
    machine = restored(saved.command, saved.state, folder)
    try:
        yield machine
    finally:
        machine.end()
        shutil.rmtree(folder)


@pytest.fixture(scope="module")
def saved_pc_of_32_bits(scratch: pathlib.Path) -> Saved:
    return _saved(other_machines.pc_of_32_bits, scratch)


@pytest.fixture(scope="module")
def saved_pc_with_the_arm_build(scratch: pathlib.Path) -> Saved:
    return _saved(other_machines.pc_with_the_arm_build, scratch)


@pytest.fixture(scope="module")
def saved_board(scratch: pathlib.Path) -> Saved:
    return _saved(other_machines.arm_board, scratch)


@pytest.fixture
def pc_of_32_bits(saved_pc_of_32_bits: Saved, scratch: pathlib.Path) -> Iterator[Machine]:
    """With all six adapters, and the service not running."""
    for machine in _fresh(saved_pc_of_32_bits, scratch):
        machine.plug_all()
        yield machine


@pytest.fixture
def pc_with_the_arm_build(saved_pc_with_the_arm_build: Saved,
                          scratch: pathlib.Path) -> Iterator[Machine]:
    """With all six adapters, and the service not running."""
    for machine in _fresh(saved_pc_with_the_arm_build, scratch):
        machine.plug_all()
        yield machine


@pytest.fixture
def board(saved_board: Saved, scratch: pathlib.Path) -> Iterator[Machine]:
    """Without an adapter, and the service not running."""
    yield from _fresh(saved_board, scratch)


def pours_both_ways(relay: Relay, name: str, machine: Machine, line: str, size: int) -> None:
    """Random bytes through the open port, in both directions at the same time."""
    there, back = random.Random(1).randbytes(size), random.Random(2).randbytes(size)
    pour = Background(machine.line(line).sends, back)
    relay.writes(name, there)
    assert checksum(machine.line(line).takes(size)) == checksum(there)
    assert checksum(relay.takes(name, size)) == checksum(back)
    pour.wait()


@dataclasses.dataclass(frozen=True)
class Setting:
    """The values of a port's five keys, and what `stty` then tells of the device."""
    baud: str
    data: str
    parity: str
    stop: str
    flow: str
    shown: str

    def lines(self) -> str:
        return (f"baud={self.baud}\ndata={self.data}\nparity={self.parity}\nstop={self.stop}\n"
                f"flow={self.flow}")

    def expect(self, machine: Machine, node: str) -> None:
        told = machine.run(f"stty -a -F {node}").replace(";", "")
        words = told.split()
        assert f"speed {self.baud} baud" in told
        missing = [word for word in self.shown.split() if word not in words]
        assert not missing, f"{node} should show {missing}: {told}"


SETTINGS = [
    Setting("2400", "7", "even", "1", "none", "cs7 parenb -parodd -cstopb -crtscts -ixon -ixoff"),
    Setting("4800", "7", "odd", "2", "none", "cs7 parenb parodd cstopb -crtscts -ixon -ixoff"),
    Setting("9600", "8", "odd", "2", "XOnXOff", "cs8 parenb parodd cstopb -crtscts ixon ixoff"),
    Setting("19200", "8", "even", "1", "hardware", "cs8 parenb -parodd -cstopb crtscts -ixon"),
    Setting("38400", "8", "none", "2", "none", "cs8 -parenb cstopb -crtscts -ixon -ixoff"),
    Setting("57600", "8", "none", "1", "XOnXOff", "cs8 -parenb -cstopb -crtscts ixon ixoff"),
    Setting("115200", "8", "none", "1", "none", "cs8 -parenb -cstopb -crtscts -ixon -ixoff"),
]


def test_the_i386_build_finds_each_adapter_at_its_place(pc_of_32_bits: Machine) -> None:
    assert pc_of_32_bits.run("uname -m") == "i686"
    pc_of_32_bits.start_service()
    relay = pc_of_32_bits.relay()
    for name, adapter in zip(USB_PORTS, ADAPTERS):
        leads_to(relay, name, pc_of_32_bits, adapter)
    leads_to(relay, PHYSICAL_PORT, pc_of_32_bits, UART)
    pours_both_ways(relay, "#USBSerialPort3", pc_of_32_bits, "usb3", 65536)


def test_the_arm_build_finds_each_adapter_at_its_place(pc_with_the_arm_build: Machine) -> None:
    machine = pc_with_the_arm_build
    machine.start_service(prefix=EMULATOR)
    relay = machine.relay()
    for name, adapter in zip(USB_PORTS, ADAPTERS):
        leads_to(relay, name, machine, adapter)
    assert relay.asks(CLOSE, FTDI) == NO_SUCH_PORT


def test_much_data_pass_the_arm_build_both_ways(pc_with_the_arm_build: Machine) -> None:
    machine = pc_with_the_arm_build
    machine.start_service(prefix=EMULATOR)
    relay = machine.relay()
    for name, line in (("#USBSerialPort2", "usb2"), (PHYSICAL_PORT, UART)):
        relay.opens(name)
        pours_both_ways(relay, name, machine, line, 65536)


def test_the_arm_build_sets_the_lines(pc_with_the_arm_build: Machine) -> None:
    machine = pc_with_the_arm_build
    names = [*USB_PORTS, PHYSICAL_PORT]
    machine.start_service({name: setting.lines() for name, setting in zip(names, SETTINGS)},
                          prefix=EMULATOR)
    relay = machine.relay()
    for name in names:
        relay.opens(name)
    nodes = [node.strip("[]") for node in machine.service_out("OPEN")]
    assert len(nodes) == len(names)
    for node, setting in zip(nodes, SETTINGS):
        setting.expect(machine, node)


def test_an_adapter_is_unplugged_under_the_arm_build_and_comes_back(
        pc_with_the_arm_build: Machine) -> None:
    machine = pc_with_the_arm_build
    machine.start_service(prefix=EMULATOR)
    relay = machine.relay()
    leads_to(relay, "#USBSerialPort5", machine, "usb5")
    machine.unplug("usb5")
    machine.waits_for_nodes(5)
    machine.plug("usb5")
    machine.waits_for_nodes(6)
    machine.waits('[ "$(grep -c "OPEN.*ttyUSB" /run/service.out)" -ge 2 ]')
    machine.line("usb5").sends(b"back again")
    relay.expects("#USBSerialPort5", b"back again")


def test_the_board_has_its_uart_at_a_pci_card(board: Machine) -> None:
    assert board.run("uname -m") == "armv7l"
    assert "/pci0000:00/" in board.run("readlink /sys/class/tty/ttyS2")
    board.start_service()
    relay = board.relay()
    leads_to(relay, PHYSICAL_PORT, board, UART)
    pours_both_ways(relay, PHYSICAL_PORT, board, UART, 65536)


MARK = Setting("9600", "8", "mark", "1", "none", "cs8 parenb parodd cmspar -cstopb -crtscts")


@pytest.mark.parametrize("setting", [*SETTINGS[:4], MARK],
                         ids=lambda setting: "-".join(setting.lines().split("\n")))
def test_the_board_sets_its_uart(board: Machine, setting: Setting) -> None:
    board.start_service({PHYSICAL_PORT: setting.lines()})
    board.relay().opens(PHYSICAL_PORT)
    setting.expect(board, "/dev/ttyS2")


def test_the_board_finds_an_adapter_by_its_ids_and_none_at_a_place(board: Machine) -> None:
    board.plug("usb0", BOARD_USB_PORT)
    board.waits_for_nodes(1)
    board.start_service()
    relay = board.relay()
    assert relay.asks(CLOSE, FTDI) == NO_SUCH_PORT
    relay.cannot_open(USB_PORTS[0], NO_SUCH_PORT)
    leads_to(relay, PHYSICAL_PORT, board, UART)


def test_the_board_starts_the_service_again_that_found_no_such_adapter(board: Machine) -> None:
    board.start_service()
    relay = board.relay()
    relay.sends(CLOSE, FTDI)
    relay.waits_for_end()
    board.waits_for_listen(2)
    assert board.run("cat /run/service.statuses") == "134"  # SIGABRT
    leads_to(board.relay(), PHYSICAL_PORT, board, UART)
