# SPDX-License-Identifier: MIT
"""The service on other processors than the usual PC's: i386 and 32-bit ARM.

The program for ARM runs twice: in the PC, where the adapters have their places and an emulator
carries out its instructions, and on an ARM board with a kernel of its own, where only the UART and
the search by ids can be tried.
"""

from __future__ import annotations

import pathlib
import random
from collections.abc import Callable, Iterator
from typing import NamedTuple

import pytest

import other_machines
from background import Background
from line import checksum
from machine import ADAPTERS, UART, Machine, Saved, running, saved, settings
from other_machines import BOARD_USB_PORT, EMULATOR
from process import Process
from relay import CLOSE, Relay
from test_topology import FTDI, NO_SUCH_PORT, USB_PORTS, leads_to

PHYSICAL_PORT = "#PhysicalPort0"


def pours_both_ways(relay: Relay, name: str, machine: Machine, line: str) -> None:
    """Random bytes through the open port, in both directions at the same time."""
    size = 65536
    there, back = random.Random(1).randbytes(size), random.Random(2).randbytes(size)
    pour = Background(machine.line(line).sends, back)
    relay.writes(name, there)
    assert checksum(machine.line(line).takes(size)) == checksum(there)
    assert checksum(relay.port(name).takes(size)) == checksum(back)
    pour.wait()


class Setting(NamedTuple):
    """What is not as usual in a port's section, and what `stty` then tells of the device."""
    words: dict[str, str]
    shown: str


SETTINGS = [
    Setting({"baud": "2400", "data": "7", "parity": "even"},
            "2400 cs7 parenb -parodd -cstopb -crtscts -ixon -ixoff"),
    Setting({"baud": "4800", "data": "7", "parity": "odd", "stop": "2"},
            "4800 cs7 parenb parodd cstopb -crtscts -ixon -ixoff"),
    Setting({"baud": "9600", "parity": "odd", "stop": "2", "flow": "XOnXOff"},
            "9600 cs8 parenb parodd cstopb -crtscts ixon ixoff"),
    Setting({"baud": "19200", "parity": "even", "flow": "hardware"},
            "19200 cs8 parenb -parodd -cstopb crtscts -ixon"),
    Setting({"baud": "38400", "stop": "2"}, "38400 cs8 -parenb cstopb -crtscts -ixon -ixoff"),
    Setting({"baud": "57600", "flow": "XOnXOff"}, "57600 cs8 -parenb -cstopb -crtscts ixon ixoff"),
    Setting({}, "115200 cs8 -parenb -cstopb -crtscts -ixon -ixoff"),
]
# The emulator of a single program does not know it.
MARK = Setting({"baud": "9600", "parity": "mark"}, "9600 cs8 parenb parodd cmspar -cstopb -crtscts")


def takes(relay: Relay, name: str, machine: Machine, node: str, setting: Setting) -> None:
    """The closed port, when it is opened."""
    machine.configure({name: settings(**setting.words)})
    relay.opens(name)
    told = machine.run(f"stty -a -F {node}").replace(";", "").split()
    missing = set(setting.shown.split()) - set(told)
    assert not missing, f"{node} should show {missing}: {told}"
    relay.closes(name)


@pytest.mark.parametrize("make, processor, prefix", [
    (other_machines.pc_of_32_bits, "i686", ""),
    (other_machines.pc_with_the_arm_build, "x86_64", EMULATOR),
], ids=["i386", "armhf"])
def test_another_build_serves_each_place(
        make: Callable[[pathlib.Path], list[str]], processor: str, prefix: str,
        scratch: pathlib.Path, tmp_path: pathlib.Path) -> None:
    with running(make(tmp_path), scratch) as machine:
        assert machine.run("uname -m") == processor
        machine.plug_all()
        machine.start_service(prefix=prefix)
        relay = machine.relay()
        lines = dict(zip([*USB_PORTS, PHYSICAL_PORT], [*ADAPTERS, UART]))
        for name, line in lines.items():
            leads_to(relay, name, machine, line)
        assert relay.asks(CLOSE, FTDI) == NO_SUCH_PORT
        pours_both_ways(relay, "#USBSerialPort2", machine, "usb2")
        pours_both_ways(relay, PHYSICAL_PORT, machine, UART)

        node = machine.node_of("usb5")
        machine.unplug("usb5")
        Process(machine).waits_until_closed(node)  # while it is held the adapter gets another one
        machine.waits_for_nodes(5)
        machine.plug("usb5")
        machine.waits_for_nodes(6)
        assert machine.node_of("usb5") == node
        machine.waits('[ "$(grep -c "OPEN.*ttyUSB" /run/service.out)" -ge 7 ]')
        machine.line("usb5").sends(b"back again")
        relay.expects("#USBSerialPort5", b"back again")

        for (name, line), setting in zip(lines.items(), SETTINGS):
            relay.closes(name)
            node = "/dev/ttyS2" if line == UART else machine.node_of(line)
            takes(relay, name, machine, node, setting)


@pytest.fixture(scope="module")
def saved_board(scratch: pathlib.Path) -> Saved:
    return saved(other_machines.arm_board, scratch)


@pytest.fixture
def board(saved_board: Saved, scratch: pathlib.Path) -> Iterator[Machine]:
    """Without an adapter, and the service not running."""
    with saved_board.restored(scratch) as machine:
        yield machine


def test_the_board_has_its_uart_at_a_pci_card(board: Machine) -> None:
    assert board.run("uname -m") == "armv7l"
    assert "/pci0000:00/" in board.run("readlink /sys/class/tty/ttyS2")
    board.start_service()
    relay = board.relay()
    leads_to(relay, PHYSICAL_PORT, board, UART)
    pours_both_ways(relay, PHYSICAL_PORT, board, UART)


def test_the_board_sets_its_uart(board: Machine) -> None:
    board.start_service()
    relay = board.relay()
    for setting in [*SETTINGS, MARK]:
        takes(relay, PHYSICAL_PORT, board, "/dev/ttyS2", setting)


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
