# SPDX-License-Identifier: MIT
"""The installed client library, used by another project: through CMake and through pkg-config.

usage: python3 test_install.py BUILD COMPILER
"""

import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

BUILD, COMPILER = Path(sys.argv[1]), sys.argv[2]
CONSUMER = Path(__file__).resolve().parent

# The library's own headers; those of a consumer who is as strict as this project.
STRICT = ["-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wold-style-cast", "-Werror"]

PRINTS = """\
00 14 01 02 00 0E 23 50 68 79 73 69 63 61 6C 50 6F 72 74 30
nothing listens on 127.0.0.1:1: is the service running?
"""


def run(*command: str | Path, **environment: str) -> str:
    done = subprocess.run(
        command,
        env={**os.environ, **environment},
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        encoding="utf-8",
    )
    assert done.returncode == 0, f"{command}: status {done.returncode}\n{done.stdout}"
    return done.stdout


class Install(unittest.TestCase):
    """All tests use one installed tree, which was moved after it was installed."""

    @classmethod
    def setUpClass(cls) -> None:
        folder = tempfile.TemporaryDirectory(prefix="client-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        first = cls.folder / "first"
        run("cmake", "--install", BUILD, "--component", "client", "--prefix", first)
        cls.prefix = first.rename(cls.folder / "moved")

    def test_nothing_else_is_installed(self) -> None:
        places = {
            path.relative_to(self.prefix).parts[0]
            for path in self.prefix.rglob("*")
            if path.is_file()
        }
        self.assertEqual({"include", "lib"}, places)
        suffixes = {path.suffix for path in self.prefix.rglob("*") if path.is_file()}
        self.assertEqual({".h", ".a", ".cmake", ".pc"}, suffixes)

    def test_each_header_stands_alone(self) -> None:
        include = self.prefix / "include/relayclient"
        headers = sorted(include.rglob("*.h"))
        self.assertGreater(len(headers), 5)
        for header in headers:
            source = self.folder / "alone.cpp"
            source.write_text(f'#include "{header.relative_to(include)}"\n', encoding="utf-8")
            run(COMPILER, "-std=c++20", *STRICT, "-fsyntax-only", f"-I{include}", source)

    def test_find_package(self) -> None:
        build = self.folder / "build"
        run("cmake", "-G", "Ninja", "-S", CONSUMER, "-B", build,
            f"-DCMAKE_PREFIX_PATH={self.prefix}", f"-DCMAKE_CXX_COMPILER={COMPILER}",
            f"-DCMAKE_CXX_FLAGS={' '.join(STRICT)}")
        run("cmake", "--build", build)
        self.assertEqual(PRINTS, run(build / "consumer"))

    def test_pkg_config(self) -> None:
        folder = next(self.prefix.rglob("relayclient.pc")).parent
        flags = run("pkg-config", "--cflags", "--libs", "relayclient", PKG_CONFIG_PATH=str(folder))
        program = self.folder / "consumer"
        source = CONSUMER / "main.cpp"
        run(COMPILER, *STRICT, source, "-o", program, *flags.split())
        self.assertEqual(PRINTS, run(program))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
