"""Runs the agent on captures and says what became of the frames."""

import dataclasses
import json
import os
import pathlib
import subprocess
import tempfile
import unittest

import frames as f
from dissector import complaints

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

# Captures of the agent's own, beside those of the ports.
OWN = ("cpu", "lo")

# Counters, as (category, reason).
NO_VIA_SET = ("Drop", "No via set in lfib %s for %s")
NOTHING_RESOLVED = "No labels resolved to via sets, and nexthop not resolved"
OAM = ("Action", "MPLS Oam packet")
# A stack too deep to walk; the reason that the frame is dropped for.
TOO_DEEP = ("Lumo::MplsStackEntryIndex::value < Lumo::MplsStackEntryIndex::min or > "
            "Lumo::MplsStackEntryIndex::nullValue not allowed")


def port(name: str, **keys) -> str:
    """The usual ports, one of them with more keys: port("east", status="down")."""
    extra = "".join(f", {key.replace('_', '-')}: {value}" for key, value in keys.items())
    return PORTS.replace(f"{{name: {name},", f"{{name: {name}{extra},")


def via(action: str, labels=(), **keys) -> str:
    """A via to 10.0.2.2 at the east port unless told otherwise; None leaves a key out."""
    text = f"action: {action}"
    if labels:
        text += f", labels: {list(labels)}"
    where = {"interface": "east", "nexthop": "10.0.2.2", **keys}
    for key, value in where.items():
        if value is not None:
            text += f", {key.replace('_', '-')}: {value}"
    return "{" + text + "}"


def hardware(*vias: str, label: int = 100, extra: str = "", route: str = "") -> str:
    """One hardware route with its adjacency."""
    return f"""
hardware:
  adjacencies:
    - {{id: 1, vias: [{', '.join(vias)}]{extra}}}
  routes:
    - {{label: {label}, adjacency: 1{route}}}
"""


def lfib(**tables: dict[int, str]) -> str:
    """LFIB tables; each a mapping of label to route text."""
    out = "lfib:\n"
    for name, routes in tables.items():
        out += f"  {name.replace('_', '-')}:\n"
        for value, text in routes.items():
            out += f"    - {{label: {value}, {text}}}\n"
    return out


def routes(*vias: str) -> str:
    """A route text of the tables of lfib()."""
    return f"vias: [{', '.join(vias)}]"


def mpls(entries, packet: bytes = IP4, vlans=()) -> bytes:
    """A labelled frame as it comes in at the west port."""
    return f.eth(WEST, CE_WEST, f.ETH_MPLS, f.stack(*entries) + packet, vlans)


def sent(entries, packet: bytes = IP4, vlans=(), to: str = CE_EAST) -> bytes:
    """A labelled frame as it leaves the east port."""
    return f.eth(to, EAST, f.ETH_MPLS, f.stack(*entries) + packet, vlans)


def sent_ip(packet: bytes, vlans=(), to: str = CE_EAST) -> bytes:
    """A frame without labels as it leaves the east port."""
    kind = f.ETH_IPV4 if packet[0] >> 4 == 4 else f.ETH_IPV6
    return f.eth(to, EAST, kind, packet, vlans)


class Result:
    def __init__(self, process: subprocess.CompletedProcess, out: pathlib.Path):
        self.code, self.stderr, self.stdout = process.returncode, process.stderr, process.stdout
        self.json = json.loads(process.stdout) if process.stdout.startswith("{") else None
        self.files = sorted(out.glob("*.pcap")) if out.exists() else []
        self.captures = {path.stem: f.read_pcap(path) for path in self.files}

    def frames(self, name: str) -> list[bytes]:
        return [data for _, data, _ in self.captures[name]]

    def sent(self) -> dict[str, list[bytes]]:
        """Frames by the port they left from, without ports that nothing left from."""
        return {name: self.frames(name) for name in self.captures
                if name not in OWN and self.captures[name]}

    def reasons(self, fate: str) -> dict[str, int]:
        return self.json[fate]["reasons"]

    def counters(self) -> dict[tuple[str, str], int]:
        return {(c["category"], c["reason"]): c["count"] for c in self.json["counters"]}

    def labels(self) -> dict[int, tuple[int, int]]:
        return {entry["label"]: (entry["packets"], entry["bytes"]) for entry in self.json["labels"]}

    def trace(self, source: str = "Ovix::Routing::Mpls") -> list[str]:
        prefix = source + ": "
        return [line[len(prefix):] for line in self.stderr.splitlines() if line.startswith(prefix)]


