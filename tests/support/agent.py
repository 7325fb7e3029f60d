"""Runs the agent on captures and says what became of the frames."""

import json
import os
import pathlib
import subprocess
import tempfile
import unittest

import frames as f

AGENT = os.environ.get("OVIX_AGENT", "build/release/bin/ovix-agent")
PLUGIN = os.environ.get("OVIX_PLUGIN", "")
SOURCE = pathlib.Path(os.environ.get("OVIX_SOURCE_DIR", "."))

WEST, EAST = "02:00:00:00:00:01", "02:00:00:00:00:02"
CE_WEST, CE_EAST, CE_EAST2 = "02:00:00:00:01:02", "02:00:00:00:02:02", "02:00:00:00:02:03"

PORTS = f"""
ports:
  - {{name: west, mac: "{WEST}", addresses: [10.0.1.1/24]}}
  - {{name: east, mac: "{EAST}", addresses: [10.0.2.1/24, "2001:db8:2::ff/64"]}}
neighbours:
  - {{address: 10.0.1.2, port: west, mac: "{CE_WEST}"}}
  - {{address: 10.0.2.2, port: east, mac: "{CE_EAST}"}}
  - {{address: 10.0.2.3, port: east, mac: "{CE_EAST2}"}}
  - {{address: "2001:db8:2::2", port: east, mac: "{CE_EAST}"}}
"""

IP4 = f.udp_packet("10.1.0.1", "10.9.0.1")
IP6 = f.udp_packet("2001:db8:1::1", "2001:db8:9::1")


def via(action, labels=(), **keys):
    text = f"action: {action}"
    if labels:
        text += f", labels: {list(labels)}"
    where = {"interface": "east", "nexthop": "10.0.2.2", **keys}
    for key, value in where.items():
        if value is not None:
            text += f", {key.replace('_', '-')}: {value}"
    return "{" + text + "}"


def hardware(*vias, label=100, extra="", route=""):
    """One hardware route with its adjacency."""
    return f"""
hardware:
  adjacencies:
    - {{id: 1, vias: [{', '.join(vias)}]{extra}}}
  routes:
    - {{label: {label}, adjacency: 1{route}}}
"""


def lfib(**tables):
    """LFIB tables; each a mapping of label to route text."""
    out = "lfib:\n"
    for name, routes in tables.items():
        out += f"  {name.replace('_', '-')}:\n"
        for value, text in routes.items():
            out += f"    - {{label: {value}, {text}}}\n"
    return out


def mpls(entries, packet=IP4, vlans=()):
    """A labelled frame as it comes in at the west port."""
    return f.eth(WEST, CE_WEST, f.ETH_MPLS, f.stack(*entries) + packet, vlans)


def sent(entries, packet=IP4, vlans=(), to=CE_EAST):
    """A labelled frame as it leaves the east port."""
    return f.eth(to, EAST, f.ETH_MPLS, f.stack(*entries) + packet, vlans)


class Result:
    def __init__(self, process, out):
        self.code, self.stderr, self.stdout = process.returncode, process.stderr, process.stdout
        self.json = json.loads(process.stdout) if process.stdout.startswith("{") else None
        self.captures = {}
        self.files = sorted(out.glob("*.pcap")) if out.exists() else []
        for path in self.files:
            self.captures[path.stem] = f.read_pcap(path)

    def frames(self, port):
        return [data for _, data, _ in self.captures[port]]

    def reasons(self, fate):
        return self.json[fate]["reasons"]

    def counters(self):
        return {(c["category"], c["reason"]): c["count"] for c in self.json["counters"]}

    def labels(self):
        return {entry["label"]: (entry["packets"], entry["bytes"]) for entry in self.json["labels"]}

    def trace(self):
        prefix = "Ovix::Routing::Mpls: "
        return [line[len(prefix):] for line in self.stderr.splitlines() if line.startswith(prefix)]


class AgentTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.path = pathlib.Path(self.directory.name)

    def tearDown(self):
        self.directory.cleanup()

    def run_files(self, config, inputs, *flags):
        """Runs on captures that exist; `inputs` are PORT=PATH."""
        (self.path / "config.yaml").write_text(config, encoding="utf-8")
        out = self.path / "out"
        command = [AGENT, "run", str(self.path / "config.yaml"), "--out", str(out)]
        for given in inputs:
            command += ["--in", given]
        if PLUGIN and "--plugin" not in flags:
            command += ["--plugin", PLUGIN]
        process = subprocess.run(command + list(flags), capture_output=True, text=True,
                                 check=False, timeout=120)
        return Result(process, out)

    def run_frames(self, config, frames, *flags):
        """Runs on frames at the west port and expects the balance to hold."""
        capture = self.path / "in.pcap"
        f.write_pcap(capture, frames)
        result = self.run_files(PORTS + config, [f"west={capture}"], "--json", *flags)
        self.assertEqual(result.code, 0, result.stderr)
        self.assertTrue(result.json["balanced"])
        self.assertEqual(result.json["in"]["frames"], len(frames))
        self.expect_dissected(result)
        return result

    def expect_dissected(self, result, checksums=True):
        """tshark finds neither malformed packets nor expert errors in what left the ports."""
        for path in result.files:
            if path.stem in ("cpu",):
                continue
            found = subprocess.run(
                ["tshark", "-r", str(path), "-o", "ip.check_checksum:" + str(checksums).upper(), "-Y",
                 "_ws.malformed || _ws.expert.severity == 8388608"],
                capture_output=True, text=True, check=True)
            self.assertEqual(found.stdout, "", path.name)
