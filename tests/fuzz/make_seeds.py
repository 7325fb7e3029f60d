#!/usr/bin/env python3
"""Writes to FOLDER/TARGET what fuzzing starts from where there is nothing recorded."""

import pathlib
import struct
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "examples"))
import frames  # noqa: E402

MACS = bytes.fromhex("020000000002020000000001")
MERGED_TCP4, MERGED_TCP6, MERGED_UDP = 1, 4, 5  # virtio 1.2 section 5.1.6


def pcap(*packets: bytes, order: str = "<") -> bytes:
    head = struct.pack(order + "IHHiIII", 0xA1B23C4D, 2, 4, 0, 0, 262144, 1)
    return head + b"".join(struct.pack(order + "IIII", 1, number, len(packet), len(packet)) + packet
                           for number, packet in enumerate(packets))


def pcapng(*packets: bytes) -> bytes:
    def block(kind: int, body: bytes) -> bytes:
        body += b"\0" * (-len(body) % 4)
        length = struct.pack("<I", 12 + len(body))
        return struct.pack("<I", kind) + length + body + length

    option = struct.pack("<HHB3xHH", 9, 1, 9, 0, 0)  # times in nanoseconds
    blocks = block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1))
    blocks += block(1, struct.pack("<HHI", 1, 0, 0) + option)
    for number, packet in enumerate(packets):
        blocks += block(6, struct.pack("<IIIII", 0, 0, number, len(packet), len(packet)) + packet)
        blocks += block(3, struct.pack("<I", len(packet)) + packet)
    return blocks


def captures() -> dict[str, bytes]:
    packet = MACS + struct.pack("!H", frames.ETH_MPLS) + frames.stack(100, 200) + b"payload"
    whole = {"pcap": pcap(packet, packet), "pcap-other-order": pcap(packet, order=">"),
             "pcapng": pcapng(packet, packet)}
    two = whole["pcap"] + whole["pcapng"]
    part = len(whole["pcap"]) * 256 // (len(two) + 1) + 1
    return {name: b"\0" + content for name, content in whole.items()} | {
        "merged": bytes([part]) + two}


def segments() -> dict[str, bytes]:
    """What is left to do (flags, kind, header length, segment size, checksum start and offset),
    what the ring says, the frame."""
    def merged(kind: int, ip: bytes, link: bytes, how: int = 0) -> bytes:
        transport = 14 + len(link) - 2 + (20 if ip[0] >> 4 == 4 else 40)
        offset = 6 if kind == MERGED_UDP else 16
        return (struct.pack("<BBHHHH", 1, kind, 0, 100, transport, offset)
                + struct.pack("<BHH", how, 0, 20) + MACS + link + ip)

    ipv4, ipv6 = struct.pack("!H", frames.ETH_IPV4), struct.pack("!H", frames.ETH_IPV6)
    labels = struct.pack("!H", frames.ETH_MPLS) + frames.stack(100, 200)
    payload = bytes(range(250))
    tcp4 = frames.tcp_packet("10.1.0.1", "192.0.2.1", payload=payload)
    tcp6 = frames.tcp_packet("2001:db8::1", "2001:db8::2", payload=payload)
    udp4 = frames.udp_packet("10.1.0.1", "192.0.2.1", payload=payload)
    return {"tcp4": merged(MERGED_TCP4, tcp4, ipv4), "tcp6": merged(MERGED_TCP6, tcp6, ipv6),
            "udp": merged(MERGED_UDP, udp4, ipv4), "labelled": merged(MERGED_TCP4, tcp4, labels),
            "tag": merged(MERGED_TCP4, tcp4, ipv4, 2), "cut": merged(MERGED_TCP4, tcp4, ipv4, 1),
            "checksum": merged(0, udp4, ipv4)}


def control() -> dict[str, bytes]:
    """Who says what, in how many bytes; listening to the answer ends it."""
    def said(text: bytes, client: int = 0) -> bytes:
        return bytes([0x70 | client, len(text)]) + text

    requests = [b'{"command": "counters"}\n', b'{"command": "status"}\n',
                b'{"command": "clear-counters"}\n', b'{"command": "no\\u0001"}\n', b"[]\n", b"\n"]
    seeds = {f"request{number}": said(text) + b"\x24" for number, text in enumerate(requests)}
    seeds["pieces"] = said(requests[0][:9]) + said(requests[1], 1) + said(requests[0][9:]) + b"\x24"
    seeds["ended"] = said(requests[0][:-1]) + b"\x20\x24"
    return seeds


def tables() -> dict[str, bytes]:
    """Where and how a word is damaged, and how frames are forwarded then."""
    return {f"damage{how:02x}": struct.pack("<BIQB", 0x40 | how, place, 1, how & 1)
            for how, place in ((0, 5), (1, 3), (2, 700), (5, 2), (8, 5), (12, 6), (14, 900))}


def main() -> None:
    folder = pathlib.Path(sys.argv[1])
    made = {"capture": captures(), "segments": segments(), "control": control(),
            "tables": tables(), "road": {f"world{i}": bytes([i]) for i in range(4)}}
    for target, seeds in made.items():
        (folder / target).mkdir(parents=True, exist_ok=True)
        for name, content in seeds.items():
            (folder / target / name).write_bytes(content)


if __name__ == "__main__":
    main()
