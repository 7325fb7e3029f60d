"""Frames too big for where they should go, and the exception frames about the labelled ones."""

import struct
import unittest

import frames as f
import make_mtu_exception as example
from agent import (CE_EAST, EAST, IP4, NO_VIA_SET, SOURCE, AgentTest, Case, dissected, hardware,
                   mpls, port, sent, sent_ip, via)

CONFIG = SOURCE / "examples" / "mtu_exception.yaml"
ETH_EXCEPTION = 0x8139
TOO_BIG = {"MTU exceeded": 1}
EXCEPTION = ("Exceptional", "Mpls mtu exception handler.")


def ethernet_id(name: str) -> int:
    """The id of the interface of that name: its kind, and an FNV-1a hash."""
    value = 0xCBF29CE484222325
    for byte in name.encode():
        value = (value ^ byte) * 0x100000001B3 % 2**64
    return 1 << 56 | value % 2**56


def exception(frame: bytes, number: int = 1) -> bytes:
    """What is sent to lo about frame number so and so of a run, which would have left at the east
    port as `frame`. The trailer is in the byte order of the host."""
    return (frame[:12] + struct.pack("!H", ETH_EXCEPTION) + frame[14:] +
            struct.pack("=QQ", ethernet_id("east"), number))


def of_size(size, entries=(100,), vlans=()):
    """A frame whose labels and packet have `size` bytes, and the packet."""
    packet = example.packet_of(size - 4 * len(entries))
    return mpls(entries, packet, vlans), packet


