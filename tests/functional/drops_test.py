"""What a running agent tells of the frames that it did not forward, as it happens."""

import json
import shutil
import signal
import struct
import subprocess
import unittest

import frames as f
from agent import lfib, mpls, routes, via
from live import LiveTest
from running_agent import CTL, RunningAgent, SharedTablesTest, damage

CONFIG = """
ports:
  - {name: west, mac: "02:00:00:00:00:01", addresses: [10.0.1.1/24]}
  - {name: east, mac: "02:00:00:00:00:02", mtu: 1400, addresses: [10.0.2.1/24]}
neighbours:
  - {address: 10.0.2.2, port: east, mac: "02:00:00:00:00:22"}
"""
UNKNOWN = "No labels resolved to via sets, and nexthop not resolved"
UNRESOLVED = "No neighbour for the next hop"


class Drops(SharedTablesTest):
    def setUp(self):
        super().setUp()
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.ctl("lfib", "add", "101", "as", "200", "via", "inet", "10.0.2.9", "dev", "east")
        self.agent = self.start(CONFIG)

    def shown(self, *words: str, code: int = 0) -> str:
        return self.ctl("drops", "show", *words, "--control", str(self.agent.path), code=code)

    def json(self, *words: str) -> dict:
        return json.loads(self.shown(*words, "--json"))

    def frames(self, *words: str) -> list[dict]:
        return [json.loads(line) for line in self.shown("--frames", "--json", *words).splitlines()]

    def test_fates_since_they_were_asked_for_last_and_per_second(self):
        self.agent.send_and_wait(mpls([100]), mpls([77]), mpls([77]), mpls([101]))
        first = self.json()
        self.assertEqual(first["dropped"]["reasons"], {UNKNOWN: 2, UNRESOLVED: 1})
        self.assertEqual(first["sinceAsked"]["dropped"], first["dropped"])
        self.assertGreater(first["perSecond"]["dropped"]["frames"], 0)
        self.agent.send_and_wait(mpls([77]), mpls([100]))
        second = self.json()
        self.assertEqual(second["sinceAsked"]["dropped"],
                         {"frames": 1, "reasons": {UNKNOWN: 1, UNRESOLVED: 0}})
        self.assertEqual((second["sinceAsked"]["in"], second["sinceAsked"]["forwarded"]), (2, 1))
        self.assertRegex(self.shown(), rf"fate +frames +since asked +a second\nin +6 +0 +[\d.]+\n"
                                       rf"(.*\n)*  {UNKNOWN} +3 +0 +[\d.]+\n")

    def test_by_port_by_label_and_by_neighbour(self):
        self.agent.send_and_wait(mpls([77]), mpls([78]), mpls([77]), mpls([101]), mpls([100]))
        by_port = self.json("--by", "port")["drops-by-port"]
        self.assertEqual(by_port, [
            {"port": "west", "fate": "dropped", "reason": UNKNOWN, "frames": 3},
            {"port": "west", "fate": "dropped", "reason": UNRESOLVED, "frames": 1}])
        labels = self.json("--by", "label", "--reason", "resolved")["drops-by-label"]
        self.assertEqual([(entry["label"], entry["frames"]) for entry in labels], [(77, 2), (78, 1)])
        self.assertEqual(self.json("--by", "neighbour")["drops-by-neighbour"], [
            {"port": "east", "nexthop": "10.0.2.9", "frames": 1, "perSecond": 0}])
        self.assertRegex(self.shown("--by", "label"),
                         rf"label +frames +a second +fate +reason +now *\n +77 +2 +\d+ +dropped +{UNKNOWN}")
        self.assertIn("--by shape", self.shown("--by", "shape", code=2))

    def test_labels_that_led_nowhere_are_told_apart(self):
        """The same reason is counted whatever of their way is missing."""
        self.ctl("lfib", "add", "adjacency", "9", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.ctl("lfib", "add", "hardware", "300", "adjacency", "9", "unprogrammed")
        self.ctl("lfib", "add", "adjacency", "8", "as", "703710", "via", "inet", "10.0.2.2", "dev", "east")
        self.ctl("lfib", "add", "hardware", "301", "adjacency", "8")
        damage(self.memory, 703710)
        self.agent.send_and_wait(mpls([77]), mpls([300]), mpls([78]), mpls([301]))
        self.ctl("lfib", "add", "78", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        states = {entry["label"]: entry["now"] for entry in self.json("--by", "label")["drops-by-label"]}
        self.assertRegex(states.pop(301), r"no adjacency 8|adjacency at unit \d+ is invalid$")
        self.assertEqual(states, {77: "no table has it", 300: "not programmed", 78: None})
        self.assertRegex(self.shown("--by", "label"), r" 300 +1 .* not programmed\n")

    def test_what_labels_lack_now_is_told_by_the_tables_of_the_agent(self):
        """It has those of its configuration; others are in shared memory."""
        tables = lfib(transit={100: routes(via("swap", [200]))}) + """hardware:
  adjacencies: [{id: 9, vias: [{interface: east, nexthop: 10.0.2.2, action: pop}]}]
  routes: [{label: 300, adjacency: 9, unprogrammed: true}]
"""
        directory = self.directory / "alone"
        directory.mkdir()
        alone = RunningAgent(directory, CONFIG.replace("mtu: 1400", "status: down") + tables, None)
        self.addCleanup(alone.kill)
        self.ctl("lfib", "add", "77", "as", "200", "via", "inet", "10.0.2.2", "dev", "west")
        alone.send_and_wait(mpls([77]), mpls([100]), mpls([300]))
        told = self.ctl("drops", "show", "--by", "label", "--json", "--control", str(alone.path))
        states = {entry["label"]: entry["now"] for entry in json.loads(told)["drops-by-label"]}
        self.assertEqual(states, {77: "no table has it", 100: "east is down", 300: "not programmed"})

    def test_reasons_read_alike_in_every_table(self):
        self.ctl("lfib", "add", "decap", "302", "as", "5", "via", "inet", "10.0.2.2", "dev", "east", "type", "77")
        self.agent.send_and_wait(mpls([302]))
        text = "No handler for the via's type"
        for words in ((), ("--by", "port"), ("--by", "label"), ("--frames",), ("--frames", "--reason", "handler for")):
            self.assertIn(text, self.shown(*words), words)
        self.assertIn("Via type %s handler not found", self.json()["dropped"]["reasons"])  # the counter's own name

    def test_what_is_asked_for_is_what_is_shown(self):
        self.agent.send_and_wait(mpls([77]), mpls([77]), mpls([101]), mpls([100]))
        self.assertEqual(self.json("--reason", "neighbour")["dropped"]["reasons"], {UNRESOLVED: 1})
        self.assertRegex(self.shown("--reason", "neighbour"), rf"^fate .*\ndropped: {UNRESOLVED} +1 .*\n$")
        self.assertEqual([entry["reason"] for entry in self.json("--port", "west")["drops-by-port"]],
                         [UNKNOWN, UNRESOLVED])
        for words in (("--port", "nope"), ("--frames", "--port", "nope")):
            self.assertIn('there is no port "nope"', self.shown(*words, code=1))
        self.assertIn("--by label has the frames of all ports", self.shown("--by", "label", "--port", "west", code=2))
        self.assertIn("give one of them", self.shown("--by", "port", "--frames", code=2))
        self.assertIn("has no reasons", self.shown("--by", "neighbour", "--reason", "x", code=2))
        self.assertRegex(self.shown(), r"\nin +4 .*\n  answers of its own +0 ")

    def test_the_first_and_the_last_frames_of_each_reason_are_kept(self):
        self.agent.send_and_wait(*(mpls([label]) for label in range(1000, 1100)), mpls([101]))
        frames = self.frames("--reason", "labels resolved")
        self.assertEqual([frame["label"] for frame in frames], [1000, *range(1036, 1100)])
        self.assertEqual([frame["first"] for frame in frames], [True] + 64 * [False])
        self.assertEqual(bytes.fromhex(frames[0]["bytes"]), mpls([1000]))
        other = self.frames("--reason", "neighbour")
        self.assertEqual((other[0]["via"], other[0]["port"], other[0]["generation"]),
                         ({"port": "east", "nexthop": "10.0.2.9"}, "west", self.agent.generation()))
        self.assertEqual(self.frames("--port", "east"), [])
        text = self.shown("--frames", "--reason", "neighbour")
        self.assertRegex(text, rf"Z west label 101 \d+ bytes via east to 10.0.2.9 generation \d+ "
                               rf"dropped: {UNRESOLVED} \(the first\)\n  0200")
        self.assertRegex(text, r"\n# memory: \d+ of at most \d+ bytes\n$")

    def test_of_a_flood_all_frames_are_counted_and_some_kept(self):
        first = mpls([1000])
        records = [struct.pack("<IIII", 7, 0, len(frame), len(frame)) + frame
                   for frame in [first] + 9_999 * [mpls([77]), mpls([78])]]
        self.agent.input.write(b"".join(records))
        self.agent.sent += len(records)
        self.agent.send_and_wait()
        self.assertEqual(self.json()["dropped"]["reasons"], {UNKNOWN: 19_999})
        self.assertEqual([entry["frames"] for entry in self.json("--by", "port")["drops-by-port"]], [19_999])
        labels = {entry["label"]: entry["frames"] for entry in self.json("--by", "label")["drops-by-label"]}
        self.assertEqual(labels[1000], 1)
        for label in (77, 78):
            self.assertAlmostEqual(labels[label], 9_999, delta=2_000)
        frames = self.frames()
        self.assertEqual((len(frames), frames[0]["label"], frames[0]["first"]), (65, 1000, True))
        apart = [after["sequence"] - before["sequence"] for before, after in zip(frames[1:], frames[2:])]
        self.assertTrue(all(128 <= each <= 255 for each in apart), apart)

    @unittest.skipUnless(shutil.which("tshark"), "needs tshark")
    def test_a_capture_says_beside_each_frame_why_it_was_dropped(self):
        self.agent.send_and_wait(mpls([77]), mpls([101]))
        path = self.directory / "drops.pcapng"
        self.shown("--pcapng", str(path))
        read = subprocess.run(["tshark", "-r", path, "-T", "fields", "-e", "frame.interface_name",
                               "-e", "mpls.label", "-e", "frame.comment"], check=True,
                              capture_output=True, text=True).stdout
        lines = [line.split("\t") for line in read.splitlines()]
        self.assertEqual([line[:2] for line in lines], [["west", "77"], ["west", "101"]])
        self.assertIn(f"dropped: {UNKNOWN} (port west label 77", lines[0][2])
        self.assertIn(f"dropped: {UNRESOLVED} (port west label 101 via east to 10.0.2.9",
                      lines[1][2])
        told = subprocess.run([CTL, "--tables", self.tables, "explain", f"{path}:2", "--control", str(self.agent.path)],
                              capture_output=True, text=True, check=False, timeout=30)
        self.assertEqual(told.returncode, 1, told.stderr)
        self.assertRegex(told.stdout, rf"^frame: \d+ bytes at west\n(.*\n)*verdict: dropped: {UNRESOLVED}\n")
        self.assertIn("/nonexistent/x", self.shown("--pcapng", "/nonexistent/x", code=1))

    def test_frames_are_followed_as_they_come(self):
        self.agent.send_and_wait(mpls([77]))
        follower = subprocess.Popen([CTL, "--tables", self.tables, "--control", str(self.agent.path),
                                     "--json", "drops", "show", "--follow"],
                                    stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(follower.communicate)
        self.addCleanup(follower.kill)
        self.assertEqual(json.loads(follower.stdout.readline())["label"], 77)
        self.agent.send(mpls([78]))
        self.assertEqual(json.loads(follower.stdout.readline())["label"], 78)
        follower.send_signal(signal.SIGINT)
        self.assertEqual(follower.wait(10), 0)


class LiveDrops(LiveTest):
    def test_fates_add_up_at_every_moment_they_are_read(self):
        process = self.start()
        self.learn_neighbours()
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.ctl("lfib", "add", "101", "as", "200", "via", "inet", "10.0.2.77", "dev", "east")
        mac = self.router_mac("west").replace(":", "")
        sender = self.host(self.west, f"""
import socket, time
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(("eth0", 0))
link = bytes.fromhex("{mac}" + "020000000002" + "8847")
end = time.monotonic() + 2
while time.monotonic() < end:
    for label in (100, 77, 101, 100, 78): s.send(link + (label << 12 | 0x140).to_bytes(4, "big") + bytes(46))
""")
        reads, queued = 0, 0
        while sender.poll() is None:
            fates = json.loads(subprocess.run(
                [CTL, "--tables", self.tables, "--control", str(self.path), "--json", "drops", "show"],
                check=True, capture_output=True, text=True).stdout)
            self.assertEqual(fates["in"] + fates["replicas"],
                             fates["forwarded"] + fates["queued"]
                             + sum(fates[fate]["frames"] for fate in ("punted", "dropped", "handedOn")))
            self.assertTrue(fates["balanced"])
            reads, queued = reads + 1, max(queued, fates["queued"])
        sender.communicate()
        self.assertGreater(reads, 10)
        self.assertGreater(queued, 0)
        self.until(lambda: UNRESOLVED in self.fates()["dropped"]["reasons"])
        kept = self.fates("--frames", "--reason", UNRESOLVED)
        self.assertEqual(kept[-1]["via"], {"port": "east", "nexthop": "10.0.2.77"})
        by_label = self.fates("--by", "label", "--reason", UNKNOWN)["drops-by-label"]
        self.assertLessEqual({77, 78}, {entry["label"] for entry in by_label})
        self.stop(process)

    def test_what_the_router_has_made_came_in_nowhere(self):
        """ICMP errors about labelled packets follow the label (RFC 3032), which leads to a port that is down."""
        process = self.start()
        self.learn_neighbours()
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east", "mtu", "100")
        mac = self.router_mac("west").replace(":", "")
        packet = f.udp_packet("10.9.9.9", "10.8.8.8")
        sender = self.host(self.west, f"""
import socket
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(("eth0", 0))
s.send(bytes.fromhex("{mac}" + "020000000002" + "8847" + "00064101" + "{packet.hex()}"))
""")
        self.assertEqual(sender.wait(10), 0)
        self.until(lambda: self.fates()["answers"] > 0 and self.fates("--frames"))
        kept = self.fates("--frames")
        self.assertIn(True, [frame["own"] for frame in kept], kept)
        for frame in kept:
            self.assertEqual((frame["own"], frame["own"]), (frame["port"] is None, frame["bytes"][12:24] == 12 * "0"))
        self.stop(process)

    def fates(self, *words: str):
        shown = subprocess.run([CTL, "--tables", self.tables, "--control", str(self.path), "--json",
                                "drops", "show", *words], check=True, capture_output=True, text=True).stdout
        return [json.loads(line) for line in shown.splitlines()] if "--frames" in words else json.loads(shown)


if __name__ == "__main__":
    unittest.main()
