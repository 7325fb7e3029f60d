"""Builds frames and captures out of plain bytes, and takes frames apart; for examples and tests."""

import ipaddress
import pathlib
import struct
from collections.abc import Iterable, Sequence
from typing import NamedTuple

ETH_IPV4, ETH_VLAN, ETH_IPV6, ETH_MPLS, ETH_QINQ = 0x0800, 0x8100, 0x86DD, 0x8847, 0x88A8
ETH_QINQ_OLD = 0x9100
LSP_PING_PORT = 3503  # RFC 8029

#: A label, or (label, traffic class, TTL).
Entry = int | tuple[int, int, int]
#: An 802.1Q VLAN id, or (EtherType, tag control information).
Tag = int | tuple[int, int]
#: Bytes, or (time in ns, bytes), or (time in ns, bytes, original length).
Recorded = bytes | tuple[int, bytes] | tuple[int, bytes, int]


def mac(text: str) -> bytes:
    return bytes.fromhex(text.replace(":", ""))


def checksum(data: bytes) -> int:
    """The Internet checksum (RFC 1071)."""
    data += b"\0" * (len(data) % 2)
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


def label(value: int, tc: int = 0, bos: bool = False, ttl: int = 64) -> bytes:
    """One label stack entry (RFC 3032)."""
    return struct.pack("!I", value << 12 | tc << 9 | int(bos) << 8 | ttl)


def stack(*entries: Entry) -> bytes:
    """A label stack, the outermost entry first; the last one has the bottom-of-stack bit."""
    out = b""
    for index, entry in enumerate(entries):
        value, tc, ttl = entry if isinstance(entry, tuple) else (entry, 0, 64)
        out += label(value, tc, index + 1 == len(entries), ttl)
    return out


def ipv4(src: str, dst: str, payload: bytes = b"", proto: int = 17, ttl: int = 64, tos: int = 0,
         options: bytes = b"", ident: int = 1, fragment: int = 0) -> bytes:
    """`options` fill whole 32-bit words; `fragment` is the field of flags and offset."""
    length = 20 + len(options)
    head = struct.pack("!BBHHHBBH4s4s", 0x40 | length // 4, tos, length + len(payload), ident,
                       fragment, ttl, proto, 0, ipaddress.IPv4Address(src).packed,
                       ipaddress.IPv4Address(dst).packed) + options
    return head[:10] + struct.pack("!H", checksum(head)) + head[12:] + payload


def ipv6(src: str, dst: str, payload: bytes = b"", next_header: int = 17, hop_limit: int = 64,
         traffic_class: int = 0) -> bytes:
    return struct.pack("!IHBB16s16s", 6 << 28 | traffic_class << 20, len(payload), next_header,
                       hop_limit, ipaddress.IPv6Address(src).packed,
                       ipaddress.IPv6Address(dst).packed) + payload


def _transport_checksum(src: str, dst: str, proto: int, segment: bytes) -> int:
    """Covers the addresses too (RFC 768, RFC 9293, RFC 8200)."""
    source, destination = ipaddress.ip_address(src), ipaddress.ip_address(dst)
    form = "!BBH" if source.version == 4 else "!IHBB"
    rest = (0, proto, len(segment)) if source.version == 4 else (len(segment), 0, 0, proto)
    return checksum(source.packed + destination.packed + struct.pack(form, *rest) + segment)


def udp(src: str, dst: str, sport: int, dport: int, payload: bytes = b"") -> bytes:
    head = struct.pack("!HHHH", sport, dport, 8 + len(payload), 0)
    value = _transport_checksum(src, dst, 17, head + payload) or 0xFFFF
    return head[:6] + struct.pack("!H", value) + payload


def tcp(src: str, dst: str, sport: int, dport: int, payload: bytes = b"") -> bytes:
    head = struct.pack("!HHIIBBHHH", sport, dport, 1, 1, 5 << 4, 0x10, 8192, 0, 0)
    value = _transport_checksum(src, dst, 6, head + payload)
    return head[:16] + struct.pack("!H", value) + head[18:] + payload


def _ip_packet(src: str, dst: str, proto: int, segment: bytes, **ip) -> bytes:
    if ipaddress.ip_address(src).version == 4:
        return ipv4(src, dst, segment, proto, **ip)
    return ipv6(src, dst, segment, proto, **ip)


def udp_packet(src: str, dst: str, sport: int = 1024, dport: int = 9, payload: bytes = b"x" * 18,
               **ip) -> bytes:
    """An IP packet of either family carrying UDP."""
    return _ip_packet(src, dst, 17, udp(src, dst, sport, dport, payload), **ip)


def tcp_packet(src: str, dst: str, sport: int = 1024, dport: int = 9, payload: bytes = b"x" * 18,
               **ip) -> bytes:
    """An IP packet of either family carrying TCP."""
    return _ip_packet(src, dst, 6, tcp(src, dst, sport, dport, payload), **ip)


def _tlv(kind: int, value: bytes) -> bytes:
    return struct.pack("!HH", kind, len(value)) + value + bytes(-len(value) % 4)


def ldp_fec(prefix: str, length: int) -> bytes:
    """The target FEC stack of an MPLS echo request (RFC 8029 section 3.2): a prefix of LDP."""
    return _tlv(1, _tlv(1, ipaddress.ip_address(prefix).packed + bytes([length])))


