# SPDX-License-Identifier: MIT
"""Command lines of a shell, shown as they are run and checked for what they print."""

import os
import re
import signal
import subprocess
from collections.abc import Callable
from pathlib import Path

from bench import BenchError, end, start, wait_until


class Session:
    """A shell in `folder` that finds the programs of `programs` by their names.

    Everything that a command prints, to both streams, must be one of the texts that the regular
    expression matches as a whole.
    """

    def __init__(
        self,
        folder: Path,
        programs: Path,
        patience: float,
        tell: Callable[[str], None],
        at_end: Callable[..., object],
    ) -> None:
        self.folder = folder
        self.patience = patience
        self.tell = tell
        self.at_end = at_end
        self.environment = {
            **os.environ,
            "PATH": f"{programs}:{os.environ.get('PATH', os.defpath)}",
            "LC_ALL": "C.UTF-8",
        }

    def run(self, command: str, wanted: str, status: int = 0) -> None:
        """Shows the command line, what it prints, and nothing of its status."""
        self.begin(command).finish(wanted, status)

    def begin(self, command: str) -> "Running":
        """Shows the command line; it goes on while others run."""
        self.tell(f"\n$ {command}")
        running = Running(self, command)
        self.at_end(end, running.process)
        return running


class Running:
    """A command line that was begun."""

    def __init__(self, session: Session, command: str) -> None:
        self.session = session
        self.command = command
        self.shown = 0
        number = len(list(session.folder.glob("output-*")))
        self.path = session.folder / f"output-{number}"
        with self.path.open("w", encoding="utf-8") as output:
            self.process = start(
                ["bash", "-c", command.removesuffix(" &")],
                session.folder,
                environment=session.environment,
                stdout=output,
                stderr=subprocess.STDOUT,
            )

    def output(self) -> str:
        return self.path.read_text(encoding="utf-8", errors="backslashreplace")

    def show(self) -> None:
        """What has come since it was shown the last time."""
        text = self.output()
        if text[self.shown :]:
            self.session.tell(text[self.shown :].rstrip("\n"))
        self.shown = len(text)

    def prints(self, text: str) -> None:
        """Returns when it has printed that."""

        def has_come() -> bool:
            return text in self.output() or self.process.poll() is not None

        wait_until(has_come, self.session.patience, f'"{text}" from {self.command}')
        self.show()
        if text not in self.output():
            raise BenchError(f'{self.command}: ended without "{text}"')

    def finish(self, wanted: str, status: int = 0, *, interrupt: bool = False) -> None:
        """Returns when it has ended, with this status and everything printed as wanted."""
        if interrupt:
            os.killpg(self.process.pid, signal.SIGINT)
        try:
            ended = self.process.wait(self.session.patience)
        except subprocess.TimeoutExpired:
            self.show()
            raise BenchError(f"{self.command}: has not ended") from None
        self.show()
        if ended != status:
            raise BenchError(f"{self.command}: status {ended}, expected {status}")
        if not re.fullmatch(wanted, self.output()):
            raise BenchError(f"{self.command}: printed something else than it should")
