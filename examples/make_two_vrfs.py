#!/usr/bin/env python3
"""Makes the captures for two_vrfs.yaml: make_two_vrfs.py DIRECTORY"""

import os
import sys

import frames as f

CORE, RED, BLUE = "02:00:00:00:00:01", "02:00:00:00:00:02", "02:00:00:00:00:03"  # the ports
P1, P2, CE_RED, CE_BLUE = ("02:00:00:00:01:02", "02:00:00:00:01:03", "02:00:00:00:02:02",
                           "02:00:00:00:03:02")  # who is connected to them
FLOWS = 400

TO_SITE = f.udp_packet("10.2.0.9", "10.1.0.9")
TO_SITE6 = f.udp_packet("2001:db8:200::9", "2001:db8:100::9")
FROM_SITE = f.udp_packet("10.1.0.9", "10.2.0.9", tos=0x68)


def core_frames():
    for entries, packet in (
            ([(1001, 0, 40)], TO_SITE),  # the same packet in one VRF and in the other
            ([(1002, 0, 40)], TO_SITE),
            ([(1001, 0, 40)], TO_SITE6),
            ([(0, 0, 40), (1001, 0, 40)], TO_SITE),  # behind an explicit null
            ([(1001, 0, 40)], f.udp_packet("10.1.0.9", "10.2.0.9")),  # back into the core
            ([(1001, 0, 40)], f.udp_packet("10.2.0.9", "10.0.1.1")),  # the router itself
            ([(1001, 0, 40)], f.udp_packet("10.2.0.9", "10.1.0.9", ttl=1)),  # expired
            ([(1001, 0, 40)], f.udp_packet("10.2.0.9", "192.0.2.9")),  # no route
            ([(1002, 0, 40)], TO_SITE6),  # not of the label's payload type
            ([(1002, 0, 40)], TO_SITE[:10] + b"\0\0" + TO_SITE[12:]),  # a bad checksum
            ([(1003, 0, 40)], TO_SITE)):  # no such VRF
        yield f.eth(CORE, P1, f.ETH_MPLS, f.stack(*entries) + packet)


def red_frames():
    yield f.eth(RED, CE_RED, f.ETH_IPV4, FROM_SITE)  # gets its labels
    yield f.eth(RED, CE_RED, f.ETH_IPV4, f.udp_packet("10.1.0.9", "10.0.1.2"))  # stays here
    yield f.eth(RED, CE_RED, 0x0806, b"\0" * 46)  # ARP


def blue_frames():
    yield f.eth(BLUE, CE_BLUE, f.ETH_IPV4, FROM_SITE)
    yield f.eth(BLUE, CE_BLUE, f.ETH_IPV4, f.udp_packet("10.1.0.9", "10.2.66.9"))  # not allowed
    for flow in range(FLOWS):
        yield f.eth(BLUE, CE_BLUE, f.ETH_IPV4,
                    f.udp_packet("10.1.0.9", "10.3.0.9", sport=50000 + flow))


CAPTURES = {"core": core_frames, "red": red_frames, "blue": blue_frames}


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    os.makedirs(sys.argv[1], exist_ok=True)
    for name, frames in CAPTURES.items():
        f.write_pcap(os.path.join(sys.argv[1], name + ".pcap"), list(frames()))


if __name__ == "__main__":
    main()
