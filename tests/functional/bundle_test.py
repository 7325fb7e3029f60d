"""All that an agent forwards by in one file, and the same verdicts from it elsewhere."""

import ipaddress
import json
import os
import pathlib
import re
import subprocess
import unittest

import frames as f
from agent import AGENT, PLUGIN, PORTS, lfib, mpls
from running_agent import SharedTablesTest

COMMENTED = PORTS.replace("ports:", "# the customer is ACME\nports:") + """
routes:
  - {vrf: default, prefix: 10.9.0.0/16, via: {interface: east, nexthop: 10.0.2.2}} # ACME, again
""" + lfib(decap={500: "type: ip-lookup, via: {action: pop, payload: auto, vrf: default}"})


def others_may_reach(program: str) -> bool:
    """Not when the sources lie in root's home."""
    return all(folder.stat().st_mode & 1 for folder in pathlib.Path(program).resolve().parents)


class BundleTest(SharedTablesTest):
    def setUp(self):
        super().setUp()
        self.bundle = self.directory / "some.bundle"
        self.capture = self.directory / "some.pcap"
        self.frames = [mpls([100]), mpls([999]), mpls([(100, 0, 1)]), mpls([101]), mpls([500]),
                       mpls([500], f.udp_packet("10.1.0.1", "10.77.0.1")),
                       mpls([500], f.udp_packet("10.1.0.1", "10.0.2.255"))]
        f.write_pcap(self.capture, self.frames)

    def write(self, *flags: str, config: str = COMMENTED) -> dict:
        running = self.start(config)
        self.ctl("lfib", "replace", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.ctl("lfib", "replace", "101", "as", "200", "via", "inet", "10.0.2.9", "dev", "east")
        self.ctl("lfib", "replace", "500", "vrf", "default")
        running.send_and_wait(mpls([100]), mpls([999]))
        before = [running.ask(what) for what in ("status", "counters", "fates", "ports", "neighbours")]
        done = self.ctl("bundle", str(self.bundle), "--control", str(running.path), "--frames", str(self.capture),
                        "--port", "west", "--json", *flags)
        self.assertEqual([running.ask(what) for what in ("status", "counters", "fates", "ports", "neighbours")],
                         before)
        running.stop()
        return json.loads(done)

    def replay(self, *flags: str, code: int = 0, **keys) -> str:
        command = [AGENT, "replay", str(self.bundle), *flags] + (["--plugin", PLUGIN] if PLUGIN else [])
        done = subprocess.run(command, capture_output=True, text=True, check=False, timeout=60, **keys)
        self.assertEqual(done.returncode, code, done.stdout + done.stderr)
        return done.stdout if code < 2 else done.stderr

    def parts(self) -> tuple[dict, bytes]:
        first, manifest, tables = self.bundle.read_bytes().split(b"\n", 2)
        self.assertEqual(first, b"ovix bundle 1")
        return json.loads(manifest), tables

    def change(self, changed: dict, tables: bytes) -> None:
        self.bundle.write_bytes(b"ovix bundle 1\n" + json.dumps(changed).encode() + b"\n" + tables)

    def fates(self) -> list:
        return [(frame["fate"], frame["reason"], [one["port"] for one in frame["sent"]])
                for frame in self.parts()[0]["frames"]][-len(self.frames):]

    def test_the_same_verdicts_without_agent_tables_and_privileges(self):
        written = self.write()
        self.assertGreaterEqual(written["frames"], len(self.frames))
        self.assertEqual(self.fates(), [
            ("forwarded", "", ["east"]), ("dropped", "No labels resolved to via sets, and nexthop not resolved", []),
            ("punted", "ttl for label 100 is <= 1, trapping", ["cpu"]),
            ("dropped", "No neighbour for the next hop", []), ("forwarded", "", ["east"]),
            ("dropped", "No route", []), ("punted", "Address of the device", ["cpu"])])
        self.ctl("lfib", "del", "100")
        may_drop = os.geteuid() == 0 and others_may_reach(AGENT)
        nobody = {"user": 65534, "group": 65534, "extra_groups": []} if may_drop else {}
        self.directory.chmod(0o755)
        self.assertEqual(self.replay(**nobody), f"{written['frames']} frames, 0 different\n")

    def test_what_differs_is_told_frame_by_frame(self):
        self.write()
        manifest, tables = self.parts()
        number = len(manifest["frames"]) - len(self.frames) + 1
        manifest["config"] = manifest["config"].replace("02:00:00:00:02:02", "02:00:00:00:02:77")
        self.change(manifest, tables)
        told = json.loads(self.replay("--json", code=1))
        text = "".join(told["differences"])
        self.assertIn(f"frame {number} at west: was forwarded by east", text)
        self.assertIn("02000000020202", text)
        self.assertIn("02000000027702", text)
        self.assertNotIn(f"frame {number + 1} at west", text)
        self.assertIn(f"{told['different']} different", self.replay(code=1))

    def test_anonymous_bundles_have_the_same_verdicts_and_no_addresses(self):
        self.write()
        fates, names = self.fates(), {"10.9.0.0", "10.0.2.2", "10.0.2.9", "10.1.0.1", "10.77.0.1"}
        plain = self.bundle.read_bytes()
        for name in names:
            self.assertTrue(ipaddress.ip_address(name).packed in plain or name.encode() in plain
                            or ipaddress.ip_address(name).packed.hex().encode() in plain)
        self.write("--anonymise")
        self.assertEqual(self.fates(), fates)
        self.replay()
        anonymous = self.bundle.read_bytes()
        self.assertNotIn(b"ACME", anonymous)
        for name in names:
            packed = ipaddress.ip_address(name).packed
            for form in (name.encode(), packed.hex().encode()):
                self.assertNotIn(form, anonymous)
            self.assertNotIn(packed, self.parts()[1])
        subnets = [ipaddress.ip_network(found, strict=False)
                   for found in re.findall(r"addresses: \[([\d.]+/\d+)", self.parts()[0]["config"])]
        self.assertEqual([subnet.prefixlen for subnet in subnets], [24, 24])
        self.assertEqual(subnets[0].supernet(new_prefix=22), subnets[1].supernet(new_prefix=22))

    def test_faulty_bundles_are_refused(self):
        self.write()
        whole = self.bundle.read_bytes()
        manifest, tables = self.parts()
        self.bundle.write_bytes(whole[:-8])
        self.assertIn("cut short", self.replay(code=2))
        self.bundle.write_bytes(b"something else\n")
        self.assertIn("no bundle of this version", self.replay(code=2))
        self.change({**manifest, "frames": [{**manifest["frames"][0], "port": "north"}]}, tables)
        self.assertIn('no port "north"', self.replay(code=2))
        self.change({**manifest, "tableBytes": 8}, tables[:8])
        self.assertIn("too short for tables", self.replay(code=2))
        damaged = bytearray(tables)
        damaged[0] ^= 1
        self.change(manifest, bytes(damaged))
        self.assertIn("some.bundle: ", self.replay(code=2))
        for size in range(0, len(whole), max(1, len(whole) // 20)):
            self.bundle.write_bytes(whole[:size])
            self.assertIn("ovix-agent: ", self.replay(code=2))

    def test_damage_anywhere_ends_in_a_verdict_or_a_refusal(self):
        self.write()
        whole = self.bundle.read_bytes()
        start = whole.index(b"\n", 20)
        for place in range(start, len(whole), max(1, (len(whole) - start) // 20)):
            damaged = bytearray(whole)
            damaged[place] ^= 0xff
            self.bundle.write_bytes(damaged)
            done = subprocess.run([AGENT, "replay", str(self.bundle)] + (["--plugin", PLUGIN] if PLUGIN else []),
                                  capture_output=True, check=False, timeout=60)
            self.assertIn(done.returncode, (0, 1, 2), f"byte {place}: {done.stderr}")


if __name__ == "__main__":
    unittest.main()
