# SPDX-License-Identifier: MIT
"""The bridges that are measured, and the files they need."""

from __future__ import annotations

import dataclasses
import json
import os
import pathlib
import re
import subprocess

SCRATCH = pathlib.Path("/tmp/bench")  # in the sandbox's own /tmp, which is kept in memory
FIRST_TCP_PORT = 60004
DEADLINE_SECONDS = 90
SEVEN_PORTS = 7  # the one on board, and six of USB

# Where the service looks for the adapter of each USB port.
CHECKOUT = pathlib.Path(__file__).resolve().parents[2]
PLACES = re.findall(r'"(/devices/.+)"', (CHECKOUT / "src/serial/UsbPlaces.h").read_text())


@dataclasses.dataclass(frozen=True)
class Programs:
    """Where the programs are."""

    folder: pathlib.Path  # the benchmark's own
    service: pathlib.Path


@dataclasses.dataclass(frozen=True)
class Contestant:
    """One bridge: its name in the results, the client's options, its command line, in which rounds
    it takes part and what of it is measured."""

    name: str
    options: tuple[str, ...]
    command: tuple[str, ...]
    every: int = 1
    measure: str = "all"

    def client_words(self, programs: Programs, ports: int, extra: tuple[str, ...],
                     tracer: tuple[str, ...] = ()) -> list[str]:
        """The command line that measures it; `tracer` stands before the bridge's own."""
        command = tuple(
            word.format(programs=programs.folder, service=programs.service,
                        config=ser2net_file(ports), device="{device}", port="{port}", all="{all}")
            for word in self.command)
        return [str(programs.folder / "bridge-client"), *self.options, "--ports", str(ports),
                *extra, "--", *tracer, *command]

    def figures(self, programs: Programs, ports: int, extra: tuple[str, ...],
                tracer: tuple[str, ...] = ()) -> dict[str, float]:
        """What one run of the client over it finds."""
        words = self.client_words(programs, ports, extra, tracer)
        done = subprocess.run(words, stdout=subprocess.PIPE, text=True, timeout=DEADLINE_SECONDS)
        if done.returncode != 0:
            raise SystemExit(f"bench: {' '.join(words)} failed ({done.returncode})")
        return dict(json.loads(done.stdout))


_TO_FILE = ("--errors", str(SCRATCH / "dump"))
_FLOOR = ("{programs}/floor", str(SCRATCH / "log"))

FLOOR = Contestant("floor", ("--packets",), _FLOOR)
SERVICE = Contestant("service", ("--packets",), ("{service}",))

# Neighbours are compared in each round.
CONTESTANTS = (
    FLOOR,
    SERVICE,
    Contestant("limit", (), ("{programs}/limit", "{all}"), every=4),
    Contestant("socat", ("--each",),
               ("socat", "TCP-LISTEN:{port},bind=127.0.0.1,reuseaddr,nodelay",
                "FILE:{device},rawer"), every=2),
    Contestant("ser2net", (), ("ser2net", "-n", "-c", "{config}"), every=2),
    Contestant("floor-file", ("--packets", *_TO_FILE), _FLOOR, measure="messages"),
    Contestant("service-file", ("--packets", *_TO_FILE), ("{service}",), measure="messages"),
)


def ser2net_file(ports: int) -> str:
    """The configuration of ser2net for so many ports."""
    return str(SCRATCH / f"ser2net-{ports}.yaml")


def _ser2net_text(devices: list[str]) -> str:
    return "".join(
        f"connection: &port{index}\n"
        f"  accepter: tcp(nodelay=true,readbuf=4096),127.0.0.1,{FIRST_TCP_PORT + index}\n"
        f"  connector: serialdev(nouucplock=true,readbuf=4096),{device},115200n81,local\n"
        "  options:\n"
        "    chardelay: false\n" for index, device in enumerate(devices))


def six_adapters() -> str:
    """A small udev database in which the adapter of USB port N is ttyUSBN."""
    ids = ("E: ID_BUS=usb\nE: ID_MODEL=USB_SERIAL\nE: ID_MODEL_ID=6001\nE: ID_VENDOR=MAKER\n"
           "E: ID_VENDOR_ID=0403\n\n")
    return "".join(
        f"P: {place}/{place[-3:]}:1.0/ttyUSB{index}/tty/ttyUSB{index}\n"
        f"N: ttyUSB{index}\nE: DEVNAME=/dev/ttyUSB{index}\n{ids}"
        for index, place in enumerate(PLACES))


def large_database(times: int = 1) -> str:
    """The same behind the devices of a usual machine, 74 kB, or of so many."""
    others = "".join(
        f"P: /devices/virtual/tty/tty{index}\nM: tty{index}\nR: {index}\nU: tty\nD: c 4:{index}\n"
        f"N: tty{index}\nL: 0\nE: DEVPATH=/devices/virtual/tty/tty{index}\nE: SUBSYSTEM=tty\n"
        f"E: DEVNAME=/dev/tty{index}\nE: MAJOR=4\nE: MINOR={index}\n"
        "E: USEC_INITIALIZED=13059229\nE: TAGS=:systemd:\nE: CURRENT_TAGS=:systemd:\n\n"
        for index in range(286))
    return others * times + six_adapters()


def use_database(path: pathlib.Path) -> None:
    """From now on udevadm prints the text of that file."""
    tool = SCRATCH / "bin" / "udevadm"
    tool.write_text(f"#!/bin/sh\nexec cat {path}\n")
    tool.chmod(0o755)


def prepare() -> None:
    """Writes every file, and sets the environment that the service is started with."""
    (SCRATCH / "bin").mkdir(parents=True)
    names = ["#PhysicalPort0", *(f"#USBSerialPort{index}" for index in range(len(PLACES)))]
    (SCRATCH / "vost.conf").write_text("".join(
        f"[{name}]\nbaud = 115200\ndata = 8\nparity = none\nstop = 1\nflow = none\n"
        for name in names))
    devices = ["/dev/ttyS2", *(f"/dev/ttyUSB{index}" for index in range(len(PLACES)))]
    for ports in (1, SEVEN_PORTS):
        pathlib.Path(ser2net_file(ports)).write_text(_ser2net_text(devices[:ports]))
    (SCRATCH / "six-adapters").write_text(six_adapters())
    (SCRATCH / "large").write_text(large_database())
    use_database(SCRATCH / "six-adapters")
    os.environ["VOST_CONFIG"] = str(SCRATCH / "vost.conf")
    os.environ["KXLOGGER_FILE"] = str(SCRATCH / "log")
    os.environ["PATH"] = f"{SCRATCH}/bin:{os.environ['PATH']}"
