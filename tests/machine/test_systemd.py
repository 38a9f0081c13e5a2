# SPDX-License-Identifier: MIT
"""The service as it is installed, with systemd as the machine's first process."""

from __future__ import annotations

import json
import pathlib
import re
from collections.abc import Iterator

import pytest

import machine as machines
import packages
import systemd_pc
from figures import Figure
from machine import ADAPTERS, UART, Machine, settings
from process import Process
from relay import CLOSE, Relay, numbered
from systemd_pc import SERVICE
from test_topology import FTDI, NO_SUCH_PORT, USB_PORTS, leads_to

PHYSICAL_PORT = "#PhysicalPort0"
EXIT_TEXT = "終了"
EXAMPLES = packages.ROOT / "packaging/examples"
VERSION, = re.findall(r"^project\(SerialPortHandler VERSION ([\d.]+)",
                      (packages.ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)
DROP_INS = f"/run/systemd/system/{SERVICE}.d"


@pytest.fixture(scope="module")
def saved(build: pathlib.Path, scratch: pathlib.Path) -> machines.Saved:
    """When systemd has started everything."""
    return machines.saved(lambda folder: systemd_pc.pc(build, folder), scratch,
                          "systemctl is-system-running --quiet && grep LISTEN /run/service.out")


@pytest.fixture
def machine(saved: machines.Saved, scratch: pathlib.Path) -> Iterator[Machine]:
    """Fresh, with all six adapters, and the service listening."""
    with saved.restored(scratch) as fresh:
        fresh.configure({name: settings() for name in [*USB_PORTS, PHYSICAL_PORT]})
        fresh.plug_all()
        yield fresh


def property_of(machine: Machine, name: str) -> str:
    return machine.run(f"systemctl show --value --property {name} {SERVICE}")


def journal(machine: Machine, *filters: str) -> list[dict[str, str]]:
    told = machine.run(f"journalctl --sync; journalctl --output json {' '.join(filters)}")
    return [json.loads(line) for line in told.splitlines()]


def times_of(machine: Machine, *messages: str) -> list[float]:
    """When systemd said each of these about the service, in seconds. Each must be there once."""
    entries = journal(machine, f"_PID=1 UNIT={SERVICE}")
    times = []
    for message in messages:
        found = [entry for entry in entries if message in entry["MESSAGE"]]
        assert len(found) == 1, f"{message!r} in {[entry['MESSAGE'] for entry in entries]}"
        times.append(int(found[0]["__MONOTONIC_TIMESTAMP"]) / 1e6)
    return times


def add_drop_in(machine: Machine, text: str) -> None:
    machine.run(f"mkdir -p {DROP_INS} && cat >{DROP_INS}/test.conf <<'END'\n{text}END\n"
                "systemctl daemon-reload")


def connected(machine: Machine) -> Relay:
    """With a port open, so that the service is certainly running, not listening."""
    relay = machine.relay()
    leads_to(relay, PHYSICAL_PORT, machine, UART)
    return relay


def test_the_sandbox_lets_it_open_every_port_and_search_for_adapters(machine: Machine) -> None:
    process = property_of(machine, "MainPID")
    lines = machine.run(f"cat /proc/{process}/status").splitlines()
    status = {key: value.split() for key, _, value in (line.partition(":") for line in lines)}
    assert "0" not in status["Uid"] and status["CapEff"] == ["0000000000000000"]
    assert status["Seccomp"] == ["2"]
    relay = machine.relay()
    for name, adapter in zip(USB_PORTS, ADAPTERS):
        leads_to(relay, name, machine, adapter)
    leads_to(relay, PHYSICAL_PORT, machine, UART)
    assert relay.asks(CLOSE, FTDI) == NO_SUCH_PORT  # else: no adapter found, and the process ends
    assert property_of(machine, "MainPID") == process


def test_unplugging_and_replugging_does_not_stop_it(machine: Machine) -> None:
    process = Process(machine, int(property_of(machine, "MainPID")))
    relay = connected(machine)
    for name, adapter in zip(USB_PORTS, ADAPTERS):
        leads_to(relay, name, machine, adapter)
    # One at a time, and when nobody holds its node any more: that is then the only free one, and the
    # one that it gets again.
    for number, (name, adapter) in enumerate(zip(USB_PORTS, ADAPTERS)):
        node = machine.node_of(adapter)
        machine.unplug(adapter)
        process.waits_until_closed(node)
        machine.waits_for_nodes(len(ADAPTERS) - 1)
        machine.line(UART).sends(b"still here")
        relay.expects(PHYSICAL_PORT, b"still here")
        opened = 1 + len(ADAPTERS) + number  # the journal passes its lines on a little later
        machine.waits(f"[ $(grep -c '^OPEN' /run/service.out) -eq {opened} ]")
        machine.plug(adapter)
        machine.waits_for_nodes(len(ADAPTERS))
        assert machine.node_of(adapter) == node
        process.waits_until_open(node)  # before the journal is asked: one of the two may be late
        machine.waits(f"[ $(grep -c '^OPEN' /run/service.out) -gt {opened} ]")
        machine.line(adapter).sends(b"here again")
        relay.expects(name, b"here again")
    assert property_of(machine, "MainPID") == str(process.pid)
    assert property_of(machine, "NRestarts") == "0"


def test_a_persons_sighup_stops_it_and_the_unit_starts_it_again(machine: Machine) -> None:
    relay = connected(machine)
    process = property_of(machine, "MainPID")
    machine.run(f"systemctl kill --signal HUP {SERVICE}")
    relay.waits_for_end()
    machine.waits_for_listen(2)
    sent, ended, started_again = times_of(
        machine, "Sent signal SIGHUP", "Deactivated successfully", "restart counter is at 1")
    assert sent < ended < started_again
    assert "Serial Port Handler stop." in journal(machine, f"_PID={process}")[-1]["MESSAGE"]
    assert property_of(machine, "MainPID") not in ("0", process)
    connected(machine)


def test_killed_it_is_back_within_the_restart_time(machine: Machine, figure: Figure) -> None:
    assert property_of(machine, "RestartUSec") == "1s"
    relay = connected(machine)
    machine.run(f"systemctl kill --signal KILL {SERVICE}")
    relay.waits_for_end()
    machine.waits_for_listen(2)
    ended, started_again = times_of(
        machine, "Main process exited, code=killed, status=9/KILL", "restart counter is at 1")
    figure("from the end to the new start", f"{started_again - ended:.2f} s")
    assert 1 <= started_again - ended < 5  # the emulated machine may be slow
    connected(machine)


def test_stopped_it_says_so_and_ends_with_status_0(machine: Machine) -> None:
    example = EXAMPLES / "received-bytes-to-the-journal.conf"  # standard error, too, that is
    add_drop_in(machine, example.read_text())
    machine.run(f"systemctl restart {SERVICE}")
    machine.waits_for_listen(2)
    relay = connected(machine)
    process = property_of(machine, "MainPID")
    machine.run(f"systemctl stop {SERVICE}")
    relay.waits_for_end()
    told = [entry["MESSAGE"] for entry in journal(machine, f"_PID={process}")]
    assert told[-1] == EXIT_TEXT
    assert property_of(machine, "ExecMainStatus") == "0"
    assert property_of(machine, "Result") == "success"
    assert property_of(machine, "ActiveState") == "inactive"
    assert property_of(machine, "NRestarts") == "0"


# Connects once, and fails when it is refused.
RELAY_UNIT = f"""[Unit]
Requires={SERVICE}
After={SERVICE}
[Service]
Type=oneshot
RemainAfterExit=yes
ExecStart=socat -u OPEN:/dev/null TCP:127.0.0.1:60004
"""
SLOW_START = """[Service]
ExecStart=
ExecStart=sh -c 'until [ -e /run/go ]; do sleep 0.1; done; exec /usr/local/sbin/SerialPortHandler'
"""


def test_what_is_ordered_after_it_finds_it_listening(machine: Machine) -> None:
    add_drop_in(machine, SLOW_START)
    machine.run(f"cat >/run/systemd/system/relay.service <<'END'\n{RELAY_UNIT}END\n"
                f"systemctl stop {SERVICE}; systemctl start --no-block relay")
    machine.waits(f"[ $(systemctl show --value --property SubState {SERVICE}) = start-post ]")
    assert property_of(machine, "ActiveState") == "activating"
    machine.run("touch /run/go")
    machine.waits("systemctl is-active --quiet relay")


def test_a_start_without_the_port_fails_until_it_is_free(machine: Machine) -> None:
    machine.run(f"systemctl stop {SERVICE}; systemd-run --unit taker --service-type exec "
                "socat TCP-LISTEN:60004,bind=127.0.0.1,fork OPEN:/dev/null")
    machine.waits("grep -q ' 0100007F:EA64 00000000:0000 0A ' /proc/net/tcp")
    assert "started" not in machine.run(f"systemctl start {SERVICE} && echo started", check=False)
    machine.waits(f"[ $(systemctl show --value --property NRestarts {SERVICE}) -ge 2 ]")  # and again
    machine.run("systemctl stop taker")
    machine.waits(f"systemctl is-active --quiet {SERVICE}")
    connected(machine)


def test_the_journal_has_what_an_operator_wants_as_errors(machine: Machine) -> None:
    machine.configure({PHYSICAL_PORT: settings(), "#PhysicalPort1": settings()})
    relay = connected(machine)
    relay.sends_bytes(b"\0\3\1")
    relay.cannot_open("#PhysicalPort1", 2)
    relay.sends(CLOSE, numbered(0xDEAD, 0xBEEF))
    relay.waits_for_end()
    machine.waits_for_listen(2)
    told = [entry["MESSAGE"] for entry in journal(machine, f"--unit {SERVICE} --priority err")]
    assert [line.rsplit(" 4 ")[-1] for line in told] == [
        "Command parse failed.", "Cannot open serial device. [Port ]",
        "It has ended: killed, ABRT."]
    of_service = journal(machine, "--identifier SerialPortHandler")
    assert {entry["SERIAL_PORT_HANDLER_VERSION"] for entry in of_service} == {VERSION}

    shown = machine.run("/opt/service/bin/relayctl --json log --unit serial-port-handler")
    records = [json.loads(line) for line in shown.splitlines()]
    assert all("time" in record for record in records)
    assert [record["event"] for record in records if record.get("level") == "error"] == [
        "malformed-packet", "no-device", "unknown"]
    assert [record["event"] for record in records].count("listening") == 2


# A close of a port that is not open: answered, and nothing else happens.
ASK = r"printf '\0\7\2\2\0\1X' | socat -t 10 - TCP:127.0.0.1:60004"
ANSWER = "00 09 02 02 00 01 58 00 02"


def test_the_firewall_example_lets_only_the_relay_service_connect(machine: Machine) -> None:
    def asks(user: str) -> str:
        return machine.run(f"su {user} -c \"{ASK}\" | od -An -tx1", check=False).strip()

    for number, user in enumerate(("relay", "other")):
        machine.run(f"echo {user}:x:99{number}:99{number}::/:/bin/sh >>/etc/passwd")
    assert asks("other") == ANSWER
    machine.waits_for_listen(2)
    rules = (EXAMPLES / "only-relay-may-connect.nft").read_text()
    machine.run(f"cat >/run/rules <<'END'\n{rules}END\nnft -f /run/rules && nft -f /run/rules")
    for user in ("other", "root"):
        assert asks(user).endswith("Connection refused")
    assert asks("relay") == ANSWER
    machine.waits_for_listen(3)
    assert machine.run("grep -c '^.ACCEPT' /run/service.out") == "2"
