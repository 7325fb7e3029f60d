"""What goes in and comes out: formats, times, damage, errors and exit codes."""

import json
import os
import signal
import struct
import subprocess
import time
import unittest

import frames as f
from agent import AGENT, PORTS, SOURCE, AgentTest, hardware, mpls, sent, via

KNOWN = PORTS + hardware(via("swap", [300]))
SHARED = SOURCE.parent / "shared" / "captures"


class Captures(AgentTest):
    def capture(self, name="in.pcap", frames=None, **keys):
        path = self.path / name
        f.write_pcap(path, frames if frames is not None else [mpls([100])], **keys)
        return path

    def test_time_stamps_go_through_in_both_resolutions(self):
        for nano, time in ((False, 1_600_000_000_123_456_000), (True, 1_600_000_000_123_456_789)):
            path = self.capture(frames=[(time, mpls([100]))], nano=nano)
            result = self.run_files(KNOWN, [f"west={path}"])
            self.assertEqual([stamp for stamp, _, _ in result.captures["east"]], [time])

    def test_pcapng_is_read(self):
        path = self.path / "in.pcapng"
        f.write_pcapng(path, [(1_600_000_000_123_456_789, mpls([100]))])
        result = self.run_files(KNOWN, [f"west={path}"])
        self.assertEqual(result.captures["east"],
                         [(1_600_000_000_123_456_789, sent([(300, 0, 63)]),
                           len(sent([300])))])

    def test_frames_of_two_ports_are_taken_in_time_order(self):
        west = self.capture("w.pcap", [(n * 10**6, mpls([(100, 0, 10 + n)])) for n in (0, 2, 4)])
        east = self.capture("e.pcap", [(n * 10**6, mpls([(100, 0, 10 + n)])) for n in (1, 3)])
        result = self.run_files(KNOWN, [f"west={west}", f"east={east}"], "--any-mac")
        self.assertEqual([data[17] for data in result.frames("east")], [9, 10, 11, 12, 13])

    def test_a_truncated_capture_gives_every_whole_frame_and_says_so(self):
        path = self.capture(frames=[mpls([100])] * 3)
        os.truncate(path, path.stat().st_size - 5)
        result = self.run_files(KNOWN, [f"west={path}"], "--json")
        self.assertEqual(result.code, 1)
        self.assertEqual(len(result.frames("east")), 2)
        self.assertEqual(len(result.json["problems"]), 1)
        self.assertIn("truncated", result.stderr)
        self.assertIn(str(path), result.stderr)

    def test_a_snapped_frame_is_forwarded_as_far_as_it_goes(self):
        frame = mpls([100])
        path = self.capture(frames=[(0, frame[:30], len(frame))])
        result = self.run_files(KNOWN, [f"west={path}"])
        self.assertEqual(result.captures["east"],
                         [(0, sent([(300, 0, 63)])[:30], len(frame))])

    def test_a_pop_of_a_frame_that_was_cut_within_its_ip_options_is_forwarded(self):
        options = f.ipv4("10.1.0.1", "10.9.0.1", b"x" * 26)
        options = bytes([0x4a]) + options[1:20] + bytes([1] * 20) + options[20:]
        options = options[:2] + struct.pack("!H", len(options)) + options[4:]
        frame = mpls([100], options)
        path = self.capture(frames=[(0, frame[:18 + 24], len(frame))])
        result = self.run_files(PORTS + hardware(via("pop")), [f"west={path}"], "--json")
        self.assertEqual(result.reasons("dropped"), {})
        (_, data, length), = result.captures["east"]
        self.assertEqual((len(data), length), (14 + 24, len(frame) - 4))

    def test_an_exception_frame_keeps_the_original_length_of_a_cut_frame(self):
        frame = mpls([100], f.udp_packet("10.1.0.1", "10.9.0.1", payload=b"x" * 600))
        path = self.capture(frames=[(0, frame[:300], len(frame))])
        small = PORTS.replace("{name: east,", "{name: east, mtu: 400,")
        result = self.run_files(small + hardware(via("swap", [300])), [f"west={path}"], "--json")
        (_, data, length), = result.captures["lo"]
        self.assertEqual(length - len(data), len(frame) - 300)

    def test_another_link_type_is_refused_by_name(self):
        path = self.capture(linktype=101)
        result = self.run_files(KNOWN, [f"west={path}"])
        self.assertEqual(result.code, 1)
        self.assertIn("RAW", result.stderr)
        self.assertEqual(result.files, [])

    def test_what_is_not_mpls_is_handed_on(self):
        path = self.capture(frames=[f.eth("02:00:00:00:00:01", "02:00:00:00:01:02", f.ETH_IPV4,
                                          f.udp_packet("10.1.0.1", "10.9.0.1"))])
        result = self.run_files(KNOWN, [f"west={path}"], "--json")
        self.assertEqual(result.json["handedOn"], {"frames": 1, "reasons": {"Not MPLS": 1}})

    def test_every_port_has_a_capture_even_an_empty_one(self):
        result = self.run_files(KNOWN, [f"west={self.capture()}"])
        self.assertEqual(sorted(result.captures), ["cpu", "east", "lo", "west"])

    def test_table_and_json_tell_the_same(self):
        path = self.capture(frames=[mpls([100]), mpls([4242])])
        table = self.run_files(KNOWN, [f"west={path}"]).stdout
        numbers = {line.split()[0]: line.split()[1] for line in table.splitlines()
                   if len(line.split()) > 1}
        summary = self.run_files(KNOWN, [f"west={path}"], "--json").json
        self.assertEqual(numbers["in"], str(summary["in"]["frames"]))
        self.assertEqual(numbers["forwarded"], str(summary["forwarded"]["frames"]))
        self.assertEqual(numbers["dropped"], str(summary["dropped"]["frames"]))

    def test_configuration_errors_name_the_place_and_process_nothing(self):
        cases = [
            ("ports:\n  - {name: a, mac: '02:00:00:00:00:01'}\ncolour: red\n",
             ["config.yaml:3", "colour"]),
            (PORTS + "hardware:\n  routes:\n    - {label: 1048576, adjacency: 1}\n",
             ["config.yaml:12", "label", "1048576"]),
            ("ports:\n  - {name: a, mac: nonsense}\n", ["config.yaml:2", "mac", "nonsense"]),
        ]
        for text, named in cases:
            with self.subTest(named[-1]):
                result = self.run_files(text, [f"west={self.capture()}"])
                self.assertEqual((result.code, result.files), (1, []))
                for part in named:
                    self.assertIn(part, result.stderr)

    def test_usage_errors_exit_with_2_and_help_with_0(self):
        def run(*words):
            return subprocess.run([AGENT, *words], capture_output=True, text=True,
                                  check=False).returncode
        self.assertEqual([run("run"), run("walk"), run("--help"), run("run", "--help")],
                         [2, 2, 0, 0])

    def test_a_missing_plugin_is_named(self):
        result = self.run_files(KNOWN, [f"west={self.capture()}"], "--plugin", "/nonexistent.so")
        self.assertEqual(result.code, 1)
        self.assertIn("/nonexistent.so", result.stderr)


