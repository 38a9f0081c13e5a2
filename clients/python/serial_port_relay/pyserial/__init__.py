# SPDX-License-Identifier: MIT
"""Importing this lets pyserial know relay://#USBSerialPort0 and its like."""

try:
    import serial  # type: ignore[import]
except ImportError as error:
    raise ImportError("serial_port_relay.pyserial needs pyserial (Debian: python3-serial)") from error

if __name__ not in serial.protocol_handler_packages:
    serial.protocol_handler_packages.append(__name__)
