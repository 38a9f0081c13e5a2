# SPDX-License-Identifier: MIT
"""Line settings as the hardware sees them: the UART's registers, the requests to an adapter."""

from __future__ import annotations

import contextlib
from collections.abc import Iterator

import pytest

import hardware
from hardware import Trace
from machine import Machine, settings
from relay import Relay

UART_PORT, USB_PORT = "#PhysicalPort0", "#USBSerialPort0"

# Rate, the UART's divisor of 115200, and the FTDI chip's of 3 MHz: 14 bits, and above them a code
# for the eighths. Below 183 bit/s an FTDI divisor does not fit: the driver sends what is left of
# it, and the line has another rate.
RATES = [(50, 2304, 0xEA60), (75, 1536, 0x9C40), (110, 1047, 0xEA88), (134, 860, 0x5774),
         (150, 768, 0x4E20), (200, 576, 0x3A98), (300, 384, 0x2710), (600, 192, 0x1388),
         (1200, 96, 0x09C4), (1800, 64, 0x4682), (2400, 48, 0x04E2), (4800, 24, 0x0271),
         (9600, 12, 0x4138), (19200, 6, 0x809C), (38400, 3, 0xC04E), (57600, 2, 0xC034),
         (115200, 1, 0x001A)]
WORDS = ("2400", "4800", "9600", "19200", "38400", "57600", "115200")

# Data bits, parity, stop bits, the UART's line control register, the FTDI data request.
FRAMES = [("8", "none", "1", 0x03, 0x0008), ("7", "none", "1", 0x02, 0x0007),
          ("8", "odd", "1", 0x0B, 0x0108), ("8", "even", "1", 0x1B, 0x0208),
          ("8", "mark", "1", 0x2B, 0x0308), ("8", "space", "1", 0x3B, 0x0408),
          ("8", "none", "1.5", 0x03, 0x0008), ("8", "none", "2", 0x07, 0x1008),
          ("7", "even", "1", 0x1A, 0x0207), ("8", "odd", "2", 0x0F, 0x1108),
          ("7", "mark", "2", 0x2E, 0x1307)]
# In the line control register. Without PARITY the others mean nothing, and keep what they were.
PARITY, EVEN_OR_STICK = 0x08, 0x30


@pytest.fixture
def relay(machine: Machine) -> Relay:
    machine.plug("usb0")
    machine.waits_for_nodes(1)
    machine.start_service()
    return machine.relay()


@pytest.fixture
def seen(relay: Relay, machine: Machine) -> Trace:
    return Trace(machine)


@contextlib.contextmanager
def opened(relay: Relay, machine: Machine, seen: Trace, port: str, **words: str) -> Iterator[None]:
    """While the port is open with these words in its configuration, and at 115200 8N1 without."""
    machine.configure({port: settings(**words)})
    seen.begin()
    relay.opens(port)
    yield
    relay.closes(port)


def test_every_baud_word_on_the_uart(machine: Machine, relay: Relay, seen: Trace) -> None:
    divisors = {str(rate): divisor for rate, divisor, _ in RATES}
    for word in WORDS:
        with opened(relay, machine, seen, UART_PORT, baud=word):
            assert seen.uart().divisor == divisors[word], word


def test_every_baud_word_on_an_adapter(machine: Machine, relay: Relay, seen: Trace) -> None:
    divisors = {str(rate): divisor for rate, _, divisor in RATES}
    for word in WORDS:
        with opened(relay, machine, seen, USB_PORT, baud=word):
            assert seen.ftdi()[hardware.BAUD] == divisors[word], word


def test_an_unknown_baud_word_hangs_up_the_uart(
        machine: Machine, relay: Relay, seen: Trace) -> None:
    with opened(relay, machine, seen, UART_PORT, baud="110"):
        assert seen.uart().divisor == 12
        assert seen.uart().modem == 0x08  # neither DTR nor RTS


def test_an_unknown_baud_word_hangs_up_an_adapter(
        machine: Machine, relay: Relay, seen: Trace) -> None:
    with opened(relay, machine, seen, USB_PORT, baud="110"):
        assert seen.ftdi()[hardware.MODEM] == 0x0300  # neither DTR nor RTS