class Stations(AgentTest):
    FOREIGN = f.eth("02:00:00:00:00:77", "02:00:00:00:01:02", f.ETH_MPLS, mpls([100])[14:])

    def test_a_port_takes_what_is_addressed_to_it(self):
        frames = [mpls([100]), self.FOREIGN, mpls([100])]
        result = self.run_frames(KNOWN, frames)
        self.assertEqual(len(result.frames("east")), 2)
        self.assertEqual(result.reasons("handedOn"), {"For another station": 1})
        self.assertEqual(len(self.run_frames(KNOWN, frames, "--any-mac").frames("east")), 3)


    def test_the_fast_path_changes_nothing_but_the_time(self):
        frames = [mpls([100]), mpls([999]), mpls([100]), mpls([(100, 0, 1)])] * 5
        both = [self.run_frames(KNOWN, frames, "--fast-path", path) for path in ("on", "off")]
        self.assertEqual(len(both[0].frames("east")), 10)
        for capture in ("east", "cpu"):
            self.assertEqual(both[0].frames(capture), both[1].frames(capture))
        self.assertEqual(both[0].json, both[1].json)

    def test_checked_frames_leave_once_and_are_the_same_either_way(self):
        frames = [mpls([100]), mpls([999]), mpls([(100, 0, 1)])] * 10
        plain = self.run_frames(KNOWN, frames)
        checked = self.run_frames(KNOWN, frames, "--check-every", "2")
        self.assertEqual(checked.code, 0)
        for capture in ("east", "cpu"):
            self.assertEqual(plain.frames(capture), checked.frames(capture))
        self.assertEqual(plain.json["dropped"], checked.json["dropped"])
        self.assertEqual(plain.json["in"], checked.json["in"])
        self.assertGreater(checked.counters()["Path", "checked"], 5)
        self.assertEqual(checked.counters()["Path", "different"], 0)


