# SPDX-License-Identifier: MIT
"""How the service's costs grow: with ports, with the udev database, with commands, and with what a
relay leaves unread. How they grow with the size of a message is among the other figures."""

from __future__ import annotations

import pathlib

import contestants
from contestants import FLOOR, SCRATCH, SERVICE, SEVEN_PORTS, Contestant, Programs

REPETITIONS = 3
MEGABYTES = (1, 10, 50)

Curve = dict[int, float]  # by how much there is to do


def open_figures(programs: Programs, database: pathlib.Path) -> dict[str, float]:
    """An open command that searches such a database."""
    contestants.use_database(database)
    figures = SERVICE.figures(programs, SEVEN_PORTS, ("--measure", "open"))
    contestants.use_database(SCRATCH / "six-adapters")
    return {name: value for name, value in figures.items() if name.startswith("open_")}


def _by_ports(contestant: Contestant, programs: Programs,
              extra: tuple[str, ...]) -> dict[str, Curve]:
    curves: dict[str, Curve] = {"ports_cpu_us": {}, "memory_kib": {}}
    for ports in range(1, SEVEN_PORTS + 1):
        runs = [contestant.figures(programs, ports, (*extra, "--measure", "ports"))
                for _ in range(REPETITIONS)]
        for metric, curve in curves.items():
            curve[ports] = min(run[metric] for run in runs)
    return curves


def _by_database(programs: Programs) -> dict[str, Curve]:
    curves: dict[str, Curve] = {"open_ms": {}, "open_tools_ms": {}}
    one = len(contestants.large_database())
    path = SCRATCH / "growing"
    for megabytes in MEGABYTES:
        path.write_text(contestants.large_database(megabytes * 1_000_000 // one))
        figures = open_figures(programs, path)
        for metric, curve in curves.items():
            curve[megabytes] = figures[metric]
    path.unlink()
    return curves


def _curves(figures: dict[str, float], metrics: tuple[str, ...]) -> dict[str, Curve]:
    """Figures whose names end in how much there was to do."""
    return {metric: {int(name.removeprefix(f"{metric}_")): value for name, value in figures.items()
                     if name.startswith(f"{metric}_")} for metric in metrics}


def measure(programs: Programs, scale: int) -> dict[str, dict[str, dict[str, Curve]]]:
    """By what grows, by bridge and by metric."""
    extra = ("--scale", str(scale))
    found: dict[str, dict[str, dict[str, Curve]]] = {
        "database": {SERVICE.name: _by_database(programs)}}
    for one in (FLOOR, SERVICE):
        found.setdefault("ports", {})[one.name] = _by_ports(one, programs, extra)
        found.setdefault("commands", {})[one.name] = _curves(
            one.figures(programs, 1, (*extra, "--measure", "commands")),
            ("commands_cpu_us", "commands_memory_kib"))
        found.setdefault("unread", {})[one.name] = _curves(
            one.figures(programs, 1, ("--measure", "unread")), ("unread_memory_kib",))
    return found
