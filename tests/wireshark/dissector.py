# SPDX-License-Identifier: MIT
"""The dissector, in tshark."""

import pathlib
import subprocess

_SCRIPT = pathlib.Path(__file__).parents[2] / "tools/wireshark/serialrelay.lua"


def tshark(path: str, fields: list[str], *options: str) -> list[str]:
    """A row for each frame of the capture, with `|` between the fields' texts. Bytes that are no
    UTF-8 are surrogates in them."""
    words = ["tshark", "-r", path, "-X", f"lua_script:{_SCRIPT}"]
    words += ["-T", "fields", "-E", "separator=|"]
    words += [word for field in fields for word in ("-e", field)]
    done = subprocess.run([*words, *options], capture_output=True, text=True,
                          errors="surrogateescape", timeout=60)
    assert done.returncode == 0 and "Lua Error" not in done.stdout + done.stderr, done.stderr
    return done.stdout.split("\n")[:-1]
