#!/usr/bin/env python3
"""Writes a directory from which containerlab makes the lab's network.

Puts the topology, the image's recipe with the packages, and a directory for each node there; the
configurations are those of the lab.
"""

import argparse
import pathlib
import shutil
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent))

import dataplane  # noqa: E402 (it is the lab's)
import networks  # noqa: E402
import topology  # noqa: E402


def write_node(node: str, directory: pathlib.Path, network: networks.Network) -> None:
    directory.mkdir(parents=True, exist_ok=True)
    lines = [f"{one.name} {one.address} {one.mtu}\n" for one in topology.interfaces(node)]
    if node in topology.ROUTERS:
        lines.insert(0, f"lo {topology.LOOPBACKS[node]}/32 65536\n")
        configs = network.configs(node)
        for name, text in configs.items():
            (directory / f"{name}.conf").write_text(text)
        (directory / "daemons").write_text("".join(f"{name}\n" for name in configs))
        (directory / "agent.yaml").write_text(dataplane.config(node))
    else:
        router = topology.HOSTS[node]
        (directory / "gateway").write_text(topology.interface(router, node).host + "\n")
    (directory / "interfaces").write_text("".join(lines))


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("directory", type=pathlib.Path)
    parser.add_argument("--network", default="ldp",
                        choices=[one.name for one in networks.ALL.values() if one.family == 4])
    parser.add_argument("--package", type=pathlib.Path, action="append",
                        help="may be given several times; by default those of ./run package")
    options = parser.parse_args()
    found = [one for one in sorted((HERE.parent.parent / "build" / "package").glob("ovix*.deb"))
             if "-dbgsym_" not in one.name]
    if not options.package and not found:
        parser.error("there are no packages yet: ./run package makes them")
    for node in (*topology.ROUTERS, *topology.HOSTS):
        write_node(node, options.directory / node, networks.ALL[options.network])
    packages = options.directory / "packages"
    shutil.rmtree(packages, ignore_errors=True)
    packages.mkdir(parents=True)
    for package in options.package or found:
        shutil.copy(package, packages)
    for name in ("ovix.clab.yml", "Dockerfile", "router.sh"):
        shutil.copy(HERE / name, options.directory / name)
    return 0


if __name__ == "__main__":
    sys.exit(main())
