# SPDX-License-Identifier: MIT
"""Makes a folder's page, figures and plots from the samples of one run.

usage: report.py SAMPLES FOLDER
"""

from __future__ import annotations

import json
import pathlib
import string
import sys

import machine
import plots
from results import FLOOR_FILE, SERVICE_FILE, SIZES, Results
from targets import WAYS, verdicts

PAGE = pathlib.Path(__file__).with_name("page.md")

# Metric, what it is called, its unit, by what the samples are multiplied.
ROWS: list[tuple[str, str, str, float]] = [
    *((f"{way}_{size}_{mark}", f"{text} {mark}, {size} B", "µs", 1)
      for way, text in WAYS.items() for size in SIZES for mark in ("p50", "p99")),
    *((f"{way}_{size}_cpu_us", f"CPU per message, {text}, {size} B", "µs", 1)
      for way, text in WAYS.items() for size in SIZES),
    *((f"both_{way}{late}_{mark}", f"both at once, {WAYS[way]} {mark}{lazy}", "µs", 1)
      for late, lazy in (("", ""), ("_delayed", ", no TCP_QUICKACK"))
      for way in ("in", "out") for mark in ("p50", "p99")),
    ("in_16_delayed_p50", "serial→TCP p50, 16 B, no TCP_QUICKACK", "µs", 1),
    ("in_16_delayed_p99", "serial→TCP p99, 16 B, no TCP_QUICKACK", "µs", 1),
    ("bulk_in_mb_per_s", "bulk serial→TCP", "MB/s", 1),
    ("bulk_out_mb_per_s", "bulk TCP→serial", "MB/s", 1),
    ("bulk_in_cpu_us_per_mb", "CPU per MB, serial→TCP", "ms", 1e-3),
    ("bulk_out_cpu_us_per_mb", "CPU per MB, TCP→serial", "ms", 1e-3),
    ("commands_per_s", "64-byte pieces, TCP→serial", "1000/s", 1e-3),
    ("command_cpu_us", "CPU per 64-byte piece", "µs", 1),
    ("memory_kib", "peak memory, 1 port", "MiB", 1 / 1024),
    ("seven_memory_kib", "peak memory, 7 ports", "MiB", 1 / 1024),
    ("threads", "threads, 1 port", "", 1),
    ("seven_threads", "threads, 7 ports", "", 1),
    ("startup_us", "start-up to listening", "ms", 1e-3),
    ("first_byte_us", "start to the first byte through", "ms", 1e-3),
    ("seven_first_byte_us", "start to the first byte through, USB port", "ms", 1e-3),
    ("idle_wakeups_per_s", "idle: wake-ups, 1 port", "1/s", 1),
    ("seven_idle_wakeups_per_s", "idle: wake-ups, 7 ports", "1/s", 1),
    ("idle_cpu_us_per_s", "idle: CPU, 1 port", "µs/s", 1),
    ("seven_idle_cpu_us_per_s", "idle: CPU, 7 ports", "µs/s", 1),
    ("open_ms", "open command, udev dump of 74 kB", "ms", 1),
    ("open_tools_ms", "of that: the shell commands", "ms", 1),
    ("open_own_ms", "of that: the service", "ms", 1),
]


def table(heading: list[str], rows: list[list[str]]) -> str:
    """A Markdown table."""
    lines = [heading, ["---"] * len(heading), *rows]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines)


def _figure(value: float) -> str:
    return f"{value:.1f}" if value >= 100 else f"{value:.3g}"


def _cell(results: Results, name: str, metric: str, scale: float) -> str:
    if not results.has(name, metric):
        return ""
    spread = results.spread(name, metric)
    best, low, high = (_figure(value * scale) for value in (spread.best, spread.low, spread.high))
    cell = best if low == high else f"{best} ({low}–{high})"
    ratio = results.above_floor(name, metric)
    return cell if ratio is None else f"{cell} **{ratio:.2f}**"


def measured_table(results: Results) -> str:
    """Every metric over every bridge."""
    rows = [[text, unit, *(_cell(results, name, metric, scale) for name in results.names())]
            for metric, text, unit, scale in ROWS]
    for way in ("in", "out"):
        rows.append([f"system calls per message, {WAYS[way]}", "",
                     *(f"{results.call_count(name, way):g}" if name in results.calls else ""
                       for name in results.names())])
    return table(["metric", "unit", *results.names()], rows)


def client_table(results: Results) -> str:
    """A byte there and back by every way to the service."""
    return table(["way to the service", "echo p50, 1 B, µs", "CPU of service and client, µs"],
                 [[way, *(_figure(results.client(way, metric))
                          for metric in ("echo_p50", "cpu_us"))] for way in results.clients])


def target_table(results: Results) -> str:
    """Every target beside the figure that was reached."""
    return table(["metric", "target", "reached", ""],
                 [[one.metric, one.target, one.reached, "met" if one.met else "**missed**"]
                  for one in verdicts(results)])


def main() -> None:
    """Writes README.md, results.json and the plots, and prints the targets."""
    samples, folder = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    run = json.loads(samples.read_text())
    results = Results(run)
    made_with = machine.describe()
    pictures = plots.draw(results, folder)
    page = string.Template(PAGE.read_text(encoding="utf-8")).substitute(
        machine=table(["", ""], [[name, text] for name, text in made_with.items()]),
        targets=target_table(results), measured=measured_table(results),
        clients=client_table(results),
        rounds=results.rounds, floor_file=FLOOR_FILE, service_file=SERVICE_FILE,
        plots="\n\n".join(f"![{name}]({name})" for name in pictures))
    (folder / "README.md").write_text(page, encoding="utf-8")
    spreads = {name: {metric: results.spread(name, metric).__dict__
                      for metric in sorted(results.samples[name])} for name in results.names()}
    (folder / "results.json").write_text(
        json.dumps({"machine": made_with, "rounds": results.rounds, "figures": spreads,
                    "system_calls": results.calls, "growth": results.growth,
                    "clients": results.clients},
                   indent=1, sort_keys=True) + "\n")
    for one in verdicts(results):
        print(f"{'met   ' if one.met else 'MISSED'}  {one.metric}: {one.reached}"
              f" (target {one.target})")


main()
