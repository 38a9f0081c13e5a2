# SPDX-License-Identifier: MIT
"""What comes back after an unplugging: the same adapter, another one, or it at another place."""

from __future__ import annotations

import random
import time

from figures import Figure
from machine import ADAPTERS, PLACES, UART, Machine, settings
from process import Process
from relay import OPEN, Relay, named

PORT, NODE, ADAPTER = "#USBSerialPort0", "/dev/ttyUSB0", "usb0"
ROUNDS = 200
CHUNK = 64
UART_PORT, UART_NODE = "#PhysicalPort0", "/dev/ttyS2"


def data_flow(relay: Relay, port: str, machine: Machine, line: str, data: bytes) -> None:
    """The same bytes there and back."""
    machine.line(line).sends(data)
    relay.expects(port, data)
    relay.writes(port, data)
    machine.line(line).expects(data)


def open_port(machine: Machine, adapters: list[str]) -> tuple[Relay, Process]:
    machine.plug_all(adapters)
    machine.start_service()
    relay = machine.relay()
    relay.opens(PORT)
    return relay, Process(machine)


def test_another_adapter_at_this_place_serves_the_open_port(machine: Machine) -> None:
    relay, process = open_port(machine, ["usb0"])
    machine.unplug("usb0")
    process.waits_until_closed(NODE)
    machine.plug("usb1", PLACES[0])
    process.waits_for_opens(2)
    data_flow(relay, PORT, machine, "usb1", b"of the other adapter")


def test_an_open_port_follows_its_node_to_another_place(machine: Machine) -> None:
    """A port goes on with the node that it was opened with, wherever that is now. The next open
    looks at the places again."""
    relay, process = open_port(machine, ["usb0"])
    machine.unplug("usb0")
    process.waits_until_closed(NODE)
    machine.plug("usb0", PLACES[3])
    process.waits_for_opens(2)
    data_flow(relay, PORT, machine, "usb0", b"from the third place")
    relay.closes(PORT)
    relay.cannot_open(PORT, 2)
    relay.opens("#USBSerialPort3")
    data_flow(relay, "#USBSerialPort3", machine, "usb0", b"by its name")


def test_adapters_that_come_back_in_another_order_change_places_until_the_next_open(
        machine: Machine) -> None:
    """The first to come gets the lowest node. The ports keep their nodes, and so change lines."""
    relay, process = open_port(machine, ["usb0", "usb1"])
    relay.opens("#USBSerialPort1")
    for number in (0, 1):
        machine.unplug(f"usb{number}")
        process.waits_until_closed(f"/dev/ttyUSB{number}")
    machine.waits_for_nodes(0)
    for count, adapter in enumerate(["usb1", "usb0"], 1):
        machine.plug(adapter)
        machine.waits_for_nodes(count)
    process.waits_for_opens(4)
    data_flow(relay, "#USBSerialPort0", machine, "usb1", b"changed")
    for port in ("#USBSerialPort0", "#USBSerialPort1"):
        relay.closes(port)
        relay.opens(port)
    data_flow(relay, "#USBSerialPort0", machine, "usb0", b"right again")
    data_flow(relay, "#USBSerialPort1", machine, "usb1", b"right again")


def test_a_node_that_another_program_holds_comes_back_under_another_name(machine: Machine) -> None:
    relay, process = open_port(machine, ["usb0"])
    machine.run(f"sleep 1000 <>{NODE} & echo $! >/run/holder")
    machine.waits(f"[ \"$(readlink /proc/$(cat /run/holder)/fd/0)\" = {NODE} ]")
    machine.unplug("usb0")
    process.waits_until_closed(NODE)
    machine.plug("usb0")
    machine.waits("[ -e /dev/ttyUSB1 ]")
    assert relay.asks(OPEN, named(PORT)) == 3  # the port is open still, and waits for its node
    machine.run("kill $(cat /run/holder)")
    relay.closes(PORT)
    relay.opens(PORT)
    data_flow(relay, PORT, machine, "usb0", b"after a new open")


