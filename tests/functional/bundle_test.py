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


def hashed(*parts: bytes) -> int:
    """FNV-1a, each part ended by a zero byte."""
    value = 0xcbf29ce484222325
    for part in parts:
        for byte in part + b"\0":
            value = (value ^ byte) * 0x100000001b3 & 0xffffffffffffffff
    return value


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
        self.assertEqual(first, self.first_line(manifest + b"\n", tables))
        return json.loads(manifest), tables

    def first_line(self, manifest: bytes, tables: bytes) -> bytes:
        return b"ovix bundle 2 %d %016x" % (len(manifest + tables), hashed(manifest, tables))

    def change(self, changed: dict, tables: bytes) -> None:
        manifest = json.dumps(changed).encode() + b"\n"
        self.bundle.write_bytes(self.first_line(manifest, tables) + b"\n" + manifest + tables)

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
        self.bundle.chmod(0o644)  # it is the owner's
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
        self.assertRegex(self.parts()[0]["more"]["versions"]["agent"], r"^\d+\.\d+")
        self.assertEqual([*self.parts()[0]["more"]], ["versions"])
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
        self.assertEqual(self.bundle.stat().st_mode & 0o777, 0o600)
        whole = self.bundle.read_bytes()
        manifest, tables = self.parts()
        frame = manifest["frames"][0]
        for changed, kept, said in (
                ({"frames": [{**frame, "port": "north"}]}, tables, 'frame 1: there is no port "north"'),
                ({"frames": [frame, {"port": "west"}]}, tables, "some.bundle: frame 2: key 'bytes' not found"),
                ({"tableBytes": 8}, tables[:8], "too short for tables"),
                ({}, bytes([tables[0] ^ 1]) + tables[1:], "some.bundle: "),
                ({}, tables[:-8], "cut short")):
            self.change({**manifest, **changed}, kept)
            self.assertIn(said, self.replay(code=2))
        for content, said in ((b"something else\n", "is no bundle\n"), (whole + b"\0", "is damaged"),
                              (whole.replace(b"bundle 2", b"bundle 1"), "is no bundle of version 2\n")):
            self.bundle.write_bytes(content)
            self.assertIn(said, self.replay(code=2))
        start = whole.index(b"\n") + 1
        for size in range(start, len(whole), max(1, len(whole) // 10)):
            self.bundle.write_bytes(whole[:size])
            self.assertIn(f"is cut short: it has {size - start} of {len(whole) - start} bytes", self.replay(code=2))

    def test_no_bit_is_another_unseen(self):
        self.write()
        whole = self.bundle.read_bytes()
        start = whole.index(b"\n") + 1
        tables = whole.index(b"\n", start)
        for place in [*range(0, start, 3), *range(start, tables, tables // 15), *range(tables, len(whole), len(whole) // 10)]:
            damaged = bytearray(whole)
            damaged[place] ^= 1 << place % 8
            self.bundle.write_bytes(damaged)
            self.replay(code=2)

    def test_a_bundle_that_cannot_be_made_says_why(self):
        running = self.start(COMMENTED)
        for arguments, said in ((["/nonexistent/x"], "/nonexistent/x: cannot be written: No such file"),
                                ([str(self.bundle), "--frames", str(self.capture)],
                                 f"--frames needs --port: {self.capture} names no port that frame 1 came in at")):
            self.assertIn(said, self.ctl("bundle", "--control", str(running.path), *arguments, code=2))
        running.stop()

    def test_the_frames_of_a_capture_come_in_where_it_says(self):
        running = self.start(COMMENTED)
        self.ctl("lfib", "replace", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        f.write_pcapng(self.capture, [mpls([100]), mpls([999])], interface="west")
        self.ctl("bundle", str(self.bundle), "--control", str(running.path), "--frames", str(self.capture))
        running.stop()
        frames = self.parts()[0]["frames"]
        self.assertEqual([(frame["port"], frame["fate"]) for frame in frames], [("west", "forwarded"), ("west", "dropped")])


if __name__ == "__main__":
    unittest.main()
