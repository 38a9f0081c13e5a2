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
def build(request: pytest.FixtureRequest) -> pathlib.Path:
    """That of the service under test."""
    return pathlib.Path(request.config.getoption("--service"))


@pytest.fixture(scope="session")
def saved(build: pathlib.Path, scratch: pathlib.Path) -> machines.Saved:
    """A PC with the service under test, just booted, with no adapter plugged in."""
    kind = guest.Kind("amd64", "linux-image-amd64", build, ("SerialPortHandler", "open_line"))
    return machines.saved(lambda folder: machines.command_line(guest.image(kind, folder)), scratch)


@pytest.fixture
def machine(saved: machines.Saved, scratch: pathlib.Path) -> Iterator[machines.Machine]:
    """A fresh PC, with no adapter plugged in and the service not running."""
    with saved.restored(scratch) as fresh:
        yield fresh


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
