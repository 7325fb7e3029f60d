"""Labels that lead to forwarding equivalence classes: the example, frame by frame."""

import collections
import unittest

import frames as f
import make_external_fec as example
from agent import CE_EAST, CE_EAST2, EAST, IP4, NO_VIA_SET, SOURCE, AgentTest

SOUTH, CE_SOUTH = "02:00:00:00:00:03", "02:00:00:00:03:02"
CONFIG = SOURCE / "examples" / "external_fec.yaml"
NO_FEC = "No FEC for the egress interface"
DROPPED = {NO_FEC: 1, "Invalid label action 2": 1, "More than 1 via": 1}


class ExternalFec(AgentTest):
    def run_example(self, *flags):
        return self.run_frames(CONFIG.read_text(encoding="utf-8"), list(example.west_frames()),
                               *flags)

    def test_every_frame_has_its_fate(self):
        result = self.run_example("--trace")
        self.assertEqual(result.reasons("dropped"), DROPPED)
        self.assertEqual(result.reasons("punted"), {})
        self.assertEqual(result.counters(), {("Drop", "Invalid label action 2"): 1,
                                             ("Drop", "More than 1 via"): 1,
                                             NO_VIA_SET: 4})  # for the label beneath
        self.assertEqual(result.labels(), {}, "the incoming labels are not counted")
        last = example.FLOWS + 7
        self.assertEqual([line for line in result.trace() if "label action" in line],
                         [f"Pkt {last - 1}: Invalid label action 2"])
        self.assertEqual(result.trace()[-1], f"Pkt {last}: More than 1 via")

    def test_the_label_is_rewritten_toward_the_next_hop_of_the_fec(self):
        result = self.run_example()
        ip6 = f.udp_packet("2001:db8:1::1", "2001:db8:9::1")
        self.assertEqual(result.frames("east")[:3], [
            f.eth(CE_EAST, EAST, f.ETH_MPLS, f.stack((300, 3, 63)) + IP4),
            f.eth(CE_EAST, EAST, f.ETH_MPLS,
                  f.stack((601, 5, 255), (602, 5, 255), (101, 5, 29)) + IP4),
            f.eth(CE_EAST, EAST, f.ETH_MPLS, f.stack((300, 0, 63), 500) + ip6)])

    def test_without_a_fec_the_vias_interface_leads_to_the_one_neighbour_there(self):
        result = self.run_example()
        self.assertEqual(result.frames("south")[-1],
                         f.eth(CE_SOUTH, SOUTH, f.ETH_MPLS, f.stack((304, 0, 63)) + IP4))

    def test_flows_are_shared_by_weight_and_stay_on_their_way(self):
        result = self.run_example()
        shared = [frame for name in ("east", "south") for frame in result.frames(name)
                  if f.parse(frame).labels[0][0] == 302]
        self.assertEqual(len(shared), example.FLOWS)
        shares = collections.Counter(f.parse(frame).dst for frame in shared)
        for to, share in ((CE_EAST, 0.25), (CE_EAST2, 0.5), (CE_SOUTH, 0.25)):
            self.assertAlmostEqual(shares[to] / example.FLOWS, share, delta=0.1)
        self.assertEqual(result.sent(), self.run_example().sent())


if __name__ == "__main__":
    unittest.main()
