# SPDX-License-Identifier: MIT
"""Debian's packages for the guest: fetched, unpacked and kept below build/machine/, by version.

Nothing is installed. A package whose version has changed in Debian is fetched anew, and an old one
is left where it is.
"""

from __future__ import annotations

import fcntl
import functools
import hashlib
import os
import pathlib
import shlex
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
CACHE = ROOT / "build" / "machine"
RETRY = ROOT / "scripts" / "retry"
KEYRING = "/usr/share/keyrings/debian-archive-keyring.gpg"


def host_architecture() -> str:
    return subprocess.check_output(["dpkg", "--print-architecture"], text=True).strip()


def _mirror() -> str:
    """Where the host gets Debian's packages. Of the host's other sources none is asked: what they
    have for other architectures is not always whole."""
    repositories = subprocess.check_output(
        ["apt-get", "indextargets", "--format", "$(REPO_URI)", "Created-By: Packages"], text=True)
    return next(line for line in repositories.splitlines() if line.endswith("/debian/"))


@functools.cache
def _apt_options(architecture: str) -> tuple[str, ...]:
    """For another architecture than the host's: package lists of its own, from the host's mirror."""
    common = ("-o", "Debug::NoLocking=true", "-o", "APT::Sandbox::User=root")
    if architecture == host_architecture():
        return common
    lists = CACHE / "apt" / architecture / "lists"
    cache = CACHE / "apt" / architecture / "cache"
    for folder in (lists, cache):
        (folder / "partial").mkdir(parents=True, exist_ok=True)
    status, sources = lists.parent / "status", lists.parent / "sources.list"
    status.touch()
    sources.write_text(f"deb [signed-by={KEYRING}] {_mirror()} bookworm main\n")
    options = common + (
        "-o", f"APT::Architecture={architecture}", "-o", f"APT::Architectures={architecture}",
        "-o", f"Dir::State::lists={lists}", "-o", f"Dir::State::status={status}",
        "-o", f"Dir::Cache={cache}",
        "-o", f"Dir::Etc::SourceList={sources}", "-o", "Dir::Etc::SourceParts=-")
    subprocess.run([RETRY, "apt-get", "-qq", *options, "update"], check=True)
    return options


def kernel_package(meta_package: str, architecture: str) -> str:
    """The package that a name like linux-image-amd64 stands for today."""
    depends = subprocess.check_output(
        ["apt-cache", *_apt_options(architecture), "depends", "--important", meta_package],
        text=True)
    for line in depends.splitlines():
        word, _, name = line.strip().partition(": ")
        if word == "Depends" and name.startswith("linux-image-"):
            return name
    raise LookupError(f"{meta_package} names no kernel:\n{depends}")


def _unpack(archive: pathlib.Path, folder: pathlib.Path) -> None:
    unfinished = folder.with_name(f"{folder.name}.{os.getpid()}")
    subprocess.run(["dpkg", "-x", archive, unfinished], check=True)
    unfinished.rename(folder)


def _sha256(path: pathlib.Path) -> str:
    with path.open("rb") as archive:
        return hashlib.file_digest(archive, "sha256").hexdigest()


def unpacked(names: list[str], architecture: str) -> list[pathlib.Path]:
    """One folder for each of the packages, with its files. Fetches those that are not there yet."""
    CACHE.mkdir(parents=True, exist_ok=True)
    with (CACHE / "lock").open("w") as lock:  # two runs would fetch into the same files
        fcntl.flock(lock, fcntl.LOCK_EX)
        return _unpacked(names, architecture)


def _unpacked(names: list[str], architecture: str) -> list[pathlib.Path]:
    options = _apt_options(architecture)
    uris = subprocess.check_output(["apt-get", *options, "download", "--print-uris", *names],
                                   text=True)
    archives = CACHE / "packages"
    archives.mkdir(parents=True, exist_ok=True)
    folders = []
    for line in uris.splitlines():
        _, file_name, _, checksum = shlex.split(line)
        folder = CACHE / "unpacked" / file_name.removesuffix(".deb")
        folders.append(folder)
        if folder.is_dir():
            continue
        name, version, _ = file_name.removesuffix(".deb").replace("%3a", ":").split("_")
        archive = archives / file_name
        subprocess.run([RETRY, "apt-get", "-qq", *options, "download", f"{name}={version}"],
                       cwd=archives, check=True)
        if f"SHA256:{_sha256(archive)}" != checksum:
            raise ValueError(f"{archive} is not what apt's lists promise ({checksum})")
        folder.parent.mkdir(exist_ok=True)
        _unpack(archive, folder)
        archive.unlink()
    if len(folders) != len(names):
        raise LookupError(f"asked for {names}, found {[folder.name for folder in folders]}")
    return folders
