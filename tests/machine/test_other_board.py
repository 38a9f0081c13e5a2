# SPDX-License-Identifier: MIT
"""The udev rules of docs/other-boards.md, on a PC whose kernel knows no ttyS2, and on one that does."""

from __future__ import annotations

import pathlib
import re

from machine import UART, Machine, Saved, running
from packages import ROOT
from test_topology import leads_to

PAGE = (ROOT / "docs/other-boards.md").read_text(encoding="utf-8")
RULES = "/etc/udev/rules.d/61-serial-port-handler.rules"


def rules(shown: str, real: str) -> str:
    """What the page has in the file, for other hardware."""
    blocks = re.findall(rf"`{re.escape(RULES)}`:\n\n```\n(.*?)```", PAGE, re.DOTALL)
    assert len(blocks) == 2
    return "".join(block for block in blocks if shown in block).replace(shown, real)


def test_a_link_of_the_name_leads_to_another_uart(saved: Saved, scratch: pathlib.Path) -> None:
    # ttyS0 is the line, and there is ttyS1.
    command = [word.replace("console=ttyS0", "console=ttyS1 8250.nr_uarts=2")
               for word in saved.command]
    with running(command, scratch) as machine:
        machine.run("! test -e /dev/ttyS2")
        machine.takes_rules(RULES, rules("ttyAMA0", "ttyS0"), "test -L /dev/ttyS2")
        assert machine.run("readlink /dev/ttyS2") == "ttyS0"
        assert machine.run("stat -c '%G %a' /dev/ttyS0") == "dialout 660"
        assert "E: ID_MM_DEVICE_IGNORE=1" in machine.run("udevadm info /dev/ttyS2").splitlines()
        machine.start_service()
        leads_to(machine.relay(), "#PhysicalPort0", machine, UART)


def test_a_link_does_not_take_the_place_of_a_node(machine: Machine) -> None:
    machine.takes_rules(RULES, rules("ttyAMA0", "ttyS3"),
                        "udevadm info /dev/ttyS3 | grep -q '^S: ttyS2$'")
    machine.run("test -c /dev/ttyS2 && ! test -L /dev/ttyS2")


def test_an_adapter_at_another_place_hands_over_at_once_and_is_left_alone(machine: Machine) -> None:
    machine.takes_rules(RULES, rules("/usb1/1-1/", "/usb4/4-1/"))
    machine.plug("usb0")
    machine.waits_for_nodes(1)
    assert machine.run("cat /sys/bus/usb-serial/devices/ttyUSB0/latency_timer") == "1"
    assert "E: ID_MM_DEVICE_IGNORE=1" in machine.run("udevadm info /dev/ttyUSB0").splitlines()
