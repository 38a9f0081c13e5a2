# SPDX-License-Identifier: MIT
"""Counts a message's instructions, in user space and in the kernel, on an emulated ARM board.

The board is QEMU's, with one processor and a clock that is the number of instructions carried out,
so that what else this computer does changes nothing. It is booted five times, each with another
chance, and the medians are told. The first boot is repeated: figures that differ by more than 1 %
are an error.
usage: measure.py BUILD-FOLDER PAGE
"""

from __future__ import annotations

import concurrent.futures
import datetime
import os
import pathlib
import re
import statistics
import string
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
sys.path.append(str(HERE.parents[1] / "tests" / "machine"))
import guest  # noqa: E402
import packages  # noqa: E402

PROGRAMS = ("floor", "service")
MESSAGES = {"data-64": "command of 64 bytes", "notification-1": "notification of 1 byte",
            "notification-64": "notification of 64 bytes",
            "notification-4096": "notification of 4096 bytes",
            "echo-64": "echo of 64 bytes"}
CHANCES = (1, 2, 3, 4, 5)  # seeds of QEMU's random numbers, and so of the kernel's
ALLOWED = 0.01
DEADLINE_SECONDS = 1200  # a boot takes 15 s of a processor, which others may want more
PROCESSOR = "cortex-a15"
BOARD = ["qemu-system-arm", "-accel", "tcg", "-icount", "shift=0,sleep=off", "-cpu", PROCESSOR,
         "-m", "512", "-smp", "1", "-nodefaults", "-display", "none", "-no-reboot",
         "-rtc", "base=2026-01-01T00:00:00,clock=vm"]
MACHINE = "virt,highmem=off"

Figures = dict[str, dict[str, tuple[int, int]]]  # by program and message: user, kernel


def device_tree(folder: pathlib.Path) -> pathlib.Path:
    """QEMU's own, in which the processor's counters have no name that the kernel would know. Random
    seeds are in it: they are chosen too."""
    tree = folder / "board.dtb"
    subprocess.run([*BOARD, "-seed", str(CHANCES[0]), "-machine", f"{MACHINE},dumpdtb={tree}"],
                   check=True, stderr=subprocess.DEVNULL)
    subprocess.run(["fdtput", "-t", "s", tree, "/pmu", "compatible", f"arm,{PROCESSOR}-pmu"],
                   check=True)
    return tree


def run(image: guest.Image, tree: pathlib.Path, console: pathlib.Path, chance: int) -> Figures:
    """Boots the board, which turns itself off when it has counted."""
    command: list[str | pathlib.Path] = [
        *BOARD, "-seed", str(chance), "-machine", MACHINE, "-dtb", tree,
        "-kernel", image.kernel, "-initrd", image.disk,
        "-append", "console=ttyAMA0 quiet panic=-1", "-serial", f"file:{console}"]
    try:
        subprocess.run(command, check=True, stdin=subprocess.DEVNULL, timeout=DEADLINE_SECONDS)
    except subprocess.TimeoutExpired:
        raise TimeoutError(f"the board has not ended within {DEADLINE_SECONDS} s, at a load of "
                           f"{os.getloadavg()[1]:.1f}; its console:\n" + _told(console)) from None
    return figures_of(_told(console))


def _told(console: pathlib.Path) -> str:
    return console.read_text(errors="replace") if console.exists() else ""


def figures_of(told: str) -> Figures:
    """What the console shows."""
    found: Figures = {}
    for line in told.splitlines():
        if line in PROGRAMS:
            found[line] = {}
        elif match := re.fullmatch(r"(\S+-\d+) (\d+) (\d+)", line):
            found[list(found)[-1]][match[1]] = (int(match[2]), int(match[3]))
    if {name: set(counts) for name, counts in found.items()} != dict.fromkeys(
            PROGRAMS, set(MESSAGES)):
        raise ValueError("the board has not counted everything; its console:\n" + told)
    return found


