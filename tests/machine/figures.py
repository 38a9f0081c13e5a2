# SPDX-License-Identifier: MIT
"""The report of a run: each case and each figure that it measured, as tables."""

from __future__ import annotations

import ast
import collections
import pathlib
from typing import Protocol

import pytest

import packages

REPORT = packages.CACHE / "cases.md"
DOCUMENT = packages.ROOT / "docs" / "hardware-acceptance.md"
BEGIN, END = "<!-- made by ./test machine: begin -->\n", "<!-- made by ./test machine: end -->\n"


class Figure(Protocol):
    def __call__(self, name: str, value: object) -> None: ...


class Report:
    """Hears of each test's end, from all processes that run tests."""

    def __init__(self, path: pathlib.Path) -> None:
        self._path = path
        # For each file and each test's name without its parameters: an outcome for each run.
        self._outcomes: dict[str, dict[str, list[str]]] = collections.defaultdict(
            lambda: collections.defaultdict(list))
        self._figures: dict[tuple[str, str], list[tuple[str, str]]] = collections.defaultdict(list)

    def pytest_runtest_logreport(self, report: pytest.TestReport) -> None:
        if report.when != "call" and report.passed:
            return
        file, _, name = report.nodeid.partition("::")
        name = name.partition("[")[0]
        self._outcomes[file][name].append(report.outcome)
        if report.when == "call":
            self._figures[file, name] += report.user_properties

    def pytest_sessionfinish(self, session: pytest.Session) -> None:
        if self._outcomes and not hasattr(session.config, "workerinput"):
            self._path.write_text("\n".join(map(self._section, sorted(self._outcomes))))

    def _section(self, file: str) -> str:
        tests = self._outcomes[file]
        rows = "".join(self._row(file, name, tests[name]) for name in tests)
        return f"### {_title(packages.ROOT / file)}\n\n| case | result |\n|---|---|\n{rows}"

    def _row(self, file: str, name: str, outcomes: list[str]) -> str:
        words = name.removeprefix("test_").replace("_", " ")
        passed = outcomes.count("passed")
        result = "passed" if passed == len(outcomes) else "**failed**"
        if len(outcomes) > 1:
            result += f", {passed} of {len(outcomes)} variants"
        figures = "".join(f"<br>{figure}: {value}" for figure, value in self._figures[file, name])
        return f"| {words} | {result}{figures} |\n"


def _title(file: pathlib.Path) -> str:
    text = ast.get_docstring(ast.parse(file.read_text())) or file.stem
    return text.partition("\n")[0].rstrip(".")


def accept() -> None:
    """Puts the last run's tables into the document."""
    before, _, rest = DOCUMENT.read_text().partition(BEGIN)
    _, _, after = rest.partition(END)
    DOCUMENT.write_text(before + BEGIN + "\n" + REPORT.read_text() + "\n" + END + after)


if __name__ == "__main__":
    accept()
