#!/usr/bin/env python3
"""Tries the packages of ./run package in an empty Debian 12, as root: they are installed, upgraded while the agent
forwards, removed and purged. Nothing outside of a directory and of namespaces of its own is touched.

try_packages.py PACKAGES [--base TAR]: PACKAGES is the directory of the packages; TAR an archive of a minimal Debian
12, without which debootstrap makes one.
"""

import argparse
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

README = pathlib.Path(__file__).resolve().parent.parent / "README.md"
PID = os.getpid()
ROUTER, HOST = f"ovix{PID}r", f"ovix{PID}h"
MACS = {"west": "02:00:00:00:00:01", "east": "02:00:00:00:00:02"}
CONFIG = "".join(["ports:\n", *(f"- {{name: {name}, kind: packet, addresses: [10.0.{i}.1/24]}}\n"
                                for i, name in enumerate(MACS, 1)),
                  "neighbours:\n- {address: 10.0.2.2, port: east, mac: '02:00:00:00:00:99'}\n"])
SEND = """
import signal, socket, time
west = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); west.bind(("west", 0))
east = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(0x8847)); east.bind(("east", 0x8847))
east.settimeout(2)
ends = []
signal.signal(signal.SIGTERM, lambda *_: ends.append(1))
print("ready", flush=True)
frame = bytes.fromhex("020000000001020000000088" "8847") + (100 << 12 | 0x140).to_bytes(4, "big") + bytes(46)
sent = got = 0
def take():
    global got
    try: got += int.from_bytes(east.recv(2000)[14:17], "big") >> 4 == 200
    except TimeoutError: return False
    return True
while not ends or sent < 60: # also on a slow machine
    west.send(frame); sent += 1
    take(); time.sleep(0.01)
while got < sent and take(): pass # those that came late
print(sent, got)
"""


def run(*command, **keys) -> str:
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False, **keys)
    if done.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))}: {done.stdout[-2000:]}{done.stderr[-2000:]}")
    return done.stdout


def check(what: str, holds: bool) -> None:
    print(f"{'ok  ' if holds else 'FAIL'}  {what}", flush=True)
    if not holds:
        sys.exit(1)


class Debian:
    """A minimal system in a directory, with a mount namespace that ends with this process."""

    def __init__(self, root: pathlib.Path, base: str | None):
        self.root = root
        if base:
            run("tar", "-xf", base, "-C", root)
            inner = [path for path in root.iterdir() if (path / "etc").is_dir()]
            self.root = root if (root / "etc").is_dir() else inner[0]
        else:
            run("debootstrap", "--variant=minbase", "bookworm", root)
        if pathlib.Path("/etc/resolv.conf").exists():
            shutil.copy("/etc/resolv.conf", self.root / "etc" / "resolv.conf")
        for kind, where in (("proc", "proc"), ("tmpfs", "dev/shm"), ("tmpfs", "run"), ("sysfs", "sys")):
            (self.root / where).mkdir(parents=True, exist_ok=True)
            run("mount", "-t", kind, "none", self.root / where)
        for device in ("null", "zero", "urandom", "random"):
            (self.root / "dev" / device).touch()
            run("mount", "--bind", f"/dev/{device}", self.root / "dev" / device)

    def command(self, *words) -> list[str]:
        return ["chroot", str(self.root), "env", "DEBIAN_FRONTEND=noninteractive", *map(str, words)]

    def run(self, *words) -> str:
        return run(*self.command(*words))

    def has(self, path: str) -> bool:
        return (self.root / path).exists()


def make_network() -> None:
    for name in (ROUTER, HOST):
        run("ip", "netns", "add", name)
    for name, mac in MACS.items():
        run("ip", "link", "add", name, "netns", ROUTER, "address", mac, "type", "veth", "peer", "name", name,
            "netns", HOST)
        for where in (ROUTER, HOST):
            run("ip", "-n", where, "link", "set", name, "up")
    run("ip", "-n", ROUTER, "addr", "add", "10.0.2.1/24", "dev", "east")


def newer(package: pathlib.Path, to: pathlib.Path) -> None:
    """The same package with a later version, which all of them ask of each other."""
    tree = to / package.stem
    run("dpkg-deb", "-R", package, tree)
    control = tree / "DEBIAN" / "control"
    version = run("dpkg-deb", "-f", package, "Version").strip()
    control.write_text(control.read_text().replace(version, version + "+next"))
    run("dpkg-deb", "--root-owner-group", "-b", tree, to / package.name)
    shutil.rmtree(tree)


