# SPDX-License-Identifier: MIT
"""Makes the guest: a kernel and an initial RAM disk with Debian's udev and the service in it."""

from __future__ import annotations

import dataclasses
import os
import pathlib
import shutil
import subprocess

import packages

HERE = pathlib.Path(__file__).resolve().parent

# socat is the guest's forwarder; busybox the shell and all small tools.
TOOLS = ["busybox-static", "kmod", "udev", "libudev1", "libkmod2", "libblkid1", "libselinux1",
         "libcap2", "libacl1", "libpcre2-8-0", "libzstd1", "liblzma5", "libssl3", "libc6",
         "libgcc-s1", "libstdc++6", "socat", "libwrap0", "libnsl2", "libtirpc3", "libgssapi-krb5-2",
         "libkrb5-3", "libk5crypto3", "libcom-err2", "libkrb5support0", "libkeyutils1"]
UNWANTED = ("usr/share", "usr/lib/systemd/system", "usr/lib/udev/hwdb.d", "usr/lib/tmpfiles.d",
            "usr/lib/*/gconv", "boot", "etc/init.d")
MERGED = ("bin", "sbin", "lib", "lib64")  # links to the folders of the same names in /usr

DRIVERS = ["usbserial", "ftdi_sio", "pl2303", "cp210x", "ch341", "cdc_acm", "virtio_pci",
           "virtio_console", "virtio_net"]

PACKED_AT = 1767225600  # 2026-01-01: before any clock that a guest may have


@dataclasses.dataclass(frozen=True)
class Image:
    kernel: pathlib.Path
    disk: pathlib.Path


@dataclasses.dataclass(frozen=True)
class Kind:
    """What differs between the guests."""
    architecture: str
    kernel: str  # the meta-package
    service: pathlib.Path  # a build folder, with bin/ and lib/
    programs: tuple[str, ...] = ("SerialPortHandler",)  # of its bin/
    packages: tuple[str, ...] = ()  # besides the usual ones
    drivers: tuple[str, ...] = ("ehci_pci", "uhci_hcd")  # the same
    overlay: pathlib.Path | None = None  # files that are laid over those of guest/


def _merge(package: pathlib.Path, root: pathlib.Path) -> None:
    """Copies a package's files, the old top folders into those of /usr."""
    for top in package.iterdir():
        target = root / ("usr/" + top.name if top.name in MERGED else top.name)
        shutil.copytree(top, target, symlinks=True, dirs_exist_ok=True)


def _needed_modules(kernel: pathlib.Path, version: str, drivers: tuple[str, ...]) -> list[str]:
    """The paths, below the kernel package, of the drivers and of what they need."""
    subprocess.run(["depmod", "-b", kernel, version], check=True)
    paths = []
    for driver in drivers:
        answer = subprocess.check_output(
            ["modprobe", "--dirname", kernel, "--set-version", version, "--show-depends", driver],
            text=True)
        paths += [line.split()[1] for line in answer.splitlines() if line.startswith("insmod")]
    return sorted(set(paths))


def _add_modules(kernel: pathlib.Path, root: pathlib.Path, more: tuple[str, ...]) -> None:
    version = next((kernel / "lib/modules").iterdir()).name
    for path in _needed_modules(kernel, version, (*DRIVERS, *more)):
        target = root / "usr" / pathlib.Path(path).relative_to(kernel)
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(path, target)
    folder = root / "usr/lib/modules" / version
    for name in ("modules.builtin", "modules.builtin.modinfo", "modules.order"):
        shutil.copy(kernel / "lib/modules" / version / name, folder)
    subprocess.run(["depmod", "-b", root, version], check=True)


def _add_shell(root: pathlib.Path) -> None:
    # Of this machine's own kind: the guest's may not run here. Both have the same commands.
    here, = packages.unpacked(["busybox-static"], packages.host_architecture())
    busybox = here / "bin/busybox"
    for command in subprocess.check_output([busybox, "--list"], text=True).split():
        link = root / "usr/bin" / command
        if not link.exists() and not (root / "usr/sbin" / command).exists():
            link.symlink_to("busybox")


def _make_root(kind: Kind, kernel: pathlib.Path, root: pathlib.Path) -> None:
    for name in ("dev", "proc", "sys", "run", "tmp", "root", "etc", "opt/service", "usr/bin",
                 "usr/sbin", "usr/lib", "usr/lib64"):
        (root / name).mkdir(parents=True)
    for name in MERGED:
        (root / name).symlink_to(f"usr/{name}")
    for package in packages.unpacked([*TOOLS, *kind.packages], kind.architecture):
        _merge(package, root)
    for name in UNWANTED:
        for path in root.glob(name):
            shutil.rmtree(path)
    _add_modules(kernel, root, kind.drivers)
    _add_shell(root)
    libraries = "lib/serial-port-handler"
    for name in ("bin", libraries):
        (root / "opt/service" / name).mkdir(parents=True)
    for name in kind.programs:
        shutil.copy(kind.service / "bin" / name, root / "opt/service/bin")
    for name in ("libKXLogger.so", "libvost.so"):
        shutil.copy(kind.service / libraries / name, root / "opt/service" / libraries)
    for files in (HERE / "guest", kind.overlay):
        if files:
            shutil.copytree(files, root, symlinks=True, dirs_exist_ok=True)


def _pack(root: pathlib.Path, disk: pathlib.Path) -> None:
    """The same files make the same disk, to the byte: what a guest counts can depend on that."""
    paths = sorted(root.rglob("*"))
    for path in paths:
        os.utime(path, (PACKED_AT, PACKED_AT), follow_symlinks=False)
    names = "\n".join(str(path.relative_to(root)) for path in paths)
    with disk.open("wb") as packed, subprocess.Popen(
            ["cpio", "--quiet", "--reproducible", "-o", "-H", "newc", "-R", "0:0"], cwd=root,
            stdin=subprocess.PIPE, stdout=subprocess.PIPE) as cpio:
        with subprocess.Popen(["gzip", "-1"], stdin=cpio.stdout, stdout=packed) as gzip:
            assert cpio.stdin
            cpio.stdin.write(names.encode())
            cpio.stdin.close()
        if cpio.wait() or gzip.returncode:
            raise OSError("the guest's files cannot be packed")


def image(kind: Kind, folder: pathlib.Path) -> Image:
    """Makes the guest in `folder`, which must exist."""
    name = packages.kernel_package(kind.kernel, kind.architecture)
    kernel, = packages.unpacked([name], kind.architecture)
    root = folder / "root"
    _make_root(kind, kernel, root)
    disk = folder / "disk.gz"
    _pack(root, disk)
    shutil.rmtree(root)
    link = folder / "kernel"
    os.symlink(next((kernel / "boot").glob("vmlinuz-*")), link)
    return Image(link, disk)
