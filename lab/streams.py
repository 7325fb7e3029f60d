#!/usr/bin/env python3
"""Sends datagrams on several ways at once until SIGINT comes, and prints as JSON how many each way lost.

    streams.py FROM TO ADDRESS [FROM TO ADDRESS]...    nodes, and the receiver's address

Of all ways one datagram is sent in each millisecond, one right after the other, so that what the ways lose in the same
time can be compared.
"""

import ctypes
import json
import os
import signal
import socket
import sys
import time

PORT, CLONE_NEWNET, INTERVAL = 7777, 0x40000000, 0.001
LIBC = ctypes.CDLL(None, use_errno=True)


def socket_in(node: str) -> socket.socket:
    """A socket stays in the namespace that it was made in."""
    with open(f"/run/netns/{node}", "rb") as namespace:
        if LIBC.setns(namespace.fileno(), CLONE_NEWNET) != 0:
            raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()), node)
    made = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    made.setblocking(False)
    return made


class Way:
    def __init__(self, source: str, target: str, address: str):
        self.name, self.to = f"{source} to {target}", (address, PORT)
        self.sender, self.receiver = socket_in(source), socket_in(target)
        self.receiver.bind(self.to)
        self.received = 0

    def send(self) -> None:
        try:
            self.sender.sendto(b"x", self.to)
        except OSError:
            pass  # as lost as any other

    def receive(self) -> None:
        try:
            while self.receiver.recv(16):
                self.received += 1
        except BlockingIOError:
            pass


def run(ways: list[Way]) -> dict:
    stopped, sent = [], 0
    signal.signal(signal.SIGINT, lambda *_: stopped.append(True))
    print("ready", flush=True)
    while not stopped:
        for way in ways:
            way.send()
        sent += 1
        time.sleep(INTERVAL)
        for way in ways:
            way.receive()
    time.sleep(1)
    for way in ways:
        way.receive()
    return {"sent": sent, "lost": {way.name: sent - way.received for way in ways}}


if __name__ == "__main__":
    words = sys.argv[1:]
    print(json.dumps(run([Way(*words[i:i + 3]) for i in range(0, len(words), 3)])), flush=True)
