# SPDX-License-Identifier: MIT
"""The plots of one run, as SVG with text that can be searched."""

from __future__ import annotations

import pathlib

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams.update({"svg.fonttype": "none", "svg.hashsalt": "bench",
                            "axes.spines.top": False, "axes.spines.right": False})

from matplotlib import pyplot  # noqa: E402  (the back end is chosen before)

from results import SIZES, Results  # noqa: E402

COLOURS = ("#9e9e9e", "#cfcfcf", "#e0a458", "#b5651d", "#1f77b4", "#74b3de")
WAYS = {"in": "serial→TCP", "out": "TCP→serial", "echo": "echo"}


def _bars(axes: pyplot.Axes, results: Results, metrics: dict[str, str], scale: float = 1) -> None:
    """Groups of bars: `metrics` names them; the whisker is the middle half of the rounds."""
    names = [name for name in results.names()
             if all(results.has(name, metric) for metric in metrics)]
    width = 0.8 / len(names)
    for index, name in enumerate(names):
        spreads = [results.spread(name, metric) for metric in metrics]
        places = [group + (index - (len(names) - 1) / 2) * width for group in range(len(metrics))]
        axes.bar(places, [one.median * scale for one in spreads], width, label=name,
                 color=COLOURS[results.names().index(name)],
                 yerr=[[(one.median - one.low) * scale for one in spreads],
                       [(one.high - one.median) * scale for one in spreads]],
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
        ("peak memory, MiB", {"memory_kib": "1 port", "memory_6_kib": "6 ports"}, 1 / 1024),
        ("start-up to listening, ms", {"startup_us": ""}, 1e-3)])
    return ["latency.svg", "processor.svg", "both-ways.svg", "footprint.svg"]
