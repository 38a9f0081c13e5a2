# SPDX-License-Identifier: MIT
"""Shows the service and relayctl at work without hardware, and checks everything they print.

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
from session import Session

PORT = "#USBSerialPort0"
PATIENCE = 10.0  # seconds; nothing here takes longer than three
INTERRUPTS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)

NAME = "2355534253657269616C506F727430"  # of the port, as hex

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


def expect(what: str, wanted: object, got: object) -> None:
    if wanted != got:
        raise BenchError(f"{what}: expected {wanted!r}, got {got!r}")


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


class Story:
    """What a person would type, with relayctl in the place of the relay service."""

    def __init__(self, session: Session, service: Service, adapter: Adapter, port: int) -> None:
        self.session = session
        self.service = service
        self.adapter = adapter
        self.port = port
        self.relayctl = f"relayctl --port {port}"
        self.links = 0

    def wait_for_service(self) -> None:
        """The service tells each time that it waits for a relay service."""
        self.links += 1
        listening = f"[LISTEN]IP:127.0.0.1(PORT:{self.port})"
        self.service.wait_for_output(listening, PATIENCE, self.links)

    def run(self, command: str, wanted: str) -> None:
        self.wait_for_service()
        self.session.run(command, wanted)

    def calculate(self) -> None:
        heading("Opening, writing, reading")
        self.run(f"{self.relayctl} open '{PORT}'", f"{PORT}: open\n")
        self.run(f"{self.relayctl} write '{PORT}' '6*7\\n'", f"{PORT}: 4 bytes taken by the service\n")
        self.run(
            "printf 'scale=15\\n4*a(1)\\n2^64\\n' | "
            f"{self.relayctl} pipe '{PORT}' --exit-after 10 --until '616\\n'",
            "3.141592653589792\n18446744073709551616\n",
        )

    def watch(self) -> None:
        heading("Watching, while somebody types 6*7 and 2^64 at the device itself")
        self.wait_for_service()
        watch = self.session.begin(f"{self.relayctl} watch '{PORT}'")
        watch.prints(f"{PORT}: open\n")
        self.adapter.type("6*7\n")
        watch.prints("34 32 0A ")
        self.adapter.type("2^64\n")
        watch.prints("31 36 0A ")
        time = r" +[0-9]+\.[0-9]{6} "
        watch.finish(
            f"{time}! linked to 127.0.0.1:{self.port}\n"
            f"{time}! {PORT}: open\n"
            f"{time}< {PORT}  34 32 0A +42\\.\n"
            f"{time}< {PORT}  31 38 34 34 36 37 34 34 30 37 33 37 30 39 35 35  1844674407370955\n"
            f" +< {PORT}  31 36 31 36 0A +1616\\.\n"
            f"= {PORT}: 24 bytes in 2 messages, .*, opened 1 times, longest silence .*\n",
            interrupt=True,
        )

    def record(self) -> None:
        heading("A recorder between a relay service and the service")
        self.wait_for_service()
        tap = free_port()
        recorder = self.session.begin(f"{self.relayctl} record --output session.txt --listen {tap} &")
        recorder.prints(f"waiting for a relay service on 127.0.0.1:{tap}\n")
        self.session.run(f"echo '2^10' | relayctl --port {tap} pipe '{PORT}'", "1024\n")
        recorder.prints("the relay service left\n")
        recorder.finish("(relayctl: .*\n)+relayctl: [0-9]+ packets recorded.*\n", interrupt=True)
        line = r"[0-9]+\.[0-9]{6} "
        self.session.run(
            "cat session.txt",
            f"; relay recording 1, begun .*\n{line}! link up\n{line}> {PORT} open\n"
            f"{line}< {PORT} open 0\n(.*\n)*{line}! link down\n",
        )
        self.run(
            f"{self.relayctl} replay session.txt",
            "[0-9]+ packets sent, [0-9]+ came as recorded, no difference\n",
        )

    def decode(self) -> None:
        heading("Bytes as they are on the wire: an open and a close")
        self.run(
            f"{self.relayctl} raw --fields 0015 01 02 000F {NAME}  0015 02 02 000F {NAME}",
            f"< reply to open {PORT}: status 0, open\n(    .*\n)+"
            f"< reply to close {PORT}: status 0, closed\n(    .*\n)+",
        )

    def stop(self) -> int:
        heading("Stopping the service with SIGTERM, while a port is held open")
        self.wait_for_service()
        holder = self.session.begin(f"{self.relayctl} open '{PORT}' --hold &")
        holder.prints(f"{PORT}: open\n")
        tell("(takes about two seconds)")
        status = self.service.stop(PATIENCE)
        holder.finish(f"{PORT}: open\nrelayctl: .* ended the link\n", status=5)
        return status


def use_service(story: Story) -> int:
    """From its start to its end: the exit status."""
    listening = f"[LISTEN]IP:127.0.0.1(PORT:{story.port})"
    story.service.wait_for_output(listening, PATIENCE)
    tell(f"process {story.service.process.pid}: {listening}")
    story.calculate()
    story.watch()
    story.record()
    story.decode()
    return story.stop()


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
        session = Session(folder, program.parent, PATIENCE, tell, at_end)
        status = use_service(Story(session, service, adapter, port))
    except BenchError:
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
    except (BenchError, OSError) as error:
        print(f"\nThe demonstration failed: {error}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: python3 demo/demo.py SERVICE")
    sys.exit(main(Path(sys.argv[1]).resolve()))
