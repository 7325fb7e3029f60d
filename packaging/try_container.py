#!/usr/bin/env python3
"""Tries the image recipe and compose.yaml, as root: the image is built of the packages of ./run package, the
agent and the listener run in containers with the rights and commands given there, frames pass, the health check answers, SIGTERM ends
it, and what FRR in a container beside them announces comes to the agent. By buildah and podman, without a daemon, a registry or systemd; says why where no container can run.

try_container.py PACKAGES [--base TAR]: PACKAGES is the directory of the packages; TAR an archive of a minimal Debian
12, without which debootstrap makes one.
"""

import argparse
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

import yaml

from try_packages import CONFIG, PID, ROUTER, check, clean_up, make_network, run, start_traffic

HERE = pathlib.Path(__file__).resolve().parent / "container"
AGENT, LISTENER, FRR = (f"ovix{PID}-{name}" for name in ("agent", "listener", "frr"))
IMAGE, FRR_IMAGE = "localhost/ovix", "localhost/frr"
SERVICES = yaml.safe_load((HERE / "compose.yaml").read_text(encoding="utf-8"))["services"]
# No higher than those that root may set anywhere.
LIMITS = ("--ulimit", "nofile=1024:1024", "--ulimit", "nproc=1024:1024")
# What the network namespace brings, images are called and when things start, and more memory than root may have anywhere.
NOT_ASKED = ("image", "command", "network_mode", "sysctls", "depends_on", "restart", "healthcheck", "ulimits")
# Debian's FRR: registries may be out of reach.
FRR_RECIPE = """FROM debian:bookworm-slim
RUN apt-get update && apt-get install -y --no-install-recommends frr && rm -rf /var/lib/apt/lists/*
CMD ["sh", "-c", "/usr/lib/frr/frrinit.sh start && exec sleep infinity"]
"""
FRR_FILES = {"Dockerfile": FRR_RECIPE, "daemons": 'staticd=yes\nvtysh_enable=yes\nzebra_options="-A 127.0.0.1 -M dplane_fpm_nl"\n',
             "frr.conf": "fpm address 127.0.0.1 port 2620\nno fpm use-next-hop-groups\nip route 203.0.113.0/24 10.0.2.2\n"}


def as_composed(name: str, work: pathlib.Path) -> list[str]:
    """What podman is asked for a service of compose.yaml, but in the network namespace that has the interfaces."""
    service = {key: value for key, value in SERVICES[name].items() if key not in NOT_ASKED}
    words = [*LIMITS, "--network", f"ns:/run/netns/{ROUTER}"]
    for key, option in (("cap_drop", "--cap-drop"), ("cap_add", "--cap-add"), ("security_opt", "--security-opt"), ("tmpfs", "--tmpfs")):
        for value in service.pop(key, []):
            words += [option, value]
    for volume in service.pop("volumes", []):
        words += ["--volume", volume.replace("./", f"{work}/", 1)]
    words += ["--read-only"] * service.pop("read_only", False)
    if "ipc" in service:
        words += ["--ipc", service.pop("ipc").replace("service:agent", f"container:{AGENT}")]
    check(f"compose.yaml asks nothing for {name} that is unknown here", not service)
    return [*words, {"frr": FRR_IMAGE}.get(name, IMAGE), *SERVICES[name].get("command", [])]


class Containers:
    """Images and containers in a directory of their own."""

    def __init__(self, work: pathlib.Path):
        self.store = ["--root", str(work / "store"), "--runroot", str(work / "run"), "--storage-driver", "vfs"]
        # crun refuses control groups of both versions side by side.
        runtime = [] if pathlib.Path("/sys/fs/cgroup/cgroup.controllers").exists() else ["--runtime", "runc"]
        self.podman = ["podman", *self.store, "--cgroup-manager", "cgroupfs", "--events-backend", "file", *runtime]

    def build(self, context: pathlib.Path, base: str | None) -> None:
        buildah = ["buildah", *self.store]
        container = run(*buildah, "from", "scratch").strip()
        root = pathlib.Path(run(*buildah, "mount", container).strip())
        if base:
            run("tar", "-xf", base, "-C", root, "--strip-components=1")
        else:
            run("debootstrap", "--variant=minbase", "bookworm", root)
        run(*buildah, "umount", container)
        run(*buildah, "commit", "-q", container, "localhost/debian:bookworm-slim")
        for image, files in ((IMAGE, context), (FRR_IMAGE, context.parent / "frr")):
            run(*buildah, "build", "--format", "docker", "--isolation", "chroot", "--pull-never", "-t", image, files)

    def ask(self, *words) -> subprocess.CompletedProcess:
        return subprocess.run([*self.podman, *map(str, words)], capture_output=True, text=True, check=False)

    def run(self, *words) -> str:
        return run(*self.podman, *words)

    def remove(self) -> None:
        self.ask("rm", "--force", "--time", "1", FRR, LISTENER, AGENT)


