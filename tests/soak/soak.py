# SPDX-License-Identifier: MIT
"""Runs the real service for so long, under load and under faults, and checks every byte. In the
sandbox: see the script `run`.

usage: soak.py SERVICE MINUTES [SEED]
"""

import os
import random
import re
import signal
import sys
import tempfile
import time
from collections import Counter
from collections.abc import Callable
from pathlib import Path

from conductor import Conductor
from stream import CheckedStream
from world import Holdings, World

CALM = 2  # seconds of traffic without faults, before and after
GLANCE = 60  # seconds between two looks at the memory
PATIENCE = 60  # seconds for the ports to be up, the lines to be drained, the end
REFUSED = re.compile(
    r"^\S+Z 1 SerialPortHandler SerialPortHandler\.cpp:\d+ 4 Command parse failed\.$", re.MULTILINE)

# How much resident memory, in kB, may be added while the soak runs. The allocator gives new
# threads pools of their own, up to eight for each processor, and keeps some 200 kB in each; after
# that it levels off. AddressSanitizer keeps freed memory on purpose. One lost buffer for each of
# the hundreds of packets a second would be far more after a minute.
TOLERANCE = int(os.environ.get("SOAK_TOLERANCE_KB", "4096"))


class Soak:
    def __init__(self, world: World, plan: random.Random) -> None:
        self._world = world
        self._conductor = Conductor(world, plan)
        self.verdicts: Counter[bool] = Counter()

    def run(self, seconds: float) -> None:
        began = time.monotonic()
        at_start = self._begin()
        self._make_faults(seconds)
        at_end = self._calm_down(at_start)
        lasted = time.monotonic() - began
        self._stop_service()
        self._show_figures(lasted)
        self._check_streams()
        self._check_holdings(at_start, at_end)
        print(f"{self.verdicts[True]} passed, {self.verdicts[False]} failed")

    def _check(self, what: str, holds: bool, details: list[str] | None = None) -> None:
        self.verdicts[holds] += 1
        print("passed:" if holds else "FAILED:", what)
        for detail in [] if holds else (details or [])[:20]:
            print("   ", detail)

    def _until(self, what: str, condition: Callable[[], bool]) -> None:
        self._check(what, self._conductor.run_until(condition, PATIENCE))

    def _begin(self) -> Holdings:
        """Warm: each port has been open and has carried data both ways."""
        self._until("all ports come up", self._conductor.all_up)
        self._conductor.run_for(CALM)
        return self._world.held()

    def _make_faults(self, seconds: float) -> None:
        """Growth that goes on shows in the course of the memory sooner than in its bound."""
        self._conductor.makes_faults = True
        end = time.monotonic() + seconds
        while (left := end - time.monotonic()) > 0 and self._world.is_running:
            self._conductor.run_for(min(GLANCE, left))
            print(self._world.held())
        self._conductor.makes_faults = False

    def _calm_down(self, at_start: Holdings) -> Holdings:
        self._until("all ports are up after the faults", self._conductor.all_up)
        self._conductor.run_for(CALM)
        self._conductor.sends_data = False
        self._until("all that was sent has arrived in the end", self._conductor.all_drained)
        self._conductor.run_until(lambda: self._world.held()[:2] == at_start[:2], PATIENCE)
        return self._world.held()

    def _stop_service(self) -> None:
        self._check("the service runs to the end", self._world.is_running)
        self._conductor.stops = True
        self._world.service.send_signal(signal.SIGTERM)
        self._conductor.run_until(lambda: not self._world.is_running, PATIENCE)
        status = self._world.service.poll()
        self._check(f"the service stops as told, with status {status}", status == 0)
        self._world.read_errors()

    def _ways(self) -> dict[str, list[CheckedStream]]:
        return {"device to relay": [port.from_device for port in self._world.ports],
                "relay to device": [port.to_device for port in self._world.ports]}

    def _show_figures(self, seconds: float) -> None:
        print(f"{len(self._world.ports)} ports, {seconds:.0f} s")
        for way, streams in self._ways().items():
            print(f"{way}: {sum(stream.sent_bytes for stream in streams)} bytes sent, "
                  f"{sum(stream.arrived_bytes for stream in streams)} arrived")
            print(f"  at borders: {sum(stream.lost_frames for stream in streams)} frames lost, "
                  f"{sum(stream.cut_bytes for stream in streams)} bytes of cut frames, "
                  f"{sum(stream.repeated_frames for stream in streams)} frames repeated")
        print("faults:", ", ".join(f"{n} {kind}" for kind, n in self._conductor.faults.items()))

    def _check_streams(self) -> None:
        for way, streams in self._ways().items():
            self._check(f"each port carried data from {way}",
                        all(stream.arrived_bytes for stream in streams))
            defects = [defect for stream in streams for defect in stream.defects]
            self._check(f"nothing lost, doubled or out of order from {way}", not defects, defects)
        faults = self._conductor.faults
        self._check("each kind of fault was made", all(faults.values()))
        self._check("answers, link and ports behaved", not self._conductor.defects,
                    self._conductor.defects)
        log = self._world.log.read_text(encoding="utf-8", errors="replace")
        refused = len(REFUSED.findall(log))
        self._check(f"each garbage packet is refused, with one log line: {refused}",
                    self._conductor.fenced <= refused <= faults["garbage packets"])
        self._check("nothing unexpected on standard error", not self._world.unexpected,
                    self._world.unexpected)

    def _check_holdings(self, at_start: Holdings, at_end: Holdings) -> None:
        print(f"start: {at_start}\nend: {at_end}")
        self._check("as many descriptors and threads as at the start", at_end[:2] == at_start[:2])
        self._check(f"at most {TOLERANCE} kB more resident memory",
                    at_end.kilobytes <= at_start.kilobytes + TOLERANCE)


def main(service: str, minutes: float, seed: int) -> int:
    """The exit status: 0 when every verdict is good."""
    print(f"soak of {minutes:.1f} minutes, seed {seed}")
    plan = random.Random(seed)
    with tempfile.TemporaryDirectory() as folder:
        world = World(service, Path(folder), plan)
        try:
            soak = Soak(world, plan)
            soak.run(minutes * 60)
        finally:
            world.service.kill()
            world.service.wait()
    return 1 if soak.verdicts[False] else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], float(sys.argv[2]),
                  int(sys.argv[3]) if len(sys.argv) > 3 else random.SystemRandom().getrandbits(32)))
