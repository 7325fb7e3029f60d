#!/usr/bin/env python3
"""An emulated Debian 12 with systemd and a kernel that has MPLS, VRF and VLAN devices, in which a directory's `main` runs.

machine.py IMAGE PAYLOAD: IMAGE is the machine's disk, which is made when it is not there (as root, some minutes; by
debootstrap, or from the archive that --base names); PAYLOAD the directory. What `main` prints is printed; the exit
code is its own. The disk is not written: each run begins with the same machine. PAYLOAD/hardware, if there, has options
of qemu-system-x86_64 for more devices.
"""

import argparse
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import threading
import time

# The kernel, what its users would have, and what our packages depend on, since the machine has no network.
PACKAGES = ("linux-image-amd64", "systemd-sysv", "systemd", "dbus", "udev", "kmod", "iproute2", "iputils-ping",
            "traceroute", "procps", "python3", "frr", "iperf3", "tshark", "tcpdump", "ethtool", "libyaml-0-2", "libfmt9", "libspdlog1.10", "libpcap0.8", "libmnl0",
            "dpdk", "librte-mempool-ring23", "librte-net-e1000-23", "librte-net-af-packet23", "libxdp1", "libbpf1", "libcap2", "libsystemd0", "libprometheus-cpp-core1.0", "libmicrohttpd12")
UNIT = """[Unit]
After=multi-user.target
[Service]
Type=oneshot
ExecStart=/bin/sh -c 'mkdir /payload && tar -xf /dev/vdb -C /payload && cd /payload && ./main >/dev/ttyS1 2>&1; \
echo "exit $?" >/dev/ttyS1; systemctl poweroff --force --force'
[Install]
WantedBy=multi-user.target
"""


def run(*command) -> None:
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False)
    if done.returncode != 0:
        sys.exit(f"machine: {' '.join(map(str, command))}: {(done.stdout + done.stderr)[-2000:]}")


def install_system(root: pathlib.Path, base: str | None) -> None:
    if base:
        run("tar", "-xf", base, "-C", root, "--strip-components=1")
    else:
        run("debootstrap", "--variant=minbase", "bookworm", root)
    shutil.copy("/etc/resolv.conf", root / "etc/resolv.conf")
    run("mount", "-t", "proc", "none", root / "proc")
    in_it = ["chroot", root, "env", "DEBIAN_FRONTEND=noninteractive"]
    run(*in_it, "apt-get", "update", "-qq")
    run(*in_it, "apt-get", "install", "-y", "-qq", "--no-install-recommends", *PACKAGES)
    (root / "etc/systemd/system/payload.service").write_text(UNIT)
    (root / "etc/fstab").write_text("/dev/vda / ext4 defaults 0 1\n")
    run(*in_it, "systemctl", "disable", "frr")
    run(*in_it, "systemctl", "enable", "payload")
    run("umount", root / "proc")


def make_image(image: pathlib.Path, base: str | None) -> None:
    print(f"machine: making {image}", file=sys.stderr, flush=True)
    with tempfile.TemporaryDirectory(prefix="ovix-machine-") as work:
        root = pathlib.Path(work)
        install_system(root, base)
        image.mkdir(parents=True)
        for name in ("vmlinuz", "initrd.img"):
            shutil.copy(next((root / "boot").glob(f"{name}-*")), image / name)
        disk = image / "disk.part"
        with open(disk, "wb") as file:
            file.truncate(5 << 30)
        run("mke2fs", "-q", "-t", "ext4", "-d", root, disk)
        disk.rename(image / "disk")  # complete


def follow(path: pathlib.Path, ended: threading.Event, lines: list[str]) -> None:
    """Prints what comes, until the machine has ended."""
    with open(path, encoding="utf-8", errors="replace") as file:
        while True:
            was_ended = ended.is_set()
            for line in iter(file.readline, ""):
                lines.append(line.rstrip("\r\n"))
                print(lines[-1], flush=True)
            if was_ended:
                return
            time.sleep(0.2)


def hardware(payload: pathlib.Path) -> list[str]:
    file = payload / "hardware"
    return shlex.split(file.read_text(encoding="ascii"), comments=True) if file.exists() else []


def boot(image: pathlib.Path, payload: pathlib.Path, seconds: int) -> int:
    with tempfile.TemporaryDirectory(prefix="ovix-machine-") as work:
        archive, printed = pathlib.Path(work, "payload.tar"), pathlib.Path(work, "printed")
        run("tar", "-cf", archive, "-C", payload, ".")
        printed.touch()
        ended, lines = threading.Event(), []
        reader = threading.Thread(target=follow, args=(printed, ended, lines))
        reader.start()
        try:
            subprocess.run(
                ["qemu-system-x86_64", "-accel", "tcg,thread=multi", "-cpu", "max", "-smp", "2", "-m", "3072",
                 "-kernel", image / "vmlinuz", "-initrd", image / "initrd.img", "-append",
                 "root=/dev/vda rw quiet console=ttyS0 intel_iommu=on no_timer_check panic=-1", "-snapshot", "-drive",
                 f"file={image / 'disk'},if=virtio,format=raw", "-drive", f"file={archive},if=virtio,format=raw",
                 *hardware(payload), "-nic", "none", "-display", "none", "-no-reboot",
                 "-serial", f"file:{work}/console", "-serial", f"file:{printed}"], check=False, timeout=seconds, stdin=subprocess.DEVNULL)
        except subprocess.TimeoutExpired:
            print(f"machine: stopped after {seconds} seconds", file=sys.stderr)
        finally:
            ended.set()
            reader.join()
        code = re.fullmatch(r"exit (\d+)", lines[-1]) if lines else None
        if not code:
            print(pathlib.Path(work, "console").read_text(errors="replace")[-2000:], file=sys.stderr)
        return int(code.group(1)) if code else 125


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("image", type=pathlib.Path)
    parser.add_argument("payload", type=pathlib.Path)
    parser.add_argument("--base", help="archive of a minimal Debian 12, in one directory")
    parser.add_argument("--seconds", type=int, default=1200)
    options = parser.parse_args()
    if not (options.image / "disk").exists():
        if os.geteuid() != 0:
            sys.exit("machine: the image is made by root")
        shutil.rmtree(options.image, ignore_errors=True)
        make_image(options.image, options.base)
    return boot(options.image, options.payload, options.seconds)


if __name__ == "__main__":
    sys.exit(main())
