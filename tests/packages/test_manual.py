# SPDX-License-Identifier: MIT
"""The manual in its package: each link leads somewhere, and from each page to all others."""

import html.parser
from collections.abc import Iterator
from pathlib import Path

import deb
import pytest
from output import output_of

BENCHMARKS = Path(__file__).resolve().parents[2] / "docs/benchmarks"


class Page(html.parser.HTMLParser):
    """What it links to, and what can be linked to in it."""

    def __init__(self, file: Path) -> None:
        super().__init__()
        self.links: list[str] = []
        self.anchors = {""}
        self.feed(file.read_text(encoding="utf-8"))

    def handle_starttag(self, tag: str, attributes: list[tuple[str, str | None]]) -> None:
        for name, value in attributes:
            if name in ("href", "src"):
                self.links.append(value or "")
            elif name == "id":
                self.anchors.add(value or "")


@pytest.fixture(scope="module")
def pages(tmp_path_factory: pytest.TempPathFactory) -> Iterator[dict[Path, Page]]:
    folder = tmp_path_factory.mktemp("manual")
    output_of("dpkg-deb", "--extract", deb.built("all", "serial-port-handler-doc"), folder)
    registered = folder / "usr/share/doc-base/serial-port-handler-doc.serial-port-handler"
    index = registered.read_text().split("\nIndex: ")[1].split()[0]
    manual = (folder / index.lstrip("/")).parent
    yield {file: Page(file) for file in manual.rglob("*.html")}


def test_each_link_leads_somewhere(pages: dict[Path, Page]) -> None:
    followed = 0
    for file, page in pages.items():
        for link in page.links:
            if link.startswith("https:"):
                continue
            path, _, anchor = link.partition("#")
            target = (file.parent / path).resolve() if path else file
            assert target.is_file(), f"{file}: {link}"
            assert target not in pages or anchor in pages[target].anchors, f"{file}: {link}"
            followed += 1
    assert followed > len(pages) ** 2


def test_each_page_is_reached_from_each(pages: dict[Path, Page]) -> None:
    for file, page in pages.items():
        reached = {(file.parent / link.partition("#")[0]).resolve() for link in page.links}
        assert set(pages) <= reached, file


def test_each_picture_is_shown(pages: dict[Path, Page]) -> None:
    drawn = sorted(path.name for path in BENCHMARKS.glob("*.svg"))
    shown = [Path(link).name for page in pages.values() for link in page.links
             if link.endswith(".svg")]
    assert drawn and sorted(shown) == drawn
