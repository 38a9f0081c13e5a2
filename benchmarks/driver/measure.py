# SPDX-License-Identifier: MIT
"""Measures every bridge in turn, round after round, and writes all samples as JSON.

Runs in the sandbox of the end-to-end tests: it changes addresses and device nodes.
usage: measure.py PROGRAMS SERVICE OUTPUT ROUNDS SCALE
"""

from __future__ import annotations

import collections
import json
import pathlib
import subprocess
import sys
import time

import clients
import contestants
import growth
from contestants import (CONTESTANTS, DEADLINE_SECONDS, SCRATCH, SERVICE, SEVEN_PORTS, Contestant,
                         Programs)

TRACED_MESSAGES = 400  # the client's number of messages at scale 100
OF_SEVEN_PORTS = ("memory_kib", "threads", "first_byte_us", "idle_wakeups_per_s",
                  "idle_cpu_us_per_s")

Samples = dict[str, dict[str, dict[int, float]]]  # by bridge, metric and round


def one_round(contestant: Contestant, programs: Programs, scale: int) -> dict[str, float]:
    """Everything about one bridge, once."""
    extra = ("--scale", str(scale))
    figures = contestant.figures(programs, 1, (*extra, "--measure", contestant.measure))
    if contestant.measure == "all":
        seven = contestant.figures(programs, SEVEN_PORTS, (*extra, "--measure", "idle"))
        figures |= {f"seven_{metric}": seven[metric] for metric in OF_SEVEN_PORTS}
    if contestant is SERVICE:
        figures |= growth.open_figures(programs, SCRATCH / "large")
    return figures


def traced(contestant: Contestant, programs: Programs, way: str, times: int) -> dict[str, int]:
    """The system calls of a run with so many messages."""
    report = SCRATCH / "calls"
    report.unlink(missing_ok=True)
    tracer = ("strace", "-D", "-f", "-c", "-U", "calls,name", "-o", str(report))
    extra = ("--measure", way, "--scale", str(100 * times))
    contestant.figures(programs, 1, extra, tracer)
    deadline = time.monotonic() + DEADLINE_SECONDS
    while not report.exists() or "total" not in report.read_text():
        if time.monotonic() > deadline:
            raise SystemExit("bench: strace has written no report")
        time.sleep(0.01)
    calls: dict[str, int] = {}
    for line in report.read_text().splitlines():
        words = line.split()
        if len(words) == 2 and words[0].isdigit() and words[1] != "total":
            calls[words[1]] = int(words[0])
    return calls


def calls_per_message(contestant: Contestant, programs: Programs, way: str) -> dict[str, float]:
    """What twice as many messages need more, by call and for one message."""
    once = traced(contestant, programs, way, 1)
    twice = traced(contestant, programs, way, 2)
    each = {name: (count - once.get(name, 0)) / TRACED_MESSAGES for name, count in twice.items()}
    return {name: round(count, 2) for name, count in sorted(each.items()) if count >= 0.05}


def main() -> None:
    """All rounds; what is known of the machine is added by the report."""
    folder, service, output = (pathlib.Path(word) for word in sys.argv[1:4])
    programs = Programs(folder, service)
    rounds, scale = int(sys.argv[4]), int(sys.argv[5])
    # Names and addresses are looked up only for families that have an address beside 127.0.0.1.
    subprocess.run(["ip", "address", "add", "192.0.2.1/32", "dev", "lo"], check=True)
    contestants.prepare()
    samples: Samples = {one.name: collections.defaultdict(dict) for one in CONTESTANTS}
    for number in range(rounds):
        for contestant in CONTESTANTS:
            if number % contestant.every == 0:
                print(f"bench: round {number + 1} of {rounds}, {contestant.name}", file=sys.stderr)
                for metric, value in one_round(contestant, programs, scale).items():
                    samples[contestant.name][metric][number] = value
    calls = {one.name: {way: calls_per_message(one, programs, way) for way in ("in", "out")}
             for one in CONTESTANTS if one.measure == "all"}
    print("bench: growth, clients", file=sys.stderr)
    output.write_text(json.dumps({"rounds": rounds, "samples": samples, "system_calls": calls,
                                  "growth": growth.measure(programs, scale),
                                  "clients": clients.measure(programs, scale)}))


main()
