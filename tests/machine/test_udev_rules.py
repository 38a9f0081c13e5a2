# SPDX-License-Identifier: MIT
"""The udev rules that packages install, on the real driver."""

from __future__ import annotations

from machine import Machine
from packages import ROOT

NAME = "60-serial-port-handler.rules"
RULES = (ROOT / "packaging" / NAME).read_text()
PATH = f"/usr/lib/udev/rules.d/{NAME}"


def is_left_alone(machine: Machine, node: str) -> bool:
    """By ModemManager."""
    return "E: ID_MM_DEVICE_IGNORE=1" in machine.run(f"udevadm info {node}").splitlines()


def test_an_adapter_at_a_named_place_hands_over_at_once_and_is_left_alone(machine: Machine) -> None:
    latency = "cat /sys/bus/usb-serial/devices/ttyUSB0/latency_timer"
    machine.plug("usb0")
    machine.waits_for_nodes(1)
    assert machine.run(latency) != "1"  # milliseconds; real chips begin with 16
    assert not is_left_alone(machine, "/dev/ttyUSB0")
    machine.unplug("usb0")
    machine.waits_for_nodes(0)

    machine.takes_rules(PATH, RULES)
    machine.plug("usb0")
    machine.waits_for_nodes(1)
    assert machine.run(latency) == "1"
    assert is_left_alone(machine, "/dev/ttyUSB0")
    assert machine.run("stat -c '%G %a' /dev/ttyUSB0") == "dialout 660"


def test_of_the_uarts_the_physical_port_is_left_alone(machine: Machine) -> None:
    machine.takes_rules(PATH, RULES, "udevadm info /dev/ttyS2 | grep -q ID_MM")
    assert is_left_alone(machine, "/dev/ttyS2")
    assert machine.run("stat -c '%G %a' /dev/ttyS2") == "dialout 660"
    assert not is_left_alone(machine, "/dev/ttyS3")
