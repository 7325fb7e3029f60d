"""Labels that end here above other labels: tunnel and VPN label, tunnel and pseudowire label, and
entropy labels between them, as tshark reads what leaves."""

import unittest

import frames as f
from agent import (CE_EAST, EAST, IP4, NO_VIA_SET, NOTHING_RESOLVED, OAM, PORTS, AgentTest, Case,
                   dissected, mpls, sent, sent_ip, via)

ENDS = "type: ip-lookup, via: {action: pop, payload: none}"
# Labels 100 to 104 end here; 200 is swapped, 201 for two labels in pipe mode; 300 leads into a VRF,
# 500 out of a pseudowire.
CONFIG = PORTS.replace("ports:\n", """ports:
  - {name: ce, mac: "02:00:00:00:00:05"}
  - {name: red1, mac: "02:00:00:00:00:06", vrf: red, addresses: [10.9.0.254/24]}
""") + f"""
  - {{address: 10.9.0.1, port: red1, mac: "02:00:00:00:06:02"}}
pseudowires:
  - {{name: wire, port: ce, label: 600, interface: east, nexthop: 10.0.2.2}}
hardware:
  adjacencies:
    - {{id: 1, vias: [{via("swap", [400])}]}}
    - {{id: 2, vias: [{via("swap", [401, 402], ttl="pipe", push_ttl=77)}]}}
  routes:
    - {{label: 200, adjacency: 1}}
    - {{label: 201, adjacency: 2}}
lfib:
  decap:
""" + "".join(f"    - {{label: {label}, {ENDS}}}\n" for label in range(100, 105)) + """
    - {label: 300, type: ip-lookup, via: {action: pop, payload: ipv4, vrf: red}}
  pseudowire:
    - {label: 500, via: {interface: ce, action: pop, payload: ethernet}}
"""
NO_NEXT_HOP = "No next hop beneath a terminated label"
# Looked up in the tables before the one that has it.
MISSES = {range(100, 105): 0, range(300, 301): 0, range(500, 501): 2}
INNER = f.eth("02:00:00:00:09:09", "02:00:00:00:09:08", f.ETH_IPV4, IP4)


