#!/usr/bin/env python3
"""Sends UDP datagrams of 64 flows as fast as one thread can, until it has taken so long or SIGTERM comes; prints how many.

    flood.py ADDRESS SECONDS TTL...    the flows have these TTLs in turn

They are handed over 60 at a time, as hosts' segmentation offload does on virtual links, where the receiver cuts them. So one
sender overloads what takes frames one by one, however busy the machine is.
"""

import signal
import socket
import sys
import time

SEGMENTS, PAYLOAD, FLOWS = 60, 18, 64
SOL_UDP, UDP_SEGMENT = 17, 103


class Sender:
    """Of one flow. It is not connected, or would hear that nobody listens."""

    def __init__(self, address: str, ttl: int):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.setsockopt(socket.SOL_IP, socket.IP_TTL, ttl)
        self.socket.setsockopt(SOL_UDP, UDP_SEGMENT, PAYLOAD)
        self.socket.bind(("", 0))
        self.to, self.segments = (address, 9), SEGMENTS

    def send(self) -> int:
        """The number of datagrams that it has sent."""
        try:
            self.socket.sendto(bytes(self.segments * PAYLOAD), self.to)
            return self.segments
        except OSError:
            # Before Linux 6.11 nothing is cut for an interface whose checksums the kernel makes.
            if self.segments == 1:
                raise
            self.segments = 1
            return 0


def flood(address: str, seconds: float, ttls: list[int]) -> int:
    """The number of datagrams."""
    stopped = []
    signal.signal(signal.SIGTERM, lambda *_: stopped.append(True))
    senders = [Sender(address, ttls[i % len(ttls)]) for i in range(FLOWS)]
    sent, end = 0, time.monotonic() + seconds
    while time.monotonic() < end and not stopped:
        sent += sum(each.send() for each in senders)
    return sent


if __name__ == "__main__":
    print(flood(sys.argv[1], float(sys.argv[2]), list(map(int, sys.argv[3:]))), flush=True)
