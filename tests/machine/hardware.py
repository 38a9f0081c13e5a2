# SPDX-License-Identifier: MIT
"""What the guest's drivers do to the hardware: QEMU's trace of UART registers and FTDI requests."""

from __future__ import annotations

import dataclasses
import re

from machine import Machine

EVENTS = ["serial_write", "usb_serial_handle_control", "usb_serial_set_flow_control"]

_UART = re.compile(r"serial_write write addr (0x\w+) val (0x\w+)")
_FTDI = re.compile(r"usb_serial_handle_control dev \S+ got control (0x\w+), value (0x\w+)")

_FLOW = re.compile(r"usb_serial_set_flow_control dev \S+ flow control (\d+)")

# Flow control of an FT232, in its request's index.
NO_FLOW, RTS_CTS, XON_XOFF = 0, 1, 4

# FTDI requests, as the trace names them.
MODEM, FLOW, BAUD, DATA = 0x4001, 0x4002, 0x4003, 0x4004


@dataclasses.dataclass
class Uart:
    """A 16550A's registers after a number of writes."""
    divisor: int = 0
    interrupts: int = 0
    line: int = 0
    modem: int = 0

    def write(self, register: int, value: int) -> None:
        latch = self.line & 0x80  # then the first two registers are the divisor's halves
        if register == 0 and latch:
            self.divisor = self.divisor & 0xFF00 | value
        elif register == 1 and latch:
            self.divisor = self.divisor & 0xFF | value << 8
        elif register == 1:
            self.interrupts = value
        elif register == 3:
            self.line = value
        elif register == 4:
            self.modem = value


class Trace:
    """Begins when it is made. Nothing else may use a UART meanwhile, so the console is silent."""

    def __init__(self, machine: Machine) -> None:
        self._file = machine.folder / "trace.log"
        machine.run("dmesg -n 1")
        for event in EVENTS:
            machine.qemu.ask("trace-event-set-state", name=event, enable=True)
        self.begin()

    def begin(self) -> None:
        """Forgets everything so far."""
        self._start = self._file.stat().st_size if self._file.exists() else 0

    def _text(self) -> str:
        with self._file.open() as lines:
            lines.seek(self._start)
            return lines.read()

    def _found(self, pattern: re.Pattern[str]) -> list[tuple[int, int]]:
        return [(int(a, 16), int(b, 16)) for a, b in pattern.findall(self._text())]

    def registers(self) -> list[tuple[int, int]]:
        """Register and value of each write to the UART."""
        return self._found(_UART)

    def requests(self) -> list[tuple[int, int]]:
        """Request and value of each control transfer to an adapter."""
        return self._found(_FTDI)

    def uart(self) -> Uart:
        uart = Uart()
        for register, value in self.registers():
            uart.write(register, value)
        return uart

    def ftdi(self) -> dict[int, int]:
        """The last value of each request. An open first repeats what was set before."""
        return dict(self.requests())

    def ftdi_flow(self) -> int:
        """The flow control that an adapter was last told to do."""
        return int(_FLOW.findall(self._text())[-1])