def difference(one: Figures, other: Figures) -> float:
    """The largest of any figure, as a part of it."""
    return max(abs(left - right) / left for program in PROGRAMS for message in MESSAGES
               for left, right in zip(one[program][message], other[program][message]))


def medians(boots: list[Figures]) -> Figures:
    """Of each figure by itself."""
    def median(program: str, message: str, part: int) -> int:
        return statistics.median_low(boot[program][message][part] for boot in boots)
    return {program: {message: (median(program, message, 0), median(program, message, 1))
                      for message in MESSAGES} for program in PROGRAMS}


def table(heading: list[str], rows: list[list[str]]) -> str:
    """In Markdown."""
    return "\n".join("| " + " | ".join(line) + " |"
                     for line in (heading, ["---"] * len(heading), *rows))


def figures_table(figures: Figures) -> str:
    """A row for each message: user, kernel and both, of the floor and of the service."""
    rows = []
    for message, name in MESSAGES.items():
        floor, service = ((*counts, sum(counts)) for counts in
                          (figures[program][message] for program in PROGRAMS))
        rows.append([name, *(f"{count:,}" for count in (*floor, *service)),
                     *(f"{above / below:.2f}" for above, below in zip(service, floor))])
    return table(["message", *(f"{program}: {part}" for program in PROGRAMS
                               for part in ("user", "kernel", "both")),
                  *(f"ratio: {part}" for part in ("user", "kernel", "both"))], rows)


def made_with(kernel: pathlib.Path) -> dict[str, str]:
    """What the figures depend on."""
    return {
        "date": datetime.date.today().isoformat(),
        "service": _first_line("git", "describe", "--always", "--dirty"),
        "board": f"{_first_line('qemu-system-arm', '--version')}, virt, {PROCESSOR}",
        "kernel": kernel.resolve().name.removeprefix("vmlinuz-"),
        "compiler": _first_line("arm-linux-gnueabihf-g++", "--version"),
    }


def _first_line(*command: str) -> str:
    return subprocess.check_output(command, text=True).splitlines()[0]


def boots(build: pathlib.Path) -> tuple[list[Figures], Figures, dict[str, str]]:
    """One for each chance, the first of them again, and what they were made with."""
    programs = ("SerialPortHandler", "floor", "message-instructions")
    packages.CACHE.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=packages.CACHE) as name:
        folder = pathlib.Path(name)
        image = guest.image(guest.Kind("armhf", "linux-image-armmp", build, programs, drivers=(),
                                       overlay=HERE / "guest"), folder)
        tree = device_tree(folder)

        def boot(number: int, chance: int) -> Figures:
            return run(image, tree, folder / f"console-{number}", chance)

        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            *all_of_them, again = pool.map(boot, range(len(CHANCES) + 1), (*CHANCES, CHANCES[0]))
        return all_of_them, again, made_with(image.kernel)


def main() -> int:
    """0: a repeated boot says the same, and the page is written."""
    build, page = (pathlib.Path(word) for word in sys.argv[1:3])
    try:
        each, again, made = boots(build)
    except (TimeoutError, ValueError) as error:
        print(f"bench: {error}", file=sys.stderr)
        return 1
    figures = medians(each)
    print(figures_table(figures))
    apart = difference(each[0], again)
    if apart > ALLOWED:
        print(f"bench: a repeated boot differs by {apart:.1%}; nothing is written", file=sys.stderr)
        return 1
    spread = max(difference(figures, boot) for boot in each)
    template = string.Template((HERE / "page.md").read_text(encoding="utf-8"))
    page.write_text(template.substitute(
        machine=table(["", ""], [list(row) for row in made.items()]),
        figures=figures_table(figures), apart=f"{apart:.2%}".replace("%", " %"),
        spread=f"{spread:.1%}".replace("%", " %")), encoding="utf-8")
    print(f"bench: a repeated boot differs by {apart:.2%}; see {page}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