def test_200_rounds_lose_nothing_while_plugged_in(machine: Machine, figure: Figure) -> None:
    """One adapter after the other, again and again. While one of them is opened again, the next
    one is unplugged already."""
    noise = random.Random(200)
    machine.plug_all()
    nodes = {adapter: machine.node_of(adapter) for adapter in ADAPTERS}
    machine.start_service()
    relay = machine.relay()
    process = Process(machine)
    for number in range(len(ADAPTERS)):
        relay.opens(f"#USBSerialPort{number}")

    def chunk_passes(number: int) -> None:
        data_flow(relay, f"#USBSerialPort{number}", machine, ADAPTERS[number],
                  noise.randbytes(CHUNK))

    for number in range(len(ADAPTERS)):
        chunk_passes(number)
    held = process.resources()
    began = time.monotonic()
    opens, number = [1] * len(ADAPTERS), 0
    for count in range(ROUNDS):
        before, number = number, count % len(ADAPTERS)
        machine.unplug(ADAPTERS[number])
        process.waits_until_closed(nodes[ADAPTERS[number]])
        machine.plug(ADAPTERS[number])
        machine.waits(f"[ -e {nodes[ADAPTERS[number]]} ]", pause=0.01)
        if count:  # that port itself: the one after it may be faster
            process.waits_for_opens(opens[before], nodes[ADAPTERS[before]] + "]")
            chunk_passes(before)
        opens[number] += 1
    for number in range(len(ADAPTERS)):
        process.waits_for_opens(opens[number], nodes[ADAPTERS[number]] + "]")
        chunk_passes(number)
    assert process.is_the_same()
    assert process.resources() == held
    figure("unplugged and plugged in again", ROUNDS)
    figure("of these rounds, s each", f"{(time.monotonic() - began) / ROUNDS:.2f}")
    figure("bytes each way in between", CHUNK * (ROUNDS + 2 * len(ADAPTERS) - 1))
    figure("bytes lost outside the unplugged times", 0)
    figure("descriptors and threads, before and after", f"{held}, {process.resources()}")


def test_the_uart_goes_and_comes_under_an_open_port(machine: Machine, figure: Figure) -> None:
    driver = "/sys/bus/pnp/drivers/serial"
    device = machine.run("basename $(readlink /sys/class/tty/ttyS2/device)")
    machine.start_service()
    relay = machine.relay()
    process = Process(machine)
    relay.opens(UART_PORT)
    for opens in range(2, 5):
        machine.run(f"echo {device} >{driver}/unbind")
        process.waits_until_closed(UART_NODE)
        assert "2: uart:unknown" in machine.run("cat /proc/tty/driver/serial")
        machine.run(f"echo {device} >{driver}/bind")
        process.waits_for_opens(opens)
        data_flow(relay, UART_PORT, machine, UART, f"round {opens}".encode())
    machine.run(f"echo {device} >{driver}/unbind")
    process.waits_until_closed(UART_NODE)
    share = process.cpu_share(3)
    assert share < 10
    figure("processor while the UART has no driver, %", share)
    assert process.is_the_same()


def test_the_uart_goes_while_a_write_is_blocked(machine: Machine) -> None:
    driver = "/sys/bus/pnp/drivers/serial"
    device = machine.run("basename $(readlink /sys/class/tty/ttyS2/device)")
    line = machine.line(UART)
    machine.start_service({UART_PORT: settings(flow="XOnXOff")})
    relay = machine.relay()
    process = Process(machine)
    relay.opens(UART_PORT)
    line.sends(b"\x13" + b"stopped")
    relay.expects(UART_PORT, b"stopped")
    data = random.Random(3).randbytes(16384).translate(None, b"\x11\x13")
    relay.writes(UART_PORT, data)
    process.waits_in("n_tty_write")
    machine.run(f"echo {device} >{driver}/unbind")
    process.waits_until_closed(UART_NODE)
    machine.run(f"echo {device} >{driver}/bind")
    process.waits_for_opens(2)
    relay.writes(UART_PORT, b"the end")  # behind the rest of the blocked write
    assert (data + b"the end").endswith(line.takes_until(b"the end"))
    data_flow(relay, UART_PORT, machine, UART, b"after it")
    assert process.is_the_same()
