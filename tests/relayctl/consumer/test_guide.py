# SPDX-License-Identifier: MIT
"""The installed client library, and the programs of docs/cpp-client.md: built with it as the page
says, at work with the real service. For the sandbox of the end-to-end tests.

usage: python3 test_guide.py BUILD
"""

import os
import re
import subprocess
import sys
import tempfile
import threading
import unittest
from pathlib import Path
from typing import IO

CHECKOUT = Path(__file__).resolve().parents[3]
sys.path.insert(0, str(CHECKOUT / "tests/python"))
from workplace import PATIENCE, Device, Service, make  # noqa: E402

BUILD = Path(sys.argv[1]).resolve()
GUIDE = (CHECKOUT / "docs/cpp-client.md").read_text(encoding="utf-8")
STRICT_C = "-Wall -Wextra -pedantic -Wconversion -Wshadow -Wstrict-prototypes -Werror"
STRICT = "-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wold-style-cast -Werror"
RELAY_PORT = 60004  # the programs' own


def blocks(kind: str) -> list[tuple[str, str]]:
    """What stands behind ```kind, and the block's text."""
    return re.findall(rf"^```{kind}(?: (.*))?\n((?:.*\n)*?)```$", GUIDE, re.MULTILINE)


def run(folder: Path, command: str) -> None:
    done = subprocess.run(["sh", "-e", "-c", command], cwd=folder, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    assert done.returncode == 0, f"{command}: status {done.returncode}\n{done.stdout}"


class Guide(unittest.TestCase):
    """All tests use one installed tree, which was moved after it was installed."""

    folder: Path
    prefix: Path

    @classmethod
    def setUpClass(cls) -> None:
        folder = tempfile.TemporaryDirectory(prefix="guide-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        first = cls.folder / "first"
        run(cls.folder, f"cmake --install '{BUILD}' --component client --prefix '{first}'")
        cls.prefix = first.rename(cls.folder / "moved")
        files = dict(blocks("cmake") + blocks("cpp") + blocks("c"))
        assert set(files) == {"CMakeLists.txt", "ask.cpp", "show.cpp", "ask.c"}, list(files)
        for name, text in files.items():
            (cls.folder / name).write_text(text, encoding="utf-8")
        os.environ["CMAKE_PREFIX_PATH"] = str(cls.prefix)
        os.environ["PKG_CONFIG_PATH"] = str(next(cls.prefix.rglob("relayclient.pc")).parent)
        os.environ["CMAKE_GENERATOR"] = "Ninja"
        os.environ["CFLAGS"] = STRICT_C
        os.environ["CXXFLAGS"] = STRICT
        commands = [text for _, text in blocks("sh")]
        assert len(commands) == 3, commands
        for command in commands:
            run(cls.folder, command)

    def device(self, node: str) -> Device:
        device = Device(node)
        self.addCleanup(device.remove)
        return device

    def service(self) -> Service:
        service = make(str(BUILD / "bin/SerialPortHandler"), self.addCleanup, RELAY_PORT)
        service.wait_until_it_listens()
        return service

    def start(self, program: str) -> subprocess.Popen[str]:
        process = subprocess.Popen([self.folder / program], stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True)
        giving_up = threading.Timer(PATIENCE, process.kill)
        giving_up.start()
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        self.addCleanup(giving_up.cancel)
        return process

    def test_nothing_else_is_installed(self) -> None:
        files = [path for path in self.prefix.rglob("*") if path.is_file()]
        self.assertEqual({"include", "lib"},
                         {path.relative_to(self.prefix).parts[0] for path in files})
        self.assertEqual({".h", ".a", ".cmake", ".pc"}, {path.suffix for path in files})

    def test_each_header_stands_alone(self) -> None:
        include = self.prefix / "include/relayclient"
        headers = sorted(include.rglob("*.h"))
        self.assertGreater(len(headers), 5)
        for header in headers:
            run(self.folder, f"echo '#include \"{header.relative_to(include)}\"' >alone.cpp\n"
                             f"g++ -std=c++20 {STRICT} -fsyntax-only -I'{include}' alone.cpp")

    def test_the_header_for_c_is_c(self) -> None:
        include = self.prefix / "include/relayclient"
        for standard in ("c99", "c11", "c17"):
            run(self.folder, "echo '#include \"relayclient.h\"' >alone.c\n"
                             f"gcc -std={standard} {STRICT_C} -fsyntax-only -I'{include}' alone.c")

    def test_ask_by_both_builds(self) -> None:
        device = self.device("/dev/ttyS2")
        self.service()
        for program in ("build/ask", "ask", "build/ask-in-c", "ask-in-c"):
            asking = self.start(program)
            question = device.receives(6)
            if question != b"*IDN?\n":
                self.fail(f"{program}: {question!r}, {asking.communicate()}")
            device.sends(b"M100")
            device.sends(b"\nmore\n")
            self.assertEqual(("M100\n", ""), asking.communicate())
            self.assertEqual(0, asking.returncode)

    def test_ask_says_what_is_wrong(self) -> None:
        self.service()  # and no device
        for program in ("build/ask", "build/ask-in-c"):
            output, told = self.start(program).communicate()
            self.assertEqual("", output)
            self.assertEqual(
                "ask: the device could not be opened or set up, or its node is missing\n", told)

    def test_check_finds_nothing_in_them(self) -> None:
        """One trial after the other, as their port is fixed: without the cases that take seconds."""
        names = ("one-byte-at-a-time", "several-at-once", "largest-notification", "keeps-reading",
                 "refused-open", "back-after-an-end", "back-after-a-reset", "not-to-itself")
        only = [word for name in names for word in ("--only", name)]
        for program in ("build/ask", "build/ask-in-c", "build/show"):
            done = subprocess.run(
                [BUILD / "bin/relayctl", "check", "--listen", str(RELAY_PORT), "--variants", "2",
                 "--quiet", "0.2", *only, "--", self.folder / program],
                text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            self.assertEqual(0, done.returncode, f"{program}:\n{done.stdout}")
            self.assertTrue(done.stdout.endswith("8 cases: 8 passed\n"), done.stdout)

    def test_show_survives_the_service(self) -> None:
        service = self.service()
        scale, display = self.device("/dev/ttyS2"), self.device("/dev/ttyUSB0")
        show = self.start("build/show")

        def says(count: int) -> list[str]:
            assert show.stderr
            return [show.stderr.readline().rstrip("\n") for _ in range(count)]

        life = ["show: connected", "show: #PhysicalPort0: open", "show: #USBSerialPort0: open"]
        self.assertEqual(life, says(3))
        scale.sends(b"12 kg\nhalf a line")
        self.assertEqual(b"12 kg\n", display.receives(6))
        service.kill()
        end = says(2)
        service.start()
        again = says(3)
        scale.sends(b"13 kg\n")
        self.assertEqual(b"13 kg\n", display.receives(6))
        show.terminate()
        self.assertEqual(0, show.wait())
        shown = dict(blocks("text"))[""].splitlines()
        self.assertEqual(shown, life + end + again)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
