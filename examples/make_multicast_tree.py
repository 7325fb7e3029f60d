#!/usr/bin/env python3
"""Makes the capture for multicast_tree.yaml."""

import frames as f
from making import make

CORE, UPSTREAM = "02:00:00:00:00:01", "02:00:00:00:00:99"  # the agent's port, and who sends to it
LABELS = (500, 501, 502, 503, 504)

TO_GROUP = f.udp_packet("10.9.0.9", "232.1.2.3", ttl=33)
TO_GROUP6 = f.udp_packet("2001:db8:9::9", "ff3e::8000:1", hop_limit=33)


def labelled(entries, packet, vlans=(), dst=CORE):
    return f.eth(dst, UPSTREAM, f.ETH_MPLS, f.stack(*entries) + packet, vlans)


def core_frames():
    for value in LABELS:
        yield labelled([(value, 4, 60)], TO_GROUP)
    yield labelled([(501, 4, 60)], TO_GROUP6, dst="01:00:5e:80:01:f5")  # to a group of routers
    yield labelled([(501, 4, 60)], TO_GROUP, vlans=[0x6000])  # tagged for its priority
    yield labelled([(502, 0, 60), 700], TO_GROUP)  # a label beneath that of the tail
    yield labelled([(502, 0, 60)], TO_GROUP, vlans=[10, 11])  # more tags than the CPU is told of
    yield labelled([(502, 0, 60)], b"\0" * 46)  # no IP packet
    yield labelled([(500, 0, 60)], f.udp_packet("10.9.0.9", "232.1.2.3", payload=b"x" * 968))
    yield labelled([(500, 0, 1)], TO_GROUP)  # expired: trapped, not copied


if __name__ == "__main__":
    make(__doc__, {"core": core_frames})
