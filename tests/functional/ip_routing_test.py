"""IP routing per VRF, with and without labels: the example, and frames of every kind."""

import collections
import unittest

import frames as f
import make_two_vrfs as example
from agent import CE_EAST, CE_EAST2, CE_WEST, EAST, IP4, PORTS, SOURCE, WEST, AgentTest, Case, \
    dissected, lfib, mpls, port, sent, sent_ip

CONFIG = SOURCE / "examples" / "two_vrfs.yaml"
DONT_FRAGMENT, MORE_FRAGMENTS = 0x4000, 0x2000

ROUTES = """
routes:
  - {prefix: 10.9.0.0/16, via: {nexthop: 10.0.2.2}}
  - {prefix: 10.8.0.0/16, via: {nexthop: 10.0.2.2, labels: [300, 301]}}
  - {prefix: 10.7.0.0/16, via: {nexthop: 10.0.2.2, labels: [300], ttl: pipe, tc: 2}}
  - {prefix: "2001:db8:9::/48", via: {nexthop: "2001:db8:2::2"}}
  - {prefix: "2001:db8:8::/48", via: {nexthop: "2001:db8:2::2", labels: [300]}}
  - {prefix: "2001:db8:7::/48", via: {nexthop: 10.0.2.3, labels: [300, 2]}}
  - {prefix: "2001:db8:6::/48", via: {interface: west, labels: [300, 17]}}
  - {prefix: 10.6.0.0/16, via: {nexthop: "2001:db8:2::2"}}
"""


def ip(packet, vlans=()):
    """An IP frame as it comes in at the west port."""
    kind = f.ETH_IPV4 if packet[0] >> 4 == 4 else f.ETH_IPV6
    return f.eth(WEST, CE_WEST, kind, packet, vlans)


class TwoVrfs(AgentTest):
    @classmethod
    def setUpClass(cls):
        cls.received = {name: list(make()) for name, make in example.CAPTURES.items()}

    def setUp(self):
        super().setUp()
        for name, frames in self.received.items():
            f.write_pcap(self.path / f"{name}.pcap", frames)
        self.result = self.run_files(CONFIG.read_text(encoding="utf-8"), [
            f"{name}={self.path / name}.pcap" for name in self.received], "--json")
        self.assertEqual(self.result.code, 0, self.result.stderr)

    def test_the_numbers_hold_and_every_frame_has_its_fate(self):
        self.expect_numbers(self.result, [(0, frame, len(frame)) for frames in
                                          self.received.values() for frame in frames])
        self.assertEqual(self.result.reasons("punted"), {"Address of the device": 1,
                                                         "TTL expired": 1})
        self.assertEqual(self.result.reasons("dropped"), {
            "No route": 1, "Payload is not of the label's payload type": 1,
            "IPv4 header checksum wrong": 1, "VRF not configured": 1, "Route drops": 1})
        self.assertEqual(self.result.reasons("handedOn"), {"Not MPLS": 1})

    def test_what_comes_out_is_sound(self):
        self.expect_dissected(self.result)

    def test_a_popped_packet_leaves_by_the_port_of_its_vrf(self):
        aged = f.udp_packet("10.2.0.9", "10.1.0.9", ttl=63)
        aged6 = f.udp_packet("2001:db8:200::9", "2001:db8:100::9", hop_limit=63)
        at_site = f.udp_packet("10.1.0.9", "10.0.1.2", ttl=63)
        self.assertCountEqual(self.result.frames("red"), [
            f.eth(example.CE_RED, example.RED, f.ETH_IPV4, aged),
            f.eth(example.CE_RED, example.RED, f.ETH_IPV6, aged6),
            f.eth(example.CE_RED, example.RED, f.ETH_IPV4, aged),
            f.eth(example.CE_RED, example.RED, f.ETH_IPV4, at_site)])
        self.assertEqual(self.result.frames("blue"), [
            f.eth(example.CE_BLUE, example.BLUE, f.ETH_IPV4, aged)])

    def test_a_packet_to_the_other_side_gets_the_labels_of_its_vrf(self):
        aged = f.udp_packet("10.1.0.9", "10.2.0.9", ttl=63, tos=0x68)
        unmarked = f.udp_packet("10.1.0.9", "10.2.0.9", ttl=63)
        labelled = [frame for frame in self.result.frames("core")
                    if f.parse(frame).payload in (aged, unmarked)]
        self.assertCountEqual(labelled, [
            f.eth(example.P1, example.CORE, f.ETH_MPLS, f.stack(*entries) + packet)
            for entries, packet in (([(300, 3, 63), (501, 3, 63)], aged),
                                    ([(300, 4, 64), (502, 4, 64)], aged),
                                    ([(300, 0, 63), (501, 0, 63)], unmarked))])

    def test_flows_are_shared_by_weight_and_stay_on_their_way(self):
        shared = collections.Counter()
        ways = collections.defaultdict(set)
        for frame in self.result.frames("core"):
            parsed = f.parse(frame)
            if parsed.payload[16:20] == bytes((10, 3, 0, 9)):
                shared[parsed.dst] += 1
                ways[parsed.payload].add(parsed.dst)
        self.assertEqual(sum(shared.values()), example.FLOWS)
        self.assertAlmostEqual(shared[example.P2] / example.FLOWS, 0.75, delta=0.08)
        self.assertEqual({len(way) for way in ways.values()}, {1})

    def test_a_dissector_reads_the_stack_and_the_ttls(self):
        rows = dissected(self.result.files[[p.stem for p in self.result.files].index("core")],
                         "mpls.label", "mpls.exp", "mpls.ttl", "ip.ttl", "ip.dst")
        self.assertIn(["300,501", "3,3", "63,63", "63", "10.2.0.9"], rows)
        self.assertIn(["300,502", "4,4", "64,64", "63", "10.2.0.9"], rows)


