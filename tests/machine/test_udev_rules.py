# SPDX-License-Identifier: MIT
"""The udev rules that packages install, on the real driver."""

from __future__ import annotations

from machine import Machine
from packages import ROOT

RULES = "60-serial-port-handler.rules"


def test_an_adapter_at_a_named_place_hands_over_at_once_and_is_left_alone(machine: Machine) -> None:
    latency = "cat /sys/bus/usb-serial/devices/ttyUSB0/latency_timer"
    machine.plug("usb0")
    machine.waits_for_nodes(1)
    assert machine.run(latency) != "1"  # milliseconds; real chips begin with 16
    assert "ID_MM_DEVICE_IGNORE" not in machine.run("udevadm info /dev/ttyUSB0")
    machine.unplug("usb0")
    machine.waits_for_nodes(0)

    text = (ROOT / "packaging" / RULES).read_text()
    machine.run(f"cat >/usr/lib/udev/rules.d/{RULES} <<'END'\n{text}END\nudevadm control --reload")
    machine.plug("usb0")
    machine.waits_for_nodes(1)
    assert machine.run(latency) == "1"
    assert "E: ID_MM_DEVICE_IGNORE=1" in machine.run("udevadm info /dev/ttyUSB0").splitlines()
    assert machine.run("stat -c '%G %a' /dev/ttyUSB0") == "dialout 660"
