#!/usr/bin/env python3
"""Makes the capture for external_fec.yaml."""

import frames as f
from making import make

WEST, CE_WEST = "02:00:00:00:00:01", "02:00:00:00:01:02"  # the agent's port, and who sends to it
FLOWS = 400


def labelled(labels, packet=f.udp_packet("10.1.0.1", "10.9.0.1")):
    return f.eth(WEST, CE_WEST, f.ETH_MPLS, f.stack(*labels) + packet)


def west_frames():
    yield labelled([(100, 3, 64)])  # swapped toward the one next hop of a FEC
    yield labelled([(101, 5, 30)])  # two labels pushed
    yield labelled([100, 500], f.udp_packet("2001:db8:1::1", "2001:db8:9::1"))
    for flow in range(FLOWS):  # shared among three next hops
        yield labelled([102], f.udp_packet(f"10.2.{flow // 250}.{flow % 250 + 1}", "10.9.0.1"))
    yield labelled([103])  # no such FEC
    yield labelled([104])  # no FEC at all
    yield labelled([105])  # a pop
    yield labelled([106])  # two vias


if __name__ == "__main__":
    make(__doc__, {"west": west_frames})
