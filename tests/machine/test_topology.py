# SPDX-License-Identifier: MIT
"""Which line a port name leads to, on real controllers, drivers and udev."""

from __future__ import annotations

import pytest

from machine import ADAPTERS, PLACES, UART, Machine
from relay import CLOSE, Relay, numbered

USB_PORTS = [f"#USBSerialPort{number}" for number in range(len(PLACES))]
FTDI = numbered(0x0403, 0x6001)
NO_SUCH_PORT = 2


def leads_to(relay: Relay, name: str, machine: Machine, line: str) -> None:
    """Opens the port and sends one word each way. No other line has one like it."""
    relay.opens(name)
    machine.line(line).sends(f"from {line}".encode())
    relay.expects(name, f"from {line}".encode())
    relay.writes(name, f"to {name}".encode())
    machine.line(line).expects(f"to {name}".encode())


@pytest.mark.parametrize("order", ["012345", "543210", "240513"])
def test_each_name_leads_to_its_place_in_whatever_order_adapters_came(
        machine: Machine, order: str) -> None:
    machine.plug_all([ADAPTERS[int(number)] for number in order])
    machine.start_service()
    relay = machine.relay()
    for name, adapter in zip(USB_PORTS, ADAPTERS):
        leads_to(relay, name, machine, adapter)
    nodes = machine.service_out("OPEN")
    assert sorted(nodes) == [f"[/dev/ttyUSB{number}]" for number in range(len(PLACES))]


def test_a_name_leads_to_an_adapter_behind_a_hub_at_its_place(machine: Machine) -> None:
    bus, port = PLACES[0]
    machine.plug_hub((bus, port))
    machine.plug("usb0", (bus, f"{port}.3"))
    machine.plug("usb1")
    machine.waits_for_nodes(2)
    assert "/usb4/4-1/4-1.3/" in machine.run("ls -l /sys/class/tty")
    machine.start_service()
    relay = machine.relay()
    leads_to(relay, "#USBSerialPort0", machine, "usb0")
    leads_to(relay, "#USBSerialPort1", machine, "usb1")


def test_a_place_without_an_adapter_has_status_2_and_the_others_work(machine: Machine) -> None:
    machine.plug_all([adapter for adapter in ADAPTERS if adapter != "usb3"])
    machine.start_service()
    relay = machine.relay()
    relay.cannot_open("#USBSerialPort3", NO_SUCH_PORT)
    for name, adapter in zip(USB_PORTS, ADAPTERS):
        if adapter != "usb3":
            leads_to(relay, name, machine, adapter)


def test_an_adapter_plugged_in_later_is_found_by_the_next_open(machine: Machine) -> None:
    machine.start_service()
    relay = machine.relay()
    relay.cannot_open("#USBSerialPort4", NO_SUCH_PORT)
    machine.plug("usb4")
    machine.waits_for_nodes(1)
    leads_to(relay, "#USBSerialPort4", machine, "usb4")


def test_nothing_resolves_when_the_controllers_came_in_the_wrong_order(machine: Machine) -> None:
    machine.run("modprobe -r ehci_pci uhci_hcd; modprobe uhci_hcd; modprobe ehci_pci")
    machine.plug_all()
    assert "1d.2/usb3/3-1/" in machine.run("ls -l /sys/class/tty")  # else: usb4
    machine.start_service()
    relay = machine.relay()
    for name in USB_PORTS:
        relay.cannot_open(name, NO_SUCH_PORT)
    leads_to(relay, "#PhysicalPort0", machine, UART)


def test_the_physical_port_is_the_16550a(machine: Machine) -> None:
    assert "2: uart:16550A port:000003E8" in machine.run("cat /proc/tty/driver/serial")
    machine.start_service()
    relay = machine.relay()
    leads_to(relay, "#PhysicalPort0", machine, UART)
    assert machine.service_out("OPEN") == ["[/dev/ttyS2]"]
    relay.cannot_open("#PhysicalPort1", NO_SUCH_PORT)


def test_a_close_by_ids_finds_the_adapter_and_no_open_port(service: Machine, relay: Relay) -> None:
    leads_to(relay, "#USBSerialPort0", service, "usb0")
    assert relay.asks(CLOSE, FTDI) == NO_SUCH_PORT
    service.line("usb0").sends(b"still open")
    relay.expects("#USBSerialPort0", b"still open")


def test_a_close_by_ids_without_an_adapter_ends_the_process_and_it_is_started_again(
        machine: Machine) -> None:
    machine.start_service()
    relay = machine.relay()
    relay.sends(CLOSE, FTDI)
    relay.waits_for_end()
    machine.waits_for_listen(2)
    assert machine.run("cat /run/service.statuses") == "134"  # SIGABRT
    assert "std::logic_error" in machine.run("cat /run/service.err")
    leads_to(machine.relay(), "#PhysicalPort0", machine, UART)
