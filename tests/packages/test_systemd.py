# SPDX-License-Identifier: MIT
"""The installed unit under a real systemd, in a clean system: rights, journal, restart, stop.

That it finds adapters and opens their ports: tests/machine/test_systemd.py.
"""

import json
from collections.abc import Iterator

import deb
import pytest
from box import NATIVE, Box, wait_until
from service import SERVICE, allow_all_ports, converse, group_number, install

DROP_INS = "/run/systemd/system/serial-port-handler.service.d"


@pytest.fixture(scope="module")
def box() -> Iterator[Box]:
    with Box(NATIVE) as running:
        install(running, deb.built(NATIVE))
        configuration = running.path("/etc/vost.conf")
        configuration.write_text(allow_all_ports(configuration.read_text()))
        yield running


def property_of(box: Box, name: str) -> str:
    return box.run("systemctl", "show", "--value", "--property", name, SERVICE).strip()


def journal_of(box: Box) -> list[dict[str, str]]:
    """What the running process itself has written up to now, not what systemd says about it. The
    journal takes it later than it is written, unless it is told to."""
    box.run("journalctl", "--sync")
    text = box.run("journalctl", "--quiet", "--output", "json",
                   "_PID=" + property_of(box, "MainPID"))
    return [json.loads(line) for line in text.splitlines()]


def add_drop_in(box: Box, name: str, text: str) -> None:
    folder = box.path(DROP_INS)
    folder.mkdir(parents=True)
    (folder / name).write_text(text)
    box.run("systemctl", "daemon-reload")


def remove_drop_ins(box: Box) -> None:
    box.run("rm", "-r", DROP_INS)
    box.run("systemctl", "daemon-reload")


def test_the_installation_starts_it_without_rights(box: Box) -> None:
    process = property_of(box, "MainPID")
    lines = box.run("cat", f"/proc/{process}/status").splitlines()
    status = {key: value.split() for key, _, value in (line.partition(":") for line in lines)}
    assert "0" not in status["Uid"]
    assert group_number(box) in status["Groups"]
    assert status["CapEff"] == status["CapBnd"] == ["0000000000000000"]
    assert status["NoNewPrivs"] == ["1"]
    assert status["Seccomp"] == ["2"]


def test_the_journal_has_the_log_and_not_the_received_bytes(box: Box) -> None:
    converse(box)
    entries = journal_of(box)
    closed = [entry for entry in entries if entry["MESSAGE"].endswith(" close command proc.")]
    assert [entry["PRIORITY"] for entry in closed] == ["6"]
    assert any(entry["MESSAGE"] == "OPEN[/dev/ttyS2]" for entry in entries)
    assert not any("Received(" in entry["MESSAGE"] for entry in entries)


def test_the_example_shows_the_received_bytes_in_the_journal(box: Box) -> None:
    example = "/usr/share/doc/serial-port-handler/examples/received-bytes-to-the-journal.conf"
    add_drop_in(box, "received.conf", box.path(example).read_text())
    box.run("systemctl", "restart", SERVICE)
    converse(box)
    wait_until("the bytes are in the journal", lambda: any(
        entry["MESSAGE"].rstrip() == "Received(4):70 6F 6E 67" for entry in journal_of(box)))
    remove_drop_ins(box)


def test_the_other_example_writes_them_to_a_file(box: Box) -> None:
    example = "/usr/share/doc/serial-port-handler/examples/received-bytes-to-a-file.conf"
    add_drop_in(box, "received.conf", box.path(example).read_text())
    box.run("systemctl", "restart", SERVICE)
    converse(box)
    file = box.path("/var/log/serial-port-handler.received")
    wait_until("the bytes are in the file", lambda: "Received(4):70 6F 6E 67" in file.read_text())
    remove_drop_ins(box)


def test_it_comes_back_however_often_it_dies(box: Box) -> None:
    for _ in range(7):  # systemd gives up after five, if it is not told otherwise
        before = property_of(box, "MainPID")
        box.run("systemctl", "kill", "--signal=KILL", SERVICE)
        wait_until("systemd has started it again", lambda: property_of(
            box, "MainPID") not in ("0", before))
    converse(box)


def test_a_stop_while_it_listens_is_no_failure(box: Box) -> None:
    box.run("systemctl", "restart", SERVICE)
    wait_until("it listens", lambda: journal_of(box)[-1]["MESSAGE"].startswith("[LISTEN]"))
    box.run("systemctl", "stop", SERVICE)
    assert property_of(box, "ExecMainStatus") == "255"
    assert property_of(box, "Result") == "success"
    assert property_of(box, "ActiveState") == "inactive"
