"""Multicast LSPs: trees, bud nodes, delivery to the CPU, and special packets."""

import unittest

import frames as f
import make_multicast_tree as tree
import make_special_packet as special
from agent import CE_EAST, EAST, SOURCE, AgentTest, dissected

TREE = SOURCE / "examples" / "multicast_tree.yaml"
SPECIAL = SOURCE / "examples" / "special_packet.yaml"
LEAF = {name: (f"02:00:00:00:0{i}:02", f"02:00:00:00:00:1{i}")
        for i, name in enumerate(("leaf1", "leaf2", "leaf3"), 1)}
SOUTH, CE_SOUTH = "02:00:00:00:00:03", "02:00:00:00:03:02"
MULTICAST_TRACE = "Ovix::MplsMulticast"
SEVERAL = ("Exceptional", "Using first nexthop, but %s nexthops found")
DELIVERED = "Multicast delivered to the CPU"


def aged(packet: bytes, ttl: int) -> bytes:
    """The default packet to the group with another TTL."""
    return f.udp_packet("10.9.0.9", "232.1.2.3", ttl=ttl) if packet == tree.TO_GROUP else packet


def to_leaf(name: str, entries, packet: bytes = tree.TO_GROUP, vlans=()) -> bytes:
    return f.eth(*LEAF[name], f.ETH_MPLS, f.stack(*entries) + packet, vlans)


def to_cpu(vlan: int, packet: bytes, dst: str = tree.CORE, src: str = tree.UPSTREAM) -> bytes:
    kind = f.ETH_IPV4 if packet[0] >> 4 == 4 else f.ETH_IPV6
    return f.eth(dst, src, kind, packet, [vlan])


class MulticastTest(AgentTest):
    def run_on(self, config, port: str, frames, *flags, malformed=False):
        """Runs on frames at one port and expects the numbers to hold."""
        capture = self.path / "in.pcap"
        f.write_pcap(capture, frames)
        result = self.run_files(config.read_text(encoding="utf-8"), [f"{port}={capture}"],
                                "--json", *flags)
        self.assertEqual(result.code, 0, result.stderr)
        self.expect_numbers(result, f.read_pcap(capture))
        if not malformed:
            self.expect_dissected(result)
        return result


