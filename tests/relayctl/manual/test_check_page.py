# SPDX-License-Identifier: MIT
"""docs/check.md lists the cases that relayctl check has, in their order, each with the sentence of
docs/protocol.md that is at stake, which stands there.

usage: python3 test_check_page.py RELAYCTL DOCS
"""

import re
import subprocess
import sys
import unittest
from pathlib import Path

PROGRAM, DOCS = Path(sys.argv[1]), Path(sys.argv[2])


def plain(text: str) -> str:
    """In one line, without what is bold."""
    return re.sub(r"\s+", " ", text.replace("**", ""))


class CheckPage(unittest.TestCase):
    """The program's list, and the documents."""

    def setUp(self) -> None:
        listed = subprocess.run([PROGRAM, "check", "--list"], stdout=subprocess.PIPE, check=True,
                                encoding="utf-8").stdout
        self.cases = [tuple(line.split("\t")) for line in listed.splitlines()]
        self.assertGreater(len(self.cases), 20)

    def test_the_page_has_each_case_and_no_other(self) -> None:
        page = (DOCS / "check.md").read_text(encoding="utf-8")
        rows = re.findall(r"^\| `([a-z0-9-]+)` \| .+ \| \"(.+)\" \|$", page, re.MULTILINE)
        self.assertEqual(self.cases, rows)

    def test_the_manual_has_each_sentence(self) -> None:
        manual = plain((DOCS / "protocol.md").read_text(encoding="utf-8"))
        for name, sentence in self.cases:
            self.assertIn(sentence, manual, name)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
