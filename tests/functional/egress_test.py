"""What a frame leaves with: next hop, tags and payload type."""

import unittest

import frames as f
from agent import (CE_EAST2, CE_WEST, IP4, IP6, NO_VIA_SET, WEST, AgentTest, Case, hardware,
                   lfib, mpls, port, routes, sent, sent_ip, via)

SWAP = hardware(via("swap", [300]))
SWAPPED = sent([(300, 0, 63)])
FOUR = {NO_VIA_SET: 4}  # the tables asked before the hardware


def forwarded(what, config, received, expected, where="east"):
    return Case(what, config, [received], sent={where: [expected]}, counters=FOUR,
                labels={100: (1, len(received))})


def dropped(what, config, received, reason, counters=None):
    return Case(what, config, [received], drop_reasons={reason: 1}, counters=counters or FOUR)


class NextHop(AgentTest):
    def test_cases(self):
        plain = mpls([100])
        self.run_cases([
            forwarded("the neighbour that the via names",
                      hardware(via("swap", [300], nexthop="10.0.2.3")), plain,
                      sent([(300, 0, 63)], to=CE_EAST2)),
            forwarded("an IPv6 neighbour", hardware(via("swap", [300], nexthop='"2001:db8:2::2"')),
                      plain, SWAPPED),
            forwarded("the port of the neighbour, when none is named",
                      hardware(via("swap", [300], interface=None)), plain, SWAPPED),
            forwarded("the port that the frame came in at",
                      hardware(via("swap", [300], interface="west", nexthop="10.0.1.2")), plain,
                      f.eth(CE_WEST, WEST, f.ETH_MPLS, f.stack((300, 0, 63)) + IP4), "west"),
            dropped("a neighbour that is not known",
                    hardware(via("swap", [300], nexthop="10.0.2.77")), plain,
                    "No neighbour for the next hop"),
            dropped("a neighbour of another port",
                    hardware(via("swap", [300], nexthop="10.0.1.2")), plain,
                    "No neighbour for the next hop"),
            dropped("a port without an address",
                    hardware(via("swap", [300], nexthop=None)), plain, "Next hop has no address"),
        ])

    def test_a_port_that_is_down_sends_nothing(self):
        config = port("east", status="down") + lfib(decap={100: routes(via("swap", [300]))})
        self.run_cases([Case("label", config, [mpls([100])],
                             drop_reasons={"Egress port is down": 1})])


class Tags(AgentTest):
    def test_cases(self):
        tagged = mpls([100], vlans=[10, 20])
        self.run_cases([
            forwarded("one to three are kept", SWAP, mpls([100], vlans=[1, 2, 3]),
                      sent([(300, 0, 63)], vlans=[1, 2, 3])),
            forwarded("with their EtherType and priority", SWAP,
                      mpls([100], vlans=[(f.ETH_QINQ, 5), 0xE00A]),
                      sent([(300, 0, 63)], vlans=[(f.ETH_QINQ, 5), 0xE00A])),
            forwarded("kept around an IP packet too", hardware(via("pop")), tagged,
                      sent_ip(f.udp_packet("10.1.0.1", "10.9.0.1", ttl=63), [10, 20])),
            forwarded("none leave an untagged port", port("east", tagging="none") + SWAP, tagged,
                      SWAPPED),
            forwarded("one is put on at a tagged port", port("east", tagging=33) + SWAP, tagged,
                      sent([(300, 0, 63)], vlans=[33])),
            forwarded("and put on what came without", port("east", tagging=33) + SWAP, mpls([100]),
                      sent([(300, 0, 63)], vlans=[33])),
            forwarded("the via's goes before the port's",
                      port("east", tagging="none") + hardware(via("swap", [300], vlan=77)), tagged,
                      sent([(300, 0, 63)], vlans=[77])),
            Case("four are not looked behind", SWAP, [mpls([100], vlans=[1, 2, 3, 4])],
                 handed_on={"VLAN tags cut short, or more than three": 1}),
        ])


class Groups(AgentTest):
    def test_a_unicast_label_is_for_one_router(self):
        cases = []
        for group in ("ff:ff:ff:ff:ff:ff", "01:00:5e:80:00:64", "33:33:00:00:00:01"):
            for vlans in ([], [10], [10, 20]):
                frame = f.eth(group, WEST, f.ETH_MPLS, f.stack(100) + IP4, vlans)
                cases.append(dropped(f"{group} {vlans}", SWAP, frame,
                                     "Unicast label in a frame to a group of stations"))
        self.run_cases(cases)

    def test_and_a_unicast_packet_for_one_host(self):
        config = "routes: [{prefix: 10.9.0.0/16, via: {nexthop: 10.0.2.2}}]\n"
        to_all = f.eth("ff:ff:ff:ff:ff:ff", WEST, f.ETH_IPV4, IP4)
        self.run_cases([Case("broadcast", config, [to_all], drop_reasons={
            "IP unicast in a frame to a group of stations": 1})])


class PoppedPayload(AgentTest):
    MISMATCH = "Payload is not of the label's payload type"
    UNTOLD = {NO_VIA_SET: 4, ("Drop", "no rewrite"): 1}

    def popped(self, payload, packet, entries=(100,)):
        return hardware(via("pop", payload=payload)), mpls(entries, packet)

    def test_forwarded(self):
        four = sent_ip(f.udp_packet("10.1.0.1", "10.9.0.1", ttl=63))
        six = sent_ip(f.udp_packet("2001:db8:1::1", "2001:db8:9::1", hop_limit=63))
        inner = f.eth("02:00:00:00:09:09", "02:00:00:00:09:08", f.ETH_IPV4, IP4, [40])
        for payload, packet, expected in (
                ("ipv4", IP4, four), ("ipv6", IP6, six), ("auto", IP4, four), ("auto", IP6, six),
                ("none", IP4, four), ("none", IP6, six), ("ethernet", inner, inner)):
            config, frame = self.popped(payload, packet)
            self.run_cases([forwarded(f"{payload} to {expected[12:14].hex()}", config, frame,
                                      expected)])

    def test_above_another_label_the_payload_type_is_not_asked(self):
        for payload in ("undefined", "none", "ipv4", "ipv6", "auto"):
            config, frame = self.popped(payload, IP4, [100, 4242])
            self.run_cases([Case(payload, config, [frame], sent={"east": [sent([(4242, 0, 63)])]},
                                 counters={NO_VIA_SET: 8}, labels={100: (1, len(frame))})])

    def test_dropped(self):
        cut = f.udp_packet("10.1.0.1", "10.9.0.1")[:19]
        for payload, packet in (("ipv4", IP6), ("ipv6", IP4), ("ipv4", cut), ("ipv4", b"")):
            config, frame = self.popped(payload, packet)
            self.run_cases([dropped(payload, config, frame, self.MISMATCH)])
        config, frame = self.popped("ethernet", IP4[:13])
        self.run_cases([dropped("ethernet", config, frame,
                                "Pseudowire payload shorter than an Ethernet header")])
        for payload, packet in (("undefined", IP4), ("auto", cut), ("auto", b"\x00" * 40),
                                ("none", b"\xf0" * 40), ("auto", b"")):
            config, frame = self.popped(payload, packet)
            case = dropped(f"{payload} {packet[:1].hex()}", config, frame, "no rewrite", self.UNTOLD)
            case.trace = ["Pkt 1: no rewrite"]
            self.run_cases([case])


if __name__ == "__main__":
    unittest.main()