class Mtu(AgentTest):
    def expect_limit(self, what, config, size, labels, vlans=()):
        """The last size that fits and the first that does not."""
        grown = 4 * (len(labels) - 1)
        fits, packet = of_size(size - grown, vlans=vlans)
        too_big, bigger = of_size(size - grown + 1, vlans=vlans)
        counters = {NO_VIA_SET: 4}
        entries = [(label, 0, 63) for label in labels]
        self.run_cases([
            Case(f"{what} {vlans}: fits", config, [fits],
                 sent={"east": [sent(entries, packet, vlans)]}, counters=counters,
                 labels={100: (1, len(fits))}),
            Case(f"{what} {vlans}: too big", config, [too_big], drop_reasons=TOO_BIG,
                 counters=counters | {EXCEPTION: 1},
                 exceptions=[exception(sent(entries, bigger, vlans))],
                 trace=["Pkt 1: Mpls mtu exception handler."])])

    def test_the_last_size_that_fits_and_the_first_that_does_not(self):
        swap = via("swap", [300])
        for what, config, size, labels in (
                ("the port's default", hardware(swap), 1500, [300]),
                ("the port's", port("east", mtu=200) + hardware(swap), 200, [300]),
                ("the via's", hardware(via("swap", [300], mtu=100)), 100, [300]),
                ("the port's below the via's", hardware(via("swap", [300], mtu=9000)), 1500, [300]),
                ("after all pushes", hardware(via("swap", [300, 301, 302])), 1500,
                 [300, 301, 302])):
            self.expect_limit(what, config, size, labels)
            self.expect_limit(what, config, size, labels, (10,))

    def test_a_popped_packet_makes_no_exception(self):
        config = hardware(via("pop"))
        fits, packet = of_size(1504)
        payload = bytes(at % 251 for at in range(1473))
        whole = f.udp_packet("10.1.0.1", "10.9.0.1", payload=payload, fragment=0x4000)
        may_be_cut = f.udp_packet("10.1.0.1", "10.9.0.1", payload=payload, ttl=63)
        cut = [f.ipv4("10.1.0.1", "10.9.0.1", may_be_cut[20:][at:at + 1480], ttl=63,
                      fragment=at // 8 | more) for at, more in ((0, 0x2000), (1480, 0))]
        too_big = mpls([100], f.udp_packet("10.1.0.1", "10.9.0.1", payload=payload))
        hop = f.udp_packet("10.1.0.1", "10.9.0.1", payload=packet[28:], ttl=63)
        self.run_cases([
            Case("fits", config, [fits], sent={"east": [sent_ip(hop)]}, counters={NO_VIA_SET: 4},
                 labels={100: (1, len(fits))}),
            Case("too big", config, [too_big], sent={"east": [sent_ip(part) for part in cut]},
                 counters={NO_VIA_SET: 4}, labels={100: (1, len(too_big))}),
            Case("too big, with DF", config, [mpls([100], whole)], drop_reasons=TOO_BIG,
                 counters={NO_VIA_SET: 4})])

    def test_a_snapped_frame_counts_with_its_whole_length(self):
        snapped = mpls([100])
        result = self.run_frames(hardware(via("swap", [300])),
                                 [(0, snapped, 1514), (5_000_000, snapped, 1515)])
        leaving = sent([(300, 0, 63)], IP4)
        self.assertEqual(result.frames("east"), [leaving])
        self.assertEqual(result.reasons("dropped"), TOO_BIG)
        self.assertEqual(result.captures["lo"],
                         [(5_000_000, exception(leaving, 2), len(leaving) + 16 + 1515 - len(snapped))])


class Example(AgentTest):
    def run_example(self):
        return self.run_frames(CONFIG.read_text(encoding="utf-8"), list(example.west_frames()))

    def test_what_fits_goes_on(self):
        leaving = [sent([(300, 0, 63)], example.packet_of(1396)),
                   sent([(601, 0, 63), (602, 0, 63), (101, 0, 63)], example.packet_of(1388)),
                   sent_ip(f.udp_packet("10.1.0.1", "10.9.0.1", payload=b"x" * 1372, ttl=63)),
                   *(sent_ip(f.ipv4("10.1.0.1", "10.9.0.1", example.packet_of(1401)[20:][at:at + 1376],
                                    ttl=63, fragment=at // 8 | more))
                     for at, more in ((0, 0x2000), (1376, 0))),
                   sent([(304, 0, 63)], example.packet_of(596)),
                   sent([(300, 0, 63)], example.packet_of(60))]
        result = self.run_example()
        self.assertEqual([f.parse(frame) for frame in result.frames("east")],
                         [f.parse(frame) for frame in leaving])

    def test_the_control_plane_gets_the_labelled_frames_that_do_not(self):
        result = self.run_example()
        self.assertEqual(result.reasons("dropped"), {"MTU exceeded": 5})
        self.assertEqual(result.counters()[EXCEPTION], 5)
        swapped = [(300, 0, 63)]
        expected = {2: sent(swapped, example.packet_of(1397)),
                    3: sent(swapped, example.packet_of(1482)),
                    5: sent([(601, 0, 63), (602, 0, 63), (101, 0, 63)], example.packet_of(1389)),
                    6: sent(swapped, example.packet_of(1397), [10]),
                    10: sent([(304, 0, 63)], example.packet_of(597))}
        self.assertEqual(result.frames("lo"),
                         [exception(frame, number) for number, frame in expected.items()])
        # Each bears the time of its frame; the frames come a millisecond apart.
        self.assertEqual([time for time, _, _ in result.captures["lo"]],
                         [(number - 1) * 1_000_000 for number in expected])

    def test_a_frame_of_1500_bytes_makes_an_exception_of_1516(self):
        result = self.run_example()
        data = result.frames("lo")[1]
        self.assertEqual(len(data), 1516)
        self.assertEqual(data[:14].hex(":"), f"{CE_EAST}:{EAST}:81:39")
        self.assertEqual(data[14:18], f.stack((300, 0, 63)))
        self.assertEqual(data[18:-16], example.packet_of(1482))
        self.assertEqual(struct.unpack("=QQ", data[-16:]), (ethernet_id("east"), 3))

    def test_tshark_reads_the_same_ethernet_header(self):
        self.run_example()
        rows = dissected(self.path / "out" / "lo.pcap", "eth.dst", "eth.src", "eth.type")
        self.assertEqual(rows, [[CE_EAST, EAST, "0x8139"]] * 5)


if __name__ == "__main__":
    unittest.main()
