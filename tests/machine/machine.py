# SPDX-License-Identifier: MIT
"""The emulated PC: a UART, six places for adapters, a shell in it, and the service."""

from __future__ import annotations

import contextlib
import dataclasses
import pathlib
import re
import shlex
import socket
import tempfile
import time
from collections.abc import Callable, Iterator, Sequence

import guest
from line import Line
from qemu import Qemu, connect, deadline_passed
from relay import Relay

# Where an adapter is plugged in, by the number in #USBSerialPort0 to 5: QEMU's bus and port.
PLACES = [("uhci3.0", "1"), ("uhci3.0", "2"), ("uhci2.0", "2"), ("uhci1.0", "2"),
          ("uhci2.0", "1"), ("uhci1.0", "1")]
ADAPTERS = [f"usb{number}" for number in range(len(PLACES))]
UART = "ttyS2"

READY = "guest is ready"


@dataclasses.dataclass(frozen=True)
class Board:
    """The hardware: QEMU's program, its arguments, and the node of the guest's console."""
    program: str
    arguments: tuple[str, ...]
    console: str
    kernel_words: str = ""


def _devices(*devices: str) -> tuple[str, ...]:
    return tuple(word for device in devices for word in ("-device", device))


# An ICH9 machine. The UART that the service opens is the third one; the first is the console.
PC = Board("qemu-system-x86_64", (
    "-machine", "q35", "-cpu", "qemu64", "-m", "512",
    *_devices("isa-serial,chardev=console,index=0", f"isa-serial,id=com3,chardev={UART},index=2",
              "ich9-usb-uhci1,id=uhci1,addr=1d.0,multifunction=on",
              "ich9-usb-uhci2,id=uhci2,addr=1d.1,multifunction=on",
              "ich9-usb-uhci3,id=uhci3,addr=1d.2,multifunction=on",
              "ich9-usb-ehci1,id=ehci,addr=1d.7,multifunction=on")), "ttyS0")


def command_line(image: guest.Image, board: Board = PC, kernel_words: str = "") -> list[str]:
    """What a board is connected with: the console's file, the test's shell, a network, and a
    socket for each line."""
    words = (f"console={board.console} quiet loglevel=6 panic=-1 net.ifnames=0 "
             f"{board.kernel_words} {kernel_words}")
    command = [board.program, "-accel", "tcg", *board.arguments, "-smp", "1", "-nodefaults",
               "-display", "none", "-no-reboot", "-kernel", str(image.kernel),
               "-initrd", str(image.disk), "-append", words.strip(),
               "-D", "trace.log", "-msg", "timestamp=on",
               "-chardev", "file,id=console,path=console.log",
               "-netdev", "user,id=net,restrict=on",
               *_devices("virtio-serial-pci,id=vs", "virtserialport,bus=vs.0,chardev=ctl,name=ctl",
                         "virtio-net-pci,netdev=net,romfile=")]
    for name in ("ctl", UART, *ADAPTERS):
        command += ["-chardev", f"socket,id={name},path={name},server=on,wait=off"]
    return command


def settings(baud: str = "115200", data: str = "8", parity: str = "none", stop: str = "1",
             flow: str = "none") -> str:
    """A section of the service's configuration."""
    return f"baud={baud}\ndata={data}\nparity={parity}\nstop={stop}\nflow={flow}"


