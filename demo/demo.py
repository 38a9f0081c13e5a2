# SPDX-License-Identifier: MIT
"""Shows the service at work without hardware, and checks every answer.

usage: python3 demo/demo.py SERVICE
"""

import signal

signal.signal(signal.SIGINT, signal.SIG_DFL)  # there is nothing to clear up yet

import os
import sys
import tempfile
from collections.abc import Callable
from contextlib import ExitStack
from pathlib import Path
from types import FrameType

from bench import (
    DUMP_FILE,
    Adapter,
    BenchError,
    Service,
    check_dump_file,
    end,
    free_port,
    the_only_demonstration,
)
from relay import (
    Notification,
    Packet,
    ProtocolError,
    Relay,
    Reply,
    close_command,
    data_command,
    in_words,
    open_command,
)

PORT = "#USBSerialPort0"
PATIENCE = 10.0  # seconds; nothing here takes longer than three
INTERRUPTS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)

# What is written to the calculator, block by block, and what must come back.
QUESTIONS: list[tuple[tuple[bytes, ...], bytes]] = [
    ((b"6*7\n",), b"42\n"),
    ((b"2^", b"64\n"), b"18446744073709551616\n"),
    ((b"scale=15; 4*a(1)\n",), b"3.141592653589792\n"),
]

CONFIGURATION = """\
[connect]
port = {port}

[{name}]
baud = 115200
data = 8
parity = none
stop = 1
flow = none
"""

# Parts of lines that the log must have.
LOG_TEXTS = [
    "Serial Port Handler start running.",
    "open command proc.",
    "data command proc.",
    "close command proc.",
    "request stop.",
    "Serial Port Handler stop.",
]


def tell(text: str) -> None:
    print(text, flush=True)


def heading(text: str) -> None:
    tell(f"\n== {text}")


def show(direction: str, packet: Packet) -> None:
    tell(f"{direction}  {packet.words}\n            {packet.hex()}")


def expect(what: str, wanted: object, got: object) -> None:
    if wanted != got:
        raise BenchError(f"{what}: expected {wanted!r}, got {got!r}")


def ask(relay: Relay, command: Packet) -> None:
    """Sends an open or a close, which must succeed."""
    show("to service", command)
    relay.send(command)
    packet = relay.receive()
    show("from it   ", packet)
    status = packet.status if isinstance(packet, Reply) else None
    expect("the reply", (command.command, PORT, 0), (packet.command, packet.port, status))


def calculate(relay: Relay, blocks: tuple[bytes, ...], answer: bytes) -> None:
    """Writes the blocks; the notifications together must be the answer."""
    command = data_command(PORT, *blocks)
    show("to service", command)
    relay.send(command)
    received = b""
    while len(received) < len(answer):
        packet = relay.receive()
        show("from it   ", packet)
        if not isinstance(packet, Notification) or packet.port != PORT:
            raise BenchError(f"expected bytes from {PORT}, got: {packet.words}")
        received += packet.data
    expect("the device's answer", in_words(answer), in_words(received))


def check_service(service: Service, status: int, node: str) -> None:
    output, error = service.console["standard output"], service.console["standard error"]
    expect("the exit status", 0, status)
    expect("the last line on standard error", "終了", error[-1] if error else None)
    for line in ("[ACCEPT]IP:127.0.0.1", f"OPEN[{node}]"):
        expect(f"standard output has {line}", True, line in output)
    log = "\n".join(service.log_lines())
    for text in LOG_TEXTS:
        expect(f'the log has "{text}"', True, text in log)
    expect(f"{DUMP_FILE} is removed", False, DUMP_FILE.exists())


def show_service(service: Service) -> None:
    """Once it has ended."""
    for name, lines in service.console.items():
        heading(f"What the service wrote to {name}")
        tell("\n".join(lines))
    heading("The service's log")
    tell("\n".join(service.log_lines()))
    heading("Its end")
    exit_text = service.console["standard error"][-1:] or ["none"]
    tell(f"exit text: {exit_text[0]}\nexit status: {service.process.returncode}")


def converse(relay: Relay) -> None:
    ask(relay, open_command(PORT))
    for blocks, answer in QUESTIONS:
        calculate(relay, blocks, answer)
    ask(relay, close_command(PORT))


def use_service(service: Service, port: int, at_end: Callable[..., object]) -> int:
    """From its start to its end: the exit status."""
    listening = f"[LISTEN]IP:127.0.0.1(PORT:{port})"
    service.wait_for_output(listening, PATIENCE)
    tell(f"process {service.process.pid}: {listening}")

    heading("The relay's conversation with it")
    relay = Relay(port, PATIENCE)
    at_end(relay.close)
    converse(relay)

    heading("Stopping the service with SIGTERM (takes about two seconds)")
    return service.stop(PATIENCE)


def demonstrate(program: Path, folder: Path, at_end: Callable[..., object]) -> None:
    heading("A virtual adapter: a calculator (bc) behind a pseudo-terminal")
    adapter = Adapter(folder, at_end)
    node = adapter.node(PATIENCE)
    tell(f"{PORT} is {node}")

    heading("The service")
    port = free_port()
    service = Service(program, folder, CONFIGURATION.format(port=port, name=PORT), node)
    at_end(end, service.process)
    try:
        status = use_service(service, port, at_end)
    except (BenchError, ProtocolError):
        end(service.process)
        service.finish_reading(PATIENCE)
        show_service(service)
        raise
    show_service(service)
    check_service(service, status, node)


def run(program: Path) -> None:
    with ExitStack() as outer:
        outer.enter_context(the_only_demonstration(tell))
        check_dump_file()
        folder = outer.enter_context(
            tempfile.TemporaryDirectory(prefix="demo-", dir=program.parent.parent)
        )
        with ExitStack() as inner:
            try:
                demonstrate(program, Path(folder), inner.callback)
            finally:
                for number in INTERRUPTS:  # clearing up is not interrupted in its turn
                    signal.signal(number, signal.SIG_IGN)


class Interrupted(Exception):
    """Somebody wants the demonstration to end; the argument is the signal's number."""


def interrupt(number: int, _frame: FrameType | None) -> None:
    raise Interrupted(number)


def main(program: Path) -> int:
    for number in INTERRUPTS:
        signal.signal(number, interrupt)
    try:
        run(program)
        tell("\nEvery step did what it should.")
        return 0
    except Interrupted as interrupted:
        print("\nInterrupted.", file=sys.stderr)
        return 128 + int(interrupted.args[0])
    except BrokenPipeError:  # nobody reads: neither what was shown nor what went wrong
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 1
    except (BenchError, ProtocolError, OSError) as error:
        print(f"\nThe demonstration failed: {error}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: python3 demo/demo.py SERVICE")
    sys.exit(main(Path(sys.argv[1]).resolve()))
