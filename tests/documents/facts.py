# SPDX-License-Identifier: MIT
"""That every copy of a fact agrees with the one place where it is decided. A difference names the
file that is behind.

usage: python3 facts.py CHECKOUT
"""

import re
import sys
from collections.abc import Iterator
from pathlib import Path

ROOT = Path(sys.argv[1])


def found(file: str, pattern: str) -> list[str]:
    """What the pattern's one group takes, at each place where it matches."""
    return re.findall(pattern, (ROOT / file).read_text(encoding="utf-8"), re.MULTILINE)


PLACES = found("src/serial/UsbPlaces.h", r'"(/devices/.+)"')
BAUD = found("src/core/SettingWords.cpp", r'\{"(\d{4,})", \d+\}')
VERSION = found("CMakeLists.txt", r"^project\(SerialPortHandler VERSION ([\d.]+)")
PACKAGE = found("debian/control", r"^Source: (.+)")
MADE = found("debian/control", r"^Package: (.+)")
PACKAGES = found("packages.txt", r"^([a-z][\w.+-]*)")

Copies = list[tuple[str, str, list[str]]]

USB_PLACES: Copies = [
    ("README.md", r"^\| `#USBSerialPort\d+` \| `(.+)` \|$", PLACES),
    ("packaging/60-serial-port-handler.rules", r'^DEVPATH=="([^|]+)\|', PLACES),
    ("packaging/60-serial-port-handler.rules", r'^DEVPATH==".+\|(.+)/\*", GOTO=".*_port"$', PLACES),
    ("docs/protocol.md", r"^\| `#USBSerialPort(\d+)` and so on", [str(len(PLACES))]),
    ("demo/bin/udevadm", r"^adapter=(.+)$", PLACES[:1]),
    ("tests/python/workplace.py", r'^_PLACE = "(.+)"', PLACES[:1]),
    ("tests/machine/machine.py", r'\("(uhci\d\.0", "\d)"\)',
     [f'uhci{int(number) + 1}.0", "{port}' for number, port in
      re.findall(r":1d\.(\d)/\S+-(\d)$", "\n".join(PLACES), re.MULTILINE)]),
] + [(file, r"#USBSerialPort0`?\s+to\s+`?#USBSerialPort(\d+)", [str(len(PLACES) - 1)]) for file in
     ("README.md", "docs/other-boards.md", "docs/protocol.md", "packaging/vost.conf",
      "packaging/60-serial-port-handler.rules")]

BAUD_RATES: Copies = [
    ("README.md", r"^\| `baud` \| (.+) \|$", [" ".join(f"`{word}`" for word in BAUD)]),
    ("packaging/vost.conf", r"^;   baud +(.+)$", [" ".join(BAUD)]),
    ("tests/machine/test_line_settings.py", r"^WORDS = \((.+)\)$",
     [", ".join(f'"{word}"' for word in BAUD)]),
]

VERSIONS: Copies = [
    ("CHANGELOG.md", r"\A(?:.|\n)*?^## \[([\d.]+)\]", VERSION),
    ("debian/changelog", r"\A\S+ \(([\d.]+)", VERSION),
    ("clients/python/pyproject.toml", r'^version = "(.+)"$', VERSION),
    ("packaging/buildroot/serial-port-handler/serial-port-handler.mk", r"_VERSION = (.+)$", VERSION),
    ("docs/install.md", r"_([\d.]+)\.bb`", VERSION),
    ("docs/install.md", r"/packages/\S+_([\d.]+)_armhf\.deb", VERSION),
]

NAMES: Copies = [
    ("docs/install.md", r"^\| `([a-z][a-z0-9-]+)` \|", MADE),
    ("debian/control", r"\A(?:.|\n)*?^Package: (.+)", PACKAGE),
    ("debian/changelog", r"\A(\S+) ", PACKAGE),
    ("tests/packages/deb.py", r'^PACKAGE = "(.+)"$', PACKAGE),
    ("docs/install.md", r"/packages/{([^,]+),\S+_[\d.]+_armhf\.deb", PACKAGE),
    ("docs/install.md", r"apt remove (\S+)", PACKAGE),
]


def differences() -> Iterator[str]:
    for file, pattern, wanted in USB_PLACES + BAUD_RATES + VERSIONS + NAMES:
        has = found(file, pattern)
        if has != wanted or not has:
            yield (f"{file} is behind: it lacks {[one for one in wanted if one not in has]}, "
                   f"and has {[one for one in has if one not in wanted]} ({pattern})")
    needed = found("debian/control", r"^ ([a-z][\w.+-]*)(?::native)?(?: \(.*\))?,$")
    for name in needed:
        if name.removesuffix("-compat") not in PACKAGES:
            yield f"packages.txt is behind: {name}, which debian/control needs, is not in it"
    if not needed:
        yield "debian/control: no build dependency was found"


def main() -> int:
    behind = list(differences())
    print("\n".join(behind) if behind else "every copy agrees")
    return 1 if behind else 0


if __name__ == "__main__":
    sys.exit(main())
