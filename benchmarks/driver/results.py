# SPDX-License-Identifier: MIT
"""What a run found: the best of its rounds and their spread, and ratios of those."""

from __future__ import annotations

import dataclasses
import statistics

FLOOR = "floor"
SERVICE = "service"
FLOOR_FILE = "floor-file"
SERVICE_FILE = "service-file"
DIRECT = "direct"
PEERS = ("socat", "ser2net")
SIZES = (1, 16, 256, 1024, 4096)

# What is better when there is more of it.
RATES = ("bulk_in_mb_per_s", "bulk_out_mb_per_s", "commands_per_s")

BASES = {SERVICE_FILE: FLOOR_FILE}  # whose floor is another one


@dataclasses.dataclass(frozen=True)
class Spread:
    """One figure over all rounds."""

    best: float  # the least; of what is better when there is more of it the most
    median: float
    low: float  # the lower quartile
    high: float  # the upper quartile


class Results:
    """The samples of one run."""

    def __init__(self, run: dict) -> None:
        self.rounds: int = run["rounds"]
        self.samples: dict[str, dict[str, dict[str, float]]] = run["samples"]
        self.calls: dict[str, dict[str, dict[str, float]]] = run["system_calls"]
        self.growth: dict[str, dict[str, dict[str, dict[str, float]]]] = run["growth"]
        self.clients: dict[str, dict[str, list[float]]] = run["clients"]

    def names(self) -> list[str]:
        """The bridges, in the order they were measured in."""
        return list(self.samples)

    def has(self, name: str, metric: str) -> bool:
        """Whether that was measured over that bridge."""
        return metric in self.samples[name]

    def spread(self, name: str, metric: str) -> Spread:
        """The best, median and quartiles."""
        values = list(self.samples[name][metric].values())
        best = max(values) if metric in RATES else min(values)
        if len(values) < 2:
            return Spread(best, values[0], values[0], values[0])
        low, median, high = statistics.quantiles(values, n=4, method="inclusive")
        return Spread(best, median, low, high)

    def best(self, name: str, metric: str) -> float:
        """The best alone."""
        return self.spread(name, metric).best

    def ratio(self, name: str, other: str, metric: str) -> float:
        """That of the best: what else the machine does, or its host, makes a round worse only."""
        return self.best(name, metric) / self.best(other, metric)

    def above_floor(self, name: str, metric: str) -> float | None:
        """The ratio to the floor under that bridge; None where it has none."""
        floor = BASES.get(name, FLOOR)
        if name in (FLOOR, FLOOR_FILE) or not self.has(floor, metric):
            return None
        return self.ratio(name, floor, metric) if self.best(floor, metric) > 0 else None

    def call_count(self, name: str, way: str) -> float:
        """System calls for one message."""
        return sum(self.calls[name][way].values())

    def client(self, way: str, metric: str) -> float:
        """What a byte there and back took by one way to the service, at best."""
        return min(self.clients[way][metric])

    def curve(self, what: str, name: str, metric: str) -> dict[int, float]:
        """How that grew, by how much there was to do."""
        return {int(amount): value for amount, value in self.growth[what][name][metric].items()}