class Tree(MulticastTest):
    def send(self, label, packet=tree.TO_GROUP, *flags, **keys):
        return self.run_on(TREE, "core", [tree.labelled([(label, 4, 60)], packet, **keys)], *flags)

    def test_every_leaf_gets_its_own_labels(self):
        result = self.send(500)
        self.assertEqual(result.sent(), {
            "leaf1": [to_leaf("leaf1", [(511, 4, 59)])],
            "leaf2": [to_leaf("leaf2", [(512, 4, 59)])],
            "leaf3": [to_leaf("leaf3", [(600, 4, 59), (513, 4, 59), (500, 4, 59)])]})
        self.assertEqual(result.json["replicas"], 2)
        self.assertEqual(result.counters(), {SEVERAL: 2})
        size = len(tree.labelled([500], tree.TO_GROUP))
        self.assertEqual(result.labels(), {500: (3, 3 * size)}, "once for each copy that left")

    def test_a_bud_node_copies_and_delivers(self):
        for packet in (tree.TO_GROUP, tree.TO_GROUP6):
            result = self.send(501, packet)
            self.assertEqual(result.sent(), {
                "leaf1": [to_leaf("leaf1", [(521, 4, 59)], packet)],
                "leaf2": [to_leaf("leaf2", [(522, 4, 59)], packet)]})
            self.assertEqual(result.frames("cpu"), [to_cpu(100, packet)])
            self.assertEqual(result.json["replicas"], 2)
            self.assertEqual(result.reasons("punted"), {DELIVERED: 1})

    def test_a_tail_delivers_and_sends_nothing_on(self):
        result = self.send(502, tree.TO_GROUP, "--trace")
        self.assertEqual(result.sent(), {})
        self.assertEqual(result.frames("cpu"), [to_cpu(200, tree.TO_GROUP)])
        self.assertEqual(result.json["replicas"], 0)
        self.assertEqual(result.reasons("punted"), {DELIVERED: 1})
        self.assertEqual(result.trace(MULTICAST_TRACE),
                         ["Pkt 1: Not a 8021q packet.", "Pkt 1: No dot1q tag",
                          "Pkt 1: Sent special packet to CPU."])
        fields = dissected(self.path / "out" / "cpu.pcap", "vlan.id", "vlan.priority", "ip.dst")
        self.assertEqual(fields, [["200", "0", "232.1.2.3"]])

    def test_without_a_next_hop_address_everybody_on_the_link_gets_it(self):
        result = self.send(503)
        self.assertEqual(result.frames("lan"), [
            f.eth("01:00:5e:81:23:45", "02:00:00:00:00:14", f.ETH_MPLS,
                  f.stack((74565, 4, 59)) + tree.TO_GROUP),
            f.eth("01:00:5e:01:02:03", "02:00:00:00:00:14", f.ETH_IPV4,
                  aged(tree.TO_GROUP, 59))])

    def test_the_platforms_routes_replicate_too(self):
        result = self.send(504)
        self.assertEqual(result.sent(), {"leaf1": [to_leaf("leaf1", [(531, 4, 59)])]})
        self.assertEqual(result.reasons("dropped"), {"No neighbour for the next hop": 1})
        self.assertEqual(result.json["replicas"], 1)

    def test_frames_to_a_group_of_routers_are_taken_in(self):
        result = self.send(501, dst="01:00:5e:80:01:f5")
        self.assertEqual(len(result.sent()), 2)
        self.assertEqual(result.frames("cpu"),
                         [to_cpu(100, tree.TO_GROUP, dst="01:00:5e:80:01:f5")])

    def test_the_tag_of_the_frame_is_kept_by_copies_and_replaced_for_the_cpu(self):
        result = self.send(501, vlans=[0x6000])
        self.assertEqual(result.frames("leaf1"),
                         [to_leaf("leaf1", [(521, 4, 59)], vlans=[0x6000])])
        self.assertEqual(result.frames("cpu"), [to_cpu(100, tree.TO_GROUP)])

    def test_a_copy_that_is_too_big_keeps_no_other_back(self):
        packet = f.udp_packet("10.9.0.9", "232.1.2.3", payload=b"x" * 968)
        result = self.send(500, packet)
        self.assertEqual(sorted(result.sent()), ["leaf1", "leaf2"])
        self.assertEqual(result.reasons("dropped"), {"MTU exceeded": 1})
        self.assertEqual(len(result.frames("lo")), 1)

    def test_an_expired_frame_is_trapped_and_not_copied(self):
        frame = tree.labelled([(500, 0, 1)], tree.TO_GROUP)
        result = self.run_on(TREE, "core", [frame])
        self.assertEqual(result.sent(), {})
        self.assertEqual(result.frames("cpu"), [frame])

    def test_the_whole_example(self):
        frames = list(tree.core_frames())
        result = self.run_on(TREE, "core", frames, malformed=True)
        self.assertEqual(result.frames("cpu"), [
            to_cpu(100, tree.TO_GROUP), to_cpu(200, tree.TO_GROUP),
            to_cpu(100, tree.TO_GROUP6, dst="01:00:5e:80:01:f5"), to_cpu(100, tree.TO_GROUP),
            frames[-1]])
        counters = result.counters()
        self.assertEqual(counters[("Drop", "Unexpected MPLS packet with bos as false")], 1)
        self.assertEqual(counters[("Drop", "Multicast payload is not IP")], 1)
        self.assertEqual(result.json["replicas"], 2 + 2 + 1 + 1 + 2 + 2 + 2)

    def test_the_largest_set_is_replicated_and_a_larger_one_refused(self):
        ports = "ports:\n  - {name: core, mac: 02:00:00:00:00:01}\n"
        for count in (599, 600):
            vias = ", ".join("{interface: core, action: swap, labels: [%d]}" % (1000 + i)
                             for i in range(count))
            config = self.path / "large.yaml"
            config.write_text(ports + "lfib: {decap: [{label: 500, multicast: true, vias: [" +
                              vias + "]}]}\n", encoding="utf-8")
            if count == 599:
                result = self.run_on(config, "core", [tree.labelled([500], tree.TO_GROUP)])
                labels = [f.parse(frame).labels[0][0] for frame in result.frames("core")]
                self.assertEqual(labels, list(range(1000, 1599)))
                self.assertEqual(result.json["replicas"], 598)
            else:
                result = self.run_files(config.read_text(encoding="utf-8"),
                                        [f"core={self.path / 'in.pcap'}"], "--json")
                self.assertNotEqual(result.code, 0)
                self.assertIn("600 vias given, allowed are 1 to 599", result.stderr)


class Toggle(MulticastTest):
    def test_off_nothing_is_delivered_or_taken_in(self):
        config = self.path / "off.yaml"
        config.write_text("toggles: {MvpnLib.json: {MvpnSfe: false}}\n" +
                          SPECIAL.read_text(encoding="utf-8"), encoding="utf-8")
        frames = [special.special(7, special.vlan_id(100)),
                  f.eth(special.WEST, special.CPU, f.ETH_MPLS, f.stack(502) + special.TO_GROUP)]
        result = self.run_on(config, "west", frames, "--trace")
        self.assertEqual(result.sent(), {})
        self.assertEqual(result.reasons("handedOn"), {"Not MPLS": 1})
        self.assertEqual(result.reasons("dropped"), {"Via type %s handler not found": 1})
        self.assertEqual(result.trace(MULTICAST_TRACE), [])
        self.assertIn("Pkt 2: Via type 12 handler not found", result.trace())


