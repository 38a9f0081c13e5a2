# SPDX-License-Identifier: MIT
"""Fixtures: one guest is booted and saved for all tests; each test gets a fresh one from there."""

from __future__ import annotations

import os
import pathlib
import shutil
import tempfile
from collections.abc import Iterator

import pytest

import guest
import machine as machines
import packages
from figures import Figure, Report
from relay import Relay


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addoption("--service", default=str(packages.ROOT / "build/release"),
                     help="the build folder of the service under test")
    parser.addoption("--report", help="where the cases and figures of the run go")


def pytest_configure(config: pytest.Config) -> None:
    if path := config.getoption("--report"):
        config.pluginmanager.register(Report(pathlib.Path(path)))


def _remove_left_overs() -> None:
    """What runs left that were killed."""
    for folder in packages.CACHE.glob("run-*"):
        if not pathlib.Path("/proc", folder.name.split("-")[1]).exists():
            shutil.rmtree(folder, ignore_errors=True)  # the other process does it, too


@pytest.fixture(scope="session")
def scratch() -> Iterator[pathlib.Path]:
    """A folder of this run, removed at its end."""
    packages.CACHE.mkdir(parents=True, exist_ok=True)
    _remove_left_overs()
    with tempfile.TemporaryDirectory(prefix=f"run-{os.getpid()}-", dir=packages.CACHE) as folder:
        yield pathlib.Path(folder)


@pytest.fixture(scope="session")
def pc(scratch: pathlib.Path, request: pytest.FixtureRequest) -> list[str]:
    """QEMU's command for the PC with the service under test."""
    folder = scratch / "pc"
    folder.mkdir()
    build = pathlib.Path(request.config.getoption("--service"))
    kind = guest.Kind("amd64", "linux-image-amd64", build, ("SerialPortHandler", "open_line"))
    return machines.command_line(guest.image(kind, folder))


@pytest.fixture(scope="session")
def saved(pc: list[str], scratch: pathlib.Path) -> pathlib.Path:
    """The state of a PC that has just been booted, with no adapter plugged in."""
    folder = scratch / "boot"
    folder.mkdir()
    booted = machines.Machine(pc, folder)
    try:
        booted.save(scratch / "state")
    finally:
        booted.end()
    return scratch / "state"


@pytest.fixture
def machine(pc: list[str], saved: pathlib.Path,
            scratch: pathlib.Path) -> Iterator[machines.Machine]:
    """A fresh PC, with no adapter plugged in and the service not running."""
    folder = pathlib.Path(tempfile.mkdtemp(prefix="machine-", dir=scratch))
    fresh = machines.restored(pc, saved, folder)
    try:
        yield fresh
    finally:
        fresh.end()
        shutil.rmtree(folder)


@pytest.fixture
def service(machine: machines.Machine) -> machines.Machine:
    """A machine with all six adapters, and the service running."""
    machine.plug_all()
    machine.start_service()
    return machine


@pytest.fixture
def relay(service: machines.Machine) -> Relay:
    return service.relay()


@pytest.fixture
def figure(request: pytest.FixtureRequest) -> Figure:
    """Puts a measured figure into the report of the run."""
    def put(name: str, value: object) -> None:
        request.node.user_properties.append((name, str(value)))
    return put
