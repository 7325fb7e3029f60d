"""The frames and captures that the other tests are made of, seen by an independent dissector."""

import pathlib
import tempfile
import unittest

import frames as f
from agent import CE_WEST, IP4, WEST, dissected, mpls
from dissector import complaints

TIME = 1_600_000_000_123_456_789
ROUTER_ALERT = b"\x94\x04\x00\x00"  # IPv4 option, RFC 2113


class Frames(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)
        self.capture = pathlib.Path(self.directory.name) / "frames.pcap"

    def dissect(self, frame, *fields):
        f.write_pcap(self.capture, [frame])
        self.assertEqual(complaints(self.capture), [])
        return dissected(self.capture, *fields)[0]

    def test_label_stack_entries_hold_label_tc_bottom_and_ttl(self):
        fields = self.dissect(mpls([(1048575, 7, 255), (16, 0, 1), (300, 5, 64)]), "mpls.label",
                              "mpls.exp", "mpls.bottom", "mpls.ttl")
        self.assertEqual(fields, ["1048575,16,300", "7,0,5", "0,0,1", "255,1,64"])

    def test_tags_are_found_in_their_order(self):
        frame = mpls([100], vlans=[(f.ETH_QINQ, 5), 0xE00A, 7])
        fields = self.dissect(frame, "ieee8021ad.id", "vlan.id", "vlan.priority", "mpls.label")
        self.assertEqual(fields, ["5", "10,7", "7,0", "100"])

    def test_every_tag_that_the_agent_knows_is_taken_apart(self):
        tags = [(f.ETH_QINQ_OLD, 4), (f.ETH_QINQ, 5), 6]
        parsed = f.parse(mpls([100], vlans=tags))
        self.assertEqual((parsed.vlans, parsed.labels), (tags, [(100, 0, 64)]))

    def test_ip_and_transport_checksums_are_right(self):
        packets = []
        for build in (f.udp_packet, f.tcp_packet):
            for payload in (b"", b"x", b"xy", b"\xff" * 33):
                packets.append(build("10.1.0.1", "10.9.0.1", payload=payload, options=ROUTER_ALERT))
                packets.append(build("2001:db8:1::1", "2001:db8:9::1", payload=payload))
        f.write_pcap(self.capture, [mpls([100], packet) for packet in packets])
        self.assertEqual(complaints(self.capture), [])
        flipped = [packet[:-1] + bytes([packet[-1] ^ 1]) for packet in packets]
        f.write_pcap(self.capture, [mpls([100], packet) for packet in flipped])
        self.assertEqual(len(complaints(self.capture)), len(packets))

    def test_an_echo_request_is_one(self):
        fields = self.dissect(mpls([0], f.lsp_ping("10.1.0.1", "127.0.0.1", ttl=1)),
                              "udp.dstport", "mpls_echo.version", "mpls_echo.msg_type")
        self.assertEqual(fields, ["3503", "1", "1"])

    def test_what_a_dissector_objects_to_is_told(self):
        broken = bytearray(mpls([100]))
        broken[18 + 10] ^= 0xFF  # IPv4 header checksum
        cut = f.eth(WEST, CE_WEST, f.ETH_IPV4, IP4[:12])
        for frame in (bytes(broken), cut):
            f.write_pcap(self.capture, [mpls([100]), frame])
            self.assertEqual(len(complaints(self.capture)), 1)

    def test_a_frame_is_taken_apart_as_it_was_built(self):
        entries = [(1048575, 7, 255), (16, 0, 1)]
        tags = [(f.ETH_QINQ, 5), 0xE00A]
        self.assertEqual(f.parse(mpls(entries, IP4, tags)),
                         f.Parsed(WEST, CE_WEST, tags, f.ETH_MPLS, entries, IP4))
        self.assertEqual(f.parse(f.eth(WEST, CE_WEST, f.ETH_IPV4, IP4)),
                         f.Parsed(WEST, CE_WEST, [], f.ETH_IPV4, [], IP4))

    def test_captures_of_every_kind_hold_the_same_frames(self):
        recorded = [(TIME, mpls([100]), len(mpls([100]))), (TIME + 1, mpls([200])[:40], 64)]
        micro = [(time // 1000 * 1000, data, size) for time, data, size in recorded]
        for order in "<>":
            for write, keys, expected in (
                    (f.write_pcap, {}, micro), (f.write_pcap, {"nano": True}, recorded),
                    (f.write_pcapng, {}, recorded), (f.write_pcapng, {"digits": 6}, micro)):
                with self.subTest(write=write.__name__, order=order, **keys):
                    write(self.capture, recorded, order=order, **keys)
                    seen = dissected(self.capture, "frame.time_epoch", "frame.cap_len", "frame.len")
                    self.assertEqual([(int(time.replace(".", "")), int(captured), int(length))
                                      for time, captured, length in seen],
                                     [(time, len(data), size) for time, data, size in expected])
                    if write is f.write_pcap:
                        self.assertEqual(f.read_pcap(self.capture), expected)


if __name__ == "__main__":
    unittest.main()
