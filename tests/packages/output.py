# SPDX-License-Identifier: MIT
"""A program of this machine, which must succeed."""

import subprocess
from pathlib import Path


def output_of(*command: str | Path, **environment: str) -> str:
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          env=environment or None)
    assert done.returncode == 0, f"{command}: status {done.returncode}\n{done.stdout}"
    return done.stdout
