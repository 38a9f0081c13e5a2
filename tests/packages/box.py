# SPDX-License-Identifier: MIT
"""A box: a clean Debian system in namespaces of its own, in which packages are installed."""

import os
import shutil
import signal
import subprocess
import tempfile
import time
from collections.abc import Callable
from pathlib import Path
from types import TracebackType

HERE = Path(__file__).resolve().parent
CHECKOUT = HERE.parent.parent
NATIVE = "amd64"
PATIENCE = 60.0  # seconds; a passing run never needs them

Command = tuple[str, ...]


def wait_until(what: str, condition: Callable[[], bool], patience: float = PATIENCE) -> None:
    deadline = time.monotonic() + patience
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f"not within {patience:.0f} s: {what}")
        time.sleep(0.02)


class Box:
    """A running system. The native one has systemd as its first process.

    A foreign one has a shell that only waits there: what it starts it starts by itself.
    """

    def __init__(self, architecture: str) -> None:
        self.is_native = architecture == NATIVE
        self.scratch = Path(tempfile.mkdtemp(prefix="sph-box-"))
        self.root = self.scratch / "root"
        self.root.mkdir()
        self.log = self.scratch / "log"
        self.cgroup = self.scratch.name if self.is_native else "-"
        self.starter: subprocess.Popen[bytes] | None = None
        self.init = 0
        archive = CHECKOUT / "build" / "roots" / f"{architecture}.tar"
        subprocess.run(["tar", "-C", self.root, "--numeric-owner", "-xf", archive], check=True)

    def __enter__(self) -> "Box":
        self._change_cgroups('mkdir "$1"')
        try:
            self._start()
        except BaseException:
            self._end()
            raise
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self._end()

    def run(self, *command: str | Path, check: bool = True) -> str:
        """What a program of the box prints, on both streams. It must succeed."""
        done = subprocess.run(
            [*self.enter(), *map(str, command)], stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=5 * PATIENCE)
        if check and done.returncode != 0:
            raise AssertionError(f"{command}: status {done.returncode}\n{done.stdout}")
        return done.stdout

    def enter_all_but_root(self) -> Command:
        """What to put in front of a command for it to run inside, but with this machine's files."""
        user = () if self.is_native else ("--user",)
        return ("nsenter", "--target", str(self.init), *user, "--mount", "--net", "--pid", "--ipc",
                "--uts", *(("--cgroup",) if self.is_native else ()), "--")

    def enter(self) -> Command:
        """What to put in front of a command for it to run inside."""
        return (*self.enter_all_but_root(), "env", "--ignore-environment",
                "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "DEBIAN_FRONTEND=noninteractive", "LC_ALL=C.UTF-8",
                "chroot", str(self.root))

    def enter_network(self) -> Command:
        """The same for a program of this machine that is to use the box's loopback interface."""
        user = () if self.is_native else ("--user",)
        return ("nsenter", "--target", str(self.init), *user, "--net", "--")

    def path(self, name: str) -> Path:
        """A file of the running box, with what is mounted in it."""
        return Path(f"/proc/{self.init}/root") / name.lstrip("/")

    def _start(self) -> None:
        program: Command = ("/bin/sleep", "infinity")
        namespaces = ["--mount", "--net", "--pid", "--ipc", "--uts", "--fork", "--kill-child"]
        outside: list[str | Path] = []
        if self.is_native:
            program = ("/lib/systemd/systemd", "--system", "systemd.unit=multi-user.target")
        else:
            outside = [HERE / "with-foreign-programs"]
        self.starter = subprocess.Popen(
            [*outside, "unshare", *namespaces, "--", HERE / "box-init", self.root, self.cgroup,
             *program], stdin=subprocess.DEVNULL, stderr=self.log.open("wb"),
            start_new_session=True)
        wait_until("the box has its first process", self._find_init)
        if self.is_native:
            wait_until("systemd has started everything", self._is_up)

    def _is_up(self) -> bool:
        return self.run("systemctl", "is-system-running", check=False).strip() in (
            "running", "degraded")

    def _find_init(self) -> bool:
        """Looks for the first process, whose root is already the box's."""
        assert self.starter is not None
        if self.starter.poll() is not None:
            raise AssertionError("the box could not be made: " + self.log.read_text())
        wanted = self.root.stat().st_ino
        for process in _descendants(self.starter.pid):
            try:
                root = os.stat(f"/proc/{process}/root")
                name = Path(f"/proc/{process}/comm").read_text().strip()
            except OSError:
                continue
            if root.st_ino == wanted and name not in ("chroot", "env"):
                self.init = process
                return True
        return False

    def _end(self) -> None:
        if self.init:
            os.kill(self.init, signal.SIGKILL)  # and with it all others of its namespace
        elif self.starter is not None:
            os.killpg(self.starter.pid, signal.SIGKILL)
        if self.starter is not None:
            self.starter.wait()
        self._change_cgroups('find "$1" -depth -type d -exec rmdir {} +')
        shutil.rmtree(self.scratch)

    def _change_cgroups(self, script: str) -> None:
        """Runs the script with the control group of the box as "$1"."""
        if self.is_native:
            subprocess.run(
                ["unshare", "--mount", "sh", "-euc",
                 'mount -t cgroup2 cgroup2 /mnt; cd /mnt; ' + script, "sh", self.cgroup],
                check=True)


def _descendants(process: int) -> list[int]:
    found = [process]
    for parent in found:
        try:
            children = Path(f"/proc/{parent}/task/{parent}/children").read_text().split()
        except OSError:
            continue
        found += map(int, children)
    return found
