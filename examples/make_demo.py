#!/usr/bin/env python3
"""Makes the captures of the demo."""

import frames as f
from making import make

WEST, EAST = "02:00:00:00:00:01", "02:00:00:00:00:02"  # the agent's ports
CE_WEST, CE_EAST = "02:00:00:00:01:02", "02:00:00:00:02:02"  # who sends to them


def from_west(labels, packet):
    return f.eth(WEST, CE_WEST, f.ETH_MPLS, f.stack(*labels) + packet)


def west_frames():
    packet = f.udp_packet("10.1.0.1", "10.9.0.1")
    yield from_west([100], packet)  # swapped
    yield from_west([(101, 5, 30)], packet)  # three labels pushed
    yield from_west([102, 500], packet)  # popped, the tunnel goes on
    yield from_west([103], packet)  # popped to an IP packet
    for flow in range(64):  # one of two vias, weights 1 and 3
        yield from_west([104], f.udp_packet("10.1.0.1", "10.9.0.1", sport=5000 + flow))
    yield from_west([0], f.udp_packet("10.1.0.1", "10.0.2.2"))  # explicit null
    yield from_west([2], f.udp_packet("2001:db8:1::1", "2001:db8:2::2"))
    for flow in range(16):  # an entropy label steers the choice
        yield from_west([104, (7, 0, 64), (20000 + flow, 0, 0)], packet)
    yield from_west([0], f.udp_packet("10.1.0.1", "127.0.0.1", dport=3503, ttl=1))  # LSP ping
    yield from_west([0, 1, 100], packet)  # router alert
    yield from_west([4242], packet)  # unknown label
    yield from_west([(100, 0, 1)], packet)  # TTL spent
    yield f.eth(WEST, CE_WEST, f.ETH_IPV4, packet)  # not MPLS


def east_frames():
    packet = f.udp_packet("10.9.0.1", "10.1.0.1")
    for vlan in (10, 20):
        yield f.eth(EAST, CE_EAST, f.ETH_MPLS, f.stack(200) + packet, vlans=[vlan])


if __name__ == "__main__":
    make(__doc__, {"west": west_frames, "east": east_frames})
