# SPDX-License-Identifier: MIT
"""Runs a program that uses pyserial, with URLs of this package known to it.

usage: python3 -m serial_port_relay.pyserial [-m MODULE | PROGRAM] [ARGUMENT...]
"""

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
    if is_module:
        runpy.run_module(sys.argv[0], run_name="__main__", alter_sys=True)
    elif program := shutil.which(sys.argv[0]):
        runpy.run_path(program, run_name="__main__")
    else:
        raise SystemExit(f"serial_port_relay.pyserial: there is no program {sys.argv[0]}")


main()
