# SPDX-License-Identifier: MIT
"""What is in the packages beside the service's, without installing them: which files, and that they
work where they lie."""

import os
import re
from collections.abc import Iterator
from pathlib import Path

import deb
import pytest
from box import CHECKOUT, NATIVE
from output import output_of

# Without what every package has: /usr/share/doc/PACKAGE/{changelog.gz,copyright}.
FILES = {
    "relayctl": [
        "usr/bin/relayctl",
        "usr/share/bash-completion/completions/relayctl",
        "usr/share/man/man1/relayctl.1.gz",
    ],
    "librelayclient-dev": [
        "usr/include/relayclient/protocol/WireFormat.h",
        "usr/include/relayclient/relayclient.h",
        *(f"usr/include/relayclient/relay/{header.name}"
          for header in sorted((CHECKOUT / "clients/cpp/relay").glob("*.h"))),
        "usr/lib/TRIPLET/cmake/RelayClient/RelayClientConfig.cmake",
        "usr/lib/TRIPLET/cmake/RelayClient/RelayClientConfigVersion.cmake",
        "usr/lib/TRIPLET/cmake/RelayClient/RelayClientTargets-none.cmake",
        "usr/lib/TRIPLET/cmake/RelayClient/RelayClientTargets.cmake",
        "usr/lib/TRIPLET/librelayclient.a",
        "usr/lib/TRIPLET/pkgconfig/relayclient-c.pc",
        "usr/lib/TRIPLET/pkgconfig/relayclient.pc",
        "usr/share/doc/librelayclient-dev/cpp-client.md",
    ],
    "wireshark-serialrelay": [
        "usr/lib/TRIPLET/wireshark/plugins/serialrelay.lua",
        "usr/share/doc/wireshark-serialrelay/README.md",
    ],
    "python3-serial-port-relay": [
        *(f"usr/lib/python3/dist-packages/serial_port_relay-1.0.0.dist-info/{name}"
          for name in ("METADATA", "RECORD", "WHEEL", "top_level.txt")),
        *(f"usr/lib/python3/dist-packages/{file.relative_to(CHECKOUT / 'clients/python')}"
          for pattern in ("*.py", "py.typed")
          for file in (CHECKOUT / "clients/python/serial_port_relay").rglob(pattern)),
        "usr/share/doc/python3-serial-port-relay/README.md",
    ],
}

Unpacked = tuple[str, Path]


@pytest.fixture(scope="module", params=deb.MACHINES)
def unpacked(request: pytest.FixtureRequest, tmp_path_factory: pytest.TempPathFactory
             ) -> Iterator[Unpacked]:
    """The architecture, and a folder with each package in one of its name."""
    folder = tmp_path_factory.mktemp(request.param)
    for package in FILES:
        output_of("dpkg-deb", "--raw-extract", deb.built(request.param, package), folder / package)
    yield request.param, folder


@pytest.mark.parametrize("package", FILES)
def test_it_has_its_files_and_no_others(unpacked: Unpacked, package: str) -> None:
    architecture, folder = unpacked
    tree = folder / package
    files = sorted(str(path.relative_to(tree)) for path in tree.rglob("*")
                   if path.is_file() and tree / "DEBIAN" not in path.parents)
    own = f"usr/share/doc/{package}/"
    expected = sorted([*FILES[package], own + "changelog.gz", own + "copyright"])
    assert files == [name.replace("TRIPLET", deb.MACHINES[architecture]) for name in expected]


def test_the_links_of_the_documents_lead_somewhere(unpacked: Unpacked) -> None:
    told = output_of("python3", "-B", CHECKOUT / "tests/documents/links.py", unpacked[1])
    assert told == "3 documents, no dead link\n"


def test_relayctl_needs_no_library_of_ours_and_is_hardened(unpacked: Unpacked) -> None:
    folder = unpacked[1]
    told = output_of("readelf", "--wide", "--file-header", "--dynamic", "--segments", "--sections",
                     folder / "relayctl/usr/bin/relayctl")
    needed = set(re.findall(r"\(NEEDED\).*\[(.*)\]", told))
    assert "libstdc++.so.6" in needed
    usual = re.compile(r"lib(c|gcc_s|m|stdc\+\+)\.|ld-linux")
    assert [name for name in needed if not usual.match(name)] == []
    assert not re.search(r"\((RPATH|RUNPATH)\)", told)
    assert re.search(r"Type: +DYN ", told) and "GNU_RELRO" in told and "BIND_NOW" in told
    assert ".symtab" not in told
    control = (folder / "relayctl/DEBIAN/control").read_text()
    assert "libstdc++6" in control and "-cross" not in control
    assert "\nRecommends: tio | picocom" in control


CPP = """#include <relay/Client.h>
int main() {
  return relay::Client{relay::ClientOptions{}}.IsConnected() ? 1 : 0;
}
"""
C = """#include <relayclient.h>
int main(void) {
  relayclient *client = NULL;
  return relayclient_new(&client, NULL, NULL);
}
"""


@pytest.mark.parametrize(("compiler", "package", "source"),
                         [("g++", "relayclient", CPP), ("gcc", "relayclient-c", C)])
def test_a_program_is_built_with_the_library(unpacked: Unpacked, tmp_path: Path, compiler: str,
                                             package: str, source: str) -> None:
    architecture, folder = unpacked
    triplet = deb.MACHINES[architecture]
    usr = folder / "librelayclient-dev/usr"
    flags = output_of("pkg-config", "--cflags", "--libs", package,
                      PATH=os.environ["PATH"],
                      PKG_CONFIG_LIBDIR=str(usr / f"lib/{triplet}/pkgconfig"))
    program = tmp_path / "program"
    file = tmp_path / ("program.cpp" if compiler == "g++" else "program.c")
    file.write_text(source)
    output_of(f"{triplet}-{compiler}", file, "-o", program, *flags.split())
    assert "relay::" in output_of("nm", "--demangle", program)


def test_wireshark_finds_the_dissector(tmp_path: Path) -> None:
    """In the folder of the package, which stands for the machine's here."""
    output_of("dpkg-deb", "--extract", deb.built(NATIVE, "wireshark-serialrelay"), tmp_path)
    folders = dict(line.split(":", 1) for line in output_of("tshark", "-G", "folders").splitlines()
                   if ":" in line)
    plugins = folders["Global Lua Plugins"].strip()
    told = output_of("unshare", "--mount", "sh", "-ec",
                     f"mount --bind '{tmp_path}{plugins}' '{plugins}'; tshark -G protocols")
    assert re.search(r"\tserialrelay\n", told)
