# SPDX-License-Identifier: MIT
"""The service's process in the guest, looked at from outside."""

from __future__ import annotations

from machine import Machine

TICKS = 100  # of a second, in /proc/PID/stat


class Process:
    def __init__(self, machine: Machine, pid: int | None = None) -> None:
        """`pid`: where no supervisor of ours has written it down."""
        self._machine = machine
        self.pid = pid or int(machine.run("cat /run/service.pid"))

    def _holds(self, node: str) -> str:
        return f"ls -l /proc/{self.pid}/fd | grep -q '> {node}'"

    def waits_until_open(self, node: str) -> None:
        """Until the process holds the node. It may not have set it up yet."""
        self._machine.waits(self._holds(node), pause=0.01)

    def waits_until_closed(self, node: str) -> None:
        """Until it holds it no more, neither under its name nor as one that is gone."""
        self._machine.waits(f"! {self._holds(node)}", pause=0.01)

    def waits_until_open_again(self, node: str) -> None:
        """Until it holds the node that is there now, no earlier one, and has set it up: a line of its
        output tells of each close, and then of the open."""
        opens, closes = (f"$(grep -c '{word}' /run/service.out)" for word in ("^OPEN", "port close"))
        self._machine.waits(f"{self._holds(node + '$')} && [ {opens} -gt {closes} ]", pause=0.01)

    def waits_for_opens(self, count: int, node: str = "") -> None:
        """Until it has opened this node, or any lines, so many times, and set them up."""
        opened = f"grep -c '^OPEN.{node}' /run/service.out"
        self._machine.waits(f"[ $({opened}) -ge {count} ]", pause=0.01)

    def cpu_share(self, seconds: int) -> float:
        """Percent of one processor, over so many seconds of the guest from now."""
        before, after = (
            sum(int(number) for number in line.split()) for line in self._machine.run(
                f"cut -d' ' -f14,15 /proc/{self.pid}/stat; sleep {seconds}; "
                f"cut -d' ' -f14,15 /proc/{self.pid}/stat").splitlines())
        return round(100 * (after - before) / TICKS / seconds, 1)

    def resources(self) -> tuple[int, int]:
        """How many descriptors it holds, and how many threads it has."""
        found = self._machine.run(
            f"ls /proc/{self.pid}/fd | wc -l; ls /proc/{self.pid}/task | wc -l").split()
        return int(found[0]), int(found[1])

    def waits_in(self, function: str) -> None:
        """Until one of its threads waits in this function of the kernel."""
        self._machine.waits(f"grep -q {function} /proc/{self.pid}/task/*/stack", pause=0.01)

    def is_the_same(self) -> bool:
        """Whether it still runs, and has not been started anew."""
        return self._machine.run("cat /run/service.statuses") == ""
