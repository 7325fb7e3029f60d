"""Which table a label resolves from, and what is counted on the way."""

import unittest

import frames as f
from agent import (CE_EAST, CE_EAST2, CE_WEST, EAST, IP4, WEST, AgentTest, hardware, lfib, mpls,
                   port, sent, via)

NO_VIA_SET = ("Drop", "No via set in lfib %s for %s")
NOTHING_RESOLVED = "No labels resolved to via sets, and nexthop not resolved"


def flow(number):
    return f.udp_packet(f"10.1.{number // 250}.{number % 250 + 1}", "10.9.0.1")


class LabelResolution(AgentTest):
    def test_an_unknown_label_is_dropped_after_four_tables_and_the_hardware(self):
        result = self.run_frames("", [mpls([4242])], "--trace")
        self.assertEqual(result.reasons("dropped"), {NOTHING_RESOLVED: 1})
        self.assertEqual(result.counters(), {NO_VIA_SET: 4, ("Drop", NOTHING_RESOLVED): 1})
        self.assertIn("Pkt 1: Mpls processing label 4242", result.trace())
        self.assertIn("Pkt 1: No route in hw status for label 4242", result.trace())
        self.assertIn("Pkt 1: No viaSet for label 4242", result.trace())
        self.assertEqual(result.trace()[-1], f"Pkt 1: {NOTHING_RESOLVED}")

    def test_the_tables_are_asked_in_their_order(self):
        order = ["decap", "evpn_ethernet_segment_filter", "pseudowire", "evpn_etree_leaf_label"]
        for first in range(len(order)):
            with self.subTest(order[first]):
                tables = {name: {100: f"vias: [{via('swap', [300 + index])}]"}
                          for index, name in enumerate(order) if index >= first}
                result = self.run_frames(lfib(**tables), [mpls([100])])
                self.assertEqual(result.frames("east"), [sent([(300 + first, 0, 63)])])
                expected = {NO_VIA_SET: first} if first else {}
                self.assertEqual(result.counters(), expected)

    def test_an_lfib_goes_before_the_hardware(self):
        tables = lfib(evpn_etree_leaf_label={100: f"vias: [{via('swap', [300])}]"})
        result = self.run_frames(tables + hardware(via("swap", [400])), [mpls([100])])
        self.assertEqual(result.frames("east"), [sent([(300, 0, 63)])])

    def test_a_transit_route_is_programmed_unless_the_hardware_has_its_own(self):
        transit = lfib(transit={100: f"vias: [{via('swap', [300])}]"})
        result = self.run_frames(transit, [mpls([100])])
        self.assertEqual(result.frames("east"), [sent([(300, 0, 63)])])
        # That of another label, whose adjacency has the label's number.
        result = self.run_frames(transit + hardware(via("swap", [400]), label=101).replace(
            "id: 1,", "id: 100,").replace("adjacency: 1", "adjacency: 100"),
                                 [mpls([100]), mpls([101])])
        self.assertEqual(result.frames("east"), [sent([(300, 0, 63)]), sent([(400, 0, 63)])])
        result = self.run_frames(transit + hardware(via("swap", [400])), [mpls([100])])
        self.assertEqual(result.frames("east"), [sent([(400, 0, 63)])])

    def test_an_unprogrammed_route_is_traced_and_not_counted(self):
        result = self.run_frames(hardware(via("swap", [300]), route=", unprogrammed: true"),
                                 [mpls([100])], "--trace")
        self.assertIn("Pkt 1: Route is unprogrammed for label 100", result.trace())
        self.assertEqual(result.counters(), {NO_VIA_SET: 4, ("Drop", NOTHING_RESOLVED): 1})

    def test_backups_are_used_when_the_adjacency_says_so(self):
        backups = f", backups: [{via('swap', [400])}], use-backups: true"
        result = self.run_frames(hardware(via("swap", [300]), extra=backups), [mpls([100])],
                                 "--trace")
        self.assertEqual(result.frames("east"), [sent([(400, 0, 63)])])
        self.assertIn("Pkt 1: Reading backups from adjacency for 100", result.trace())

    def test_a_via_whose_interface_is_down_is_left_out(self):
        down = """
ports:
  - {name: west, mac: "02:00:00:00:00:01"}
  - {name: east, mac: "02:00:00:00:00:02"}
  - {name: south, mac: "02:00:00:00:00:03", status: down}
neighbours:
  - {address: 10.0.2.2, port: east, mac: "02:00:00:00:02:02"}
"""
        capture = self.path / "in.pcap"
        f.write_pcap(capture, [mpls([100], flow(n))
                               for n in range(20)])
        both = hardware(via("swap", [300], interface="south"), via("swap", [400]))
        result = self.run_files(down + both, [f"west={capture}"], "--json")
        self.assertEqual(result.json["forwarded"]["ports"]["east"]["frames"], 20)
        only = hardware(via("swap", [300], interface="south"))
        result = self.run_files(down + only, [f"west={capture}"], "--json", "--trace")
        self.assertEqual(result.counters()[("Exceptional", "No valid vias adjacency for label %s")],
                         20)
        self.assertIn("Pkt 1: No valid vias adjacency for label 100", result.trace())

    def test_a_via_type_without_a_handler_is_exceptional(self):
        tables = lfib(decap={100: "type: 99, " + f"vias: [{via('swap', [300])}]"})
        result = self.run_frames(tables, [mpls([100])], "--trace")
        self.assertEqual(result.counters(),
                         {("Exceptional", "Via type %s handler not found"): 1})
        self.assertEqual(result.reasons("dropped"), {"Via type %s handler not found": 1})
        self.assertEqual(result.trace()[-1], "Pkt 1: Via type 99 handler not found")

    def test_weights_share_the_flows_and_a_flow_stays_on_its_way(self):
        vias = (via("swap", [300], weight=1), via("swap", [300], nexthop="10.0.2.3", weight=3),
                via("swap", [300], nexthop="10.0.2.3", weight=0))
        flows = [mpls([100], flow(n)) for n in range(2000)]
        first = self.run_frames(hardware(*vias), flows).frames("east")
        share = sum(frame.startswith(f.mac(CE_EAST)) for frame in first) / len(first)
        self.assertGreater(share, 0.20)
        self.assertLess(share, 0.30)
        self.assertEqual(first, self.run_frames(hardware(*vias), flows).frames("east"))

    def test_a_via_of_weight_0_is_never_chosen(self):
        vias = (via("swap", [300], weight=0), via("swap", [300], nexthop="10.0.2.3", weight=5))
        flows = [mpls([100], flow(n)) for n in range(500)]
        for frame in self.run_frames(hardware(*vias), flows).frames("east"):
            self.assertTrue(frame.startswith(f.mac(CE_EAST2)))

    def test_an_entropy_label_alone_decides_the_way(self):
        vias = (via("swap", [300]), via("swap", [300], nexthop="10.0.2.3"))
        one_flow = [mpls([100, 7, (5000, 0, 0)], flow(n))
                    for n in range(50)]
        ways = {frame[:6] for frame in self.run_frames(hardware(*vias), one_flow).frames("east")}
        self.assertEqual(len(ways), 1)
        many = [mpls([100, 7, (5000 + n, 0, 0)]) for n in range(50)]
        ways = {frame[:6] for frame in self.run_frames(hardware(*vias), many).frames("east")}
        self.assertEqual(len(ways), 2)

    def test_thirteen_labels_are_walked_and_fourteen_refused_without_harm_to_the_next(self):
        known = hardware(via("swap", [300]))
        deep = [mpls([100] * 13), mpls([100] * 14), mpls([100])]
        result = self.run_frames(known, deep)
        self.assertEqual(result.frames("east"),
                         [sent([(300, 0, 63)] + [100] * 12), sent([(300, 0, 63)])])
        self.assertEqual(result.reasons("dropped"),
                         {"Lumo::MplsStackEntryIndex::value < Lumo::MplsStackEntryIndex::min or > "
                          "Lumo::MplsStackEntryIndex::nullValue not allowed": 1})

    def test_a_deep_stack_stops_at_its_first_unknown_label(self):
        result = self.run_frames(hardware(via("swap", [300])), [mpls([100] + [9999] * 40)])
        self.assertEqual(len(result.frames("east")), 1)

    def test_routing_switched_off_drops_everything(self):
        result = self.run_frames("mpls-routing: false\n" + hardware(via("swap", [300])),
                                 [mpls([100])], "--trace")
        self.assertEqual(result.counters(), {("Drop", "Mpls routing not enabled"): 1})
        self.assertEqual(result.trace()[-1], "Pkt 1: Mpls routing not enabled")

    def test_a_neighbours_label_is_looked_up_only_where_the_port_says_so(self):
        known = hardware(via("swap", [300]))
        frame = f.eth(WEST, CE_WEST, 0x8848, f.stack(100) + IP4)
        result = self.run_frames(known, [frame])
        self.assertEqual(result.reasons("dropped"),
                         {"Upstream-assigned label at a port without a context": 1})
        self.assertEqual(result.counters(), {})
        result = self.run_frames(port("west", upstream_labels="true") + known, [frame])
        self.assertEqual(result.frames("east"), [sent([(300, 0, 63)])])

    def test_a_frame_without_a_whole_entry_has_no_label_stack(self):
        runt = f.eth("02:00:00:00:00:01", "02:00:00:00:01:02", f.ETH_MPLS, b"\x00\x06")
        result = self.run_frames("", [runt])
        self.assertEqual(result.counters(), {("Drop", "No mplsHeaderData"): 1})


if __name__ == "__main__":
    unittest.main()