class SpecialPackets(MulticastTest):
    def send(self, frame, **keys):
        return self.run_on(SPECIAL, "west", [frame], "--trace", **keys)

    def expect_replicated(self, result, vlans):
        self.assertEqual(result.sent(), {
            "east": [f.eth(CE_EAST, EAST, f.ETH_MPLS,
                           f.stack((511, 4, 59)) + special.TO_GROUP, vlans)],
            "south": [f.eth(CE_SOUTH, SOUTH, f.ETH_MPLS,
                            f.stack((512, 4, 59)) + special.TO_GROUP, vlans)]})

    def test_a_vlan_interface_lets_it_go_on_as_a_frame_of_that_vlan(self):
        result = self.send(special.special(7, special.vlan_id(100), tci=0xE00B))
        self.expect_replicated(result, [100])
        self.assertEqual(result.trace(MULTICAST_TRACE), [
            "Pkt 1: Detected special MPLS_EXCEPTION header for Vlan 11",
            "Pkt 1: Modified packet contains dot1q header with vlan 100",
            "Pkt 1: Modified packet, continue Ovix processing"])

    def test_another_interface_sends_it_out_untagged(self):
        result = self.send(special.special(8, special.port_id("south")))
        self.assertEqual(result.sent(), {"south": [
            f.eth(special.WEST, special.CPU, f.ETH_MPLS, special.LABELLED)]})
        self.assertEqual(result.trace(MULTICAST_TRACE)[-1],
                         "Pkt 1: Sending modified packet out on south")

    def test_what_is_not_the_vrfs_is_dropped(self):
        unknown = "MvpnIntfStatus entry not found for vrf ID %s"
        short = "MPLS exception header cut short"
        for frame, reason, counter in (
                (special.special(9, special.vlan_id(100)), unknown, unknown),
                (special.special(7, special.vlan_id(101)), "PMSI interface is not the VRF's", None),
                (special.special(7, special.port_id("south")), "PMSI interface is not the VRF's",
                 None),
                (special.special(7, special.vlan_id(100))[:37], short, short)):
            result = self.send(frame)
            self.assertEqual(result.sent(), {})
            self.assertEqual(result.reasons("dropped"), {reason: 1})
            self.assertEqual(result.counters(), {("Exceptional", counter): 1} if counter else {})

    def test_every_length_has_a_fate(self):
        whole = special.special(7, special.vlan_id(100))
        frames = [whole[:size] for size in range(61)]
        result = self.run_on(SPECIAL, "west", frames, "--trace", malformed=True)
        traced = {line.split(":")[0] for line in result.trace(MULTICAST_TRACE)}
        self.assertEqual(traced, {f"Pkt {number}" for number in range(1, 62)})
        self.assertEqual(result.reasons("dropped")["MPLS exception header cut short"], 20)

    def test_an_empty_mpls_part_is_dropped(self):
        result = self.send(special.special(7, special.vlan_id(100), b""))
        self.assertEqual(result.reasons("dropped"), {"No mplsHeaderData": 1})

    def test_stacked_tags_are_none_of_the_steps_business(self):
        inner = special.special(7, special.vlan_id(100))[14:]
        for tags in ([11, 12], [11, 12, 13]):
            frame = f.eth(special.WEST, special.CPU, f.ETH_VLAN, inner, tags[:-1])
            result = self.send(frame)
            self.assertEqual(result.reasons("handedOn"), {"Not MPLS": 1})
            self.assertEqual(result.trace(MULTICAST_TRACE),
                             ["Pkt 1: Not special packet. Nothing to do for Vlan 11"])

    def test_a_trapped_packet_reaches_the_cpu_as_the_mpls_frame_that_it_became(self):
        expired = f.stack((500, 0, 1)) + special.TO_GROUP
        result = self.send(special.special(7, special.vlan_id(100), expired))
        self.assertEqual(result.frames("cpu"),
                         [f.eth(special.WEST, special.CPU, f.ETH_MPLS, expired, [100])])

    def test_round_trip(self):
        """What a tail delivers to the CPU comes back as a special packet and is sent on."""
        frame = f.eth(special.WEST, special.CPU, f.ETH_MPLS, f.stack((502, 4, 60)) +
                      special.TO_GROUP)
        delivered = self.send(frame).frames("cpu")
        self.assertEqual(delivered, [to_cpu(100, special.TO_GROUP, special.WEST, special.CPU)])
        parsed = f.parse(delivered[0])
        again = special.special(7, special.vlan_id(parsed.vlans[0]),
                                f.stack((500, 4, 60)) + parsed.payload, parsed.vlans[0])
        self.expect_replicated(self.send(again), [100])

    def test_the_whole_example(self):
        result = self.run_on(SPECIAL, "west", list(special.west_frames()))
        self.assertEqual([len(result.frames(name)) for name in ("east", "south", "cpu")],
                         [2, 3, 1])
        self.assertEqual(sum(result.reasons("dropped").values()), 4)


if __name__ == "__main__":
    unittest.main()
