#!/usr/bin/env python3
"""Two hosts and four routers on one machine: FRR speaks OSPF and LDP, the agent forwards.

Needs root, FRR 8.4, iproute2, ping, traceroute, iperf3, tshark and, where the kernel has no MPLS, a C compiler; OVIX_BIN
names the directory with ovix-agent, ovix-fpm and ovixctl; OVIX_LAB_PATIENCE is a factor for what is waited for. Prints PASS, FAIL or SKIP for each check;
exits with 1 when one fails, with 0 otherwise. Everything lives in mount and process namespaces of its own, with
shared memory of its own, and is gone when the first process ends, however that comes about.
"""

import argparse
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import checks
import networks
from lab import Lab

# Places that the lab has for itself: named network namespaces, shared memory, FRR's crash logs.
OWN_PLACES = ("/run/netns", "/dev/shm", "/var/tmp")
TAIL = 15


def run_in_own_namespaces(options, name: str) -> int:
    directory = tempfile.mkdtemp(prefix="ovix-lab-")
    os.chmod(directory, 0o755)  # FRR's user goes through it
    pathlib.Path("/run/netns").mkdir(parents=True, exist_ok=True)
    for stop in (signal.SIGINT, signal.SIGTERM):
        signal.signal(stop, lambda number, _: sys.exit(128 + number))
    inner = subprocess.Popen(
        ["setpriv", "--pdeathsig", "KILL",
         "unshare", "--mount", "--pid", "--ipc", "--fork", "--mount-proc", "--kill-child",
         "--propagation", "private",
         sys.executable, __file__, "--inside", directory, "--network", name, *options.checks],
        start_new_session=True)
    try:
        return inner.wait()
    finally:
        inner.kill()
        inner.wait()
        if options.keep:
            print(f"logs and captures: {directory}")
        else:
            shutil.rmtree(directory, ignore_errors=True)


def run_inside(directory: pathlib.Path, network: networks.Network, names: list[str]) -> int:
    for place in OWN_PLACES:
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", place], check=True)
    lab = Lab(directory, network)
    print(f"{network.name}: {network.says}", flush=True)
    start = time.monotonic()
    try:
        took = lab.start()
    except Exception as error:  # whatever it is, the logs tell more
        print(f"FAIL  the lab comes up: {error}")
        show_logs(directory)
        return 1
    print(f"PASS  the lab comes up: labels {took:.1f} s after FRR started, "
          f"{time.monotonic() - start:.1f} s in all", flush=True)
    failed = [check for check in network.checks
              if (not names or check.__name__ in names) and not passes(lab, check)]
    print_losses(lab)
    if failed:
        show_logs(directory)
    return 1 if failed else 0


def print_losses(lab: Lab) -> None:
    if lab.losses:
        print(f"{lab.network.name:48}    sent    lost  at most")
    for what, sent, lost, expected in lab.losses:
        print(f"  {what:46} {sent:7} {lost:7} {expected:8}", flush=True)


def passes(lab: Lab, check) -> bool:
    print(f"      {check.__doc__}", flush=True)
    start = time.monotonic()
    try:
        verdict, what = "PASS", check(lab)
    except checks.CheckSkipped as reason:
        verdict, what = "SKIP", reason
    except Exception as error:  # a check that breaks has failed
        verdict, what = "FAIL", f"{type(error).__name__}: {error}"
    took = time.monotonic() - start
    print(f"{verdict}  {check.__name__.replace('_', ' ')}: {what} ({took:.1f} s)", flush=True)
    return verdict != "FAIL"


def show_logs(directory: pathlib.Path) -> None:
    for path in sorted(directory.glob("*/**/*.err")):
        lines = path.read_text(errors="replace").splitlines()[-TAIL:]
        if lines:
            print(f"--- {path.relative_to(directory)}", *lines, sep="\n")


def known_checks() -> list[str]:
    return list(dict.fromkeys(check.__name__ for network in networks.ALL.values()
                              for check in network.checks))


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("checks", nargs="*", metavar="CHECK",
                        help="only these, of: " + ", ".join(known_checks()))
    parser.add_argument("--network", choices=(*networks.ALL, "all"), default="ldp",
                        help="what the routers speak, or all, one after the other (default: ldp): " +
                        "; ".join(f"{one.name}, {one.says}" for one in networks.ALL.values()))
    parser.add_argument("--keep", action="store_true", help="keep logs and captures")
    parser.add_argument("--inside", metavar="DIRECTORY", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if os.geteuid() != 0:
        parser.error("needs root")
    if unknown := set(options.checks) - set(known_checks()):
        parser.error(f"no such check: {', '.join(sorted(unknown))}")
    if options.inside:
        return run_inside(pathlib.Path(options.inside), networks.ALL[options.network],
                          options.checks)
    chosen = networks.ALL if options.network == "all" else (options.network,)
    return max([run_in_own_namespaces(options, name) for name in chosen])


if __name__ == "__main__":
    sys.exit(main())
