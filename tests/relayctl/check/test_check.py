# SPDX-License-Identifier: MIT
"""relayctl check with relay services that do right, and with some that do not.

usage: python3 test_check.py RELAYCTL [TEST...]
"""

import json
import re
import subprocess
import sys
import tempfile
import time
import unittest
import xml.etree.ElementTree as ElementTree
from pathlib import Path

PROGRAM = Path(sys.argv[1]).resolve()
CHECKOUT = Path(__file__).resolve().parents[3]
RELAY = Path(__file__).parent / "relay.py"
PYTHON = ("/usr/bin/python3", "-ISB")

RECORDING = """\
0 > #USBSerialPort0 open
0 < #USBSerialPort0 open 0
0 > #USBSerialPort0 data 2A 49 44 4E 3F 0A          ; "*IDN?\\n"
0 < #USBSerialPort0 data 4D 65 74 65 72 0A          ; "Meter\\n"
0 > #USBSerialPort0 data 67 6F 74 20 4D 65 74 65 72 0A  ; "got Meter\\n"
0 < #USBSerialPort0 data 6F 6B 0A                   ; "ok\\n"
"""

Verdicts = dict[str, tuple[str, str]]  # by the case's name: the verdict, and its text


def run(*words: str | Path) -> subprocess.CompletedProcess[str]:
    """The silence is long enough for a program that a busy machine lets wait."""
    return subprocess.run([PROGRAM, "check", "--quiet", "1", *words], text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)


def runs(pid: str) -> bool:
    try:
        return Path("/proc", pid, "stat").read_text().rpartition(") ")[2][:1] != "Z"
    except OSError:
        return False


class CheckTest(unittest.TestCase):
    """Each has a folder with a recording."""

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory(prefix="check-")
        self.addCleanup(folder.cleanup)
        self.recording = Path(folder.name) / "meter.rec"
        self.recording.write_text(RECORDING)
        self.folder = Path(folder.name)

    def verdicts(self, *words: str | Path) -> Verdicts:
        done = run("--json", *words)
        try:
            cases = [json.loads(line) for line in done.stdout.splitlines()]
        except json.JSONDecodeError:
            self.fail(done.stdout)
        self.assertTrue(cases)
        has_failed = any(case["verdict"] == "failed" for case in cases)
        self.assertEqual(1 if has_failed else 0, done.returncode, done.stdout)
        return {case["name"]: (case["verdict"], case["text"]) for case in cases}

    def relay(self, kind: str = "Relay") -> tuple[str | Path, ...]:
        return ("--variants", "2", "--limit", "5", "--", *PYTHON, RELAY, "{port}", kind)

    def assert_nothing_is_found(self, verdicts: Verdicts, skipped: set[str],
                                remarks: set[str] = {"unanswered-open"}) -> None:
        found = {verdict: {name for name, (own, _) in verdicts.items() if own == verdict}
                 for verdict in ("failed", "skipped", "remark")}
        if "quick-acknowledgement" in found["remark"]:  # a busy machine
            self.assertRegex(verdicts["quick-acknowledgement"][1], r"waits \d+ ms for it")
            found["remark"].remove("quick-acknowledgement")
        self.assertEqual({"failed": set(), "skipped": skipped, "remark": remarks}, found, verdicts)

    def assert_found(self, kind: str, wanted: dict[str, str], *options: str | Path) -> Verdicts:
        """Just these cases have failed, and these words say why. Gives all."""
        verdicts = self.verdicts(*options, *self.relay(kind))
        failed = {name: text for name, (verdict, text) in verdicts.items() if verdict == "failed"}
        self.assertEqual(set(wanted), set(failed), failed)
        for name, words in wanted.items():
            self.assertIn(words, failed[name])
        return verdicts


