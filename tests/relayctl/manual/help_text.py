# SPDX-License-Identifier: MIT
"""What relayctl says about itself: the one list of its commands and options."""

import re
import subprocess
from dataclasses import dataclass
from pathlib import Path


@dataclass(frozen=True)
class Command:
    """One command, or with an empty name what stands for all of them."""

    name: str
    arguments: str  # "FILE [PORT...]"
    options: dict[tuple[str, ...], str]  # the names of each, and what its value is called
    choices: dict[str, list[str]]  # by an option's last name: the words that it takes


def _help(program: Path, *command: str) -> str:
    return subprocess.run(
        [program, *command, "--help"], stdout=subprocess.PIPE, check=True, encoding="utf-8"
    ).stdout


def too_long(program: Path) -> list[str]:
    """The lines of all help that a terminal of 80 columns would wrap."""
    names = ["", *(command.name for command in commands(program) if command.name)]
    lines = [line for name in names for line in _help(program, *name.split()).splitlines()]
    return [line for line in lines if len(line) > 80]


def _section(text: str, heading: str) -> list[str]:
    """The lines below the heading, up to the next empty one."""
    found = re.search(rf"^{heading}:\n(.*?)(?:\n\n|\Z)", text, re.DOTALL | re.MULTILINE)
    return found[1].splitlines() if found else []


def _command(program: Path, name: str) -> Command:
    text = _help(program, *([name] if name else []))
    usage = re.search(r"^Usage: relayctl.*?\[OPTIONS\] ?(.*)$", text, re.MULTILINE)
    assert usage, text
    options: dict[tuple[str, ...], str] = {}
    choices: dict[str, list[str]] = {}
    for line in _section(text, "Options"):
        if not line.startswith("  -"):
            continue
        words = line.split("  ")[1].split(" ")
        names = tuple(words[0].split(","))
        value = words[1].split("=")[0] if len(words) > 1 else ""
        options[names] = value
        if "|" in value:
            choices[names[-1]] = value.split("|")
    return Command(name, usage[1], options, choices)


def commands(program: Path) -> list[Command]:
    """What stands for all commands first, then each of them."""
    names = [line.split()[0] for line in _section(_help(program), "Subcommands")]
    assert names, "no command in relayctl --help"
    return [_command(program, name) for name in ["", *names]]
