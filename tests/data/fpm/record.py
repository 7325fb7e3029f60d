#!/usr/bin/env python3
"""Records what zebra's dplane_fpm_nl module sends, as NAME.bin files.

Needs root, FRR 8.4, iproute2, util-linux and a C compiler. For each group of recordings it starts
itself again in namespaces of its own, makes links, starts FRR's daemons with a listener for zebra,
changes routes, and writes the bytes of each step as they came from the connection. Groups that need
VRF devices and MPLS are left out where the kernel has none.
"""

import argparse
import importlib
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

import recorder
from frr import compile_module
from network import kernel_has_mpls, kernel_has_vrfs

HERE = pathlib.Path(__file__).resolve().parent
GROUPS = ("static_routes", "weighted_routes", "vrf_routes")
LARGE = ("many_labels",)  # kept in bench/recordings
# Places that a group has for itself: named network namespaces, FRR's crash logs.
OWN_PLACES = ("/run/netns", "/var/tmp")


def run_in_own_namespaces(group: str, output: pathlib.Path) -> int:
    pathlib.Path("/run/netns").mkdir(parents=True, exist_ok=True)
    return subprocess.run(
        ["unshare", "--net", "--mount", "--pid", "--fork", "--mount-proc", "--kill-child",
         "--propagation", "private", sys.executable, __file__, "--inside", group, output],
        check=False).returncode


def run_inside(group: str, output: pathlib.Path) -> None:
    module = importlib.import_module(group)
    if module.NEEDS_VRF and not (kernel_has_vrfs() and kernel_has_mpls()):
        print(f"{group}: left out, since this kernel has no VRF devices or no MPLS")
        return
    for place in OWN_PLACES:
        recorder.run("mount", "-t", "tmpfs", "tmpfs", place)
    recorder.run("ip", "netns", "attach", recorder.ROUTER, os.getpid())
    recorder.prepare(recorder.ROUTER)
    directory = pathlib.Path(tempfile.mkdtemp())
    directory.chmod(0o755)  # FRR's user goes through it
    try:
        module.record(recorder.Recorder(directory, output, compile_module(directory)))
    finally:
        shutil.rmtree(directory, ignore_errors=True)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("output", nargs="?", type=pathlib.Path, default=HERE,
                        help="directory for the files (default: beside this script)")
    parser.add_argument("--group", choices=GROUPS + LARGE, help="only these recordings")
    parser.add_argument("--inside", metavar="GROUP", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if os.geteuid() != 0:
        parser.error("needs root")
    output = options.output.resolve()
    if options.inside:
        run_inside(options.inside, output)
        return 0
    output.mkdir(parents=True, exist_ok=True)
    groups = [options.group] if options.group else GROUPS
    return 1 if any([run_in_own_namespaces(group, output) for group in groups]) else 0


if __name__ == "__main__":
    sys.exit(main())