class RightRelays(CheckTest):
    """What does right passes."""

    USUAL = {"before-an-answer", "reads-while-it-sends", "refused-close"}

    def test_the_little_one(self) -> None:
        verdicts = self.verdicts("--recording", self.recording, *self.relay())
        self.assert_nothing_is_found(verdicts, self.USUAL | {"same-under-merges"})

    def test_watch(self) -> None:
        verdicts = self.verdicts("--variants", "10", "--", PROGRAM, "-p", "{port}", "watch",
                                 "#PhysicalPort0", "#USBSerialPort3")
        self.assert_nothing_is_found(verdicts, self.USUAL - {"before-an-answer"})
        self.assertEqual("it opens #PhysicalPort0, #USBSerialPort3", verdicts["connects"][1])

    def test_pty(self) -> None:
        verdicts = self.verdicts("--variants", "10", "--", PROGRAM, "-p", "{port}", "pty",
                                 "#PhysicalPort0")
        self.assert_nothing_is_found(verdicts, self.USUAL)

    def test_share(self) -> None:
        peers = "$((SERIAL_RELAY_PORT - 30000))"  # their port: none that is given to anybody
        share = f"exec {PROGRAM} -p {{port}} share --listen {peers} --pty '#USBSerialPort0'"
        verdicts = self.verdicts("--variants", "10", "--", "sh", "-c", share)
        self.assert_nothing_is_found(verdicts, self.USUAL)

    def test_megabytes(self) -> None:
        ask = (f"head -c 1000000 /dev/zero | {PROGRAM} -p $SERIAL_RELAY_PORT pipe "
               "'#USBSerialPort0' --exit-after 0.1")
        verdicts = self.verdicts("--only", "reads-while-it-sends", "--", "sh", "-c", ask)
        self.assertEqual({"reads-while-it-sends": ("passed", "1000000 bytes of data")}, verdicts)

    def test_pipe_in_hundreds_of_variants(self) -> None:
        ask = (f"printf '*IDN?\\n' | {PROGRAM} -p $SERIAL_RELAY_PORT pipe '#USBSerialPort0' "
               "--until 'ok\\n'")
        self.recording.write_text(RECORDING.replace("67 6F 74 20 4D 65 74 65 72 0A", "0A")
                                  .replace("2A 49 44 4E 3F 0A", "2A 49 44 4E 3F"))
        verdicts = self.verdicts("--recording", self.recording, "--variants", "60", "--", "sh",
                                 "-c", ask)
        self.assertEqual([], [name for name, (verdict, _) in verdicts.items()
                              if verdict == "failed"], verdicts)
        count = sum(int(found[1]) for _, text in verdicts.values()
                    if (found := re.match(r"(\d+) variants", text)))
        self.assertGreater(count, 250)

    def test_the_python_examples(self) -> None:
        """The blocking client's, and that of asyncio."""
        readme = (CHECKOUT / "clients/python/README.md").read_text(encoding="utf-8")
        examples = re.findall(r"^```python\n(.*?)^```", readme, re.DOTALL | re.MULTILINE)
        wanted = [text for text in examples if re.search(r" (aio\.)?Client\(\) as client:", text)]
        self.assertEqual(1, len(wanted))
        wanted += [text for text in examples if "aio.Client() as client, " in text]
        self.assertEqual(2, len(wanted))
        for text in wanted:
            example = self.folder / "example.py"
            example.write_text("import os\n" + text.replace(
                "Client()", "Client(int(os.environ['SERIAL_RELAY_PORT']))"))
            verdicts = self.verdicts(
                "--variants", "1", "--limit", "6", "--", "env",
                f"PYTHONPATH={CHECKOUT}/clients/python", "/usr/bin/python3", "-SB", example)
            self.assertEqual([], [(name, told) for name, told in verdicts.items()
                                  if told[0] == "failed"])
            self.assertEqual("passed", verdicts["one-byte-at-a-time"][0])


