# SPDX-License-Identifier: MIT
"""The man page has every command and option that relayctl has, and no other.

usage: python3 test_man_page.py RELAYCTL PAGE
"""

import re
import sys
import unittest
from pathlib import Path

from help_text import Command, commands, too_long

PROGRAM, PAGE = Path(sys.argv[1]), Path(sys.argv[2])


def plain(text: str) -> str:
    """Without what makes it bold, italic or literal."""
    return re.sub(r"\\(.)", r"\1", re.sub(r"(?<!\\)\*", "", text))


def sections(level: int, text: str) -> dict[str, str]:
    parts = re.split(rf"^{'#' * level} (.+)$", text, flags=re.MULTILINE)
    return dict(zip(parts[1::2], parts[2::2]))


def documented_options(text: str) -> dict[tuple[str, ...], str]:
    """The terms of the list: `**-f** *FILE*, **\\-\\-file** *FILE*` above a line with a colon."""
    options: dict[tuple[str, ...], str] = {}
    for term in re.findall(r"^(\*\*(?:-|\\-).*)\n\n:   ", text, flags=re.MULTILINE):
        words = [name.split(" ") for name in plain(term).split(", ")]
        values = {value for _, *rest in words for value in rest}
        assert len(values) <= 1, f"one option, several values: {term}"
        options[tuple(word[0] for word in words)] = "".join(values)
    return options


class ManPage(unittest.TestCase):
    """Help and page, command by command."""

    def setUp(self) -> None:
        page = sections(1, PAGE.read_text(encoding="utf-8"))
        self.page = page
        self.by_heading = {plain(key): text for key, text in sections(2, page["Commands"]).items()}
        self.common, *self.commands = commands(PROGRAM)

    def test_every_command_with_its_arguments(self) -> None:
        self.assertEqual(
            sorted(f"{command.name} {command.arguments}".strip() for command in self.commands),
            sorted(self.by_heading),
        )

    def test_every_common_option(self) -> None:
        self.compare(self.common, self.page["Options"])

    def test_every_option_of_every_command(self) -> None:
        for command in self.commands:
            heading = f"{command.name} {command.arguments}".strip()
            with self.subTest(command.name):
                self.compare(command, self.by_heading[heading])

    def compare(self, command: Command, text: str) -> None:
        told = {names: value for names, value in command.options.items()}
        if command.name:
            del told["-h", "--help"]  # which the common ones have
        documented = documented_options(text)
        self.assertEqual(sorted(told), sorted(documented))
        for names, value in told.items():
            if names[-1] not in command.choices:
                self.assertEqual(value, documented[names], names)
                continue
            for word in command.choices[names[-1]]:
                self.assertIn(f"**{word}**", text, names)

    def test_every_exit_status(self) -> None:
        header = (PAGE.parents[2] / "relayctl/ExitStatus.h").read_text(encoding="utf-8")
        values = {int(value) for value in re.findall(r"^  kExit\w+ = (\d+),", header, re.MULTILINE)}
        values = (values - {10}) | {12, 13, 14, 15}  # 10 + the service's status
        documented = re.findall(r"^\*\*(\d+)\*\*", self.page["Exit status"], re.MULTILINE)
        self.assertEqual(sorted(values), [int(value) for value in documented])

    def test_help_fits_a_terminal(self) -> None:
        self.assertEqual([], too_long(PROGRAM))

    def test_ports_stand_first(self) -> None:
        for command in self.commands:
            self.assertNotIn(" PORT", command.arguments.replace("[", ""), command.name)

    def test_examples_use_known_commands_and_options(self) -> None:
        known = {command.name: command for command in self.commands}
        examples = re.findall(r"^    .*?relayctl (.+)$", self.page["Examples"], re.MULTILINE)
        self.assertGreater(len(examples), 10)
        for example in examples:
            words = re.split(r" [|&]", example)[0].split()
            command = next(known[word] for word in words if word in known)
            options = {name for names in (*self.common.options, *command.options) for name in names}
            for word in words:
                if word.startswith("-"):
                    self.assertIn(word, options, example)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