def eventually(met) -> bool:
    end = time.monotonic() + 20
    while not met() and time.monotonic() < end:
        time.sleep(0.1)
    return met()


def try_all(containers: Containers, work: pathlib.Path) -> None:
    (work / "router.yaml").write_text(CONFIG)
    containers.run("run", "--detach", "--name", AGENT, *as_composed("agent", work))
    check("the health check of the image succeeds",
          eventually(lambda: containers.ask("healthcheck", "run", AGENT).returncode == 0))
    containers.run("run", "--detach", "--name", LISTENER, *as_composed("listener", work))
    ctl = ("ovixctl", "--tables", "router")
    if not eventually(lambda: f":{2620:04X} 00000000:0000 0A" in run("ip", "netns", "exec", ROUTER, "cat", "/proc/net/tcp")):
        check("the listener waits for zebra: " + containers.ask("logs", LISTENER).stderr, False)
    containers.run("exec", AGENT, *ctl, "lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
    check("the listener's container has the same tables",
          "transit 100" in containers.run("exec", LISTENER, *ctl, "lfib", "show"))
    traffic = start_traffic()
    traffic.terminate()
    sent, got = map(int, traffic.communicate(timeout=150)[0].split())
    check(f"frames pass: {got} of {sent}", got == sent)
    containers.run("run", "--detach", "--name", FRR, *as_composed("frr", work))
    shown = lambda: containers.run("exec", AGENT, *ctl, "route", "show")
    if not eventually(lambda: "203.0.113.0/24" in shown()):
        check("the agent has the route of the FRR beside it: " + shown() + containers.ask("logs", FRR).stderr, False)
    check("the agent has the route of the FRR beside it", True)
    containers.run("stop", "--time", "10", FRR, LISTENER, AGENT)
    state = containers.run("inspect", "--format", "{{.State.ExitCode}}", AGENT).strip()
    check("SIGTERM ends the agent with code 0 and the balance",
          state == "0" and "forwarded" in containers.run("logs", AGENT))


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("packages", type=pathlib.Path)
    parser.add_argument("--base")
    options = parser.parse_args()
    # What packages are installed into has the /dev/shm of this process: a tmpfs of its own.
    if not os.environ.get("OVIX_OWN_MOUNTS"):
        os.execvpe("unshare", ["unshare", "--mount", "sh", "-c", 'mount -t tmpfs none /dev/shm && exec "$@"', "sh",
                               sys.executable, *sys.argv], {**os.environ, "OVIX_OWN_MOUNTS": "1"})
    work = pathlib.Path(tempfile.mkdtemp(prefix="ovix-container-"))
    containers = Containers(work)
    try:
        shutil.copytree(HERE, work / "image")
        (work / "image/packages").mkdir()
        for package in options.packages.glob("ovix*.deb"):
            if "-dbgsym_" not in package.name:
                shutil.copy(package, work / "image/packages")
        (work / "frr").mkdir()
        for name, text in FRR_FILES.items():
            (work / "frr" / name).write_text(text)
        containers.build(work / "image", options.base)
        check("the images are built", True)
        first = containers.ask("run", "--rm", *LIMITS, "--network", "none", IMAGE, "true")
        if first.returncode != 0:
            print("skipped: no container runs here: " + first.stderr.strip())
            sys.exit(0)
        make_network()
        run("ip", "-n", ROUTER, "link", "set", "lo", "up")
        try_all(containers, work)
    finally:
        containers.remove()
        clean_up(work)


if __name__ == "__main__":
    main()
