# SPDX-License-Identifier: MIT
"""What the demonstration's session takes place with: the virtual adapter and the service."""

import fcntl
import os
import signal
import socket
import subprocess
import threading
import time
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import IO

# Written and removed by the service, always under this name.
DUMP_FILE = Path("/tmp/deviceinfo.txt")

FOLDER_OF_UDEVADM = Path(__file__).resolve().parent / "bin"


class BenchError(Exception):
    """A step of the demonstration did not do what it should."""


@contextmanager
def the_only_demonstration(tell: Callable[[str], None]) -> Iterator[None]:
    """Waits for other demonstrations: their services would share the dump file.

    The folder itself is locked, so that no lock file is left behind.
    """
    folder = os.open(DUMP_FILE.parent, os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
    try:
        try:
            fcntl.flock(folder, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            tell("Waiting for another demonstration on this machine to end ...")
            fcntl.flock(folder, fcntl.LOCK_EX)
        yield
    finally:
        os.close(folder)


def check_dump_file() -> None:
    """A file that the service cannot replace would make the adapter look unplugged."""
    try:
        found = DUMP_FILE.lstat()
    except FileNotFoundError:
        return
    if DUMP_FILE.is_symlink() or not DUMP_FILE.is_file() or found.st_uid != os.geteuid():
        raise BenchError(
            f"{DUMP_FILE} is there and is no file of yours: another user's service is searching "
            "for an adapter just now, or has left it behind. If it stays, remove it."
        )


def free_port() -> int:
    """A TCP port of 127.0.0.1, above 1024, on which nothing listens."""
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        port: int = probe.getsockname()[1]
        return port


def wait_until(condition: Callable[[], bool], patience: float, what: str) -> None:
    deadline = time.monotonic() + patience
    while not condition():
        if time.monotonic() > deadline:
            raise BenchError(f"not within {patience:.0f} s: {what}")
        time.sleep(0.01)


def start(
    command: list[str],
    folder: Path,
    *,
    environment: dict[str, str] | None = None,
    stdin: int | IO[str] = subprocess.DEVNULL,
    stdout: int | IO[str] | None = None,
    stderr: int | None = None,
) -> subprocess.Popen[str]:
    """Starts a process that gets no signal from the terminal and does not outlive this one."""
    return subprocess.Popen(
        ["setpriv", "--pdeathsig", "TERM", *command],
        cwd=folder,
        env=environment,
        stdin=stdin,
        stdout=stdout,
        stderr=stderr,
        process_group=0,
        encoding="utf-8",
        errors="backslashreplace",
    )


def end(process: subprocess.Popen[str]) -> None:
    """Ends the process by any means; nothing happens when it has ended."""
    if process.poll() is None:
        process.terminate()
        try:
            process.wait(5)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()


class Adapter:
    """A pseudo-terminal with a calculator (bc) behind it."""

    def __init__(self, folder: Path, at_end: Callable[..., object]) -> None:
        self.link = folder / "adapter"
        calculator = start(["bc", "-lq"], folder, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        at_end(end, calculator)
        assert calculator.stdin and calculator.stdout
        self.keys = calculator.stdin
        # The name alone: a folder's name may hold what separates socat's options.
        self.process = start(
            ["socat", f"PTY,link={self.link.name},rawer", "STDIO"],
            folder,
            stdin=calculator.stdout,
            stdout=calculator.stdin,
        )
        at_end(end, self.process)
        calculator.stdout.close()

    def type(self, text: str) -> None:
        """As if somebody typed at the device itself, beside what comes over the line."""
        self.keys.write(text)
        self.keys.flush()

    def node(self, patience: float) -> str:
        """The path of the device node, once it is there."""
        wait_until(self._is_there, patience, "a virtual adapter")
        return os.path.realpath(self.link)

    def _is_there(self) -> bool:
        if self.process.poll() is not None:
            raise BenchError("the virtual adapter has ended")
        return self.link.exists()


class Service:
    """The real service, with a configuration, a log and a relay port of its own."""

    def __init__(self, program: Path, folder: Path, configuration: str, node: str) -> None:
        self.console: dict[str, list[str]] = {"standard output": [], "standard error": []}
        self.log = folder / "service.log"
        config = folder / "vost.conf"
        config.write_text(configuration, encoding="utf-8")
        environment = {
            **os.environ,
            "VOST_CONFIG": str(config),
            "KXLOGGER_FILE": str(self.log),
            "DEMO_NODE": node,
            "PATH": f"{FOLDER_OF_UDEVADM}:{os.environ.get('PATH', os.defpath)}",
        }
        self.process = start(
            [str(program)],
            folder,
            environment=environment,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
        )
        self.readers = [
            threading.Thread(target=self._read, args=arguments, daemon=True)
            for arguments in zip(self.console, (self.process.stdout, self.process.stderr))
        ]
        for reader in self.readers:
            reader.start()

    def _read(self, name: str, stream: IO[str]) -> None:
        for line in stream:
            self.console[name].append(line.rstrip("\n"))

    def wait_for_output(self, text: str, patience: float, times: int = 1) -> None:
        """Returns when the line `text` has come on standard output so many times."""

        def has_come() -> bool:
            if self.process.poll() is not None:
                raise BenchError(f"the service has ended with status {self.process.returncode}")
            return self.console["standard output"].count(text) >= times

        wait_until(has_come, patience, f'"{text}" from the service')

    def stop(self, patience: float) -> int:
        """Sends SIGTERM; the exit status, once all that the service wrote has been read."""
        self.process.send_signal(signal.SIGTERM)
        try:
            status = self.process.wait(patience)
        except subprocess.TimeoutExpired:
            raise BenchError(f"not within {patience:.0f} s: the service's end") from None
        self.finish_reading(patience)
        return status

    def finish_reading(self, patience: float) -> None:
        """Returns when all that the ended service wrote is in `console`."""
        for reader in self.readers:
            reader.join(patience)

    def log_lines(self) -> list[str]:
        return self.log.read_text(encoding="utf-8").splitlines() if self.log.exists() else []
