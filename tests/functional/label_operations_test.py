"""Swap, push and pop: what leaves the port, byte by byte."""

import subprocess
import unittest

import frames as f
from agent import CE_EAST, EAST, IP4, IP6, AgentTest, hardware, mpls, sent, via


def aged(**keys):
    """The default inner packet with another TTL."""
    return f.udp_packet("10.1.0.1", "10.9.0.1", **keys)


class LabelOperations(AgentTest):
    CASES = [
        # what, via, stack in, frame out
        ("swap keeps TC and takes one from the TTL", via("swap", [300]),
         [(100, 5, 64)], sent([(300, 5, 63)])),
        ("swap writes the TC it is told", via("swap", [300], tc=2),
         [(100, 5, 64)], sent([(300, 2, 63)])),
        ("swap keeps the bottom-of-stack bit clear", via("swap", [300]),
         [100, 200], sent([(300, 0, 63), 200])),
        ("swap to three replaces the top and pushes the rest", via("swap", [301, 302, 303]),
         [(100, 3, 64)], sent([(301, 3, 63), (302, 3, 63), (303, 3, 63)])),
        ("swap to two in pipe mode", via("swap", [301, 302], ttl="pipe"),
         [(100, 0, 64)], sent([(301, 0, 255), (302, 0, 63)])),
        ("pipe mode pushes with the TTL told", via("swap", [301, 302], ttl="pipe", push_ttl=9),
         [(100, 0, 64)], sent([(301, 0, 9), (302, 0, 63)])),
        ("the labels above a swapped one may have a TC of their own",
         via("swap", [301, 302], push_tc=6), [(100, 3, 64)], sent([(301, 6, 63), (302, 3, 63)])),
        ("push keeps the incoming label beneath", via("push", [601, 602, 603]),
         [(100, 4, 40)], sent([(601, 4, 39), (602, 4, 39), (603, 4, 39), (100, 4, 39)])),
        ("push in pipe mode", via("push", [601], ttl="pipe"),
         [(100, 4, 40)], sent([(601, 4, 255), (100, 4, 39)])),
        ("pop to a label carries the TTL over", via("pop"),
         [(100, 0, 30), (200, 1, 90)], sent([(200, 1, 29)])),
        ("pop to a label in pipe mode leaves it alone", via("pop", ttl="pipe"),
         [(100, 0, 30), (200, 1, 90)], sent([(200, 1, 90)])),
        ("pop to IPv4 carries the TTL over", via("pop"),
         [(100, 0, 30)], f.eth(CE_EAST, EAST, f.ETH_IPV4, aged(ttl=29))),
        ("a pop of uniform TC writes it into the label beneath", via("pop", tc="uniform"),
         [(100, 5, 30), (200, 1, 90)], sent([(200, 5, 29)])),
        ("a pop of uniform TC writes it into the packet's DSCP", via("pop", tc="uniform"),
         [(100, 5, 30)], f.eth(CE_EAST, EAST, f.ETH_IPV4, aged(ttl=29, tos=5 << 5))),
        ("pop to IPv4 in pipe mode", via("pop", ttl="pipe"),
         [(100, 0, 30)], f.eth(CE_EAST, EAST, f.ETH_IPV4, IP4)),
        ("an explicit null is a label like any other to swap in", via("swap", [0]),
         [(100, 0, 64)], sent([(0, 0, 63)])),
    ]

    def test_cases(self):
        for what, route, entries, expected in self.CASES:
            with self.subTest(what):
                result = self.run_frames(hardware(route), [mpls(entries)])
                self.assertEqual(result.frames("east"), [expected])
                size = len(mpls(entries))
                self.assertEqual(result.labels(), {100: (1, size)})

    def test_pop_to_ipv6_carries_the_ttl_into_the_hop_limit(self):
        result = self.run_frames(hardware(via("pop")), [mpls([(100, 0, 30)], IP6)])
        expected = f.udp_packet("2001:db8:1::1", "2001:db8:9::1", hop_limit=29)
        self.assertEqual(result.frames("east"), [f.eth(CE_EAST, EAST, f.ETH_IPV6, expected)])

    def test_deep_operations_are_carried_whole(self):
        for depth in (8, 9, 33):
            with self.subTest(depth=depth):
                labels = list(range(1000, 1000 + depth))
                result = self.run_frames(hardware(via("swap", labels)), [mpls([100])])
                self.assertEqual(result.frames("east"), [sent([(v, 0, 63) for v in labels])])

    def test_a_pop_that_exposes_what_nobody_can_name_is_no_rewrite(self):
        result = self.run_frames(hardware(via("pop")), [mpls([100], b"\x00" * 40)])
        self.assertEqual(result.reasons("dropped"), {"no rewrite": 1})
        self.assertEqual(result.labels(), {})

    def test_a_payload_that_contradicts_the_via_is_dropped(self):
        result = self.run_frames(hardware(via("pop", payload="ipv6")), [mpls([100])])
        self.assertEqual(result.reasons("dropped"),
                         {"Payload is not of the label's payload type": 1})

    def test_too_big_after_the_push_is_dropped_and_not_counted_for_the_label(self):
        packet = f.ipv4("10.1.0.1", "10.9.0.1", b"x" * (1500 - 20 - 4), proto=99)
        result = self.run_frames(hardware(via("swap", [300])), [mpls([100], packet)])
        self.assertEqual(len(result.frames("east")), 1)
        result = self.run_frames(hardware(via("swap", [300, 301])), [mpls([100], packet)])
        self.assertEqual(result.reasons("dropped"), {"MTU exceeded": 1})
        self.assertEqual(result.labels(), {})

    def test_the_received_vlan_tag_is_kept(self):
        result = self.run_frames(hardware(via("swap", [300])), [mpls([100], vlans=[10, 20])])
        self.assertEqual(result.frames("east"), [sent([(300, 0, 63)], vlans=[10, 20])])

    def test_a_next_hop_with_a_vlan_is_sent_with_that_tag_alone(self):
        result = self.run_frames(hardware(via("swap", [300], vlan=77)),
                                 [mpls([100], vlans=[10, 20])])
        self.assertEqual(result.frames("east"), [sent([(300, 0, 63)], vlans=[77])])

    def test_tshark_reads_the_stack_that_was_pushed(self):
        result = self.run_frames(hardware(via("push", [601, 602], tc=6)), [mpls([(100, 1, 40)])])
        fields = subprocess.run(
            ["tshark", "-r", str(self.path / "out" / "east.pcap"), "-T", "fields", "-e",
             "mpls.label", "-e", "mpls.exp", "-e", "mpls.ttl", "-e", "mpls.bottom"],
            capture_output=True, text=True, check=True).stdout.split()
        self.assertEqual(fields, ["601,602,100", "6,6,1", "39,39,39", "0,0,1"])
        self.assertEqual(result.json["forwarded"]["frames"], 1)


if __name__ == "__main__":
    unittest.main()