@dataclasses.dataclass
class Case:
    """Frames at the west port and all that becomes of them: what is not named must not happen."""
    what: str
    config: str
    frames: list
    sent: dict = dataclasses.field(default_factory=dict)
    punted: list = dataclasses.field(default_factory=list)
    exceptions: list = dataclasses.field(default_factory=list)
    punt_reasons: dict = dataclasses.field(default_factory=dict)
    drop_reasons: dict = dataclasses.field(default_factory=dict)
    handed_on: dict = dataclasses.field(default_factory=dict)
    counters: dict = dataclasses.field(default_factory=dict)
    labels: dict = dataclasses.field(default_factory=dict)  # label: (packets, bytes)
    trace: list = dataclasses.field(default_factory=list)  # lines, in this order among others
    malformed: bool = False  # frames that a dissector may well complain about


class AgentTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.path = pathlib.Path(self.directory.name)

    def tearDown(self):
        self.directory.cleanup()

    def run_files(self, config: str, inputs, *flags: str) -> Result:
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

    def run_frames(self, config: str, frames: list, *flags: str, malformed=False) -> Result:
        """Runs on frames at the west port and expects the numbers to hold; a configuration without
        ports gets the usual ones."""
        capture = self.path / "in.pcap"
        f.write_pcap(capture, frames)
        if "ports:" not in config:
            config = PORTS + config
        result = self.run_files(config, [f"west={capture}"], "--json", *flags)
        self.assertEqual(result.code, 0, result.stderr)
        self.expect_numbers(result, f.read_pcap(capture))
        if not malformed:
            self.expect_dissected(result)
        return result

    def run_cases(self, cases):
        for case in cases:
            with self.subTest(case.what):
                result = self.run_frames(case.config, case.frames, "--trace",
                                         malformed=case.malformed)
                self.assertEqual(result.sent(), case.sent)
                self.assertEqual(result.frames("cpu"), case.punted)
                self.assertEqual(result.frames("lo"), case.exceptions)
                self.assertEqual(result.reasons("punted"), case.punt_reasons)
                self.assertEqual(result.reasons("dropped"), case.drop_reasons)
                self.assertEqual(result.reasons("handedOn"), case.handed_on)
                self.assertEqual(result.counters(), case.counters)
                self.assertEqual(result.labels(), case.labels)
                self.expect_in_order(case.trace, result.trace())

    def expect_in_order(self, lines, trace):
        rest = iter(trace)
        for line in lines:
            self.assertTrue(any(found == line for found in rest),
                            f"not in the trace, or not in this order: {line}\n" + "\n".join(trace))

    def expect_numbers(self, result: Result, received):
        """The numbers tell what the captures hold, and every frame is accounted for once."""
        numbers = result.json
        self.assertTrue(numbers["balanced"])
        self.assertEqual(numbers["in"], {"frames": len(received),
                                         "bytes": sum(len(data) for _, data, _ in received)})
        ports = {name: {"frames": len(frames), "bytes": sum(len(data) for _, data, _ in frames)}
                 for name, frames in result.captures.items() if name not in OWN}
        self.assertEqual(numbers["forwarded"]["ports"], ports)
        for unit in ("frames", "bytes"):
            self.assertEqual(numbers["forwarded"][unit], sum(p[unit] for p in ports.values()))
        self.assertEqual(numbers["punted"]["frames"], len(result.captures["cpu"]))
        self.assertEqual(numbers["exceptions"], {
            "frames": len(result.captures["lo"]),
            "bytes": sum(len(data) for _, data, _ in result.captures["lo"])})
        for fate in ("punted", "dropped", "handedOn"):
            self.assertEqual(numbers[fate]["frames"], sum(result.reasons(fate).values()))
        self.assertEqual(len(received) + numbers["replicas"],
                         sum(numbers[fate]["frames"] for fate in
                             ("forwarded", "punted", "dropped", "handedOn")))
        self.assertEqual({c["module"] for c in numbers["counters"]} - {"Routing::Mpls", "Agent"}, set())

    def expect_dissected(self, result: Result, checksums: bool = True):
        """tshark finds neither malformed packets nor expert errors in what came out."""
        for path in result.files:
            if result.captures[path.stem]:
                self.assertEqual(complaints(path, checksums), [], path.name)


def dissected(path: pathlib.Path, *fields: str, preferences=()) -> list[list[str]]:
    """The values of some of tshark's fields, frame by frame; preferences are NAME:VALUE."""
    command = ["tshark", "-r", str(path), "-T", "fields"]
    for preference in preferences:
        command += ["-o", preference]
    for field in fields:
        command += ["-e", field]
    lines = subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()
    return [line.split("\t") for line in lines]
