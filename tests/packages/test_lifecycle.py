# SPDX-License-Identifier: MIT
"""A package's life in a clean Debian system: installed, used, upgraded, removed, purged.

One story for each architecture, told by tests that follow each other; the first that fails ends it.
"""

import os
from collections.abc import Iterator
from pathlib import Path

import deb
import pytest
from box import Box
from service import SERVICE, StartedAsInTheUnit, allow_all_ports, converse, install

CONFIGURATION = "/etc/vost.conf"

# What any installation changes: dpkg's own records, and caches.
NOT_COMPARED = ("var/lib/dpkg/", "var/log/", "var/cache/ldconfig/", "etc/ld.so.cache")


class Story:
    """The box and what has been noted on the way."""

    def __init__(self, architecture: str, box: Box, scratch: Path) -> None:
        self.box = box
        self.package = deb.built(architecture)
        self.older = deb.older(self.package, scratch)
        self.pristine: dict[str, str] = {}
        self.shipped = ""
        self.changed = ""


@pytest.fixture(scope="module", params=deb.MACHINES)
def story(request: pytest.FixtureRequest, tmp_path_factory: pytest.TempPathFactory
          ) -> Iterator[Story]:
    with Box(request.param) as box:
        yield Story(request.param, box, tmp_path_factory.mktemp(request.param))


def files_of(box: Box) -> dict[str, str]:
    """Every file of the system on its own disk, with all that must be as before."""
    listing = box.run("find", "/", "-xdev", "(", "-type", "f", "-exec", "md5sum", "{}", "+", "-o",
                      "-printf", "%y%m %u:%g -> %l  %p\\n", ")")
    files = {}
    for line in listing.splitlines():
        what, _, path = line.partition("  ")
        if not path.lstrip("/").startswith(NOT_COMPARED):
            files[path] = what
    return files


def test_a_clean_system_takes_the_older_package(story: Story) -> None:
    story.pristine = files_of(story.box)
    assert len(story.pristine) > 1000
    install(story.box, story.older)
    assert "Status: install ok installed" in story.box.run("dpkg", "--status", SERVICE)
    assert story.box.run("dpkg", "--verify", SERVICE) == ""


def test_the_service_finds_its_private_libraries(story: Story) -> None:
    libraries = story.box.run("ldd", "/usr/sbin/SerialPortHandler")
    for name in ("libvost.so", "libKXLogger.so"):
        assert f"/usr/sbin/../lib/serial-port-handler/{name} " in libraries
    assert "not found" not in libraries


def test_the_configuration_is_a_conffile_that_opens_no_port(story: Story) -> None:
    story.shipped = story.box.path(CONFIGURATION).read_text()
    assert CONFIGURATION in story.box.run("dpkg-query", "-W", "-f", "${Conffiles}", SERVICE)
    sections = [line for line in story.shipped.splitlines() if line.startswith("[")]
    assert sections == ["[connect]"]


def test_the_service_starts_with_the_machine(story: Story) -> None:
    link = "/etc/systemd/system/multi-user.target.wants/serial-port-handler.service"
    target = os.readlink(story.box.root / link.lstrip("/"))
    assert target == "/lib/systemd/system/serial-port-handler.service"


def test_a_changed_configuration_survives_the_upgrade(story: Story) -> None:
    story.changed = allow_all_ports(story.shipped)
    assert story.changed != story.shipped
    story.box.path(CONFIGURATION).write_text(story.changed)

    install(story.box, story.package)

    assert story.box.run("dpkg-query", "-W", "-f", "${Version}", SERVICE) != "0.9.0"
    assert story.box.path(CONFIGURATION).read_text() == story.changed
    new = story.box.path(CONFIGURATION + ".dpkg-dist").read_text()
    assert new == story.shipped.removeprefix("; An older text.\n")


def test_the_installed_service_opens_a_port(story: Story) -> None:
    if story.box.is_native:
        converse(story.box)  # systemd has started it
        return
    with StartedAsInTheUnit(story.box) as service:
        converse(story.box)
    assert service.status in (0, 255)  # 0 while it makes the link anew, 255 while it listens


def test_removing_keeps_the_configuration_alone(story: Story) -> None:
    story.box.run("dpkg", "--remove", SERVICE)
    assert story.box.path(CONFIGURATION).read_text() == story.changed
    assert not story.box.path("/usr/sbin/SerialPortHandler").exists()
    assert not story.box.path("/usr/lib/serial-port-handler").exists()


def test_purging_leaves_nothing_behind(story: Story) -> None:
    story.box.run("dpkg", "--purge", SERVICE)
    now = files_of(story.box)
    assert sorted(now.keys() - story.pristine.keys()) == []
    assert sorted(story.pristine.keys() - now.keys()) == []
    assert [path for path in now if now[path] != story.pristine[path]] == []
    assert not story.box.is_native or SERVICE not in story.box.run("systemctl", "list-units", "-a")
