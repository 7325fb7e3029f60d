"""Builds frames and captures out of plain bytes, for the examples and the tests."""

import ipaddress
import struct

ETH_IPV4, ETH_VLAN, ETH_IPV6, ETH_MPLS = 0x0800, 0x8100, 0x86DD, 0x8847


def mac(text):
    return bytes.fromhex(text.replace(":", ""))


def checksum(data):
    if len(data) % 2:
        data += b"\0"
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def label(value, tc=0, bos=False, ttl=64):
    """One label stack entry (RFC 3032)."""
    return struct.pack("!I", value << 12 | tc << 9 | int(bos) << 8 | ttl)


def stack(*entries):
    """A label stack; each entry is a label or (label, tc, ttl), the last one the bottom."""
    out = b""
    for index, entry in enumerate(entries):
        value, tc, ttl = entry if isinstance(entry, tuple) else (entry, 0, 64)
        out += label(value, tc, index + 1 == len(entries), ttl)
    return out


def ipv4(src, dst, payload=b"", proto=17, ttl=64, tos=0, options=b"", ident=1):
    length = 20 + len(options)
    head = struct.pack("!BBHHHBBH4s4s", 0x40 | length // 4, tos, length + len(payload), ident, 0,
                       ttl, proto, 0, ipaddress.IPv4Address(src).packed,
                       ipaddress.IPv4Address(dst).packed) + options
    return head[:10] + struct.pack("!H", checksum(head)) + head[12:] + payload


def ipv6(src, dst, payload=b"", next_header=17, hop_limit=64, traffic_class=0):
    return struct.pack("!IHBB16s16s", 6 << 28 | traffic_class << 20, len(payload), next_header,
                       hop_limit, ipaddress.IPv6Address(src).packed,
                       ipaddress.IPv6Address(dst).packed) + payload


def udp(src, dst, sport, dport, payload=b""):
    """A UDP datagram with its checksum, which covers the IP addresses."""
    length = 8 + len(payload)
    source, destination = ipaddress.ip_address(src), ipaddress.ip_address(dst)
    if source.version == 4:
        pseudo = source.packed + destination.packed + struct.pack("!BBH", 0, 17, length)
    else:
        pseudo = source.packed + destination.packed + struct.pack("!IHBB", length, 0, 0, 17)
    head = struct.pack("!HHHH", sport, dport, length, 0)
    value = checksum(pseudo + head + payload) or 0xFFFF
    return head[:6] + struct.pack("!H", value) + payload


def udp_packet(src, dst, sport=1024, dport=9, payload=b"x" * 18, **ip):
    """An IP packet of either family carrying UDP."""
    build = ipv4 if ipaddress.ip_address(src).version == 4 else ipv6
    return build(src, dst, udp(src, dst, sport, dport, payload), **ip)


def eth(dst, src, ethertype, payload, vlans=()):
    tags = b"".join(struct.pack("!HH", ETH_VLAN, vlan) for vlan in vlans)
    return mac(dst) + mac(src) + tags + struct.pack("!H", ethertype) + payload


def write_pcap(path, frames, nano=False, linktype=1):
    """Frames are bytes or (time in ns, bytes) or (time in ns, bytes, original length)."""
    unit = 1 if nano else 1000
    with open(path, "wb") as out:
        out.write(struct.pack("<IHHiIII", 0xA1B23C4D if nano else 0xA1B2C3D4, 2, 4, 0, 0, 262144,
                              linktype))
        for index, frame in enumerate(frames):
            time, data, *rest = frame if isinstance(frame, tuple) else (index * 1_000_000, frame)
            original = rest[0] if rest else len(data)
            out.write(struct.pack("<IIII", time // 10**9, time % 10**9 // unit, len(data),
                                  original) + data)


def write_pcapng(path, frames):
    """Frames as for write_pcap; nanosecond time stamps."""
    def block(kind, body):
        body += b"\0" * (-len(body) % 4)
        return struct.pack("<II", kind, len(body) + 12) + body + struct.pack("<I", len(body) + 12)

    with open(path, "wb") as out:
        out.write(block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1)))
        out.write(block(1, struct.pack("<HHI", 1, 0, 262144) +
                        struct.pack("<HHB3xHH", 9, 1, 9, 0, 0)))
        for time, data in frames:
            out.write(block(6, struct.pack("<IIIII", 0, time >> 32, time & 0xFFFFFFFF, len(data),
                                           len(data)) + data))


def read_pcap(path):
    """A list of (time in ns, bytes, original length)."""
    with open(path, "rb") as capture:
        data = capture.read()
    unit = {0xA1B2C3D4: 1000, 0xA1B23C4D: 1}[struct.unpack_from("<I", data)[0]]
    frames, at = [], 24
    while at < len(data):
        seconds, fraction, captured, original = struct.unpack_from("<IIII", data, at)
        at += 16
        frames.append((seconds * 10**9 + fraction * unit, data[at:at + captured], original))
        at += captured
    return frames
