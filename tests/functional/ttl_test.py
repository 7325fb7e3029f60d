"""One decrement per router, traffic classes kept, and checksums that stay right (RFC 3443)."""

import struct
import unittest

import frames as f
from agent import IP4, NO_VIA_SET, AgentTest, Case, hardware, mpls, sent, sent_ip, via

SWAP, POP, PIPE_POP = (hardware(via("swap", [300])), hardware(via("pop")),
                       hardware(via("pop", ttl="pipe")))


def aged(ttl, **keys):
    """The default IPv4 packet with another TTL."""
    return f.udp_packet("10.1.0.1", "10.9.0.1", ttl=ttl, **keys)


def one_label(what, config, entries, packet, expected, looked_up=1):
    """A frame that is forwarded on behalf of label 100."""
    frame = mpls(entries, packet)
    return Case(what, config, [frame], sent={"east": [expected]}, labels={100: (1, len(frame))},
                counters={NO_VIA_SET: 4 * looked_up})


class OneDecrement(AgentTest):
    def test_cases(self):
        self.run_cases([
            one_label("through two explicit nulls and a swap", SWAP,
                      [(0, 0, 50), (2, 0, 60), (100, 3, 90)], IP4, sent([(300, 3, 49)])),
            one_label("through an explicit null and a pop", POP, [(0, 0, 50), (100, 0, 90)], IP4,
                      sent_ip(aged(49))),
            one_label("through an entropy label and a pop", POP,
                      [(7, 0, 50), (5000, 0, 0), (100, 0, 90)], IP4, sent_ip(aged(49))),
            one_label("through a null, an entropy label and a swap", SWAP,
                      [(0, 0, 50), (7, 0, 60), (5000, 0, 0), (100, 0, 90)], IP4,
                      sent([(300, 0, 49)])),
            one_label("an explicit null above a pop in pipe mode", PIPE_POP,
                      [(0, 0, 50), (100, 0, 90)], IP4, sent_ip(IP4)),
            one_label("carried over even if it is more than beneath", POP, [(100, 0, 200)],
                      IP4, sent_ip(aged(199))),
            one_label("a label beneath the swapped one is left alone", SWAP,
                      [(100, 0, 30), (9999, 6, 1)], IP4, sent([(300, 0, 29), (9999, 6, 1)]), 2),
            one_label("a popped label's TC goes with it", POP, [(100, 7, 30), (9999, 1, 90)],
                      IP4, sent([(9999, 1, 29)]), 2),
        ])

    def test_every_ttl_and_tc_of_a_swap(self):
        entries = [(100, tc, ttl) for ttl in range(2, 256) for tc in range(8)]
        result = self.run_frames(SWAP, [mpls([entry]) for entry in entries])
        self.assertEqual([f.parse(frame).labels for frame in result.frames("east")],
                         [[(300, tc, ttl - 1)] for _, tc, ttl in entries])

    def test_the_ttl_of_an_entropy_label_never_reaches_the_payload(self):
        packet = f.udp_packet("10.1.0.1", "10.0.2.2")
        result = self.run_frames("", [mpls([(7, 0, 64), (5000, 0, 200)], packet)])
        self.assertEqual(result.frames("east"),
                         [sent_ip(f.udp_packet("10.1.0.1", "10.0.2.2", ttl=63))])

    def test_behind_labels_without_a_ttl_the_ip_hop_decrements(self):
        packet = f.udp_packet("10.1.0.1", "10.0.2.2")
        result = self.run_frames("", [mpls([(7, 0, 0), (5000, 0, 0)], packet)])
        self.assertEqual(result.frames("east"),
                         [sent_ip(f.udp_packet("10.1.0.1", "10.0.2.2", ttl=63))])


class Ipv4Checksum(AgentTest):
    """Updated incrementally; the corners are where a sum wraps (RFC 1624)."""

    CORNERS = (0x0000, 0x0001, 0x00FF, 0x0100, 0xFEFF, 0xFF00, 0xFFFE)

    def ident_for(self, wanted, ttl, **keys):
        """The identification that gives the header a wanted checksum."""
        header = aged(ttl, ident=0, **keys)
        present = struct.unpack_from("!H", header, 10)[0]
        return ((present ^ 0xFFFF) * -1 + (wanted ^ 0xFFFF)) % 0xFFFF

    def test_is_right_in_every_corner_before_and_after(self):
        frames, expected = [], []
        for inner in (1, 64, 255):
            for outer in (2, 3, 65, 128, 255):
                for wanted in self.CORNERS:
                    for ident in (self.ident_for(wanted, inner), self.ident_for(wanted, outer - 1)):
                        frames.append(mpls([(100, 0, outer)], aged(inner, ident=ident)))
                        expected.append(sent_ip(aged(outer - 1, ident=ident)))
        reached = {struct.unpack_from("!H", frame, 24)[0] for frame in expected}
        self.assertLessEqual(set(self.CORNERS), reached)
        self.assertEqual(self.run_frames(POP, frames).frames("east"), expected)

    def test_covers_the_options(self):
        options = b"\x94\x04\x00\x00" + b"\x01" * 36
        frame = mpls([(100, 0, 30)], aged(64, options=options))
        result = self.run_frames(POP, [frame])
        self.assertEqual(result.frames("east"), [sent_ip(aged(29, options=options))])

    def test_a_wrong_checksum_stays_wrong(self):
        packet = bytearray(IP4)
        packet[10] ^= 0x40
        result = self.run_frames(POP, [mpls([(100, 0, 30)], bytes(packet))], malformed=True)
        header = result.frames("east")[0][14:34]
        self.assertEqual(header[8], 29)
        self.assertNotEqual(f.checksum(header), 0)


if __name__ == "__main__":
    unittest.main()