class WrongRelays(CheckTest):
    """Each is found, for the right reason, and for no other."""

    def test_one_recv_is_one_packet(self) -> None:
        verdicts = self.assert_found("OneRecvIsOnePacket", {
            "one-byte-at-a-time": "nothing more, and not data",
            "several-at-once": "nothing more, and not data"})
        self.assertEqual(("skipped", "tells nothing without several-at-once"),
                         verdicts["keeps-reading"])

    def test_stops_reading(self) -> None:
        self.assert_found("StopsReading", {"keeps-reading": "it does not read"})

    def test_sends_before_it_reads(self) -> None:
        self.assert_found("SendsBeforeItReads", {"reads-while-it-sends": "it stopped for good"})

    def test_dies_of_a_reset(self) -> None:
        self.assert_found("DiesOfAReset", {"back-after-a-reset": "status 1 (a reset)",
                                           "reset-before-a-byte": "status 1 (a reset)"})

    def test_never_pauses(self) -> None:
        self.assert_found("NeverPauses", {"pauses-between-tries": "tries in a second"})

    def test_meets_itself(self) -> None:
        self.assert_found("MeetsItself", {"not-to-itself": "it is connected to itself"})

    def test_ignores_the_status(self) -> None:
        self.assert_found("IgnoresTheStatus", {"refused-open": "it sends data to the port"})

    def test_a_notification_is_a_message(self) -> None:
        self.assert_found("ANotificationIsAMessage", {"same-under-splits": "and not data"},
                          "--recording", self.recording)


