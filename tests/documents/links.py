# SPDX-License-Identifier: MIT
"""That the links of Markdown files lead somewhere: to a file, and to a heading of it where they name
one. What stands in code is no link; other hosts are not asked.

usage: python3 links.py FOLDER
"""

import os
import re
import sys
from collections.abc import Iterator
from pathlib import Path

BLOCK = re.compile(r"^```.*?^```$", re.DOTALL | re.MULTILINE)
CODE = re.compile(r"`[^`\n]*`")
LINK = re.compile(r"\[[^\]]*\]\(([^)\s]+)\)")
HEADING = re.compile(r"^#+ +(.*?) *$", re.MULTILINE)
ELSEWHERE = re.compile(r"[a-z]+:")


def documents(folder: Path) -> Iterator[Path]:
    for place, folders, files in os.walk(folder):
        folders[:] = [name for name in folders if name != "build" and not name.startswith(".")]
        yield from (Path(place, name) for name in files if name.endswith(".md"))


def text_of(document: Path) -> str:
    return BLOCK.sub("", document.read_text(encoding="utf-8"))


def anchors(document: Path) -> set[str]:
    """As the pages on which repositories are shown make them of headings."""
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")
            for heading in HEADING.findall(text_of(document))}


def dead_links(document: Path) -> Iterator[str]:
    for link in LINK.findall(CODE.sub("", text_of(document))):
        if ELSEWHERE.match(link):
            continue
        path, _, anchor = link.partition("#")
        target = document.parent / path if path else document
        if not target.exists():
            yield f"{link}: no such file"
        elif anchor and anchor not in anchors(target):
            yield f"{link}: no such heading"


def main(folder: Path) -> int:
    files = sorted(documents(folder))
    dead = [f"{file.relative_to(folder)}: {link}" for file in files for link in dead_links(file)]
    print("\n".join(dead) if dead else f"{len(files)} documents, no dead link")
    return 0 if files and not dead else 1


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1])))
