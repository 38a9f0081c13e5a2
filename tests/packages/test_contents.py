# SPDX-License-Identifier: MIT
"""What is in the service's package, without installing it."""

import re
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path

import deb
import pytest
from box import CHECKOUT
from output import output_of

HIGHEST_EXPOSURE = "15"  # tenths


@pytest.fixture(scope="module", params=deb.MACHINES)
def tree(request: pytest.FixtureRequest, tmp_path_factory: pytest.TempPathFactory
         ) -> Iterator[Path]:
    folder = tmp_path_factory.mktemp(request.param)
    output_of("dpkg-deb", "--raw-extract", deb.built(request.param), folder)
    yield folder


def programs_of(tree: Path) -> list[Path]:
    return [tree / "usr/sbin/SerialPortHandler",
            *sorted((tree / "usr/lib/serial-port-handler").iterdir())]


def test_the_unit_exposes_little(tree: Path) -> None:
    told = output_of("systemd-analyze", "security", "--offline=true",
                     f"--threshold={HIGHEST_EXPOSURE}",
                     tree / "lib/systemd/system/serial-port-handler.service")
    print(told.splitlines()[-1])


def test_the_unit_has_no_fault(tree: Path) -> None:
    unit = tree / "lib/systemd/system/serial-port-handler.service"
    text = re.sub(r"(?m)^(Exec\w+=)/usr", rf"\g<1>{tree}/usr", unit.read_text())
    # The pages need not be installed here.
    copy = tree / "serial-port-handler.service"
    copy.write_text("".join(line for line in text.splitlines(keepends=True)
                            if not line.startswith("Documentation=")))
    assert output_of("systemd-analyze", "verify", copy) == ""


def test_the_programs_are_hardened_and_stripped(tree: Path) -> None:
    for program in programs_of(tree):
        header = output_of("readelf", "--wide", "--file-header", "--dynamic", "--segments",
                           "--sections", program)
        assert re.search(r"Type: +DYN ", header)
        assert "GNU_RELRO" in header and "BIND_NOW" in header
        assert re.search(r"GNU_STACK +\S+ \S+ \S+ \S+ \S+ RW ", header)
        assert ".symtab" not in header and ".gnu_debuglink" in header


def test_the_needed_libraries_are_not_older_than_the_package_says(tree: Path) -> None:
    control = (tree / "DEBIAN" / "control").read_text()
    least = re.search(r"libc6 \(>= ([0-9.]+)\)", control)
    assert least and "armhf-cross" not in control
    used = {version for program in programs_of(tree) for version in re.findall(
        r"GLIBC_([0-9.]+)", output_of("readelf", "--version-info", program))}
    assert used
    assert max(map(numbers_of, used)) <= numbers_of(least[1])


def numbers_of(version: str) -> list[int]:
    return [int(number) for number in version.split(".")]


def test_the_udev_rules_are_those_of_the_sources(tree: Path) -> None:
    rules = "60-serial-port-handler.rules"
    assert (tree / "lib/udev/rules.d" / rules).read_text() == (
        CHECKOUT / "packaging" / rules).read_text()


def test_the_links_of_the_documents_lead_somewhere(tree: Path) -> None:
    told = output_of(sys.executable, "-B", CHECKOUT / "tests/documents/links.py",
                     tree / "usr/share/doc/serial-port-handler")
    assert told == "6 documents, no dead link\n"


PAGES = ["man8/SerialPortHandler.8", "man5/vost.conf.5", "man7/serial-port-handler-protocol.7"]


@pytest.mark.parametrize("page", PAGES)
def test_the_page_is_well_formed(tree: Path, page: str) -> None:
    file = tree / f"usr/share/man/{page}.gz"
    assert output_of("man", "--warnings=w", "--encoding=UTF-8", "--local-file", file
                     ).count("NAME") >= 1
    done = subprocess.run(["man", "--warnings=w", "--local-file", "-Tutf8", "-Z", file],
                          stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    assert done.stderr == ""
    name = Path(page).stem
    assert output_of("lexgrog", file).startswith(f'{file}: "{name} - ')


def test_the_protocol_page_has_every_example_of_the_document(tree: Path) -> None:
    """A test executes them there."""
    page = output_of("man", "--encoding=UTF-8", "--local-file", "--no-hyphenation",
                     tree / "usr/share/man/man7/serial-port-handler-protocol.7.gz")
    shown = {" ".join(line.split()) for line in page.splitlines()}
    document = (CHECKOUT / "docs/protocol.md").read_text()
    packets = re.findall(r"^([<>] [0-9A-F ]+?) *(?:#.*)?$", document, re.MULTILINE)
    assert len(packets) > 50
    for packet in packets:
        words = " ".join(packet.split())
        assert any(line == words or line.startswith(words + " #") for line in shown), packet
