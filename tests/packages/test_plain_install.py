# SPDX-License-Identifier: MIT
"""`cmake --install`, for those who do not use Debian."""

import os
import subprocess
import sys
from pathlib import Path

import pytest
from box import CHECKOUT, HERE
from service import allow_all_ports


def run(*command: str | Path, environment: dict[str, str] | None = None,
        folder: Path = CHECKOUT) -> str:
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          env=environment, cwd=folder)
    assert done.returncode == 0, f"{command}: status {done.returncode}\n{done.stdout}"
    return done.stdout


@pytest.fixture(scope="session")
def build(tmp_path_factory: pytest.TempPathFactory) -> Path:
    folder = tmp_path_factory.mktemp("build")
    run("cmake", "-S", CHECKOUT, "-B", folder, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
        "-DCMAKE_INSTALL_PREFIX=/usr/local", "-DSPH_BUILD_TESTS=OFF", "-DSPH_BUILD_CLIENT=OFF")
    run("cmake", "--build", folder)
    return folder


def files_below(folder: Path) -> list[str]:
    return sorted(str(path.relative_to(folder)) for path in folder.rglob("*") if path.is_file())


FILES = [
    "etc/vost.conf",
    "lib/modules-load.d/serial-port-handler.conf",
    "lib/serial-port-handler/libKXLogger.so",
    "lib/serial-port-handler/libvost.so",
    "lib/systemd/system/serial-port-handler.service",
    "lib/udev/rules.d/60-serial-port-handler.rules",
    "sbin/SerialPortHandler",
]


def test_an_image_gets_everything_below_the_prefix(build: Path, tmp_path: Path) -> None:
    run("cmake", "--install", build, environment={**os.environ, "DESTDIR": str(tmp_path)})
    assert files_below(tmp_path) == ["usr/local/" + name for name in FILES]
    unit = (tmp_path / "usr/local/lib/systemd/system/serial-port-handler.service").read_text()
    assert "\nExecStart=/usr/local/sbin/SerialPortHandler\n" in unit
    assert "\nEnvironment=VOST_CONFIG=/usr/local/etc/vost.conf\n" in unit


def test_a_scratch_prefix_works_and_keeps_its_configuration(build: Path, tmp_path: Path) -> None:
    prefix = tmp_path / "prefix"
    run("cmake", "--install", build, "--prefix", prefix)
    assert files_below(prefix) == FILES
    configuration = prefix / "etc/vost.conf"
    configuration.write_text(allow_all_ports(configuration.read_text()))
    run("cmake", "--install", build, "--prefix", prefix)
    assert "\n[#PhysicalPort0]\n" in configuration.read_text()

    run(CHECKOUT / "tests/e2e/support/sandbox", "--", HERE / "start-and-converse", prefix,
        sys.executable, folder=prefix)  # which the sandbox leaves in its /tmp
