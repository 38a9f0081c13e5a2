# SPDX-License-Identifier: MIT
"""The plots of one run, as SVG with text that can be searched."""

from __future__ import annotations

import pathlib

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams.update({"svg.fonttype": "none", "svg.hashsalt": "bench",
                            "axes.spines.top": False, "axes.spines.right": False})

from matplotlib import pyplot  # noqa: E402  (the back end is chosen before)

from results import FLOOR, SERVICE, SIZES, Results  # noqa: E402
from targets import WAYS  # noqa: E402

COLOURS = ("#9e9e9e", "#1f77b4", "#cfcfcf", "#e0a458", "#b5651d", "#7f7f7f", "#74b3de")


def _bars(axes: pyplot.Axes, results: Results, metrics: dict[str, str], scale: float = 1) -> None:
    """Groups of bars: `metrics` names them; the whisker is the middle half of the rounds."""
    names = [name for name in results.names()
             if all(results.has(name, metric) for metric in metrics)]
    width = 0.8 / len(names)
    for index, name in enumerate(names):
        spreads = [results.spread(name, metric) for metric in metrics]
        places = [group + (index - (len(names) - 1) / 2) * width for group in range(len(metrics))]
        axes.bar(places, [one.best * scale for one in spreads], width, label=name,
                 color=COLOURS[results.names().index(name)],
                 yerr=[[0] * len(spreads), [(one.high - one.best) * scale for one in spreads]],
                 error_kw={"elinewidth": 0.7})
    axes.set_xticks(range(len(metrics)), list(metrics.values()))


def _save(figure: pyplot.Figure, path: pathlib.Path) -> None:
    figure.axes[0].legend(frameon=False, fontsize=8)
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})
    pyplot.close(figure)


def _panels(path: pathlib.Path, results: Results, panels: list[tuple[str, dict[str, str], float]],
            logarithmic: bool = False) -> None:
    figure, all_axes = pyplot.subplots(1, len(panels), figsize=(5 * len(panels), 3.6),
                                       squeeze=False)
    for axes, (title, metrics, scale) in zip(all_axes[0], panels):
        _bars(axes, results, metrics, scale)
        axes.set_title(title, fontsize=10)
        if logarithmic:
            axes.set_yscale("log")
    _save(figure, path)


def _curves(path: pathlib.Path, across: str, panels: list[tuple[str, dict[str, dict[int, float]]]],
            logarithmic: bool = False) -> str:
    """A line for each name; `across` says what grows."""
    figure, all_axes = pyplot.subplots(1, len(panels), figsize=(5 * len(panels), 3.6),
                                       squeeze=False)
    for axes, (title, curves) in zip(all_axes[0], panels):
        for name, curve in curves.items():
            axes.plot(list(curve), list(curve.values()), marker=".", label=name)
        axes.set_title(title, fontsize=10)
        axes.set_xlabel(across)
        if logarithmic:
            axes.set_xscale("log", base=2)
            axes.set_yscale("log")
        else:
            axes.set_ylim(bottom=0)
    _save(figure, path)
    return path.name


def _draw_growth(results: Results, folder: pathlib.Path) -> list[str]:
    both = (FLOOR, SERVICE)

    def of_both(what: str, metric: str) -> dict[str, dict[int, float]]:
        return {name: results.curve(what, name, metric) for name in both}

    sizes = [(f"CPU per message, {WAYS[way]}, µs",
              {name: {size: results.best(name, f"{way}_{size}_cpu_us") for size in SIZES}
               for name in both}) for way in ("in", "out")]
    return [
        _curves(folder / "growth-ports.svg", "ports",
                [("CPU per message of 16 bytes, µs", of_both("ports", "ports_cpu_us")),
                 ("peak memory, KiB", of_both("ports", "memory_kib"))]),
        _curves(folder / "growth-sizes.svg", "bytes", sizes, logarithmic=True),
        _curves(folder / "growth-database.svg", "udev database, MB", [
            ("open command, ms",
             {"all": results.curve("database", SERVICE, "open_ms"),
              "the shell commands": results.curve("database", SERVICE, "open_tools_ms")})]),
        _curves(folder / "growth-commands.svg", "64-byte commands",
                [("CPU per command, µs", of_both("commands", "commands_cpu_us")),
                 ("peak memory, KiB", of_both("commands", "commands_memory_kib"))]),
        _curves(folder / "growth-unread.svg", "KiB sent to a relay that does not read",
                [("peak memory, KiB", of_both("unread", "unread_memory_kib"))]),
    ]


def draw(results: Results, folder: pathlib.Path) -> list[str]:
    """Writes the files and returns their names."""
    _panels(folder / "latency.svg", results, [
        (f"{text}, µs (p50), by bytes", {f"{way}_{size}_p50": str(size) for size in SIZES}, 1)
        for way, text in WAYS.items()])
    _panels(folder / "processor.svg", results, [
        ("CPU per message of 16 bytes, µs",
         {f"{way}_16_cpu_us": text for way, text in WAYS.items()}, 1),
        ("CPU per MB, ms", {"bulk_in_cpu_us_per_mb": WAYS["in"],
                            "bulk_out_cpu_us_per_mb": WAYS["out"]}, 1e-3)], logarithmic=True)
    _panels(folder / "both-ways.svg", results, [
        (f"64 bytes each way every ms, µs ({mark}); lazy: without TCP_QUICKACK",
         {f"both_in_{mark}": "in", f"both_in_delayed_{mark}": "in, lazy",
          f"both_out_{mark}": "out", f"both_out_delayed_{mark}": "out, lazy"}, 1)
        for mark in ("p50", "p99")], logarithmic=True)
    _panels(folder / "footprint.svg", results, [
        ("peak memory, MiB", {"memory_kib": "1 port", "seven_memory_kib": "7 ports"}, 1 / 1024),
        ("start-up to listening, ms", {"startup_us": ""}, 1e-3)])
    return ["latency.svg", "processor.svg", "both-ways.svg", "footprint.svg",
            *_draw_growth(results, folder)]
