# SPDX-License-Identifier: MIT
"""A shell in the machine for a person: six adapters plugged in, the service running, and a
loop-back plug on each line."""

from __future__ import annotations

import os
import pathlib
import select
import socket
import subprocess
import sys
import tempfile
import termios
import tty

import guest
import packages
from machine import ADAPTERS, UART, command_line, running

# A terminal in the guest for an interactive shell. When that ends the machine ends, too.
SHELL = "socat - EXEC:'sh -i',pty,setsid,ctty,stderr,sane; poweroff -f\n"

WELCOME = """
The machine runs. Its files, with a socket for QEMU's monitor ("qmp"), are in
  {folder}
The service's relay port is {port} of this computer; for example:
  build/release/bin/relayctl --port {port} terminal '#USBSerialPort0'
Each line has a loop-back plug. In the guest: /etc/vost.conf is the configuration, /run/service.*
what the service says. "exit" ends the machine.
"""


def talk(peer: socket.socket) -> None:
    """Between the person's terminal and the guest, until one of the two ends."""
    while True:
        ready, _, _ = select.select([sys.stdin, peer], [], [])
        if peer in ready:
            data = peer.recv(4096)
            if not data:
                return
            os.write(sys.stdout.fileno(), data)
        if sys.stdin in ready:
            data = os.read(sys.stdin.fileno(), 4096)
            if not data:
                return
            peer.sendall(data)


def at_the_terminal(peer: socket.socket) -> None:
    prompt = b""
    while b"# " not in prompt:  # what is typed before it would be lost
        prompt += peer.recv(4096)
    os.write(sys.stdout.fileno(), prompt.lstrip())
    if not sys.stdin.isatty():
        talk(peer)
        return
    before = termios.tcgetattr(sys.stdin)
    tty.setraw(sys.stdin)
    try:
        talk(peer)
    finally:
        termios.tcsetattr(sys.stdin, termios.TCSADRAIN, before)


def main() -> None:
    packages.CACHE.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(prefix=f"run-{os.getpid()}-", dir=packages.CACHE) as name:
        folder = pathlib.Path(name)
        kind = guest.Kind("amd64", "linux-image-amd64", packages.ROOT / "build" / "release")
        print("Booting…", flush=True)
        with running(command_line(guest.image(kind, folder)), folder) as machine:
            machine.plug_all()
            machine.start_service()
            for line in (*ADAPTERS, UART):
                machine.line(line).loops_back()
            print(WELCOME.format(folder=machine.folder, port=machine.relay_port()), flush=True)
            at_the_terminal(machine.shell(SHELL))


if __name__ == "__main__":
    try:
        main()
    except (KeyboardInterrupt, subprocess.CalledProcessError) as error:
        sys.exit(str(error) or 130)