def test_every_rate_of_the_driver_on_the_uart(machine: Machine, seen: Trace) -> None:
    for rate, divisor, _ in RATES:
        seen.begin()
        machine.run(f"/opt/service/bin/open_line /dev/ttyS2 {rate}")
        assert seen.uart().divisor == divisor, rate


def test_230400_is_out_of_the_uarts_reach_and_becomes_9600(machine: Machine, seen: Trace) -> None:
    machine.run("/opt/service/bin/open_line /dev/ttyS2 230400")
    assert seen.uart().divisor == 12


def test_every_rate_of_the_driver_on_an_adapter(machine: Machine, seen: Trace) -> None:
    for rate, _, divisor in [*RATES, (230400, 0, 0x000D)]:
        seen.begin()
        machine.run(f"/opt/service/bin/open_line /dev/ttyUSB0 {rate}")
        assert seen.ftdi()[hardware.BAUD] == divisor, rate


def test_data_bits_parity_and_stop_bits_on_the_uart(
        machine: Machine, relay: Relay, seen: Trace) -> None:
    for data, parity, stop, expected, _ in FRAMES:
        with opened(relay, machine, seen, UART_PORT, data=data, parity=parity, stop=stop):
            found = seen.uart().line
            found &= ~0 if found & PARITY else ~EVEN_OR_STICK
            assert found == expected, (data, parity, stop)


def test_data_bits_parity_and_stop_bits_on_an_adapter(
        machine: Machine, relay: Relay, seen: Trace) -> None:
    for data, parity, stop, _, expected in FRAMES:
        with opened(relay, machine, seen, USB_PORT, data=data, parity=parity, stop=stop):
            assert seen.ftdi()[hardware.DATA] == expected, (data, parity, stop)


def test_flow_control_on_the_uart(machine: Machine, relay: Relay, seen: Trace) -> None:
    # With RTS/CTS the driver wants to hear of changes of the modem lines.
    for word, interrupts in (("none", 0x05), ("hardware", 0x0D), ("XOnXOff", 0x05)):
        with opened(relay, machine, seen, UART_PORT, flow=word):
            assert seen.uart().interrupts == interrupts, word


def test_xoff_from_the_far_end_stops_the_uart_until_xon(
        machine: Machine, relay: Relay, seen: Trace) -> None:
    line = machine.line("ttyS2")
    with opened(relay, machine, seen, UART_PORT, flow="XOnXOff"):
        line.sends(b"\x13" + b"after XOFF")
        relay.expects(UART_PORT, b"after XOFF")  # so XOFF has come, too, and is no data
        relay.writes(UART_PORT, b"waits for XON")
        machine.waits("[ $(grep -c 'data command' /run/service.log) -eq 1 ]")
        assert line.takes(1, 0) == b""
        line.sends(b"\x11")
        line.expects(b"waits for XON")


def test_flow_control_on_an_adapter(machine: Machine, relay: Relay, seen: Trace) -> None:
    for word, characters, flow in (("none", 0, hardware.NO_FLOW),
                                   ("hardware", 0, hardware.RTS_CTS),
                                   ("XOnXOff", 0x1311, hardware.XON_XOFF)):
        with opened(relay, machine, seen, USB_PORT, flow=word):
            assert seen.ftdi()[hardware.FLOW] == characters, word
            assert seen.ftdi_flow() == flow, word


def test_dtr_of_the_uart_is_dropped_before_the_close(
        machine: Machine, relay: Relay, seen: Trace) -> None:
    relay.opens(UART_PORT)
    assert seen.uart().modem == 0x0B
    seen.begin()
    relay.closes(UART_PORT)
    assert [value for register, value in seen.registers() if register == 4] == [0x0A, 0x08, 0x00]


def test_dtr_of_an_adapter_is_dropped_before_the_close(
        machine: Machine, relay: Relay, seen: Trace) -> None:
    relay.opens(USB_PORT)
    assert seen.ftdi()[hardware.MODEM] == 0x0303
    seen.begin()
    relay.closes(USB_PORT)
    assert [value for request, value in seen.requests() if request == hardware.MODEM] == [
        0x0100, 0x0300]
