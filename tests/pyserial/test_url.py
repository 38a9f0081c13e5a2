# SPDX-License-Identifier: MIT
"""relay:// URLs in pyserial."""

import select
import subprocess
import sys
import threading
import time

import serial  # type: ignore[import]
from with_url import WithUrl
from workplace import PATIENCE, USB, Device


class Port(WithUrl):
    def test_read_and_write(self) -> None:
        port = self.open()
        self.assertEqual((port.name, port.write(b"abc")), (self.url, 3))
        self.assertEqual(self.device.receives(3), b"abc")
        self.device.sends(b"line\nrest")
        self.assertEqual((port.readline(), port.read(4)), (b"line\n", b"rest"))
        self.assertEqual((port.in_waiting, port.inWaiting()), (0, 0))

    def test_a_timeout_is_one(self) -> None:
        port = self.open(timeout=0.2)
        self.device.sends(b"ab")
        select.select([port], [], [], PATIENCE)
        began = time.monotonic()
        self.assertEqual(port.read(3), b"ab")
        passed = time.monotonic() - began
        self.assertTrue(0.2 <= passed < PATIENCE / 4, passed)
        port.timeout = 0
        self.assertEqual(port.read(3), b"")

    def test_a_write_timeout_is_one(self) -> None:
        port = self.open(write_timeout=0.3)
        began = time.monotonic()
        with self.assertRaises(serial.SerialTimeoutException):
            port.write(bytes(1 << 20))  # nobody takes it from the line
        port.close()
        passed = time.monotonic() - began
        self.assertTrue(0.3 <= passed < PATIENCE / 2, passed)

    def test_writes_that_are_not_waited_for_keep_their_order(self) -> None:
        port = self.open(write_timeout=0)
        sent = bytes(range(251)) * 800
        for start in range(0, len(sent), 50000):  # more than is under way at a time
            port.write(sent[start : start + 50000])
        self.assertEqual(self.device.receives(len(sent)), sent)
        port.flush()

    def test_one_thread_reads_while_another_writes(self) -> None:
        port = self.open(timeout=None)
        came: list[bytes] = []
        reader = threading.Thread(target=lambda: came.append(port.read(3)))
        reader.start()
        port.write(b"abc")
        self.assertEqual(self.device.receives(3), b"abc")
        self.device.sends(b"def")
        reader.join()
        self.assertEqual(came, [b"def"])

    def test_two_ports_share_the_link(self) -> None:
        usb = Device("/dev/ttyUSB0")
        self.addCleanup(usb.remove)
        one, other = self.open(), self.open(USB)
        other.write(b"usb")
        self.assertEqual(usb.receives(3), b"usb")
        other.close()
        one.write(b"abc")
        self.assertEqual(self.device.receives(3), b"abc")

    def test_select(self) -> None:
        port = self.open()
        for data in (b"abc", b"def"):
            self.assertEqual(select.select([port], [], [], 0.0)[0], [])
            self.device.sends(data)
            self.assertEqual(select.select([port], [], [], PATIENCE)[0], [port])
            self.assertEqual(port.read(2), data[:2])
            self.assertEqual(select.select([port], [], [], 0.0)[0], [port])
            self.assertEqual(port.read(1), data[2:])

    def test_reset_input_buffer(self) -> None:
        port = self.open()
        self.device.sends(b"old")
        select.select([port], [], [], PATIENCE)
        port.reset_input_buffer()
        self.device.sends(b"new")
        self.assertEqual(port.read(3), b"new")

    def test_what_cannot_be(self) -> None:
        port = self.open(baudrate=12345, rtscts=True, dsrdtr=True, parity=serial.PARITY_EVEN)
        port.baudrate, port.dtr, port.rts, port.break_condition = 115200, False, True, False
        for line in ("cts", "dsr", "ri", "cd"):
            with self.assertRaisesRegex(serial.SerialException, "link has no modem lines"):
                getattr(port, line)
        for send in (port.send_break, lambda: setattr(port, "break_condition", True)):
            with self.assertRaisesRegex(serial.SerialException, "link has no break"):
                send()


class Errors(WithUrl):
    def refusal(self, url: str) -> str:
        with self.assertRaises(serial.SerialException) as caught:
            serial.serial_for_url(url)
        return str(caught.exception)

    def test_an_open_that_is_refused(self) -> None:
        self.open()
        self.assertIn("could not open port relay://?port=", self.refusal(self.url))
        self.assertIn("status 3: the port is open already", self.refusal(self.url))
        self.assertIn("status 4: the device is missing", self.refusal(self.url_of(USB)))
        self.assertIn("nothing listens on 127.0.0.1:1:", self.refusal("relay://?port=1#X"))

    def test_a_wrong_url(self) -> None:
        for url, problem in (
            ("relay://", "not of that form"),
            ("relay://USBSerialPort0", "not of that form"),
            ("relay:///x#USBSerialPort0", "not of that form"),
            ("relay://?prot=1#USBSerialPort0", "unknown option 'prot'"),
            ("relay://?port=70000#USBSerialPort0", "port not in range 1...65535"),
            ("relay://?port=x#USBSerialPort0", "invalid literal"),
        ):
            self.assertRegex(self.refusal(url), f"expected relay://#.*, not '.*': {problem}")

    def test_a_closed_port(self) -> None:
        port = self.open()
        port.close()
        port.close()
        for use in (port.read, lambda: port.write(b"x"), lambda: port.in_waiting, port.fileno):
            with self.assertRaises(serial.PortNotOpenError):
                use()
        port.open()
        port.write(b"abc")
        self.assertEqual(self.device.receives(3), b"abc")

    def test_the_link_ends(self) -> None:
        port = self.open()
        poll = select.poll()
        poll.register(port, select.POLLIN)
        self.service.kill()
        self.assertTrue(poll.poll(1000 * PATIENCE))
        for use in (port.read, lambda: port.write(b"x"), lambda: port.in_waiting):
            with self.assertRaises(serial.SerialException):
                use()
        self.service.start()
        self.service.wait_until_it_listens()
        port.close()
        port.open()
        port.write(b"abc")
        self.assertEqual(self.device.receives(3), b"abc")

    def test_a_port_of_the_link_before_stays_closed(self) -> None:
        usb = Device("/dev/ttyUSB0")
        self.addCleanup(usb.remove)
        one, other = self.open(), self.open(USB)
        self.service.kill()
        self.service.start()
        self.service.wait_until_it_listens()
        other.close()
        other.open()
        with self.assertRaisesRegex(serial.SerialException, "has ended since the port was opened"):
            one.read()
        other.write(b"usb")
        self.assertEqual(usb.receives(3), b"usb")

    def test_no_thread_is_left(self) -> None:
        before = threading.active_count()
        with self.open():
            self.assertEqual(threading.active_count(), before + 1)
        self.assertEqual(threading.active_count(), before)
        self.refusal(self.url_of(USB))
        self.assertEqual(threading.active_count(), before)

    def test_a_program_may_end_with_the_port_open(self) -> None:
        program = (
            "import serial, serial_port_relay.pyserial\n"
            f"port = serial.serial_for_url('{self.url}')\n"
            "port.write(b'abc')\n"
        )
        subprocess.run([sys.executable, "-B", "-c", program], check=True, timeout=PATIENCE)
        self.assertEqual(self.device.receives(3), b"abc")
