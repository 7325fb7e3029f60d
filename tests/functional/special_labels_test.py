"""Explicit nulls, entropy labels, router alert, OAM and spent TTLs."""

import unittest

import frames as f
from agent import CE_EAST, CE_WEST, EAST, IP4, WEST, AgentTest, hardware, lfib, mpls, sent, via

KNOWN = hardware(via("swap", [300]))
OAM = ("Action", "MPLS Oam packet")


def ping(destination="127.0.0.1", port=3503, source="10.1.0.1"):
    return f.udp_packet(source, destination, dport=port, payload=b"\0" * 32)


class ExplicitNull(AgentTest):
    def test_the_payload_is_routed_by_its_own_destination(self):
        for null in (0, 2):
            for source, destination, kind, ttl in (
                    ("10.1.0.1", "10.0.2.2", f.ETH_IPV4, "ttl"),
                    ("2001:db8:1::1", "2001:db8:2::2", f.ETH_IPV6, "hop_limit")):
                with self.subTest(null=null, destination=destination):
                    result = self.run_frames(
                        "", [mpls([(null, 0, 20)], f.udp_packet(source, destination))])
                    expected = f.udp_packet(source, destination, **{ttl: 19})
                    self.assertEqual(result.frames("east"),
                                     [f.eth(CE_EAST, EAST, kind, expected)])

    def test_above_another_label_it_is_popped_and_the_ttl_goes_down_once(self):
        result = self.run_frames(KNOWN, [mpls([(0, 0, 50), (100, 2, 90)])])
        self.assertEqual(result.frames("east"), [sent([(300, 2, 49)])])
        self.assertEqual(result.labels(), {100: (1, len(mpls([0, 100])))})

    def test_without_anything_beneath_it_is_dropped(self):
        result = self.run_frames("", [mpls([0], b"")], "--trace")
        self.assertEqual(result.counters(), {("Drop", "No inner header for reserved label bos"): 1})

    def test_over_ethernet_it_is_dropped_by_the_name_of_what_is_beneath(self):
        inner = f.eth("02:00:00:00:09:09", "02:00:00:00:09:08", f.ETH_IPV4, IP4)
        result = self.run_frames("", [mpls([2], inner)], "--trace")
        self.assertEqual(result.counters(),
                         {("Drop", "Unknown inner header type for reserved label bos: Eth"): 1})
        self.assertIn("Pkt 1: Next header is not v4 or v6", result.trace())

    def test_an_address_without_a_route_or_that_nobody_answers_to_is_dropped(self):
        result = self.run_frames("", [mpls([0]),
                                      mpls([0], f.udp_packet("10.1.0.1", "10.0.2.77"))])
        self.assertEqual(result.reasons("dropped"),
                         {"No route": 1, "No neighbour for the next hop": 1})

    def test_an_address_of_the_device_is_punted(self):
        frame = mpls([0], f.udp_packet("10.1.0.1", "10.0.1.1"))
        result = self.run_frames("", [frame])
        self.assertEqual(result.frames("cpu"), [frame])


class LspPing(AgentTest):
    def test_it_goes_to_the_cpu_whatever_label_brought_it(self):
        decap = lfib(decap={100: "type: ip-lookup, via: {action: pop, payload: auto}"})
        routes = "routes: [{prefix: 10.9.0.0/16, via: {nexthop: 10.0.2.2}}]\n"
        for destination in ("127.0.0.1", "127.9.9.9", "::ffff:127.0.0.1"):
            source = "10.1.0.1" if "." in destination[:4] else "2001:db8:1::1"
            packet = f.lsp_ping(source, destination, **{
                "ttl" if source == "10.1.0.1" else "hop_limit": 1})
            kind = f.ETH_IPV4 if source == "10.1.0.1" else f.ETH_IPV6
            for labels in ([(100, 0, 64)], [(0, 0, 64)], [(2, 0, 64)], []):
                with self.subTest(destination=destination, labels=labels):
                    frame = mpls(labels, packet) if labels else f.eth(WEST, CE_WEST, kind, packet)
                    result = self.run_frames(decap + routes, [frame])
                    self.assertEqual(result.frames("cpu"), [frame])
                    self.assertEqual(result.frames("east"), [])

    def test_other_packets_to_loopback_addresses_go_nowhere(self):
        decap = lfib(decap={100: "type: ip-lookup, via: {action: pop, payload: auto}"})
        routes = "routes: [{prefix: \"::/0\", via: {nexthop: \"2001:db8:2::2\"}}]\n"
        packet = f.udp_packet("2001:db8:1::1", "::ffff:127.0.0.1")
        result = self.run_frames(decap + routes, [
            mpls([(100, 0, 64)], packet), f.eth(WEST, CE_WEST, f.ETH_IPV6, packet)])
        self.assertEqual(result.reasons("dropped"), {"IP destination never on a wire": 2})


