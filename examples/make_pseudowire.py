#!/usr/bin/env python3
"""Makes the captures of the pseudowire example."""

import frames as f
from making import make

EAST, REMOTE = "02:00:00:00:00:02", "02:00:00:00:02:02"  # the two ends of the core link
HOST_A, HOST_B = "02:00:00:00:0a:01", "02:00:00:00:0b:01"  # customers of both ends
ETH_ARP, ETH_UNKNOWN = 0x0806, 0x88B5


def customer_frames():
    packet = f.udp_packet("10.1.0.1", "10.1.0.2", tos=0xB8)
    yield f.eth(HOST_B, HOST_A, f.ETH_IPV4, packet)  # class from the DSCP
    yield f.eth(HOST_B, HOST_A, f.ETH_IPV4, packet, vlans=[3 << 13 | 10])  # from the 802.1p bits
    yield f.eth(HOST_B, HOST_A, f.ETH_IPV4, packet, vlans=[(f.ETH_QINQ, 6 << 13 | 5), 10])
    yield f.eth(HOST_B, HOST_A, f.ETH_IPV6, f.udp_packet("2001:db8::1", "2001:db8::2"))
    yield f.eth("ff:ff:ff:ff:ff:ff", HOST_A, ETH_ARP,
                bytes.fromhex("0001080006040001") + f.mac(HOST_A) + bytes([10, 1, 0, 1]) +
                bytes(6) + bytes([10, 1, 0, 2]))
    yield f.eth(HOST_B, HOST_A, f.ETH_MPLS, f.stack(77) + packet)  # not for us to look into
    yield f.eth(HOST_B, HOST_A, ETH_UNKNOWN, b"")  # nothing but a header
    yield f.eth(HOST_B, HOST_A, ETH_UNKNOWN, bytes(1500), vlans=[10])  # the longest


def from_remote(label, payload):
    return f.eth(EAST, REMOTE, f.ETH_MPLS, f.stack((label, 0, 255)) + payload)


def core_frames():
    inner = f.eth(HOST_A, HOST_B, f.ETH_IPV4, f.udp_packet("10.1.0.2", "10.1.0.1"))
    yield from_remote(501, bytes(4) + inner)
    yield from_remote(601, inner)
    # A message of the associated channel (RFC 5085), here BFD: for the control plane.
    yield from_remote(501, bytes.fromhex("10000007") + bytes.fromhex("20c80318") + bytes(20))
    yield from_remote(501, bytes.fromhex("20000000") + inner)  # neither data nor channel


if __name__ == "__main__":
    make(__doc__, {"ce1": customer_frames, "ce2": customer_frames, "east": core_frames})