class Terminated(AgentTest):
    def forwards(self, entries, expected, port="east", packet=IP4, label=None):
        frame = mpls(entries, packet)
        result = self.run_frames(CONFIG, [frame])
        self.assertEqual(result.sent(), {port: [expected]}, result.json)
        self.assertEqual(result.json["in"]["frames"], 1)
        self.assertEqual(result.labels(), {label: (1, len(frame))} if label else {})

    def test_above_a_swapped_label(self):
        for tunnels in (1, 3, 5):
            with self.subTest(tunnels):
                entries = [(100 + i, 0, 9) for i in range(tunnels)]
                self.forwards([*entries, (200, 3, 50)], sent([(400, 3, 49)]), label=200)

    def test_above_a_swap_in_pipe_mode(self):
        self.forwards([(100, 0, 9), (201, 3, 50)], sent([(401, 3, 77), (402, 3, 49)]), label=201)

    def test_above_a_vpn_label(self):
        packet = f.udp_packet("10.1.0.1", "10.9.0.1", ttl=31)
        expected = f.eth("02:00:00:00:06:02", "02:00:00:00:00:06", f.ETH_IPV4,
                         f.udp_packet("10.1.0.1", "10.9.0.1", ttl=30))
        for entries in ([100, 300], [100, 101, 102, 300], [100, 7, (5000, 0, 0), 300],
                        [7, (5000, 0, 0), 100, 7, (6000, 0, 0), 300]):
            with self.subTest(entries):
                self.forwards(entries, expected, "red1", packet, 300)

    def test_a_vpn_label_above_labels_that_name_no_vrf(self):
        """Its payload stays in its VRF, whatever is popped on the way to it."""
        for entries, ttl in (([300, 7, (5000, 0, 0)], 30), ([100, 300, 7, (5000, 0, 0)], 30),
                             ([300, (0, 0, 80)], 79), ([300, (2, 0, 80)], 79),
                             ([300, (0, 0, 80), 7, (5000, 0, 0)], 79)):
            with self.subTest(entries):
                self.forwards(entries, f.eth(
                    "02:00:00:00:06:02", "02:00:00:00:00:06", f.ETH_IPV4,
                    f.udp_packet("10.1.0.1", "10.9.0.1", ttl=ttl)), "red1",
                    f.udp_packet("10.1.0.1", "10.9.0.1", ttl=31))

    def test_above_a_pseudowire_label(self):
        for entries in ([100, 500], [100, 101, 500], [100, 7, (5000, 0, 0), 500]):
            with self.subTest(entries):
                self.forwards(entries, INNER, "ce", bytes(4) + INNER, 500)

    def test_above_entropy_labels(self):
        """The indicator's TTL is that of the tunnel, which ends in pipe mode."""
        self.forwards([(100, 0, 9), (7, 0, 9), (5000, 0, 0), (200, 0, 50)], sent([(400, 0, 49)]),
                      label=200)
        self.forwards([100, 7, (5000, 0, 0), 101, 7, (6000, 0, 0), (200, 0, 50)],
                      sent([(400, 0, 49)]), label=200)
        self.forwards([(100, 0, 9), (0, 0, 20), (7, 0, 64), (5000, 0, 0), (200, 0, 50)],
                      sent([(400, 0, 19)]), label=200)

    def test_above_and_beneath_explicit_nulls(self):
        packet = f.udp_packet("10.1.0.1", "10.0.2.2", ttl=99)
        out = f.udp_packet("10.1.0.1", "10.0.2.2", ttl=49)
        self.forwards([(0, 0, 20), (100, 0, 9), (200, 0, 50)], sent([(400, 0, 49)]), label=200)
        self.forwards([(100, 0, 9), (0, 0, 20), (200, 0, 50)], sent([(400, 0, 19)]), label=200)
        self.forwards([(100, 0, 9), (2, 0, 80), (0, 0, 50)], sent_ip(
            f.udp_packet("10.1.0.1", "10.0.2.2", ttl=79)), packet=packet)
        self.forwards([(100, 0, 9), (0, 0, 50)], sent_ip(out), packet=packet)

    def test_what_is_punted(self):
        ping = f.lsp_ping("10.1.0.1", "127.0.0.1")
        spent = "ttl for label 200 is <= 1, trapping"
        for entries, packet, reason in (([100, (200, 0, 1)], IP4, spent),
                                        ([100, 101, (200, 0, 0)], IP4, spent),
                                        ([100, 1, 200], IP4, OAM[1]), ([100, 0], ping, OAM[1]),
                                        ([100, 300], ping, OAM[1])):
            with self.subTest(entries):
                frame = mpls(entries, packet)
                result = self.run_frames(CONFIG, [frame])
                self.assertEqual(result.frames("cpu"), [frame])
                self.assertEqual(result.reasons("punted"), {reason: 1})

    def test_what_is_dropped(self):
        self.run_cases([
            Case("an unknown label beneath", CONFIG, [mpls([100, 999])],
                 drop_reasons={NO_NEXT_HOP: 1},
                 counters={NO_VIA_SET: 8, ("Drop", NOTHING_RESOLVED): 1},
                 trace=["Pkt 1: Mpls processing label 100", "Pkt 1: Mpls processing label 999",
                        "Pkt 1: Mpls processing label 999",
                        "Pkt 1: " + NOTHING_RESOLVED]),
            Case("nothing known at all", CONFIG, [mpls([999])],
                 drop_reasons={NOTHING_RESOLVED: 1},
                 counters={NO_VIA_SET: 4, ("Drop", NOTHING_RESOLVED): 1}),
            Case("a payload that nothing routes", CONFIG, [mpls([100, 101])],
                 drop_reasons={NO_NEXT_HOP: 1}),
        ])

    def test_the_flow_is_that_of_the_frame_as_received(self):
        """Frames that differ in the terminated label alone may take different paths."""
        two = CONFIG.replace(f"vias: [{via('swap', [400])}]",
                             f"vias: [{via('swap', [400])}, {via('swap', [410])}]")
        frames = [mpls([label, 200]) for label in range(100, 105)]
        taken = [f.parse(frame).labels[0][0] for frame in self.run_frames(two, frames).frames("east")]
        self.assertEqual(set(taken), {400, 410})
        again = [f.parse(frame).labels[0][0] for frame in self.run_frames(two, frames).frames("east")]
        self.assertEqual(again, taken)

    def test_tshark_reads_what_leaves(self):
        packet = f.udp_packet("10.1.0.1", "10.9.0.1", ttl=31)
        result = self.run_frames(CONFIG, [mpls([100, 7, (5000, 0, 0), 101, (200, 5, 50)], packet)])
        east = next(path for path in result.files if path.stem == "east")
        self.assertEqual(dissected(east, "mpls.label", "mpls.exp", "mpls.bottom", "mpls.ttl",
                                   "ip.ttl", "eth.dst", "eth.src"),
                         [["400", "5", "1", "49", "31", CE_EAST, EAST]])


if __name__ == "__main__":
    unittest.main()