class EntropyLabel(AgentTest):
    def test_on_top_it_is_popped_with_its_indicator_and_never_looked_up(self):
        result = self.run_frames(hardware(via("swap", [300]), label=100),
                                 [mpls([(7, 0, 64), (100, 0, 0), (100, 3, 90)])])
        self.assertEqual(result.frames("east"), [sent([(300, 3, 63)])])

    def test_a_ttl_of_0_on_both_is_no_reason_to_trap(self):
        result = self.run_frames(KNOWN, [mpls([(7, 0, 0), (12345, 0, 0), (100, 3, 64)])])
        self.assertEqual(result.frames("east"), [sent([(300, 3, 63)])])
        self.assertEqual(result.frames("cpu"), [])

    def test_beneath_the_swapped_label_it_is_left_alone(self):
        result = self.run_frames(KNOWN, [mpls([(100, 0, 64), (7, 0, 64), (12345, 0, 0)])])
        self.assertEqual(result.frames("east"), [sent([(300, 0, 63), (7, 0, 64), (12345, 0, 0)])])


class Oam(AgentTest):
    CASES = [
        # what, stack, payload, punted
        ("router alert on top", [1, 100], IP4, True),
        ("router alert under an explicit null", [0, 1, 100], IP4, True),
        ("router alert under an ordinary label", [100, 1], IP4, False),
        ("LSP ping under IPv4 explicit null", [0], ping(), True),
        ("LSP ping anywhere in 127/8", [0], ping("127.99.1.2"), True),
        ("to another address", [0], ping("10.0.2.2"), False),
        ("to another port", [0], ping(port=3504), False),
        ("LSP ping to IPv4-mapped loopback", [2], ping("::ffff:127.0.0.1", source="::5"), True),
        ("LSP ping to IPv6 loopback", [2], ping("::1", source="::5"), True),
        ("to another IPv6 address", [2], ping("::2", source="::5"), False),
        ("TCP to 127.0.0.1", [0], f.ipv4("10.1.0.1", "127.0.0.1", b"\x0d\xaf" * 10, proto=6),
         False),
        ("under a known label", [100], ping(), False),
    ]

    def test_cases(self):
        for what, entries, packet, punted in self.CASES:
            with self.subTest(what):
                frame = mpls(entries, packet)
                result = self.run_frames(KNOWN, [frame])
                self.assertEqual(result.frames("cpu"), [frame] if punted else [])
                self.assertEqual(OAM in result.counters(), punted)
                if punted:
                    self.assertEqual(result.counters(), {OAM: 1})  # no table was asked

    def test_under_an_entropy_label_the_vrf_is_reset(self):
        frame = mpls([7, (5000, 0, 0)], ping())
        result = self.run_frames("", [frame])
        self.assertEqual(result.frames("cpu"), [frame])
        self.assertEqual(result.reasons("punted"), {"MPLS Oam packet, reset vrf to default": 1})


class SpentTtl(AgentTest):
    def test_0_and_1_are_trapped_as_received(self):
        for ttl in (0, 1):
            frame = mpls([(100, 0, ttl)])
            result = self.run_frames(KNOWN, [frame], "--trace")
            message = "ttl for label 100 is <= 1, trapping"
            self.assertEqual(result.frames("cpu"), [frame])
            self.assertEqual(result.counters()[("Exceptional", message)], 1)
            self.assertEqual(result.trace()[-1], f"Pkt 1: {message}")

    def test_2_is_forwarded_with_1(self):
        result = self.run_frames(KNOWN, [mpls([(100, 0, 2)])])
        self.assertEqual(result.frames("east"), [sent([(300, 0, 1)])])

    def test_an_explicit_null_is_trapped_before_it_is_popped(self):
        frame = mpls([(0, 0, 1)], f.udp_packet("10.1.0.1", "10.0.2.2"))
        result = self.run_frames("", [frame])
        self.assertEqual(result.frames("cpu"), [frame])
        self.assertEqual(result.counters(),
                         {("Exceptional", "ttl for label 0 is <= 1, trapping"): 1})


if __name__ == "__main__":
    unittest.main()
