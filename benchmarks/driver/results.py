# SPDX-License-Identifier: MIT
"""What a run found: medians over its rounds, ratios to the bare limit, and the targets."""

from __future__ import annotations

import collections.abc
import dataclasses
import statistics

LIMIT = "limit"
SERVICE = "service"
FILE = "service-file"
PEERS = ("socat", "ser2net")
SIZES = (1, 16, 256, 1024)


@dataclasses.dataclass(frozen=True)
class Spread:
    """One figure over all rounds."""

    median: float
    low: float  # the lower quartile
    high: float  # the upper quartile


class Results:
    """The samples of one run."""

    def __init__(self, run: dict) -> None:
        self.rounds: int = run["rounds"]
        self.samples: dict[str, dict[str, list[float]]] = run["samples"]
        self.calls: dict[str, dict[str, dict[str, float]]] = run["system_calls"]

    def names(self) -> list[str]:
        """The bridges, in the order they were measured in."""
        return list(self.samples)

    def has(self, name: str, metric: str) -> bool:
        """Whether that was measured over that bridge."""
        return metric in self.samples[name]

    def spread(self, name: str, metric: str) -> Spread:
        """Median and quartiles."""
        values = self.samples[name][metric]
        if len(values) < 2:
            return Spread(values[0], values[0], values[0])
        low, median, high = statistics.quantiles(values, n=4, method="inclusive")
        return Spread(median, low, high)

    def median(self, name: str, metric: str) -> float:
        """The median alone."""
        return self.spread(name, metric).median

    def ratio(self, name: str, metric: str) -> float:
        """To the bare limit, in the same run."""
        return self.median(name, metric) / self.median(LIMIT, metric)

    def call_count(self, name: str, way: str) -> float:
        """System calls for one message."""
        return sum(self.calls[name][way].values())


@dataclasses.dataclass(frozen=True)
class Verdict:
    """One target beside what was reached."""

    metric: str
    target: str
    reached: str
    met: bool


Judge = collections.abc.Callable[[Results], list[Verdict]]


def _ratio(metric_text: str, name: str, metric: str, bound: float) -> Judge:
    def judge(results: Results) -> list[Verdict]:
        ratio = results.ratio(name, metric)
        return [Verdict(metric_text, f"≤ {bound:.2f} × limit", f"{ratio:.2f} × limit",
                        round(ratio, 2) <= bound)]
    return judge


def _below(metric_text: str, metric: str, peer: str, factor: float = 1.0,
           name: str = SERVICE) -> Judge:
    def judge(results: Results) -> list[Verdict]:
        ratio = results.median(name, metric) / results.median(peer, metric)
        return [Verdict(metric_text, f"≤ {factor:.2f} × {peer}", f"{ratio:.2f} × {peer}",
                        round(ratio, 2) <= factor)]
    return judge


def _absolute(metric_text: str, metric: str, bound: float, unit: str, most: bool) -> Judge:
    def judge(results: Results) -> list[Verdict]:
        value = results.median(SERVICE, metric)
        sign = "≤" if most else "≥"
        return [Verdict(metric_text, f"{sign} {bound:,g} {unit}", f"{value:,.4g} {unit}",
                        value <= bound if most else value >= bound)]
    return judge


def _calls(way: str, wanted: int, text: str) -> Judge:
    def judge(results: Results) -> list[Verdict]:
        counted = results.call_count(SERVICE, way)
        named = ", ".join(f"{count:g} {call}" for call, count in
                          results.calls[SERVICE][way].items())
        return [Verdict(f"system calls per message, {text}", str(wanted),
                        f"{counted:g} ({named})", round(counted) <= wanted)]
    return judge


def _echo() -> list[Judge]:
    judges = []
    for size in SIZES:
        text, metric = f"echo p50, {size} bytes", f"echo_{size}_p50"
        judges += [_ratio(text, SERVICE, metric, 1.15),
                   _ratio(f"{text}, dump to a file", FILE, metric, 1.3),
                   *(_below(text, metric, peer) for peer in PEERS)]
    return judges


def _idle(results: Results) -> list[Verdict]:
    wakeups = results.median(SERVICE, "idle_wakeups_per_s")
    return [Verdict("idle wake-ups a second", "10 reads and 4 looks", f"{wakeups:.1f}",
                    wakeups <= 15)]


TARGETS: list[Judge] = [
    _ratio("serial→TCP p50, 1 byte", SERVICE, "in_1_p50", 1.10),
    _ratio("serial→TCP p50, 1 byte, dump to a file", FILE, "in_1_p50", 1.25),
    _below("serial→TCP p50, 1 byte", "in_1_p50", "ser2net"),
    _below("serial→TCP p50, 1 byte", "in_1_p50", "socat"),
    _ratio("TCP→serial p50, 1 byte", SERVICE, "out_1_p50", 1.20),
    *_echo(),
    _ratio("CPU per message, serial→TCP", SERVICE, "in_16_cpu_us", 1.2),
    _ratio("CPU per message, TCP→serial", SERVICE, "out_16_cpu_us", 1.5),
    _below("CPU per message, serial→TCP", "in_16_cpu_us", "socat"),
    _below("CPU per message, TCP→serial", "out_16_cpu_us", "socat"),
    _ratio("CPU per MB, serial→TCP", SERVICE, "bulk_in_cpu_us_per_mb", 1.3),
    _ratio("CPU per MB, serial→TCP, dump to a file", FILE, "bulk_in_cpu_us_per_mb", 1.9),
    _below("CPU per MB, serial→TCP", "bulk_in_cpu_us_per_mb", "ser2net"),
    _ratio("CPU per MB, TCP→serial", SERVICE, "bulk_out_cpu_us_per_mb", 1.8),
    _below("CPU per MB, TCP→serial", "bulk_out_cpu_us_per_mb", "ser2net"),
    _absolute("64-byte data commands", "commands_per_s", 150_000, "a second", most=False),
    _absolute("CPU of a 64-byte data command", "command_cpu_us", 4.5, "µs", most=True),
    _calls("in", 3, "serial→TCP"),
    _calls("out", 4, "TCP→serial"),
    _ratio("peak memory, 1 port", SERVICE, "memory_kib", 1.4),
    _ratio("peak memory, 6 ports", SERVICE, "memory_6_kib", 1.6),
    *(_below("peak memory, 1 port", "memory_kib", peer) for peer in PEERS),
    *(_below("peak memory, 6 ports", "memory_6_kib", peer) for peer in PEERS),
    _ratio("start-up to listening", SERVICE, "startup_us", 1.4),
    *(_below("start-up to listening", "startup_us", peer, 0.6) for peer in PEERS),
    _absolute("open command, own part", "open_own_ms", 2, "ms", most=True),
    _idle,
]


def verdicts(results: Results) -> list[Verdict]:
    """Every target, in order."""
    return [verdict for judge in TARGETS for verdict in judge(results)]