def downstream_mapping(address: str, label: int) -> bytes:
    """The detailed mapping that an MPLS echo request compares (RFC 8029 section 3.4)."""
    return _tlv(20, struct.pack("!HBB", 1500, 1, 0) + 2 * ipaddress.ip_address(address).packed + struct.pack("!BBH", 0, 0, 8) +
                _tlv(2, (label << 12).to_bytes(4, "big")))


def lsp_ping(src: str, dst: str, *tlvs: bytes, mode: int = 2, port: int = 49152, **ip) -> bytes:
    """An MPLS echo request (RFC 8029) that asks for a reply by UDP; without `tlvs` it names no FEC."""
    request = struct.pack("!HHBBBBIIQQ", 1, 0, 1, mode, 0, 0, 1, 1, 0, 0) + b"".join(tlvs)
    return udp_packet(src, dst, port, LSP_PING_PORT, request, **ip)


def eth(dst: str, src: str, ethertype: int, payload: bytes, vlans: Sequence[Tag] = ()) -> bytes:
    tags = b"".join(struct.pack("!HH", *(tag if isinstance(tag, tuple) else (ETH_VLAN, tag)))
                    for tag in vlans)
    return mac(dst) + mac(src) + tags + struct.pack("!H", ethertype) + payload


class Parsed(NamedTuple):
    """A frame taken apart."""
    dst: str
    src: str
    vlans: list[Tag]
    ethertype: int
    labels: list[tuple[int, int, int]]  # (label, traffic class, TTL), outermost first
    payload: bytes  # what follows the label stack, if any


def parse(frame: bytes) -> Parsed:
    """Takes a frame apart down to the bottom of its label stack."""
    at, vlans, labels = 12, [], []
    ethertype = struct.unpack_from("!H", frame, at)[0]
    while ethertype in (ETH_VLAN, ETH_QINQ, ETH_QINQ_OLD):
        tci = struct.unpack_from("!H", frame, at + 2)[0]
        vlans.append(tci if ethertype == ETH_VLAN else (ethertype, tci))
        at += 4
        ethertype = struct.unpack_from("!H", frame, at)[0]
    at += 2
    is_bottom = ethertype != ETH_MPLS
    while not is_bottom:
        word = struct.unpack_from("!I", frame, at)[0]
        labels.append((word >> 12, word >> 9 & 7, word & 0xFF))
        is_bottom = bool(word >> 8 & 1)
        at += 4
    return Parsed(frame[:6].hex(":"), frame[6:12].hex(":"), vlans, ethertype, labels, frame[at:])


def _recorded(frames: Iterable[Recorded]) -> Iterable[tuple[int, bytes, int]]:
    """Frames without a time come a millisecond apart."""
    for index, frame in enumerate(frames):
        time, data, *rest = frame if isinstance(frame, tuple) else (index * 1_000_000, frame)
        yield time, data, rest[0] if rest else len(data)


def write_pcap(path: str | pathlib.Path, frames: Iterable[Recorded], nano: bool = False,
               linktype: int = 1, order: str = "<") -> None:
    """`order` is the byte order, "<" or ">"."""
    magic, unit = (0xA1B23C4D, 1) if nano else (0xA1B2C3D4, 1000)
    with open(path, "wb") as out:
        out.write(struct.pack(order + "IHHiIII", magic, 2, 4, 0, 0, 262144, linktype))
        for time, data, original in _recorded(frames):
            out.write(struct.pack(order + "IIII", time // 10**9, time % 10**9 // unit, len(data),
                                  original) + data)


def write_pcapng(path: str | pathlib.Path, frames: Iterable[Recorded], digits: int = 9,
                 linktype: int = 1, order: str = "<", interface: str = "") -> None:
    """Time stamps have `digits` decimal places; the frames came in at `interface`, if that is known."""
    def block(kind: int, body: bytes) -> bytes:
        body += b"\0" * (-len(body) % 4)
        size = len(body) + 12
        return struct.pack(order + "II", kind, size) + body + struct.pack(order + "I", size)

    with open(path, "wb") as out:
        out.write(block(0x0A0D0D0A, struct.pack(order + "IHHq", 0x1A2B3C4D, 1, 0, -1)))
        name = struct.pack(order + f"HH{-(-len(interface) // 4) * 4}s", 2, len(interface), interface.encode())
        resolution = struct.pack(order + "HHB3xHH", 9, 1, digits, 0, 0)
        out.write(block(1, struct.pack(order + "HHI", linktype, 0, 262144) + (name if interface else b"") + resolution))
        for time, data, original in _recorded(frames):
            ticks = time // 10**(9 - digits)
            out.write(block(6, struct.pack(order + "IIIII", 0, ticks >> 32, ticks & 0xFFFFFFFF,
                                           len(data), original) + data))


def read_pcap(path: str | pathlib.Path) -> list[tuple[int, bytes, int]]:
    """Each frame's time in ns, bytes and original length; of a pcap file in either byte order."""
    with open(path, "rb") as capture:
        data = capture.read()
    order = "<" if data[0] in (0xD4, 0x4D) else ">"
    unit = {0xA1B2C3D4: 1000, 0xA1B23C4D: 1}[struct.unpack_from(order + "I", data)[0]]
    frames, at = [], 24
    while at < len(data):
        seconds, fraction, captured, original = struct.unpack_from(order + "IIII", data, at)
        at += 16
        frames.append((seconds * 10**9 + fraction * unit, data[at:at + captured], original))
        at += captured
    return frames
