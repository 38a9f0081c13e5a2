# SPDX-License-Identifier: MIT
"""Reads what callgrind writes: the instructions of each function by itself."""

from __future__ import annotations

import collections
import pathlib
import re

OURS = ("SerialPortHandler", "libKXLogger.so", "libvost.so")
OTHERS = "in "  # what the name of another library stands behind
NOT_COUNTED = ("libwhole_reads.so",)

_NAME = re.compile(r"^(ob|fn|cob|cfn)=\((\d+)\)(?: (.*))?$")


def _function(place: str, name: str) -> str:
    """Own functions by name; those of a library together."""
    library = pathlib.Path(place).name
    if library.startswith(OURS):
        return re.sub(r"[(<\[].*", "", name.replace("(anonymous namespace)::", "")) or "(unnamed)"
    return f"{OTHERS}{library.partition('.')[0]}"


def functions_of(path: pathlib.Path) -> collections.Counter[str]:
    """Instructions by function; other libraries count as one function each."""
    names: dict[str, dict[str, str]] = {"ob": {}, "fn": {}}
    current = {"ob": "", "fn": ""}
    counted: collections.Counter[str] = collections.Counter()
    is_call = False
    for line in path.read_text(encoding="utf-8").splitlines():
        match = _NAME.match(line)
        if match:
            kind = match[1].removeprefix("c")
            if match[3] is not None:
                names[kind][match[2]] = match[3]
            if not match[1].startswith("c"):
                current[kind] = names[kind][match[2]]
        elif line.startswith("calls="):
            is_call = True  # the next line is what the callee cost
        elif re.match(r"[-+*\d]", line):
            if not is_call and pathlib.Path(current["ob"]).name not in NOT_COUNTED:
                counted[_function(current["ob"], current["fn"])] += int(line.split()[1])
            is_call = False
    return counted
