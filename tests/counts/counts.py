#!/usr/bin/python3 -B
# SPDX-License-Identifier: MIT
"""Counts the instructions that one message costs, and compares them with the figures kept here.

Each case runs twice, with different numbers of messages; the difference, divided by the difference
of the numbers, is what one message costs, whatever starting and ending take. Only the thread that
handles the messages counts.
Programs for ARM run in qemu's emulation, whose plugin counts all instructions of a thread together.
usage: counts.py BUILD-FOLDER [--plugin PLUGIN] [--accept]
"""

from __future__ import annotations

import argparse
import collections
import concurrent.futures
import dataclasses
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

CASES = ("data-64", "data-4096", "notification-1", "notification-64", "notification-4096")
# In the order of their start, the service's main thread being the first.
RELAY_THREAD, PORT_THREAD = 2, 3
FEW, MANY = 100, 300
ALLOWED = 1.02
ARM_ROOT = "/usr/arm-linux-gnueabihf"

Counts = dict[str, dict[str, float]]  # by case and function


@dataclasses.dataclass(frozen=True)
class Build:
    """What is counted, and how."""

    folder: pathlib.Path
    plugin: pathlib.Path | None  # of qemu; without one it is callgrind that counts

    def command(self, size: str, report: pathlib.Path) -> list[str | pathlib.Path]:
        """Runs the service so that the instructions of each thread get into a report."""
        whole_reads = [f"LD_PRELOAD={self.folder}/lib/libwhole_reads.so", f"WHOLE_READS={size}"]
        service = self.folder / "bin" / "SerialPortHandler"
        if self.plugin is None:
            return ["env", *whole_reads, "setarch", "-R", "valgrind", "--quiet", "--tool=callgrind",
                    "--separate-threads=yes", f"--callgrind-out-file={report}", service]
        settings = [word for setting in whole_reads for word in ("-E", setting)]
        return ["env", f"INSTRUCTION_COUNTS={report}", "qemu-arm", "-cpu", "cortex-a8",
                "-L", ARM_ROOT, *settings, "-plugin", self.plugin, service]

    def functions(self, report: pathlib.Path, thread: int) -> collections.Counter[str]:
        """Instructions of one thread; qemu's are not told apart by function."""
        if self.plugin is None:
            return callgrind.functions_of(report.with_name(f"{report.name}-{thread:02}"))
        return collections.Counter({"all": int(report.read_text().split()[thread - 1])})

    def key(self) -> str:
        """Figures of one compiler say nothing about another's."""
        compiler = "c++" if self.plugin is None else "arm-linux-gnueabihf-g++"
        return " ".join(
            subprocess.run([compiler, option], check=True, text=True,
                           stdout=subprocess.PIPE).stdout.strip()
            for option in ("-dumpfullversion", "-dumpmachine"))


def counted(build: Build, case: str, messages: int) -> collections.Counter[str]:
    """Instructions by function of a whole run."""
    with tempfile.TemporaryDirectory(dir=build.folder) as folder:
        report = pathlib.Path(folder) / "report"
        command = build.command(case.partition("-")[2], report)
        subprocess.run([SANDBOX, "--", sys.executable, "-B", HERE / "conversation.py", case,
                        str(messages), *command], check=True)
        return build.functions(report, RELAY_THREAD if case.startswith("data") else PORT_THREAD)


def one_message(build: Build, case: str) -> dict[str, float]:
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
    print(f"counts: the figures for {key} are in tests/counts/figures.json; "
          "commit them with the change that pays for them")


def main() -> int:
    """0: within what is allowed, or accepted."""
    parser = argparse.ArgumentParser(prog="counts")
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--plugin", type=pathlib.Path)
    parser.add_argument("--accept", action="store_true")
    arguments = parser.parse_args()
    build = Build(arguments.folder.resolve(), arguments.plugin and arguments.plugin.resolve())
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        now = dict(zip(CASES, pool.map(lambda case: one_message(build, case), CASES)))
    figures = json.loads(FIGURES.read_text()) if FIGURES.exists() else {}
    key = build.key()
    if arguments.accept:
        accept(figures, key, now)
        return 0
    if key not in figures:
        print(f"counts: there are no figures for {key}, only for {', '.join(figures)}.\n"
              "On a tree whose figures hold with one of these, ./test counts --accept adds them.")
        return 1
    print(f"counts: {key}")
    if compare(figures[key]["instructions"], now):
        return 0
    print("counts: a message costs more than the figures allow. If the change is worth it, say so "
          "in its\ncommit and keep the new figures: ./test counts --accept")
    return 1


sys.exit(main())
