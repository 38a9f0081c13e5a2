# SPDX-License-Identifier: MIT
"""That docs/simulation.md names each lock, shield and hold of the service, and each known fault, and
that what misses them is there.

usage: python3 guards.py CHECKOUT
"""

import re
import sys
from collections import Counter
from collections.abc import Iterator

from names import ROOT, all_tests, files

DOCUMENT = ROOT / "docs/simulation.md"
KNOWN_FAULTS = ROOT / "tests/simulation/known-faults"
GUARD = re.compile(r"const (?:CLockGuard|CCancellationShield|CancellationDelay|CSignalMask"
                   r"|CStopSignalsHeld|CStopSignalsAdmitted|CAllSignalsAdmitted|CTicks) \w+"
                   r"|\(CStopSignalsHeld\(\)|^ *(?:Hold|Admit)StopSignals\(\);"
                   r"|pthread_sigmask\(SIG_UNBLOCK")
FUNCTION = re.compile(r" *(?:[\w:<>*& ]+[ *&])?((?:\w+::)*(?:operator\(\)|~?\w+))\(")
CLASS = re.compile(r" *(?:class|struct) (\w+)")
ROW = re.compile(r"^\| (.*) \| (.*) \|$", re.MULTILINE)


def indent_of(line: str) -> int:
    return len(line) - len(line.lstrip())


def function_around(lines: list[str], at: int) -> str:
    name, indent = "", indent_of(lines[at])
    for line in reversed(lines[:at]):
        if line and indent_of(line) < indent:
            indent = indent_of(line)
            if not name and (function := FUNCTION.match(line)):
                name = function[1]
            elif name and (outer := CLASS.match(line)):
                name = f"{outer[1]}::{name}"
    return name


def guarded() -> Iterator[str]:
    for file in files("src", "platform-libs"):
        lines = file.read_text(encoding="utf-8").splitlines()
        yield from (function_around(lines, at) for at, line in enumerate(lines)
                    if GUARD.search(line))


def complaints() -> Iterator[str]:
    faults, guards = DOCUMENT.read_text(encoding="utf-8").split("## Each guard, and what misses it")
    patches = {file.stem for file in KNOWN_FAULTS.glob("*.patch")}
    named = Counter(name for row in ROW.findall(guards) for name in re.findall(r"`(.+?)`", row[0]))
    there = Counter(guarded())
    for name in there - named:
        yield f"the table lacks the guard in {name}"
    for name in named - there:
        yield f"the table names {name}, where no guard is"
    misses = "\n".join(row[1] for row in ROW.findall(guards))
    for test in set(re.findall(r"`(\w+Test\.\w+)`", misses)) - all_tests():
        yield f"there is no {test}"
    measured = {row[0] for row in re.findall(r"^\| ([a-z-]+) \| [\d.]+ \| (\d+) \|$", faults,
                                             re.MULTILINE)}
    for name in measured ^ patches:
        yield f"{name} is a known fault or in the table of them, not both"
    for name in set(re.findall(r"[a-z]+(?:-[a-z]+)+", re.sub("`.*?`", "", misses))) - patches:
        yield f"there is no known fault {name}"
    if not there or not patches:
        yield "nothing was found"


def main() -> int:
    found = list(complaints())
    print("\n".join(found) if found else "every guard has what misses it")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
