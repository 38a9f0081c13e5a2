# SPDX-License-Identifier: MIT
"""The packages' own tests, debian/tests, as autopkgtest runs them: in a clean system, with what is
installed there."""

import subprocess
from pathlib import Path

import deb
from box import CHECKOUT, NATIVE, Box


def test_they_pass(tmp_path: Path) -> None:
    source = tmp_path / "source"
    files = subprocess.run(["git", "-C", CHECKOUT, "ls-files"], stdout=subprocess.PIPE,
                           check=True).stdout
    source.mkdir()
    subprocess.run(["cp", "--parents", "--no-dereference", "--target-directory", source,
                    *(name for name in files.decode().split("\n") if (CHECKOUT / name).is_file())],
                   cwd=CHECKOUT, check=True)
    (source / "debian/files").touch()  # by which it counts as built already
    with Box(NATIVE) as box:
        box.path("/etc/apt/sources.list").write_text("")  # what is needed is there
        done = subprocess.run(
            [*box.enter_all_but_root(), "autopkgtest", "--no-built-binaries", "--output-dir",
             tmp_path / "output", *(deb.built(NATIVE, package) for package in deb.ALL),
             source, "--", "chroot", box.root],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    summary = (tmp_path / "output/summary").read_text() if done.returncode == 0 else ""
    assert summary.split() == ["session", "PASS", "python-module", "PASS"], done.stdout
