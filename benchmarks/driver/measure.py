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

import contestants
from contestants import CONTESTANTS, SCRATCH, SIX_PORTS, Contestant, Programs

TRACED_MESSAGES = 400  # the client's number of messages at scale 100
DEADLINE_SECONDS = 90

Samples = dict[str, dict[str, list[float]]]


def run_client(words: list[str]) -> dict[str, float]:
    """The figures of one run over one bridge."""
    done = subprocess.run(words, stdout=subprocess.PIPE, text=True, timeout=DEADLINE_SECONDS)
    if done.returncode != 0:
        raise SystemExit(f"bench: {' '.join(words)} failed ({done.returncode})")
    return dict(json.loads(done.stdout))


def one_round(contestant: Contestant, programs: Programs, scale: int) -> dict[str, float]:
    """Everything about one bridge, once."""
    extra = ("--scale", str(scale))
    figures = run_client(contestant.client_words(programs, 1, extra))
    six = run_client(contestant.client_words(programs, SIX_PORTS, ("--measure", "memory")))
    figures["memory_6_kib"] = six["memory_kib"]
    figures["threads_6"] = six["threads"]
    return figures


def open_figures(programs: Programs) -> dict[str, float]:
    """An open command that searches a large udev database."""
    service = next(one for one in CONTESTANTS if one.name == "service")
    contestants.use_database(SCRATCH / "large")
    figures = run_client(service.client_words(programs, SIX_PORTS, ("--measure", "open")))
    contestants.use_database(SCRATCH / "six-adapters")
    return figures


def traced(contestant: Contestant, programs: Programs, way: str, times: int) -> dict[str, int]:
    """The system calls of a run with so many messages."""
    report = SCRATCH / "calls"
    report.unlink(missing_ok=True)
    tracer = ("strace", "-D", "-f", "-c", "-U", "calls,name", "-o", str(report))
    extra = ("--measure", way, "--scale", str(100 * times))
    run_client(contestant.client_words(programs, 1, extra, tracer))
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
    samples: Samples = {one.name: collections.defaultdict(list) for one in CONTESTANTS}
    for number in range(rounds):
        for contestant in CONTESTANTS:
            print(f"bench: round {number + 1} of {rounds}, {contestant.name}", file=sys.stderr)
            for figures in (one_round(contestant, programs, scale),
                            open_figures(programs) if contestant.name == "service"
                            else {}):
                for name, value in figures.items():
                    if not (name == "startup_us" and "open_ms" in figures):
                        samples[contestant.name][name].append(value)
    calls = {one.name: {way: calls_per_message(one, programs, way) for way in ("in", "out")}
             for one in CONTESTANTS if one.name != "service-file"}
    output.write_text(json.dumps({"rounds": rounds, "samples": samples, "system_calls": calls}))


main()
