# SPDX-License-Identifier: MIT
"""Importing this lets pyserial know relay://#USBSerialPort0 and its like."""

import serial  # type: ignore[import]

if __name__ not in serial.protocol_handler_packages:
    serial.protocol_handler_packages.append(__name__)
