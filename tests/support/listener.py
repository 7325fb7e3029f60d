"""The FPM listener, and somebody who talks to it as zebra does."""

import os
import signal
import socket
import struct
import subprocess
import time
import unittest

import shared_memory

FPM = os.environ.get("OVIX_FPM", "build/release/bin/ovix-fpm")
DEADLINE = 30

RTM_NEWROUTE, AF_INET = 24, 2
RTA_DST, RTA_OIF, RTA_GATEWAY = 1, 4, 5


def attribute(kind: int, value: bytes) -> bytes:
    return struct.pack("=HH", 4 + len(value), kind) + value + b"\0" * (-len(value) % 4)


def ipv4_route(prefix: str, gateway: str, interface: int) -> bytes:
    """An FPM frame with a route of 24 bits."""
    body = struct.pack("=BBBBBBBBI", AF_INET, 24, 0, 0, 254, 11, 0, 1, 0)
    body += attribute(RTA_DST, socket.inet_aton(prefix))
    body += attribute(RTA_GATEWAY, socket.inet_aton(gateway))
    body += attribute(RTA_OIF, struct.pack("=I", interface))
    message = struct.pack("=IHHII", 16 + len(body), RTM_NEWROUTE, 0x401, 1, 0) + body
    return struct.pack("!BBH", 1, 1, 4 + len(message)) + message


def refused_route(number: int) -> bytes:
    """A route through an interface that nobody has."""
    return ipv4_route(f"10.{number >> 8 & 255}.{number & 255}.0", "192.0.2.1", 999_999)


def free_port() -> int:
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def fetch(path) -> str:
    """The metrics that are served at a path, with what precedes them."""
    with socket.socket(socket.AF_UNIX) as client:
        client.settimeout(DEADLINE)
        client.connect(str(path))
        client.sendall(b"GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n")
        answer = b""
        while got := client.recv(65536):
            answer += got
    return answer.decode()


class ListenerTest(unittest.TestCase):
    """A listener with tables of its own."""

    def setUp(self):
        self.tables = f"fpm-{os.getpid()}-{self.id().rsplit('.', 1)[-1][:30]}"
        self.addCleanup(shared_memory.remove, self.tables)

    def listen(self, *arguments: str, **streams) -> subprocess.Popen:
        self.port = free_port()
        process = subprocess.Popen([FPM, "--tables", self.tables, "--listen",
                                    f"127.0.0.1:{self.port}", *arguments], **streams)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def zebra(self) -> socket.socket:
        end = time.monotonic() + DEADLINE
        while True:
            try:
                connection = socket.create_connection(("127.0.0.1", self.port), DEADLINE)
                self.addCleanup(connection.close)
                return connection
            except ConnectionRefusedError:
                self.assertLess(time.monotonic(), end, "nobody listens")
                time.sleep(0.02)

    def end(self, process: subprocess.Popen) -> None:
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(DEADLINE), 0)
