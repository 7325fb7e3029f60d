#!/usr/bin/env python3
"""Proves that dependencies point one way: agent -> plugin -> host interfaces -> standard library. The
listener for the routing daemon stands beside agent and plugin: it uses the host interfaces only. The
operator's command stands on top: it may use the agent's configuration, and nobody includes it.

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
# A layer may include quoted headers of these.
ALLOWED = {HOST: [HOST], PLUGIN: [PLUGIN, HOST], AGENT: [AGENT, HOST],
           CTL: [CTL, AGENT, HOST], FPM: [FPM, HOST]}
# Only the programs use packaged libraries.
LIBRARIES = re.compile(r"^(pcap|libmnl|xdp|bpf|yaml-cpp|nlohmann|fmt|CLI|gtest|benchmark)\b")
RUNTIME = re.compile(r"^(libOvixHost\.so|libstdc\+\+\.so|libgcc_s\.so|libm\.so|libc\.so|ld-linux"
                     r"|libasan\.so|libubsan\.so|libtsan\.so)")


def headers_of(root, layer):
    base = root / layer / ("include" if layer == HOST else "")
    found = set()
    for header in base.rglob("*.h"):
        found.add(str(header.relative_to(base)))
        found.add(header.name)
    return found


def include_breaches(root):
    headers = {layer: headers_of(root, layer) for layer in ALLOWED}
    for layer, allowed in ALLOWED.items():
        for source in sorted((root / layer).rglob("*")):
            if source.suffix not in (".h", ".cpp"):
                continue
            for kind, name in INCLUDE.findall(source.read_text(encoding="utf-8")):
                place = source.relative_to(root)
                if kind == '"' and not any(name in headers[other] for other in allowed):
                    yield f"{place}: includes \"{name}\", which is not of {' or '.join(allowed)}"
                if kind == "<" and layer in (HOST, PLUGIN) and LIBRARIES.match(name):
                    yield f"{place}: includes <{name}>, which only programs may"


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
    breaches = list(include_breaches(options.source))
    if options.plugin and options.agent:
        breaches += binary_breaches(options.plugin, options.agent)
    for breach in breaches:
        print(breach)
    return 1 if breaches else 0


if __name__ == "__main__":
    sys.exit(main())
