#!/usr/bin/env python3
"""Makes the capture for mtu_exception.yaml."""

import frames as f
from making import make

WEST, CE_WEST = "02:00:00:00:00:01", "02:00:00:00:01:02"  # the agent's port, and who sends to it


def packet_of(size):
    """An IP packet of `size` bytes."""
    return f.udp_packet("10.1.0.1", "10.9.0.1", payload=b"x" * (size - 28))


def labelled(label, size, vlans=()):
    """A frame of one label that has `size` bytes with it."""
    return f.eth(WEST, CE_WEST, f.ETH_MPLS, f.stack(label) + packet_of(size - 4), vlans)


def west_frames():
    yield labelled(100, 1400)  # just fits
    yield labelled(100, 1401)  # too big
    yield labelled(100, 1486)  # too big: 1500 bytes with its Ethernet header
    yield labelled(101, 1392)  # just fits with the two labels pushed
    yield labelled(101, 1393)  # too big with them
    yield labelled(100, 1401, vlans=[10])  # too big, tagged
    yield labelled(102, 1404)  # just fits without its label
    yield labelled(102, 1405)  # too big even so; no longer labelled, and so fragmented
    yield labelled(103, 600)  # just fits the path
    yield labelled(103, 601)  # too big for the path
    yield labelled(100, 64)  # and on it goes


if __name__ == "__main__":
    make(__doc__, {"west": west_frames})
