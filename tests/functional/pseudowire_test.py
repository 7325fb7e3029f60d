"""Ethernet pseudowires: from an attachment circuit to the wire, and to the one at the other end."""

import pathlib
import random
import subprocess
import unittest

import frames as f
import make_pseudowire
from agent import CE_EAST, EAST, IP4, WEST, AgentTest, lfib, mpls
from dissector import complaints

CONTROL_WORD = bytes(4)
HOST_A, HOST_B = make_pseudowire.HOST_A, make_pseudowire.HOST_B
FRAME = f.eth(HOST_B, HOST_A, f.ETH_IPV4, IP4)


def provider_edge(sends: int, receives: int, control_word: bool, tunnel=(), here: str = EAST,
                  there: str = CE_EAST, mtu: int = 9100) -> str:
    """One end of a pseudowire between ce1 and the core port."""
    return f"""
ports:
  - {{name: ce1, mac: "02:00:00:00:00:11", mtu: 65535}}
  - {{name: core, mac: "{here}", mtu: {mtu}}}
neighbours:
  - {{address: 10.0.2.2, port: core, mac: "{there}"}}
pseudowires:
  - {{name: red, port: ce1, label: {sends}, control-word: {str(control_word).lower()},
     interface: core, nexthop: 10.0.2.2, labels: {list(tunnel)}}}
lfib:
  pseudowire:
    - {{label: {receives}, via: {{interface: ce1, action: pop, payload: ethernet}}}}
"""


# Where tunnels end, before the pseudowire does: a router with its neighbours on one link.
PENULTIMATE = f"""
ports:
  - {{name: ce1, mac: "02:00:00:00:00:11"}}
  - {{name: core, mac: "{CE_EAST}", mtu: 9100}}
neighbours:
  - {{address: 10.0.2.2, port: core, mac: "{CE_EAST}"}}
""" + lfib(decap={label: "via: {interface: core, nexthop: 10.0.2.2, action: pop}"
                  for label in (100, 101, 102)})


def payload_type(label: int, control_word: bool) -> list[str]:
    """Tells tshark what a label carries."""
    return ["-d", f"mpls.label=={label},{'pwethcw' if control_word else 'pwethnocw'}"]


def dissected(path: pathlib.Path, options: list[str], *fields: str) -> list[list[str]]:
    command = ["tshark", "-r", str(path), *options, "-T", "fields"]
    for field in fields:
        command += ["-e", field]
    lines = subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()
    return [line.split("\t") for line in lines]


def errors(path: pathlib.Path, options: list[str]) -> str:
    command = ["tshark", "-r", str(path), *options, "-Y",
               "_ws.malformed || _ws.expert.severity == error"]
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def odd_frames() -> list[bytes]:
    """From the shortest there are to jumbo frames, of bytes without a meaning."""
    dice = random.Random(4448)
    return [HOST_B_BYTES + dice.randbytes(size - 6)
            for size in (14, 15, 17, 18, 19, 59, 60, 61, 64, 1513, 1514, 1518, 1522, 9000)]


HOST_B_BYTES = f.mac(HOST_B)


