# SPDX-License-Identifier: MIT
"""The targets: every one a ratio to the floor, to a peer, or to the service with less to do."""

from __future__ import annotations

import collections.abc
import dataclasses

from results import BASES, DIRECT, FLOOR, PEERS, SERVICE, SERVICE_FILE, SIZES, Results

LATENCY = 1.05
PROCESSOR = 1.10
COMMAND = 1.15
FIRST_BYTE = 1.03
MEMORY = 1.10
GROWTH = 1.10
CLIENT = 2.0

WAYS = {"in": "serial→TCP", "out": "TCP→serial", "echo": "echo"}


@dataclasses.dataclass(frozen=True)
class Verdict:
    """One target beside what was reached."""

    metric: str
    target: str
    reached: str
    met: bool


Judge = collections.abc.Callable[[Results], Verdict]


def _verdict(metric_text: str, ratio: float, bound: float, of: str) -> Verdict:
    return Verdict(metric_text, f"≤ {bound:.2f} × {of}", f"{ratio:.2f} × {of}",
                   round(ratio, 2) <= bound)


def _floor(metric_text: str, metric: str, bound: float, name: str = SERVICE) -> Judge:
    floor = BASES.get(name, FLOOR)
    return lambda results: _verdict(metric_text, results.ratio(name, floor, metric), bound, floor)


def _peers(metric_text: str, metric: str) -> list[Judge]:
    def judge_of(peer: str) -> Judge:
        return lambda results: _verdict(metric_text, results.ratio(SERVICE, peer, metric), 1, peer)
    return [judge_of(peer) for peer in PEERS]


def _calls(way: str) -> Judge:
    def judge(results: Results) -> Verdict:
        named = ", ".join(f"{count:g} {call}" for call, count in
                          results.calls[SERVICE][way].items())
        counted, floor = (results.call_count(name, way) for name in (SERVICE, FLOOR))
        return Verdict(f"system calls per message, {WAYS[way]}", f"{floor:g}, as {FLOOR}",
                       f"{counted:g} ({named})", round(counted) <= round(floor))
    return judge


def _grown(metric_text: str, what: str, metric: str) -> Judge:
    """Something that is the same however much there is to do."""
    def judge(results: Results) -> Verdict:
        curve = results.curve(what, SERVICE, metric)
        least, most = min(curve), max(curve)
        return _verdict(f"growth: {metric_text} {most:,}", curve[most] / curve[least], GROWTH,
                        f"that of {least:,}")
    return judge


def _commands(results: Results) -> Verdict:
    curve = results.curve("commands", SERVICE, "commands_cpu_us")
    half = max(curve) // 2
    first, second = (min(value for count, value in curve.items() if (count > half) == behind)
                     for behind in (False, True))
    return _verdict(f"growth: CPU per command, {half:,} to {2 * half:,} commands", second / first,
                    GROWTH, "that of those before")


def _database(results: Results) -> Verdict:
    curve = results.curve("database", SERVICE, "open_ms")
    ratio = curve[50] / 50 / (curve[10] / 10)
    return _verdict("growth: an open for each MB of the udev database, 50 MB", ratio, GROWTH,
                    "that of 10")


def _size(way: str) -> Judge:
    def judge(results: Results) -> Verdict:
        each = {size: results.best(SERVICE, f"{way}_{size}_cpu_us") / size for size in SIZES}
        return _verdict(f"growth: CPU per byte, {WAYS[way]}, 4096 bytes", each[4096] / each[256],
                        GROWTH, "that of 256")
    return judge


def _messages() -> list[Judge]:
    judges: list[Judge] = []
    for way, text in WAYS.items():
        for size in SIZES:
            latency, cpu = f"{way}_{size}_p50", f"{way}_{size}_cpu_us"
            judges += [_floor(f"{text} p50, {size} B", latency, LATENCY),
                       *_peers(f"{text} p50, {size} B", latency),
                       _floor(f"CPU per message, {text}, {size} B", cpu, PROCESSOR),
                       *_peers(f"CPU per message, {text}, {size} B", cpu)]
        judges += [_floor(f"{text} p50, 1 B, dump to a file", f"{way}_1_p50", LATENCY,
                          SERVICE_FILE),
                   _floor(f"CPU per message, {text}, 1 B, dump to a file", f"{way}_1_cpu_us",
                          PROCESSOR, SERVICE_FILE)]
    return judges


def _clients(results: Results) -> list[Verdict]:
    return [_verdict(f"{text}, {way}", results.client(way, metric) / results.client(DIRECT, metric),
                     CLIENT, DIRECT)
            for way in results.clients if way != DIRECT
            for metric, text in (("echo_p50", "echo p50, 1 B"),
                                 ("cpu_us", "CPU of service and client"))]


TARGETS: list[Judge] = [
    *_messages(),
    _floor("CPU per MB, serial→TCP", "bulk_in_cpu_us_per_mb", PROCESSOR),
    _floor("CPU per MB, serial→TCP, dump to a file", "bulk_in_cpu_us_per_mb", PROCESSOR,
           SERVICE_FILE),
    _floor("CPU per MB, TCP→serial", "bulk_out_cpu_us_per_mb", PROCESSOR),
    *_peers("CPU per MB, serial→TCP", "bulk_in_cpu_us_per_mb"),
    *_peers("CPU per MB, TCP→serial", "bulk_out_cpu_us_per_mb"),
    _floor("CPU of a 64-byte data command", "command_cpu_us", COMMAND),
    _calls("in"),
    _calls("out"),
    _floor("start to the first byte through, USB port", "seven_first_byte_us", FIRST_BYTE),
    *_peers("start-up to listening", "startup_us"),
    _floor("peak memory, 1 port", "memory_kib", MEMORY),
    _floor("peak memory, 7 ports", "seven_memory_kib", MEMORY),
    *_peers("peak memory, 1 port", "memory_kib"),
    *_peers("peak memory, 7 ports", "seven_memory_kib"),
    _floor("idle: wake-ups, 1 port", "idle_wakeups_per_s", PROCESSOR),
    _floor("idle: wake-ups, 7 ports", "seven_idle_wakeups_per_s", PROCESSOR),
    _grown("CPU per message, ports:", "ports", "ports_cpu_us"),
    _size("in"),
    _size("out"),
    _database,
    _commands,
    _grown("peak memory, commands so far:", "commands", "commands_memory_kib"),
    _grown("peak memory, KiB for a relay that does not read:", "unread", "unread_memory_kib"),
]


def verdicts(results: Results) -> list[Verdict]:
    """Every target, in order."""
    return [*(judge(results) for judge in TARGETS), *_clients(results)]
