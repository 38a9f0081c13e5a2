# SPDX-License-Identifier: MIT
"""Bash completion: the function by itself, and as a person at a terminal meets it.

usage: python3 test_completion.py RELAYCTL COMPLETION
"""

import os
import pty
import select
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

from help_text import commands

PROGRAM, COMPLETION = Path(sys.argv[1]).resolve(), Path(sys.argv[2]).resolve()
PATIENCE = 30.0  # seconds

CONFIGURATION = """\
; [#InAComment]
[connect]
port = 60004
[#PhysicalPort0]
baud = 9600
 [#USBSerialPort0]
[#USBSerialPort5]
[#With$(touch trap)]
"""

# Completes the last of the given words.
CALL = """\
source "$1"
shift
COMP_WORDS=("$@")
COMP_CWORD=$(($# - 1))
_relayctl relayctl "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
printf '%s\\n' "${COMPREPLY[@]}"
"""


class Completion(unittest.TestCase):
    """Each test has a folder with a configuration, a file and a folder."""

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory(prefix="completion-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        (self.folder / "vost.conf").write_text(CONFIGURATION, encoding="utf-8")
        (self.folder / "record me.txt").touch()
        (self.folder / "other").mkdir()
        self.environment = {
            "PATH": f"{PROGRAM.parent}:{os.environ['PATH']}",
            "VOST_CONFIG": str(self.folder / "vost.conf"),
            "TERM": "dumb",
            "PS1": "ready> ",
            "INPUTRC": "/dev/null",
        }

    def tearDown(self) -> None:
        self.assertFalse((self.folder / "trap").exists(), "a name of a port was executed")

    def complete(self, *words: str) -> list[str]:
        done = subprocess.run(
            ["bash", "--norc", "-c", CALL, "bash", COMPLETION, "relayctl", *words],
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            cwd=self.folder,
            env=self.environment,
            check=True,
            encoding="utf-8",
        )
        self.assertEqual("", done.stderr)
        return done.stdout.splitlines() if done.stdout != "\n" else []


class Function(Completion):
    """What is offered, against what relayctl has."""

    def test_every_command(self) -> None:
        names = [command.name for command in commands(PROGRAM) if command.name]
        self.assertEqual(sorted(names), sorted(self.complete("")))
        self.assertEqual(["record", "replay"], self.complete("re")[:2])

    def test_every_option_of_every_command(self) -> None:
        common, *others = commands(PROGRAM)
        for command in [common, *others]:
            with self.subTest(command.name):
                options = {**common.options, **command.options}
                offered = self.complete(*([command.name] if command.name else []), "--")
                self.assertEqual(sorted(names[-1] for names in options), sorted(offered))

    def test_the_words_of_every_choice(self) -> None:
        choices = 0
        for command in commands(PROGRAM):
            for option, words in command.choices.items():
                choices += 1
                self.assertEqual(words, self.complete(command.name, option, ""))
                self.assertEqual(words, self.complete(command.name, option, "=", ""))
                self.assertEqual(words, self.complete(command.name, option, "="))
        self.assertGreaterEqual(choices, 3)

    def test_whether_something_stands_behind_an_option(self) -> None:
        for command in commands(PROGRAM):
            for names, value in command.options.items():
                if value in ("FILE", "PATH"):
                    wanted = ["other", "record me.txt", "vost.conf"]
                elif value and "|" not in value:
                    wanted = []
                else:
                    continue
                for name in names:
                    self.assertEqual(wanted, sorted(self.complete(command.name, name, "")), name)

    def test_behind_a_flag_comes_what_came_before(self) -> None:
        for command in commands(PROGRAM)[1:]:
            for names, value in command.options.items():
                if not value:
                    expected = self.complete(command.name, "")
                    self.assertEqual(expected, self.complete(command.name, names[-1], ""), names)

    def test_every_port_and_file_among_the_arguments(self) -> None:
        for command in commands(PROGRAM)[1:]:
            words = command.arguments.replace("[", "").replace("]", "").split()
            for at, word in enumerate(words):
                offered = self.complete(command.name, *["x"] * at, "")
                if word.startswith("PORT"):
                    self.assertIn("#USBSerialPort0", offered, command.name)
                elif word == "FILE":
                    self.assertIn("record me.txt", offered, command.name)
                else:
                    self.assertEqual([], offered, command.name)
            offered = self.complete(command.name, *["x"] * len(words), "")
            self.assertEqual(command.arguments.endswith(("PORT...", "PORT...]")), offered != [])

    def test_the_ports_of_the_configuration(self) -> None:
        self.assertEqual(
            ["#PhysicalPort0", "#USBSerialPort0", "#USBSerialPort5", "#With$(touch trap)"],
            self.complete("open", ""),
        )
        self.assertEqual(
            ["#USBSerialPort5"], self.complete("-p", "7000", "open", "x", "#USBSerialPort5")
        )

    def test_without_a_configuration(self) -> None:
        self.environment["VOST_CONFIG"] = str(self.folder / "missing")
        self.assertEqual([], self.complete("open", ""))


class Typed(Completion):
    """Keys typed at bash in a terminal; relayctl is a function that shows what it was given."""

    def type(self, keys: str) -> str:
        """The arguments, each in angle brackets, that relayctl gets of the line."""
        show = "printf got; printf '<%s>' \"$@\"; echo ."
        setup = f"source '{COMPLETION}'; relayctl() {{ {show}; }}"
        process, terminal = pty.fork()
        if process == 0:
            os.chdir(self.folder)
            os.execvpe("bash", ["bash", "--norc", "--noprofile", "-i"], self.environment)
        try:
            self.read_until(terminal, "ready> ")
            os.write(terminal, f"{setup}\n".encode())
            self.read_until(terminal, "ready> ")
            os.write(terminal, f"{keys}\n".encode())
            shown = self.read_until(terminal, ">.\r\n")
            return shown[shown.rindex("got") + 3 : shown.rindex(".")]
        finally:
            os.close(terminal)
            os.waitpid(process, 0)

    def read_until(self, terminal: int, wanted: str) -> str:
        shown = ""
        end = time.monotonic() + PATIENCE
        while wanted not in shown:
            ready, _, _ = select.select([terminal], [], [], max(end - time.monotonic(), 0))
            self.assertTrue(ready, f"not shown in {PATIENCE:.0f} s: {wanted!r}; shown: {shown!r}")
            shown += os.read(terminal, 4096).decode(errors="replace")
        return shown

    def test_a_port_is_quoted(self) -> None:
        for begin in ("#P", "\\#P", "'#P", '"#P'):
            with self.subTest(begin):
                self.assertEqual("<open><#PhysicalPort0>", self.type(f"relayctl op\t{begin}\t"))

    def test_without_a_first_letter(self) -> None:
        self.assertEqual("<watch><#USBSerialPort5>", self.type("relayctl watch \tUSB\t5"))

    def test_a_file_with_a_blank_is_quoted(self) -> None:
        self.assertEqual("<replay><record me.txt>", self.type("relayctl repl\trec\t"))
        self.assertEqual("<replay><record me.txt>", self.type("relayctl replay record\\ \t"))

    def test_words_behind_an_equals_sign(self) -> None:
        self.assertEqual("<watch><--time=clock><X>", self.type("relayctl watch --ti\t=cl\tX"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
