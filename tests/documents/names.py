# SPDX-License-Identifier: MIT
"""That names lead to tests: each suite stands in one file, a file of tests has a suite of its own
name, and what a comment says it is pinned by is there.

usage: python3 names.py CHECKOUT
"""

import collections
import re
import sys
from collections.abc import Iterator
from pathlib import Path

ROOT = Path(sys.argv[1])
TEST = re.compile(r"^TEST(?:_F|_P)?\((\w+),\s*(\w+)\)", re.MULTILINE)
PINNED = re.compile(r"pinned by\s+(?://\s*)?(\S+?)[.;]?$", re.IGNORECASE | re.MULTILINE)


def files(*folders: str) -> Iterator[Path]:
    for folder in folders:
        yield from sorted(ROOT.joinpath(folder).rglob("*.cpp"))
        yield from sorted(ROOT.joinpath(folder).rglob("*.h"))


def tests_of(file: Path) -> set[tuple[str, str]]:
    """Suites and names."""
    return set(TEST.findall(file.read_text(encoding="utf-8")))


def all_tests() -> set[str]:
    return {".".join(test) for file in files("tests") for test in tests_of(file)}


def complaints() -> Iterator[str]:
    places = collections.defaultdict(set)
    tests = all_tests()
    for file in files("tests"):
        suites = {suite for suite, _ in tests_of(file)}
        for suite in suites:
            places[suite].add(str(file.relative_to(ROOT)))
        if suites and file.stem.endswith("Test") and file.stem not in suites:
            yield f"{file}: no suite has the name of the file: {sorted(suites)}"
    for suite, where in places.items():
        if len(where) > 1:
            yield f"{suite} stands in more than one file: {sorted(where)}"
    pins = [(file, pin) for file in files("src", "platform-libs", "clients", "relayctl")
            for pin in PINNED.findall(file.read_text(encoding="utf-8"))]
    for file, pin in pins:
        if pin not in tests and not (pin.endswith(".rec") and (ROOT / pin).is_file()):
            yield f"{file}: there is no {pin}"
    if not pins or not tests:
        yield "nothing was found"


def main() -> int:
    found = list(complaints())
    print("\n".join(found) if found else "every name leads to its test")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
