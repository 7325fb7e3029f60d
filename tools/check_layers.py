#!/usr/bin/env python3
"""Proves that dependencies point one way: agent -> plugin -> host interfaces -> standard library. The
listener for the routing daemon stands beside agent and plugin: it uses the host interfaces only. The
operator's command stands on top: it may use the agent's configuration, and nobody includes it. The
programs' log, and what they serve by HTTP, use the host interfaces only. Inside the layers no two
folders include each other, neither straight nor by way of others.

Reads the quoted includes of each layer's sources, what the plugin's shared object and the agent link
against, and what the plugin exports. Prints each breach; exits 1 if there is one.
"""

import argparse
import pathlib
import re
import subprocess
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^">]+)[">]', re.MULTILINE)
HOST = "MplsVorn/OvixHost"
PLUGIN = "MplsVorn/OvixPlugin"
AGENT = "MplsVorn/OvixAgent"
CTL = "MplsVorn/OvixCtl"
FPM = "MplsVorn/OvixFpm"
LOG = "MplsVorn/OvixLog"
HTTP = "MplsVorn/OvixHttp"
DPDK = "MplsVorn/OvixDpdk"
# A layer may include quoted headers of these.
ALLOWED = {HOST: [HOST], PLUGIN: [PLUGIN, HOST], LOG: [LOG, HOST], HTTP: [HTTP, HOST],
           AGENT: [AGENT, LOG, HTTP, HOST], CTL: [CTL, AGENT, LOG, HOST], FPM: [FPM, LOG, HTTP, HOST],
           DPDK: [DPDK, AGENT, HOST]}
# Only the programs use packaged libraries.
LIBRARIES = re.compile(r"^(pcap|libmnl|xdp|bpf|yaml-cpp|nlohmann|fmt|spdlog|systemd|sys/capability|CLI"
                       r"|prometheus|microhttpd|rte_\w+|gtest|benchmark)\b")
RUNTIME = re.compile(r"^(libOvixHost\.so|libstdc\+\+\.so|libgcc_s\.so|libm\.so|libc\.so|ld-linux"
                     r"|libasan\.so|libubsan\.so|libtsan\.so)")


def sources(root, layer):
    return sorted(path for path in (root / layer).rglob("*") if path.suffix in (".h", ".cpp"))


def folders_searched(root, layer):
    """Where the compiler looks for the quoted includes of a layer."""
    found = [root / layer]
    if layer == PLUGIN:
        found.append(root / layer / "MplsOvixPlugin")
    return found


def resolved(root, layers, name):
    """The file that an include names, or None when none of the layers has it."""
    for layer in layers:
        for folder in folders_searched(root, layer):
            if (folder / name).is_file():
                return folder / name
    return None


def includes(root, layer):
    """Each source of a layer with the kind and the name of each of its includes."""
    for source in sources(root, layer):
        for kind, name in INCLUDE.findall(source.read_text(encoding="utf-8")):
            yield source, kind, name


def include_breaches(root):
    for layer, allowed in ALLOWED.items():
        for source, kind, name in includes(root, layer):
            place = source.relative_to(root)
            if kind == '"' and resolved(root, allowed, name) is None:
                yield f"{place}: includes \"{name}\", which is not of {' or '.join(allowed)}"
            if kind == "<" and layer in (HOST, PLUGIN) and LIBRARIES.match(name):
                yield f"{place}: includes <{name}>, which only programs may"


def folder_includes(root):
    """For each folder the folders it includes, and an include that shows it."""
    found = {}
    for layer, allowed in ALLOWED.items():
        for source, kind, name in includes(root, layer):
            target = resolved(root, allowed, name) if kind == '"' else None
            if target is not None and target.parent != source.parent:
                here = source.parent.relative_to(root)
                found.setdefault(here, {}).setdefault(
                    target.parent.relative_to(root), f"{source.relative_to(root)}: \"{name}\"")
    return found


def folder_breaches(root):
    """Each include that closes a circle of folders."""
    graph = folder_includes(root)

    def reached(start):
        seen, waiting = set(), [start]
        while waiting:
            for folder in graph.get(waiting.pop(), {}):
                if folder not in seen:
                    seen.add(folder)
                    waiting.append(folder)
        return seen

    reach = {folder: reached(folder) for folder in graph}
    for folder, targets in sorted(graph.items()):
        for target, example in sorted(targets.items()):
            if folder in reach.get(target, ()):
                yield f"{folder} and {target} include each other ({example})"


def tool(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def needed(binary):
    return re.findall(r"\(NEEDED\).*\[(.+)\]", tool("readelf", "-d", str(binary)))


def binary_breaches(plugin, agent):
    for library in needed(plugin):
        if not RUNTIME.match(library):
            yield f"{plugin.name}: needs {library}"
    for line in tool("nm", "-D", "--defined-only", str(plugin)).splitlines():
        symbol = line.split()[-1]
        if symbol not in ("_init", "_fini"):
            yield f"{plugin.name}: exports {symbol}"
    for library in needed(agent):
        if "MplsOvixPlugin" in library:
            yield f"{agent.name}: links {library}, which is to be loaded"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--source", type=pathlib.Path, required=True)
    parser.add_argument("--plugin", type=pathlib.Path)
    parser.add_argument("--agent", type=pathlib.Path)
    options = parser.parse_args()
    breaches = list(include_breaches(options.source)) + list(folder_breaches(options.source))
    if options.plugin and options.agent:
        breaches += binary_breaches(options.plugin, options.agent)
    for breach in breaches:
        print(breach)
    return 1 if breaches else 0


if __name__ == "__main__":
    sys.exit(main())