class Ends(AgentTest):
    """How a run ends before its captures do."""

    def start(self, *flags):
        (self.path / "config.yaml").write_text(KNOWN, encoding="utf-8")
        pipe = self.path / "pipe"
        os.mkfifo(pipe)
        agent = subprocess.Popen(
            [AGENT, "run", str(self.path / "config.yaml"), "--in", f"west={pipe}", "--out",
             str(self.path / "out"), "--plugin", os.environ["OVIX_PLUGIN"], "--json", *flags],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        return agent, open(pipe, "wb", buffering=0)

    def test_a_signal_ends_the_run_with_whole_frames_and_the_balance(self):
        for stop, code in ((signal.SIGINT, 130), (signal.SIGTERM, 143)):
            with self.subTest(stop.name):
                agent, pipe = self.start()
                capture = self.path / "in.pcap"
                f.write_pcap(capture, [mpls([100])] * 3)
                pipe.write(capture.read_bytes())
                for _ in range(100):
                    time.sleep(0.02)
                    if agent.poll() is not None or (self.path / "out" / "lo.pcap").exists():
                        break
                time.sleep(0.3)
                agent.send_signal(stop)
                stdout, stderr = agent.communicate(timeout=30)
                pipe.close()
                os.unlink(self.path / "pipe")
                self.assertEqual((agent.returncode, stderr), (code, ""))
                summary = json.loads(stdout)
                self.assertTrue(summary["balanced"])
                self.assertEqual(summary["in"]["frames"], 3)
                self.assertEqual(len(f.read_pcap(self.path / "out" / "east.pcap")), 3)

    def test_a_reader_that_has_seen_enough_is_no_error(self):
        capture = self.path / "in.pcap"
        f.write_pcap(capture, [mpls([100])])
        (self.path / "config.yaml").write_text(KNOWN, encoding="utf-8")
        reading, writing = os.pipe()
        os.close(reading)
        agent = subprocess.run(
            [AGENT, "run", str(self.path / "config.yaml"), "--in", f"west={capture}", "--out",
             str(self.path / "out"), "--plugin", os.environ["OVIX_PLUGIN"]],
            stdout=writing, stderr=subprocess.PIPE, text=True, check=False)
        os.close(writing)
        self.assertEqual((agent.returncode, agent.stderr), (0, ""))
        self.assertEqual(len(f.read_pcap(self.path / "out" / "east.pcap")), 1)


class SubInterfaces(AgentTest):
    CONFIG = """
ports:
  - {name: west, mac: "02:00:00:00:00:01"}
  - {name: east, mac: "02:00:00:00:00:02"}
  - {name: west.100, parent: west, vlan: 100, addresses: [10.0.1.1/24]}
  - {name: east.qinq, parent: east, vlan: [100, 200], addresses: [10.0.2.1/24]}
neighbours:
  - {address: 10.0.2.2, port: east.qinq, mac: "02:00:00:00:02:02"}
lfib:
  decap:
    - {label: 100, via: {interface: east.qinq, nexthop: 10.0.2.2, action: swap, labels: [300]}}
"""

    def test_tags_decide_where_a_frame_comes_in_and_how_it_leaves(self):
        capture = self.path / "in.pcap"
        plain = mpls([100])
        tagged = plain[:12] + b"\x81\x00\x00\x64" + plain[12:]
        other = plain[:12] + b"\x81\x00\x00\x65" + plain[12:]
        f.write_pcap(capture, [tagged, other])
        result = self.run_files(self.CONFIG, [f"west={capture}"], "--json")
        self.assertEqual(result.code, 0, result.stderr)
        self.assertEqual(result.reasons("dropped"), {"VLAN without a sub-interface": 1})
        self.assertEqual(sorted(result.captures), ["cpu", "east", "lo", "west"])
        frame, = result.frames("east")
        self.assertEqual(frame[12:22], bytes.fromhex("88a800648100" "00c8" "8847"))
        self.assertEqual(result.json["forwarded"]["ports"]["east.qinq"]["frames"], 1)
        self.expect_dissected(result)

    def test_a_capture_belongs_to_the_parent(self):
        capture = self.path / "in.pcap"
        f.write_pcap(capture, [])
        result = self.run_files(self.CONFIG, [f"west.100={capture}"])
        self.assertEqual(result.code, 1)
        self.assertIn('"west.100" is a VLAN sub-interface, whose frames come in at its parent '
                      '"west"', result.stderr)


@unittest.skipUnless(SHARED.is_dir(), "captures of real networks are not beside the checkout")
class RealCaptures(AgentTest):
    def forward(self, name, *labels):
        routes = "\n".join(f"    - {{label: {label}, adjacency: 1}}" for label in labels)
        config = PORTS.replace("{name: east,", "{name: east, mtu: 9000,") + f"""
hardware:
  adjacencies:
    - {{id: 1, vias: [{via('swap', [300])}]}}
  routes:
{routes}
"""
        result = self.run_files(config, [f"west={SHARED / name}"], "--json", "--any-mac")
        self.assertEqual(result.code, 0, result.stderr)
        # Who anonymised these captures left the IP checksums as they were.
        self.expect_dissected(result, checksums=False)
        return result

    def test_all_labelled_frames_of_a_mixed_capture_are_swapped(self):
        result = self.forward("mixed-vlan-mpls.pcap", 29)
        out = result.frames("east")
        received = [data for _, data, _ in f.read_pcap(SHARED / "mixed-vlan-mpls.pcap")
                    if data[12:14] == b"\x88\x47"]
        self.assertEqual(len(out), 11)
        for before, after in zip(received, out):
            entry = struct.unpack("!I", before[14:18])[0]
            self.assertEqual(after[14:18],
                             struct.pack("!I", 300 << 12 | entry & 0xF00 | (entry & 0xFF) - 1))
            self.assertEqual(after[18:], before[18:])

    def test_labels_behind_a_vlan_tag_keep_the_tag(self):
        result = self.forward("mpls-in-vlan.pcap", 16106, 254, 99)
        received = [data for _, data, _ in f.read_pcap(SHARED / "mpls-in-vlan.pcap")
                    if data[16:18] == b"\x88\x47"]
        self.assertEqual(len(result.frames("east")), len(received))
        for before, after in zip(received, result.frames("east")):
            self.assertEqual(after[12:18], before[12:18])
            self.assertEqual(after[22:], before[22:])

    def test_lsp_pings_under_a_transit_label_are_forwarded(self):
        result = self.forward("lsp-ping-ldp.pcap", 100688)
        self.assertEqual(result.labels()[100688][0], result.json["forwarded"]["frames"])
        self.assertGreater(result.json["forwarded"]["frames"], 0)


if __name__ == "__main__":
    unittest.main()
