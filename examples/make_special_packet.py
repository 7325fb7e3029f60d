#!/usr/bin/env python3
"""Makes the capture for special_packet.yaml."""

import struct

import frames as f
from making import make

WEST, CPU = "02:00:00:00:00:01", "02:00:00:00:00:c1"  # the agent's port, and who sends to it
ETH_EXCEPTION = 0x8139
VLAN_KIND, ETHERNET_KIND = 2, 1  # of interface ids

TO_GROUP = f.udp_packet("10.9.0.9", "232.1.2.3", ttl=33)
LABELLED = f.stack((500, 4, 60)) + TO_GROUP


def vlan_id(vlan: int) -> int:
    """The id of a VLAN's interface."""
    return VLAN_KIND << 56 | vlan


def port_id(name: str) -> int:
    """The id of a port: its kind, and an FNV-1a hash of its name."""
    value = 0xCBF29CE484222325
    for byte in name.encode():
        value = (value ^ byte) * 0x100000001B3 % 2**64
    return ETHERNET_KIND << 56 | value % 2**56


def special(vrf: int, pmsi: int, packet: bytes = LABELLED, tci: int = 11) -> bytes:
    """An MPLS packet of a VRF; `pmsi` is the id of its provider-multicast interface."""
    header = struct.pack("!IQQ", vrf, 0, pmsi)
    return f.eth(WEST, CPU, ETH_EXCEPTION, header + packet, [tci])


def west_frames():
    yield special(7, vlan_id(100))  # becomes a frame of VLAN 100, which is copied to two leaves
    yield special(8, port_id("south"))  # leaves by the south port
    yield special(9, vlan_id(100))  # no such VRF
    yield special(7, vlan_id(101))  # of another VRF's interface
    yield special(7, vlan_id(100), f.stack((502, 4, 60)) + TO_GROUP)  # for receivers here
    yield special(7, vlan_id(100), b"")  # nothing in it
    yield special(7, vlan_id(100))[:30]  # cut short
    yield f.eth(WEST, CPU, f.ETH_MPLS, LABELLED, [100])  # an ordinary frame


if __name__ == "__main__":
    make(__doc__, {"west": west_frames})