class Reports(CheckTest):
    """What is told, in each form."""

    def test_forms(self) -> None:
        junit = self.folder / "junit.xml"
        command = ("--only", "connects", "--only", "one-byte-at-a-time", "--only", "refused-close",
                   "--limit", "4", "--", *PYTHON, RELAY, "{port}", "OneRecvIsOnePacket")
        text = run("--junit", junit, *command)
        self.assertEqual(1, text.returncode)
        self.assertEqual(
            "every relay service:\n"
            "  passed   connects: it opens #USBSerialPort0\n"
            "  FAILED   one-byte-at-a-time: each byte by itself: #USBSerialPort0: nothing more, and "
            "not data \"*IDN?\\ngot *IDN?\\n\"\n"
            "           docs/protocol.md: \"TCP does not keep packets together; a packet may arrive "
            "in pieces, and several may arrive at once.\"\n"
            "  skipped  refused-close: it closes no port\n"
            "3 cases: 1 passed, 1 failed, 1 skipped\n", text.stdout)
        suite = ElementTree.parse(junit).getroot()[0]
        self.assertEqual({"name": "every relay service", "tests": "3", "failures": "1",
                          "errors": "0", "skipped": "1"}, suite.attrib)
        self.assertEqual(["system-out", "failure", "skipped"], [case[0].tag for case in suite])
        tap = run("--tap", *command).stdout.splitlines()
        self.assertEqual(["TAP version 13", "1..3", "ok 1 - every relay service: connects"], tap[:3])
        self.assertEqual("not ok 2 - every relay service: one-byte-at-a-time", tap[4])
        self.assertEqual("ok 3 - every relay service: refused-close # SKIP it closes no port", tap[-1])

    def test_a_program_that_does_not_connect(self) -> None:
        verdicts = self.verdicts("--limit", "1.5", "--", "sleep", "1000")
        self.assertEqual(("failed", "undisturbed, it did not connect"), verdicts.pop("connects"))
        self.assertEqual({("skipped", "undisturbed, it did not connect")}, set(verdicts.values()))

    def test_another_conversation_than_the_recorded_one(self) -> None:
        self.recording.write_text(RECORDING.replace("4D 65 74 65 72 0A  ;", "4F 0A ;"))
        verdicts = self.verdicts("--recording", self.recording, "--only", "same-under-cuts", "--only",
                                 "reaches-the-end", *self.relay())
        self.assertEqual({
            "reaches-the-end": ("failed", 'undisturbed it does not get there: #USBSerialPort0: '
                                '"got O\\n" was to come, and "got Meter\\n" came'),
            "same-under-cuts": ("skipped", "tells nothing without reaches-the-end")}, verdicts)

    def test_a_refusal_that_was_recorded(self) -> None:
        refused = "0 > #USBSerialPort0 open\n0 < #USBSerialPort0 open 4\n"
        self.recording.write_text(refused + RECORDING)
        verdicts = self.verdicts("--recording", self.recording, "--only", "reaches-the-end",
                                 *self.relay())
        self.assertEqual({"reaches-the-end": ("passed", "2 commands, 4 packets from the service")},
                         verdicts)

    def test_nothing_is_left_behind(self) -> None:
        told = self.folder / "told"
        children = "".join(f"(trap '' TERM; exec {own} sleep 1000) & echo $! >>{told}; "
                           for own in ("", "setsid"))
        script = f"trap 'echo told >>{told}; exit 3' TERM; {children} wait"
        self.verdicts("--limit", "2", "--only", "connects", "--", "sh", "-c", script)
        words = told.read_text().split()
        self.assertEqual(2, words.count("told"), words)
        self.assertEqual(6, len(words), words)
        for pid in set(words) - {"told"}:
            end = time.monotonic() + 20
            while runs(pid):  # a killed one ends soon
                self.assertLess(time.monotonic(), end, f"{pid} is left")
                time.sleep(0.01)

    def test_a_program_that_fails(self) -> None:
        verdicts = self.verdicts("--", "sh", "-c", "echo no such luck >&2; exit 3")
        self.assertEqual(("failed", "undisturbed, it ended with status 3 (no such luck)"),
                         verdicts["connects"])

    def test_a_program_that_says_much(self) -> None:
        told = self.folder / "told"
        script = f"head -c 20000000 /dev/zero >&2; stat -L -c %s /proc/self/fd/2 >{told}; exit 3"
        self.verdicts("--only", "connects", "--", "sh", "-c", script)
        self.assertLess(int(told.read_text()), 100000, "it is kept")

    def test_a_report_comes_first_and_last(self) -> None:
        told = self.folder / "told"
        late = run("--junit", self.folder / "no" / "x", "--", "touch", told)
        self.assertIn("No such file or directory", late.stdout)
        self.assertFalse(told.exists(), "it is told behind all the work")
        junit = self.folder / "junit.xml"
        with open("/dev/full", "w") as full:
            done = subprocess.run([PROGRAM, "check", "--only", "connects", "--junit", junit,
                                   *self.relay()], stdout=full, stderr=subprocess.PIPE, text=True)
        self.assertEqual((1, "relayctl: cannot write to standard output: No space left on device\n"),
                         (done.returncode, done.stderr))
        self.assertEqual("1", ElementTree.parse(junit).getroot()[0].get("tests"))

    def test_a_recording_that_asks_for_nothing(self) -> None:
        self.recording.write_text("0 > #USBSerialPort0 open\n0 < #USBSerialPort0 open 2\n")
        self.assertIn("no port opens in it", run("--recording", self.recording, "--", "true").stdout)

    def test_a_port_that_is_fixed(self) -> None:
        verdicts = self.verdicts("--listen", "60004", "--only", "several-at-once", "--", *PYTHON,
                                 RELAY, "60004")
        self.assertEqual("passed", verdicts.pop("several-at-once")[0])
        self.assertEqual({}, verdicts)

    def test_wrong_use(self) -> None:
        for words, status, said in (
                ((), 2, "COMMAND is required"),
                (("--only", "x", "--", "true"), 2, '--only: "x" is no case'),
                (("--only", "same-under-cuts", "--", "true"), 2, "there is no --recording"),
                (("--recording", "/no", "--", "true"), 1, "/no"),
                (("--", "/no/program"), 1, "cannot start /no/program: No such file or directory"),
                (("--limit", "0.1", "--", "true"), 2, "--limit more than that")):
            done = run(*words)
            self.assertEqual(status, done.returncode, words)
            self.assertIn(said, done.stdout)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]])
