# SPDX-License-Identifier: MIT
"""The cases for a real board: a loop-back plug on each line, and a person at the adapters.

usage: board.py [--port N] [--size BYTES] [--unplug] NAME...
  --port    the port of this computer that leads to the service's relay port; 60004
  --size    how much goes through each line; 65536
  --unplug  asks for each USB adapter to be unplugged and plugged in again
Ends with status 0 when all is well. Every name must be in the board's configuration.
"""

from __future__ import annotations

import argparse
import random
import sys
import time

from background import Background
from line import checksum
from relay import CLOSE, OPEN, Relay, named

ALREADY_OPEN = 3
BLOCK = 1024


def say(text: str) -> None:
    print(text, flush=True)


def much_comes_back(relay: Relay, names: list[str], size: int) -> None:
    """Through all lines at once."""
    sent = {name: random.Random(name).randbytes(size) for name in names}

    def write_in_turn() -> None:
        for start in range(0, size, BLOCK):
            for name in names:
                relay.writes(name, sent[name][start:start + BLOCK])

    began = time.monotonic()
    writer = Background(write_in_turn)
    for name in names:
        found = relay.port(name).takes(size, 600)
        assert checksum(found) == checksum(sent[name]), f"{name}: {len(found)} bytes, not the same"
    writer.wait()
    say(f"ok: {size} bytes came back on each of {len(names)} lines, "
        f"in {time.monotonic() - began:.1f} s")


def opens_and_closes(relay: Relay, name: str) -> None:
    answers = [relay.asks(command, named(name)) for command in (OPEN, CLOSE, OPEN)]
    assert answers == [ALREADY_OPEN, 0, 0], f"{name}: statuses {answers}"
    say(f"ok: {name} is opened once, closed, and opened again")


def comes_back(relay: Relay, name: str, number: int, seconds: float) -> bool:
    word = f"probe {number} of {name};".encode()
    relay.writes(name, word)
    return word in relay.port(name).takes_what_comes(word, seconds)


def unplugged_and_plugged_in(relay: Relay, name: str) -> None:
    say(f"unplug the adapter of {name}")
    number = 0
    while comes_back(relay, name, number, 1):
        number += 1
        time.sleep(0.1)
    say(f"plug the adapter of {name} in again")
    began = time.monotonic()
    while not comes_back(relay, name, number, 1):
        number += 1
        assert time.monotonic() - began < 120, f"{name} does not come back"
    say(f"ok: {name} is back, {time.monotonic() - began:.1f} s after the request")


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--port", type=int, default=60004)
    parser.add_argument("--size", type=int, default=65536)
    parser.add_argument("--unplug", action="store_true")
    parser.add_argument("names", nargs="+", metavar="NAME")
    wanted = parser.parse_args()
    relay = Relay(wanted.port)
    for name in wanted.names:
        relay.opens(name)
    much_comes_back(relay, wanted.names, wanted.size)
    for name in wanted.names:
        opens_and_closes(relay, name)
    if wanted.unplug:
        for name in filter(lambda name: "USB" in name, wanted.names):
            unplugged_and_plugged_in(relay, name)
    relay.close()


if __name__ == "__main__":
    try:
        main()
    except (AssertionError, OSError) as error:
        sys.exit(f"failed: {error}")
