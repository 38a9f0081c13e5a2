# SPDX-License-Identifier: MIT
"""Counts the instructions that one message costs, and compares them with the figures kept here.

Each case runs twice, with different numbers of messages; the difference, divided by the difference
of the numbers, is what one message costs, whatever starting and ending take. Only the thread that
handles the messages counts.
usage: counts.py BUILD-FOLDER [--accept]
"""

from __future__ import annotations

import collections
import concurrent.futures
import json
import os
import pathlib
import platform
import subprocess
import sys
import tempfile

import callgrind

HERE = pathlib.Path(__file__).resolve().parent
SANDBOX = HERE.parent / "e2e" / "support" / "sandbox"
FIGURES = HERE / "figures.json"

CASES = ("data-64", "notification-1", "notification-64", "notification-4096")
# Which thread: callgrind numbers them in the order of their start.
RELAY_THREAD, PORT_THREAD = 2, 3
FEW, MANY = 100, 300
ALLOWED = 1.05

Counts = dict[str, dict[str, float]]  # by case and function


def counted(build: pathlib.Path, case: str, messages: int) -> collections.Counter[str]:
    """Instructions by function of a whole run."""
    thread = RELAY_THREAD if case.startswith("data") else PORT_THREAD
    size = case.partition("-")[2]
    with tempfile.TemporaryDirectory(dir=build) as folder:
        report = pathlib.Path(folder) / "report"
        subprocess.run(
            [SANDBOX, "--", sys.executable, "-B", HERE / "conversation.py", case, str(messages),
             "env", f"LD_PRELOAD={build}/lib/libwhole_reads.so", f"WHOLE_READS={size}",
             "setarch", "-R", "valgrind", "--quiet", "--tool=callgrind", "--separate-threads=yes",
             f"--callgrind-out-file={report}", build / "bin" / "SerialPortHandler"], check=True)
        return callgrind.functions_of(report.with_name(f"report-{thread:02}"))


def one_message(build: pathlib.Path, case: str) -> dict[str, float]:
    """Instructions by function that one more message costs."""
    few, many = (counted(build, case, messages) for messages in (FEW, MANY))
    each = {name: (many[name] - few[name]) / (MANY - FEW) for name in many}
    return {name: round(count, 1) for name, count in sorted(each.items()) if count >= 0.5}


def own(functions: dict[str, float]) -> float:
    """Without what other libraries cost."""
    return sum(count for name, count in functions.items()
               if not name.startswith(callgrind.OTHERS))


def total(functions: dict[str, float]) -> float:
    """Everything in user space."""
    return sum(functions.values())


def compiler() -> str:
    """Figures of one compiler say nothing about another's."""
    words = [subprocess.run(["c++", option], check=True, text=True,
                            stdout=subprocess.PIPE).stdout.strip()
             for option in ("-dumpfullversion", "-dumpmachine")]
    return " ".join(words)


def changed(kept: dict[str, float], now: dict[str, float]) -> list[str]:
    """The functions that cost more, the worst first."""
    more = sorted(((now[name] - kept.get(name, 0), name) for name in now), reverse=True)
    return [f"    {name}: {kept.get(name, 0):g} -> {now[name]:g}" for grown, name in more[:8]
            if grown >= 1]


def compare(kept: Counts, now: Counts) -> bool:
    """Prints a line for each case; whether all are within what is allowed."""
    fine = True
    for case, functions in now.items():
        before = kept.get(case, {})
        grown = [what for what, count in (("in all", total), ("own code", own))
                 if count(functions) > ALLOWED * count(before)]
        print(f"{case}: {total(functions):.0f} instructions (kept: {total(before):.0f}), own code "
              f"{own(functions):.0f} (kept: {own(before):.0f})"
              + (f" MORE THAN {ALLOWED - 1:.0%} ABOVE: {', '.join(grown)}" if grown else ""))
        if grown:
            fine = False
            print("\n".join(changed(before, functions)))
    return fine


def accept(figures: dict[str, dict], key: str, now: Counts) -> None:
    """Keeps the new figures."""
    figures[key] = {"glibc": platform.libc_ver()[1], "instructions": now}
    FIGURES.write_text(json.dumps(figures, indent=1, sort_keys=True) + "\n")
    print(f"counts: the figures for {key} are in {FIGURES.relative_to(pathlib.Path.cwd())}; "
          "commit them with the change that pays for them")


def main() -> int:
    """0: within what is allowed, or accepted."""
    build, accepting = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2:] == ["--accept"]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        now = dict(zip(CASES, pool.map(lambda case: one_message(build, case), CASES)))
    figures = json.loads(FIGURES.read_text()) if FIGURES.exists() else {}
    key = compiler()
    if accepting:
        accept(figures, key, now)
        return 0
    if key not in figures:
        print(f"counts: there are no figures for {key}, only for {', '.join(figures)}.\n"
              "On a tree whose figures hold with one of these, ./test counts --accept adds them.")
        return 1
    if compare(figures[key]["instructions"], now):
        return 0
    print("counts: a message costs more than the figures allow. If the change is worth it, say so "
          "in its\ncommit and keep the new figures: ./test counts --accept")
    return 1


sys.exit(main())