class Machine:
    """One run of the guest in a folder of its own."""

    def __init__(self, command: list[str], folder: pathlib.Path, stopped: bool = False) -> None:
        self.folder = folder
        self.qemu = Qemu(command, folder)
        self._lines: dict[str, Line] = {}
        self._relays: list[Relay] = []
        self._commands = 0
        self._relay_port = 0
        self._control: socket.socket | None = None
        try:
            self._control = connect(folder, "ctl")
            self._control.settimeout(1)
            if stopped:
                self.qemu.wait_status("paused")
                self.qemu.ask("cont")
            self._wait_for_shell()
        except BaseException:
            self.end()
            raise

    def _wait_for_shell(self, seconds: float = 120) -> None:
        began = time.monotonic()
        while True:
            try:
                self.run("true", seconds=2)
                return
            except TimeoutError:
                if deadline_passed(began, seconds):
                    console = (self.folder / "console.log").read_text(errors="replace")
                    raise TimeoutError("no shell in the guest; its console:\n" + console) from None

    def run(self, command: str, seconds: float = 60, check: bool = True) -> str:
        """Runs a shell command in the guest: what it wrote. A status other than 0 is an error."""
        assert self._control
        self._commands += 1
        mark = f"end-{self._commands}"
        line = f"{{ {command}\n}} </dev/null; status=$?; echo; echo {mark} $status\n"
        self._control.sendall(line.encode())
        answer = b""
        began = time.monotonic()
        while True:
            found = re.search(rf"(.*)\n{mark} (\d+)\n".encode(), answer, re.DOTALL)
            if found:
                break
            if deadline_passed(began, seconds):
                raise TimeoutError(f"{command!r} does not end; so far: {answer!r}")
            try:
                answer += self._control.recv(65536)
            except TimeoutError:
                pass
        text = re.sub(r"(?s)^.*end-\d+ \d+\n", "", found[1].decode(errors="replace"))
        if check and int(found[2]):
            raise RuntimeError(f"{command!r} gave {int(found[2])}: {text}")
        return text.removesuffix("\n")

    def shell(self, command: str) -> socket.socket:
        """Gives the guest's shell away, with a command for it. No test runs after that."""
        assert self._control
        self._control.settimeout(None)
        self._control.sendall(command.encode())
        return self._control

    def waits(self, condition: str, seconds: float = 60, pause: float = 0.1) -> None:
        """Until a shell command in the guest succeeds. It looks again after each pause."""
        tries = int(seconds / pause)
        self.run(f"n=0; until {{ {condition}; }} || [ $n -ge {tries} ]; do "
                 f"n=$((n+1)); sleep {pause}; done; [ $n -lt {tries} ]", seconds=seconds * 3)

    def save(self, state: pathlib.Path) -> None:
        """Stops the machine and writes its state to a file."""
        self.run("sync")
        self.qemu.ask("stop")
        self.qemu.ask("migrate", uri=f"exec:cat >{shlex.quote(str(state))}")
        self.qemu.wait_status("postmigrate")

    # --- adapters ---

    def plug(self, adapter: str, place: tuple[str, str] | None = None) -> None:
        """Plugs an adapter in: at its own place, that of #USBSerialPort0 for usb0, or another."""
        bus, port = place or PLACES[ADAPTERS.index(adapter)]
        self.line(adapter)
        self.qemu.ask("device_add", driver="usb-serial", id=adapter, bus=bus, port=port,
                      chardev=adapter, always_plugged=True)

    def plug_hub(self, place: tuple[str, str]) -> None:
        bus, port = place
        self.qemu.ask("device_add", driver="usb-hub", id="hub", bus=bus, port=port)

    def unplug(self, adapter: str) -> None:
        """The machine stands still for it, unnoticed: QEMU 7.2 may crash when an adapter goes
        at the moment when bytes come in."""
        self.qemu.ask("stop")
        self.qemu.ask("device_del", id=adapter)
        self.qemu.wait_event("DEVICE_DELETED", device=adapter)
        self.qemu.ask("cont")

    def waits_for_address(self, adapter: str) -> None:
        """Until the guest has given the adapter one. It is then done with whatever was there before."""
        found = re.compile(rf"Device \d+\.[1-9]\d*, .*, ID: {adapter}\r?$", re.MULTILINE)
        began = time.monotonic()
        while not found.search(self.qemu.tell("info usb")):
            if deadline_passed(began, 60):
                raise TimeoutError(f"{adapter} has no address:\n{self.qemu.tell('info usb')}")
            time.sleep(0.05)

    def node_of(self, adapter: str) -> str:
        """The node of an adapter at its own place."""
        bus, port = PLACES[ADAPTERS.index(adapter)]
        number = int(bus.removeprefix("uhci").removesuffix(".0"))
        tty = (f"/sys/devices/pci0000:00/0000:00:1d.{number - 1}/usb{number + 1}/"
               f"{number + 1}-{port}/*/ttyUSB*")
        return "/dev/" + self.run(f"basename {tty}")

    def waits_for_nodes(self, count: int) -> None:
        self.waits(f"[ $(ls /dev | grep -c ttyUSB) -eq {count} ]")
        self.waits("udevadm settle")  # udevd hangs up on it now and then

    def plug_all(self, adapters: Sequence[str] = ADAPTERS) -> None:
        """One after the other, in this order."""
        for adapter in adapters:
            self.plug(adapter)
        self.waits_for_nodes(len(adapters))

    def takes_rules(self, path: str, rules: str, sign: str = "true") -> None:
        """Gives udev rules for the terminals that are there and those to come. They may not count
        for the first event after it has read them: until then `sign`, a shell command, fails."""
        self.run(f"cat >{path} <<'END'\n{rules}END\nudevadm control --reload")
        self.waits(f"udevadm trigger --action=add --subsystem-match=tty --settle; {sign}")

    def line(self, name: str) -> Line:
        """The far end of an adapter, or of the UART."""
        if name not in self._lines:
            self._lines[name] = Line(name, connect(self.folder, name))
        return self._lines[name]

    # --- the service ---

    def start_service(self, ports: dict[str, str] | None = None, prefix: str = "") -> None:
        """Under its supervisor, a shell loop. `ports`: the lines of a section for each name."""
        names = [f"#USBSerialPort{n}" for n in range(len(PLACES))] + ["#PhysicalPort0"]
        self.configure({name: settings() for name in names} | (ports or {}))
        self.run(f"PREFIX='{prefix}' setsid supervise >/dev/null 2>&1 &")
        self.waits_for_listen(1)

    def configure(self, ports: dict[str, str]) -> None:
        text = "".join(f"[{name}]\n{lines}\n" for name, lines in ports.items())
        self.run(f"cat >/etc/vost.conf <<'END'\n{text}END")

    def waits_for_listen(self, times: int) -> None:
        self.waits(f"[ $(grep -c LISTEN /run/service.out) -ge {times} ]")

    def service_out(self, word: str) -> list[str]:
        """What follows the word in each line of the service's output that begins with it."""
        lines = self.run("cat /run/service.out").splitlines()
        return [line.removeprefix(word) for line in lines if line.startswith(word)]

    def relay_port(self) -> int:
        """The port of this computer that leads to the service's relay port."""
        self._relay_port = self._relay_port or self.qemu.forward(7004)
        return self._relay_port

    def relay(self) -> Relay:
        """A relay service that the service has accepted."""
        before = int(self.run("grep -c ACCEPT /run/service.out || true") or 0)
        relay = Relay(self.relay_port())
        self._relays.append(relay)
        self.waits(f"[ $(grep -c ACCEPT /run/service.out) -gt {before} ]")
        return relay

    def end(self) -> None:
        for line in self._lines.values():
            line.close()
        for relay in self._relays:
            relay.close()
        if self._control:
            self._control.close()
        self.qemu.end()


