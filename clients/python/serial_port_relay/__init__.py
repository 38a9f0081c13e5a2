# SPDX-License-Identifier: MIT
"""The relay service's side of SerialPortHandler's link, for test benches and tools."""

from .client import DEFAULT_PORT, Client
from .errors import (
    LinkEnded,
    MalformedPacket,
    NoAnswer,
    NonsenseError,
    NotListening,
    Refused,
    RelayError,
    UsageError,
)
from .packet import (
    Block,
    Direction,
    Packet,
    PacketCutter,
    Port,
    build_packet,
    close_command,
    data_command,
    open_command,
    parse_packet,
    status_text,
)
from .serial_port import SerialPort
from .told import Change, Event, Received

__all__ = [
    "DEFAULT_PORT",
    "Block",
    "Change",
    "Client",
    "Direction",
    "Event",
    "LinkEnded",
    "MalformedPacket",
    "NoAnswer",
    "NonsenseError",
    "NotListening",
    "Packet",
    "PacketCutter",
    "Port",
    "Received",
    "Refused",
    "RelayError",
    "SerialPort",
    "UsageError",
    "build_packet",
    "close_command",
    "data_command",
    "open_command",
    "parse_packet",
    "status_text",
]
