# SPDX-License-Identifier: MIT
"""Data between the relay service and the lines."""

from __future__ import annotations

from machine import Machine
from relay import Relay


def test_a_short_exchange_byte_for_byte(service: Machine, relay: Relay) -> None:
    relay.opens("#USBSerialPort0")
    service.line("usb0").sends(b"\x00A\r\n\xff")
    relay.expects("#USBSerialPort0", b"\x00A\r\n\xff")
    relay.writes("#USBSerialPort0", b"\x11B\x13\x04\x7f")
    service.line("usb0").expects(b"\x11B\x13\x04\x7f")
    relay.closes("#USBSerialPort0")