class Ingress(AgentTest):
    def test_cases(self):
        aged = f.udp_packet("10.1.0.1", "10.9.0.1", ttl=63)
        six = f.udp_packet("2001:db8:1::1", "2001:db8:9::1")
        aged6 = f.udp_packet("2001:db8:1::1", "2001:db8:9::1", hop_limit=63)
        to_eight = f.udp_packet("2001:db8:1::1", "2001:db8:8::1", traffic_class=0xC0)
        cases = [Case(what, ROUTES, [ip(packet, vlans)], sent={"east": [expected]})
                 for what, packet, vlans, expected in (
                     ("IPv4", IP4, (), sent_ip(aged)),
                     ("IPv6", six, (), sent_ip(aged6)),
                     ("with its priority", IP4, [0xE000], sent_ip(aged, [0xE000])),
                     ("without the link's padding", IP4 + b"\0" * 6, (), sent_ip(aged)),
                     ("IPv4 to labels", f.udp_packet("10.1.0.1", "10.8.0.1", tos=0x20), (),
                      sent([(300, 1, 63), (301, 1, 63)],
                           f.udp_packet("10.1.0.1", "10.8.0.1", tos=0x20, ttl=63))),
                     ("in pipe mode", f.udp_packet("10.1.0.1", "10.7.0.1", tos=0x20), (),
                      sent([(300, 2, 255)],
                           f.udp_packet("10.1.0.1", "10.7.0.1", tos=0x20, ttl=63))),
                     ("IPv6 to labels", to_eight, (),
                      sent([(300, 6, 63)], f.udp_packet("2001:db8:1::1", "2001:db8:8::1",
                                                        traffic_class=0xC0, hop_limit=63))))]
        self.run_cases(cases)

    def test_another_vlans_packet_is_not_routed_in_the_ports_vrf(self):
        self.run_cases([Case(str(vlans), ROUTES, [ip(IP4, vlans)],
                             drop_reasons={"VLAN without a sub-interface": 1})
                        for vlans in ([10], [10, 20], [0, 20], [(f.ETH_QINQ, 10), 20])])
        config = port("west", tagging=10) + ROUTES
        self.run_cases([Case("its own", config, [ip(IP4, [10])],
                             sent={"east": [sent_ip(f.udp_packet("10.1.0.1", "10.9.0.1", ttl=63),
                                                    [10])]})])

    def test_the_reverse_path_of_a_source(self):
        def case(what, reverse_path, source, reason):
            packet = f.udp_packet(source, "10.9.0.1")
            aged = f.udp_packet(source, "10.9.0.1", ttl=63)
            config = port("west", reverse_path=reverse_path) + ROUTES
            return Case(what, config, [ip(packet)], sent={} if reason else {
                "east": [sent_ip(aged)]}, drop_reasons={reason: 1} if reason else {})
        forged, martian = ("IP source not reached by the port it came in at",
                           "IP source never to be forwarded")
        unrouted = "IP source not reached by any route"
        self.run_cases([
            case("not asked", "off", "192.0.2.1", None),
            case("a route", "loose", "10.8.0.1", None),
            case("no route", "loose", "192.0.2.1", unrouted),
            case("by the port", "strict", "10.0.1.9", None),
            case("by another port", "strict", "10.8.0.1", forged),
            case("the router's own", "off", "10.0.2.1", martian),
            case("a subnet's broadcast", "off", "10.0.2.255", martian)])

    def test_ipv6_over_an_ipv4_core_and_ipv4_to_an_ipv6_neighbour(self):
        def six(network, **keys):
            return f.udp_packet("2001:db8:1::1", f"2001:db8:{network}::1", **keys)
        aged = f.udp_packet("10.1.0.1", "10.6.0.1", ttl=63)
        result = self.run_frames(ROUTES, [ip(six(7)), ip(six(6)),
                                          ip(f.udp_packet("10.1.0.1", "10.6.0.1"))])
        self.assertEqual(result.frames("east"), [
            f.eth(CE_EAST2, EAST, f.ETH_MPLS,
                  f.stack((300, 0, 63), (2, 0, 63)) + six(7, hop_limit=63)), sent_ip(aged)])
        self.assertEqual(result.frames("west"), [
            f.eth(CE_WEST, WEST, f.ETH_MPLS,
                  f.stack((300, 0, 63), (17, 0, 63)) + six(6, hop_limit=63))])
        self.expect_dissected(result)

    def test_labels_without_a_next_hop_are_for_the_only_neighbour_on_the_link(self):
        """As zebra publishes the routes of 6PE: there are two on the east link, none on the third."""
        config = PORTS.replace("neighbours:", """  - {name: empty, mac: "02:00:00:00:00:03"}
neighbours:""") + """
routes:
  - {prefix: "2001:db8:5::/48", via: {interface: east, labels: [300, 17]}}
  - {prefix: "2001:db8:6::/48", via: {interface: west, labels: [300, 17]}}
  - {prefix: "2001:db8:7::/48", via: {interface: empty, labels: [300, 17]}}
  - {prefix: "2001:db8:8::/48", via: {interface: east}}
  - {prefix: "2001:db8:9::/48", via: {nexthop: "2001:db8:2::9", labels: [300]}}
"""
        result = self.run_frames(config, [ip(f.udp_packet("2001:db8:1::1", f"2001:db8:{net}::1"))
                                          for net in (5, 6, 7, 8, 9)])
        self.assertEqual(len(result.frames("west")), 1)
        self.assertEqual(result.reasons("dropped"), {
            "No next hop for the labels, and not just one neighbour on the link": 2,
            "No neighbour for the next hop": 2})

    def test_the_longest_labelled_packet_that_fits(self):
        for size, fits in ((1492, True), (1493, False)):
            packet = f.udp_packet("10.1.0.1", "10.8.0.1", payload=b"x" * (size - 28),
                                  fragment=DONT_FRAGMENT)
            result = self.run_frames(ROUTES, [ip(packet)])
            self.assertEqual(len(result.frames("east")), int(fits))
            self.assertEqual(result.reasons("dropped"), {} if fits else {"MTU exceeded": 1})

    def test_a_snapped_frame_is_not_cut_short(self):
        packet = f.udp_packet("10.1.0.1", "10.9.0.1", payload=b"x" * 500)
        result = self.run_frames(ROUTES, [(0, ip(packet)[:64], len(ip(packet)))])
        self.assertEqual([(len(data), original) for _, data, original in result.captures["east"]],
                         [(64, len(ip(packet)))])

    def test_bad_headers(self):
        def patched(at, value):
            return IP4[:at] + value + IP4[at + len(value):]
        six = f.udp_packet("2001:db8:1::1", "2001:db8:9::1")
        self.run_cases([
            Case(reason, ROUTES, [frame], drop_reasons={reason: 1}, malformed=True)
            for reason, frame in (
                ("IPv4 header length wrong", ip(patched(0, b"\x44"))),
                ("IPv4 total length wrong", ip(patched(2, b"\x00\x13"))),
                ("IPv4 total length wrong", ip(patched(2, b"\x05\xdc"))),
                ("IPv4 header checksum wrong", ip(patched(8, b"\x3f"))),
                ("IP header cut short", ip(IP4[:19])),
                ("IPv6 payload cut short", ip(six[:-1])),
                ("IP version contradicts the packet type",
                 f.eth(WEST, CE_WEST, f.ETH_IPV6, IP4)),
                ("IP source never to be forwarded", ip(f.udp_packet("127.0.0.1", "10.9.0.1"))))])

    def test_what_is_for_the_router_reaches_the_cpu_as_received(self):
        self.run_cases([
            Case(reason, ROUTES, [ip(packet)], punted=[ip(packet)], punt_reasons={reason: 1})
            for reason, packet in (
                ("Address of the device", f.udp_packet("10.1.0.1", "10.0.2.1")),
                ("TTL expired", f.udp_packet("10.1.0.1", "10.9.0.1", ttl=1)),
                ("Link-local or broadcast destination",
                 f.udp_packet("fe80::1", "ff02::5", hop_limit=1)))])

    def test_without_routes_or_a_vrf_ip_is_handed_on(self):
        self.run_cases([Case("handed on", "", [ip(IP4)], handed_on={"Not MPLS": 1})])


