# SPDX-License-Identifier: MIT
"""Data between the relay service and the lines."""

from __future__ import annotations

import random
import time

from background import Background
from figures import Figure
from line import checksum
from machine import ADAPTERS, UART, Machine, settings
from relay import Relay

PORTS = {f"#USBSerialPort{number}": adapter for number, adapter in enumerate(ADAPTERS)}
PORTS["#PhysicalPort0"] = UART
MEGABYTE = 1 << 20
BLOCK = 4096


def octets(text: str) -> bytes:
    return bytes.fromhex(text)


def test_a_short_exchange_byte_for_byte(service: Machine, relay: Relay) -> None:
    line = service.line("usb0")
    port = "02 000F 23 555342 53657269616C 506F7274 30"  # by name: #USBSerialPort0

    relay.sends_bytes(octets(f"0015 01 {port}"))
    assert relay.next_packet() == octets(f"0017 01 {port} 0000")
    line.sends(octets("00 41 0D 0A FF"))
    assert relay.next_packet() == octets(f"001E 04 {port} 01 02 0005 00410D0AFF")
    relay.sends_bytes(octets(f"001E 04 {port} 01 01 0005 1142130D7F"))
    line.expects(octets("11 42 13 0D 7F"))
    relay.sends_bytes(octets(f"0015 02 {port}"))
    assert relay.next_packet() == octets(f"0017 02 {port} 0000")

    assert service.run("cat /run/service.err") == "Received(5):00 41 0D 0A FF "
    node, = service.service_out("OPEN")
    assert service.run("cat /run/service.out").splitlines() == [
        "[LISTEN]IP:127.0.0.1(PORT:60004)", "[ACCEPT]IP:127.0.0.1", f"OPEN{node}"]


def test_a_megabyte_both_ways_on_all_seven_ports_at_once(
        service: Machine, relay: Relay, figure: Figure) -> None:
    inward = {name: random.Random(f"from {name}").randbytes(MEGABYTE) for name in PORTS}
    outward = {name: random.Random(f"to {name}").randbytes(MEGABYTE) for name in PORTS}
    for name in PORTS:
        relay.opens(name)

    def write_in_turn() -> None:
        for start in range(0, MEGABYTE, BLOCK):
            for name in PORTS:
                relay.writes(name, outward[name][start:start + BLOCK])

    began = time.monotonic()
    work = [Background(service.line(line).sends, inward[name]) for name, line in PORTS.items()]
    work.append(Background(write_in_turn))
    for name, line in PORTS.items():
        assert checksum(relay.port(name).takes(MEGABYTE, 300)) == checksum(inward[name]), name
        assert checksum(service.line(line).takes(MEGABYTE, 300)) == checksum(outward[name]), name
    for task in work:
        task.wait()
    figure("bytes each way on each of 7 ports", MEGABYTE)
    figure("bytes lost, doubled or changed", 0)
    figure("seconds", round(time.monotonic() - began))


def echoes(machine: Machine, node: str, line: str) -> None:
    """Opens the node as a shell does. A line of text from the far end comes back as its echo, and
    waits in the terminal until somebody reads it."""
    machine.run(f"exec 9<>{node}")
    machine.line(line).sends(b"waits\n")
    machine.line(line).expects(b"waits\r\n")


def test_what_waited_in_the_uart_before_the_open_is_not_delivered(
        machine: Machine) -> None:
    machine.start_service()
    relay = machine.relay()
    echoes(machine, "/dev/ttyS2", UART)
    relay.opens("#PhysicalPort0")
    machine.run("exec 9<&-")
    machine.line(UART).sends(b"after the open")
    relay.expects("#PhysicalPort0", b"after the open")


def test_what_waited_in_an_adapter_before_the_open_is_not_delivered(machine: Machine) -> None:
    machine.plug_all(["usb5"])
    machine.start_service()
    relay = machine.relay()
    echoes(machine, "/dev/ttyUSB0", "usb5")
    relay.opens("#USBSerialPort5")
    machine.run("exec 9<&-")
    machine.line("usb5").sends(b"after the open")
    relay.expects("#USBSerialPort5", b"after the open")


def test_what_the_uart_has_not_sent_is_dropped_by_the_close(machine: Machine) -> None:
    line = machine.line(UART)
    machine.start_service({"#PhysicalPort0": settings(flow="XOnXOff")})
    relay = machine.relay()
    relay.opens("#PhysicalPort0")
    line.sends(b"\x13" + b"stopped")
    relay.expects("#PhysicalPort0", b"stopped")
    relay.writes("#PhysicalPort0", b"never sent")
    began = time.monotonic()
    relay.closes("#PhysicalPort0")
    assert time.monotonic() - began < 10  # waiting for the line to take it would last 30 s
    relay.opens("#PhysicalPort0")
    line.sends(b"\x11")
    relay.writes("#PhysicalPort0", b"sent")
    line.expects(b"sent")