class BothEnds(AgentTest):
    maxDiff = 2000

    def send(self, config: str, port: str, frames: list[bytes], *flags: str):
        capture = self.path / "in.pcap"
        f.write_pcap(capture, frames)
        result = self.run_files(config, [f"{port}={capture}"], "--json", *flags)
        self.assertEqual(result.code, 0, result.stderr)
        self.expect_numbers(result, f.read_pcap(capture))
        return result

    def test_frames_of_one_links_control_are_not_carried(self):
        pause = f.eth("01:80:c2:00:00:01", HOST_A, 0x8808, bytes.fromhex("0001ffff") + bytes(42))
        lacp = f.eth("01:80:c2:00:00:02", HOST_A, 0x8809, bytes(46))
        for flags in ((), ("--fast-path", "off")):
            with self.subTest(flags=flags):
                result = self.send(provider_edge(501, 502, True), "ce1", [pause, lacp, FRAME, pause],
                                   *flags)
                self.assertEqual(len(result.frames("core")), 2)
                self.assertEqual(result.reasons("dropped"),
                                 {"MAC control frame at an attachment circuit": 2})

    def test_a_special_purpose_label_is_no_flow_label(self):
        config = provider_edge(501, 502, False, here=WEST).replace(
            "control-word", "flow-label: true, control-word")
        frames = [mpls([502, label], FRAME) for label in (77777, 13, 0, 7, 16)]
        for flags in ((), ("--fast-path", "off")):
            with self.subTest(flags=flags):
                result = self.send(config, "core", frames, *flags)
                self.assertEqual(result.frames("ce1"), [FRAME, FRAME])
                self.assertEqual(result.reasons("punted"), {"Pseudowire associated channel": 1})
                self.assertEqual(result.reasons("dropped"), {
                    "Special-purpose label in place of a pseudowire's flow label": 2})

    def test_a_frame_arrives_whole_at_the_other_end(self):
        frames = list(make_pseudowire.customer_frames()) + odd_frames()
        size = sum(len(frame) for frame in frames)
        for control_word in (True, False):
            for tunnel in ((), (100,), (0,), (100, 101, 102)):
                with self.subTest(control_word=control_word, tunnel=tunnel):
                    near = self.send(provider_edge(500, 501, control_word, tunnel), "ce1", frames)
                    self.assertEqual(near.json["pseudowires"],
                                     [{"name": "red", "sent": {"frames": len(frames), "bytes": size},
                                       "delivered": {"frames": 0, "bytes": 0}}])
                    self.expect_on_the_wire(near.frames("core"), frames, control_word, tunnel)
                    arriving = self.through_the_core(near.frames("core"), tunnel)
                    far = self.send(provider_edge(501, 500, control_word, tunnel, CE_EAST, EAST),
                                    "core", arriving)
                    self.assertEqual(far.frames("ce1"), frames)
                    self.assertEqual(far.frames("core"), [])
                    self.assertEqual(far.json["pseudowires"][0]["delivered"],
                                     {"frames": len(frames), "bytes": size})
                    self.assertEqual(far.labels()[500][0], len(frames))

    def through_the_core(self, frames, tunnel):
        """Routers on the way take the labels of the tunnels off, but for an explicit null."""
        for label in tunnel:
            if label != 0:
                frames = self.send(PENULTIMATE, "core", frames).frames("core")
        return frames

    def expect_on_the_wire(self, sent, frames, control_word, tunnel):
        for wire, frame in zip(sent, frames, strict=True):
            parsed = f.parse(wire)
            self.assertEqual((parsed.dst, parsed.src, parsed.vlans), (CE_EAST, EAST, []))
            self.assertEqual([label for label, _, _ in parsed.labels], [*tunnel, 500])
            self.assertEqual({ttl for _, _, ttl in parsed.labels}, {255})
            self.assertEqual(len({tc for _, tc, _ in parsed.labels}), 1)
            self.assertEqual(parsed.payload, (CONTROL_WORD if control_word else b"") + frame)

    def test_the_class_is_that_of_the_customers_frame(self):
        ip = {tos: f.udp_packet("10.1.0.1", "10.1.0.2", tos=tos) for tos in (0, 0x28, 0xB8, 0xFC)}
        frames, expected = [], []
        for tos, packet in ip.items():
            frames.append(f.eth(HOST_B, HOST_A, f.ETH_IPV4, packet))
            expected.append(tos >> 5)
            for priority in (0, 4, 7):
                frames.append(f.eth(HOST_B, HOST_A, f.ETH_IPV4, packet, [priority << 13 | 9]))
                expected.append(priority)
        frames.append(f.eth(HOST_B, HOST_A, f.ETH_IPV6, f.udp_packet(
            "2001:db8::1", "2001:db8::2", traffic_class=0x60)))
        expected.append(3)
        result = self.send(provider_edge(500, 501, True, (100,)), "ce1", frames)
        self.assertEqual([[tc for _, tc, _ in f.parse(wire).labels]
                          for wire in result.frames("core")], [[tc, tc] for tc in expected])

    def test_a_dissector_agrees(self):
        frames = list(make_pseudowire.customer_frames())[:6]
        inner = [["ip"], ["vlan", "ip"], ["ieee8021ad", "vlan", "ip"], ["ipv6"], ["arp"], ["mpls"]]
        for control_word in (True, False):
            with self.subTest(control_word=control_word):
                near = self.send(provider_edge(500, 501, control_word, (100,)), "ce1", frames)
                options = payload_type(500, control_word)
                path = near.files[[file.stem for file in near.files].index("core")]
                self.assertEqual(errors(path, options), "")
                rows = dissected(path, options, "mpls.label", "mpls.bottom", "pweth.cw",
                                 "pweth.cw.sequence_number", "eth.src", "frame.protocols")
                for (labels, bottom, word, sequence, sources, protocols), names in zip(
                        rows, inner, strict=True):
                    self.assertEqual(labels.split(",")[:2], ["100", "500"])
                    self.assertEqual(bottom.split(",")[:2], ["0", "1"])
                    self.assertEqual([bool(word), sequence], [control_word, "0" * control_word])
                    self.assertEqual(sources, f"{EAST},{HOST_A}")
                    found = [name for name in protocols.split(":") if name != "ethertype"]
                    self.assertEqual(found[:3 + len(names)], ["eth", "mpls", "eth", *names])
                far = self.send(provider_edge(501, 500, control_word, (100,), CE_EAST, EAST), "core",
                                self.through_the_core(near.frames("core"), (100,)))
                for file in far.files:
                    self.assertEqual(complaints(file), [])

    def test_the_core_port_tags_for_itself(self):
        config = provider_edge(500, 501, True).replace("name: core", "name: core, tagging: 7")
        tagged = f.eth(HOST_B, HOST_A, f.ETH_IPV4, IP4, [10])
        result = self.send(config, "ce1", [tagged, FRAME])
        for wire, frame in zip(result.frames("core"), (tagged, FRAME), strict=True):
            parsed = f.parse(wire)
            self.assertEqual((parsed.vlans, parsed.payload), ([7], CONTROL_WORD + frame))

    def test_what_does_not_fit_is_dropped_whole(self):
        def of(size: int) -> bytes:
            return HOST_B_BYTES + b"\x88" * (size - 6)

        cases = [  # MTU of the core port, size of the frame, verdict; 12 bytes are pushed
            (1526, 1514, ""), (1526, 1515, "MTU exceeded"),
            (65535, 65535, "Label stack does not fit the packet"),
            (65535, 65528, "Label stack does not fit the packet"),
            (65535, 65527, "Control word does not fit the packet"),
            (65535, 65524, "Control word does not fit the packet"),
            (65535, 65523, "Frame too long"), (65535, 65510, "Frame too long"), (65535, 65509, ""),
            (9100, 13, "Shorter than an Ethernet header"),
            (9100, 6, "Shorter than an Ethernet header"),
        ]
        for mtu, size, reason in cases:
            with self.subTest(mtu=mtu, size=size):
                result = self.send(provider_edge(500, 501, True, (100,), mtu=mtu), "ce1", [of(size)])
                self.assertEqual(result.reasons("dropped"), {reason: 1} if reason else {})
                self.assertEqual([f.parse(wire).payload for wire in result.frames("core")],
                                 [] if reason else [CONTROL_WORD + of(size)])

    def test_an_attachment_circuit_routes_nothing(self):
        """Not even a frame that is labelled for the router, and with MPLS off not at all."""
        labelled = mpls([501])
        result = self.send(provider_edge(500, 501, True), "ce1", [labelled])
        self.assertEqual(f.parse(result.frames("core")[0]).payload, CONTROL_WORD + labelled)
        special = f.eth("01:00:5e:00:00:01", HOST_A, 0x8139, bytes(16) + IP4, [7])
        for fast_path in ("on", "off"):
            result = self.send(provider_edge(500, 501, True), "ce1", [special], "--fast-path",
                               fast_path)
            self.assertEqual(f.parse(result.frames("core")[0]).payload, CONTROL_WORD + special)
        result = self.send("mpls-routing: false\n" + provider_edge(500, 501, True), "ce1", [labelled])
        self.assertEqual(result.reasons("dropped"), {"MPLS routing not enabled": 1})


if __name__ == "__main__":
    unittest.main()