@contextlib.contextmanager
def running(command: list[str], scratch: pathlib.Path, stopped: bool = False) -> Iterator[Machine]:
    """A machine in a folder of its own, which goes with it."""
    with tempfile.TemporaryDirectory(prefix="machine-", dir=scratch) as folder:
        machine = Machine(command, pathlib.Path(folder), stopped)
        try:
            yield machine
        finally:
            machine.end()


@dataclasses.dataclass(frozen=True)
class Saved:
    """QEMU's command for a machine, and the state of one that has been booted."""
    command: list[str]
    state: pathlib.Path

    def restored(self, scratch: pathlib.Path) -> contextlib.AbstractContextManager[Machine]:
        """A machine that goes on from there."""
        incoming = ["-incoming", f"exec:cat {shlex.quote(str(self.state))}"]
        return running(self.command + incoming, scratch, stopped=True)


def saved(make: Callable[[pathlib.Path], list[str]], scratch: pathlib.Path,
          is_up: str = "true") -> Saved:
    """Boots what `make` makes in a folder, until a shell command in the guest succeeds."""
    folder = pathlib.Path(tempfile.mkdtemp(prefix="saved-", dir=scratch))
    made = Saved(make(folder), folder / "state")
    with running(made.command, scratch) as machine:
        machine.waits(is_up)
        machine.save(made.state)
    return made