def start_agent(debian: Debian) -> subprocess.Popen:
    """As the unit does: user ovix, with capabilities for interfaces."""
    (debian.root / "etc/ovix/ovix.yaml").write_text(CONFIG)
    capabilities = "-all,+net_admin,+net_raw"
    debian.run("ovixctl", "--create", "lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
    return subprocess.Popen(
        ["ip", "netns", "exec", ROUTER, *debian.command(
            "OVIX_TABLES_DIR=/dev/shm/ovix", "OVIX_RUNTIME_DIR=/run/ovix", "setpriv", "--reuid=ovix", "--regid=ovix",
            "--init-groups", f"--inh-caps={capabilities}", f"--ambient-caps={capabilities}", "ovix-agent", "run",
            "/etc/ovix/ovix.yaml", "--live", "--tables", "ovix", "--create")],
        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def start_traffic() -> subprocess.Popen:
    started = subprocess.Popen(["ip", "netns", "exec", HOST, "python3", "-c", SEND], stdout=subprocess.PIPE, text=True)
    check("traffic comes", started.stdout.readline() == "ready\n")
    return started


def healthy(debian: Debian) -> bool:
    return subprocess.run(debian.command("ovixctl", "status", "--quiet"), capture_output=True,
                          check=False).returncode == 0


def install(debian: Debian, packages: list[pathlib.Path]) -> None:
    (debian.root / "tmp/packages").mkdir(exist_ok=True)
    for package in packages:
        shutil.copy(package, debian.root / "tmp/packages")
    debian.run("apt-get", "install", "-y", "-qq", "--no-install-recommends",
               *(f"/tmp/packages/{package.name}" for package in packages))


def install_as_written(debian: Debian, packages: list[pathlib.Path]) -> None:
    """The README's first two lines, behind the making of the packages; systemd is not here."""
    block = re.search(r"Or as packages.*?```sh\n(.*?)```", README.read_text(encoding="utf-8"), re.DOTALL)
    made, installed = block.group(1).splitlines()[0].split(" && ")
    check(f"the README says {made}", made == "./run package")
    shutil.copytree(packages[0].parent, debian.root / "root/build/package", ignore=shutil.ignore_patterns("*dbgsym*"))
    (debian.root / "etc/apt/apt.conf.d/yes").write_text('APT::Get::Assume-Yes "true";\n')
    for line in (installed, block.group(1).splitlines()[1]):
        debian.run("bash", "-c", f"cd /root && {line}")
        check(line, True)


def try_all(debian: Debian, packages: list[pathlib.Path], work: pathlib.Path) -> None:
    debian.run("apt-get", "update", "-qq")
    install_as_written(debian, packages)
    install(debian, packages)  # the others, too
    for program in ("ovix-agent", "ovix-fpm", "ovixctl"):
        check(f"{program} --version names a commit, and how it was built",
              re.search(r"(?s)commit: +[0-9a-f]{12}.*\ncompiler: .* -O2", debian.run(program, "--version")) is not None)
    check("user ovix is in group ovix-admin", "ovix-admin" in debian.run("id", "-nG", "ovix"))
    debian.run("mkdir", "-p", "/run/ovix", "/dev/shm/ovix")  # as systemd-tmpfiles does at boot
    debian.run("chown", "ovix:ovix", "/run/ovix", "/dev/shm/ovix")
    debian.run("chmod", "750", "/dev/shm/ovix")
    agent = start_agent(debian)
    end = time.monotonic() + 20
    while not healthy(debian) and time.monotonic() < end and agent.poll() is None:
        time.sleep(0.1)
    check("ovixctl status --quiet succeeds while the agent runs", healthy(debian))
    options = debian.root / "etc/default/ovix-agent"
    options.write_text(options.read_text() + "OPTIONS=--carrier\n")
    changed = options.read_text()
    traffic = start_traffic()
    time.sleep(1)
    for package in packages:
        newer(package, work)
    install(debian, [work / package.name for package in packages])
    check("the newer version is installed", "+next" in debian.run("dpkg-query", "-W", "ovix-agent"))
    check("what an operator has changed in /etc/default is kept", options.read_text() == changed)
    traffic.terminate()
    sent, got = map(int, traffic.communicate(timeout=150)[0].split())
    check(f"the upgrade has cost no frame: {got} of {sent}", got == sent)
    agent.send_signal(signal.SIGTERM)
    out, err = agent.communicate(timeout=20)
    check(f"the agent ends cleanly {err.strip()}", agent.returncode == 0 and "forwarded" in out)
    names = [package.name.split("_")[0] for package in packages]
    debian.run("apt-get", "remove", "-y", "-qq", *names)
    check("removed: no program is left, but the configuration is",
          not debian.has("usr/bin/ovix-agent") and debian.has("etc/default/ovix-agent"))
    debian.run("dpkg", "--purge", *names)  # apt does not know those of which nothing is left
    check("purged: what the packages brought is gone, and what an operator wrote is not",
          debian.run("find", "/etc", "/usr", "/run", "/dev/shm", "-name", "*ovix*").split() == ["/etc/ovix", "/etc/ovix/ovix.yaml"])


def clean_up(work: pathlib.Path) -> None:
    for name in (ROUTER, HOST):
        subprocess.run(["ip", "netns", "del", name], capture_output=True, check=False)
    for mount in reversed([line.split()[1] for line in open("/proc/mounts", encoding="utf-8")]):
        if mount.startswith(str(work)):
            subprocess.run(["umount", "--lazy", mount], check=False)
    shutil.rmtree(work, ignore_errors=True)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("packages", type=pathlib.Path)
    parser.add_argument("--base")
    options = parser.parse_args()
    if not os.environ.get("OVIX_OWN_MOUNTS"):
        os.execvpe("unshare", ["unshare", "--mount", sys.executable, *sys.argv], {**os.environ, "OVIX_OWN_MOUNTS": "1"})
    packages = [one for one in sorted(options.packages.glob("ovix*.deb")) if "-dbgsym_" not in one.name]
    work = pathlib.Path(tempfile.mkdtemp(prefix="ovix-packages-"))
    try:
        make_network()
        (work / "root").mkdir()
        (work / "newer").mkdir()
        try_all(Debian(work / "root", options.base), packages, work / "newer")
    finally:
        clean_up(work)


if __name__ == "__main__":
    main()