class Fragments(AgentTest):
    """Packets too big for the east port that may be fragmented, with and without labels."""

    MTU = 600

    def run_packets(self, packets):
        result = self.run_frames(port("east", mtu=self.MTU) + ROUTES,
                                 [ip(packet) for packet in packets])
        self.assertEqual(result.reasons("dropped"), {})
        self.assertLessEqual(max(len(frame) - 14 for frame in result.frames("east")), self.MTU)
        return result

    def expect_whole_again(self, payloads, packets):
        """tshark puts the UDP payloads together, each by the identification of its packet."""
        result = self.run_packets(packets)
        self.expect_put_together(payloads)
        return result

    def expect_put_together(self, payloads):
        rows = dissected(self.path / "out" / "east.pcap", "ip.id", "udp.checksum.status",
                         "udp.payload", preferences=("ip.defragment:TRUE",
                                                     "udp.check_checksum:TRUE"))
        good = "1"
        self.assertEqual({int(row[0], 0): (row[1], bytes.fromhex(row[2].replace(":", "")))
                          for row in rows if row[2]},
                         {ident: (good, payload) for ident, payload in payloads.items()})

    def test_the_destination_puts_them_together(self):
        router_alert = b"\x94\x04\0\0"  # in every fragment
        record_route = b"\x07\x07\x04" + bytes(5)  # in the first one only
        payloads, packets = {}, []
        for destination in ("10.9.0.1", "10.8.0.1", "10.7.0.1"):
            for size in (573, 580, 1472, 8972):
                for options in (b"", router_alert, record_route, router_alert + record_route):
                    ident = len(packets) + 1
                    payloads[ident] = bytes(at * ident % 251 for at in range(size))
                    packets.append(f.udp_packet("10.1.0.1", destination, payload=payloads[ident],
                                                ident=ident, options=options))
        result = self.expect_whole_again(payloads, packets)
        self.assertGreater(result.json["replicas"], len(packets))

    def test_fragments_are_cut_into_smaller_ones(self):
        payload = bytes(at % 251 for at in range(3992))
        segment = f.udp("10.1.0.1", "10.8.0.1", 1024, 9, payload)
        packets = [f.ipv4("10.1.0.1", "10.8.0.1", segment[at:at + 1600], ident=7,
                          fragment=at // 8 | (MORE_FRAGMENTS if at < 3200 else 0))
                   for at in (0, 1600, 3200)]
        result = self.expect_whole_again({7: payload}, packets)
        # 592 bytes below the labels are 568 of data.
        self.assertEqual([len(f.parse(frame).payload) - 20 for frame in result.frames("east")],
                         [568, 568, 464, 568, 568, 464, 568, 232])

    def test_a_popped_packet_is_cut_like_one_without_labels(self):
        payloads, frames = {}, []
        for ident, destination in enumerate(("10.9.0.1", "10.8.0.1", "10.7.0.1"), 1):
            payloads[ident] = bytes(at * ident % 251 for at in range(1400))
            frames.append(mpls([100], f.udp_packet("10.1.0.1", destination, ident=ident,
                                                   payload=payloads[ident])))
        decap = lfib(decap={100: "type: ip-lookup, via: {action: pop, payload: auto}"})
        result = self.run_frames(port("east", mtu=self.MTU) + decap + ROUTES, frames)
        self.assertEqual(result.reasons("dropped"), {})
        self.expect_put_together(payloads)
        self.assertEqual(result.labels(), {100: (3, sum(map(len, frames)))})

    def test_each_has_the_labels_of_the_whole(self):
        packet = f.udp_packet("10.1.0.1", "10.8.0.1", payload=bytes(1200), tos=0x20)
        for frame in self.run_packets([packet]).frames("east"):
            self.assertEqual(f.parse(frame).labels, [(300, 1, 63), (301, 1, 63)])


class LookupVia(AgentTest):
    """A frame whose label is popped for an IP lookup in the default VRF."""

    def popped(self, what, packet, expected, payload="auto", entries=(100,)):
        config = lfib(decap={100: f"type: ip-lookup, via: {{action: pop, payload: {payload}}}"})
        frame = mpls(entries, packet)
        return Case(what, config + ROUTES, [frame], sent={"east": [expected]},
                    labels={100: (1, len(frame))})

    def test_cases(self):
        aged = f.udp_packet("10.1.0.1", "10.9.0.1", ttl=63)
        to_labels = f.udp_packet("10.1.0.1", "10.8.0.1", tos=0x20)
        self.run_cases([
            self.popped("IPv4", IP4, sent_ip(aged), "ipv4"),
            self.popped("IPv6", f.udp_packet("2001:db8:1::1", "2001:db8:9::1"),
                        sent_ip(f.udp_packet("2001:db8:1::1", "2001:db8:9::1", hop_limit=63)),
                        "ipv6"),
            self.popped("the label's own TTL says nothing", IP4, sent_ip(aged),
                        entries=[(100, 7, 2)]),
            self.popped("to a labelled route", to_labels,
                        sent([(300, 1, 63), (301, 1, 63)],
                             f.udp_packet("10.1.0.1", "10.8.0.1", tos=0x20, ttl=63))),
            self.popped("to a neighbour", f.udp_packet("10.1.0.1", "10.0.2.2"),
                        sent_ip(f.udp_packet("10.1.0.1", "10.0.2.2", ttl=63), to=CE_EAST)),
        ])


if __name__ == "__main__":
    unittest.main()
