# SPDX-License-Identifier: MIT
"""Runs a program that uses pyserial, with URLs of this package known to it.

usage: python3 -m serial_port_relay.pyserial [-m MODULE | PROGRAM] [ARGUMENT...]
"""

import importlib.util
import runpy
import shutil
import sys

_USAGE = "usage: python3 -m serial_port_relay.pyserial [-m MODULE | PROGRAM] [ARGUMENT...]"


def main() -> None:
    del sys.argv[0]
    is_module = sys.argv[:1] == ["-m"]
    if is_module:
        del sys.argv[0]
    if not sys.argv or sys.argv[0].startswith("-"):
        raise SystemExit(_USAGE)
    name = sys.argv[0]
    if is_module and _is_there(name):
        runpy.run_module(name, run_name="__main__", alter_sys=True)
    elif not is_module and (program := shutil.which(name)):
        runpy.run_path(program, run_name="__main__")
    else:
        what = "module" if is_module else "program"
        raise SystemExit(f"serial_port_relay.pyserial: there is no {what} {name}")


def _is_there(module: str) -> bool:
    try:
        return importlib.util.find_spec(module) is not None
    except ModuleNotFoundError:  # of its package
        return False


main()
