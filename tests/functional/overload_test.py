"""More frames at a port than the agent can process: what becomes of the others, and who is served."""

import json
import shutil
import statistics
import struct
import subprocess
import time
import unittest

import agent
import dpdk_test
import frames as f
from live import DEADLINE, LiveTest, ip
from running_agent import CTL, ask

FLOOD = agent.SOURCE / "lab" / "flood.py"
LONGEST = 120  # seconds of a flood, if nobody ends it
SEGMENTS = 60  # of a frame that a port receives from a flood
FULL = "Queue to the packet thread full"
SENDER = "02:00:00:00:00:09"
ANSWERS = "answers: {lsp-echo: {source-per-second: 10000, per-second: 10000}}\n"
# Of a prefix that the router does not know: its answer says so (RFC 8029 section 4.4).
ECHO_REQUEST = struct.pack("!HHBBBBIIQQ", 1, 0, 1, 2, 0, 0, 1, 7, 0, 0) + struct.pack(
    "!HHHH4sBxxx", 1, 12, 1, 5, bytes([10, 9, 9, 0]), 24)


class Overload(LiveTest):
    """A third host, south, floods its port with packets whose TTL is spent, which only the packet thread
    processes. Times are printed, not expected: the machine may be busy."""

    def setUp(self):
        super().setUp()
        self.south = self.router[:-1] + "s"
        ip("netns", "add", self.south)
        self.addCleanup(subprocess.run, ["ip", "netns", "del", self.south], check=False)
        ip("link", "add", "south", "netns", self.router, "type", "veth", "peer", "name", "eth0",
           "netns", self.south)
        ip("-n", self.router, "link", "set", "south", "up")
        ip("-n", self.south, "link", "set", "eth0", "up")
        ip("-n", self.router, "addr", "add", "10.0.3.1/24", "dev", "south")
        ip("-n", self.south, "addr", "add", "10.0.3.2/24", "dev", "eth0")
        ip("-n", self.south, "route", "add", "default", "via", "10.0.3.1")

    def configure(self, extra: str = "", kind: str = "packet") -> None:
        super().configure(f"  - {{name: south, kind: {kind}, addresses: [10.0.3.1/24]}}\n{extra}", kind)

    def begin(self, extra: str = "") -> subprocess.Popen:
        process = self.start(extra)
        self.learn_neighbours()
        return process

    def flood(self, host: str, port: str) -> subprocess.Popen:
        """The host's packets to 10.9.0.1 until end() is called."""
        process = subprocess.Popen(["ip", "netns", "exec", host, "python3", str(FLOOD), "10.9.0.1", str(LONGEST),
                                    "1"],
                                   stdout=subprocess.PIPE, text=True)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        self.until(lambda: self.processed(port) > 1000)
        return process

    def end(self, flood: subprocess.Popen) -> int:
        """The number of frames that it has sent; it must not have ended by itself."""
        self.assertIsNone(flood.poll(), "the flood was over too early")
        flood.terminate()
        return int(flood.communicate(timeout=DEADLINE)[0])

    def port(self, name: str) -> dict:
        return next(port for port in ask(self.path, "ports")["ports"] if port["name"] == name)

    def change(self, *words: str) -> int:
        """Changes label routes; the generation that this is seen with."""
        done = subprocess.run([CTL, "--tables", self.tables, "lfib", *words, "--json"], capture_output=True,
                              text=True, check=True, timeout=DEADLINE)
        return json.loads(done.stdout)["generation"]

    def fates(self, port: str) -> dict[str, int]:
        return {one["reason"]: one["frames"] for one in ask(self.path, "drops-by-port")["drops-by-port"]
                if one["port"] == port}

    def processed(self, port: str) -> int:
        """Of the flood at a port."""
        return sum(frames for reason, frames in self.fates(port).items() if reason != FULL)

    def lost_at_ring(self, port: str) -> int:
        return self.port(port)["ring"]["drops"] * SEGMENTS

    def turned_away(self, port: str) -> int:
        """Frames that there was no room for, at the port or behind it."""
        return self.lost_at_ring(port) + self.fates(port).get(FULL, 0)

    def test_a_flood_at_one_port_starves_no_other(self):
        process = self.begin()
        before = self.port("south")["received"]
        flood = self.flood(self.south, "south")
        self.assertEqual(self.datagrams(500, patience=15), 500)
        sent = self.end(flood)
        # Each frame of the flood is counted once: turned away at the ring, with all its segments, or received.
        self.until(lambda: self.port("south")["received"] - before == sent - self.lost_at_ring("south"))
        self.assertGreater(self.turned_away("south"), sent / 10)
        self.assertEqual([self.turned_away(port) for port in ("west", "east")], [0, 0])
        self.until(lambda: sum(self.fates("south").values()) == self.port("south")["received"] - before)
        print(f"{self.id()}: of {sent} frames {self.processed('south')} were processed, "
              f"{self.lost_at_ring('south')} turned away by the port")
        away = self.fates("south").get(FULL, 0)
        self.assertEqual(self.stop(process)["dropped"]["reasons"].get(FULL, 0), away)

    def test_requests_and_changes_of_tables_are_served_under_a_flood(self):
        process = self.begin()
        flood = self.flood(self.south, "south")
        answered, taken_over = [], []
        for _ in range(100):
            began = time.monotonic()
            self.assertTrue(ask(self.path, "status")["ok"])
            answered.append(time.monotonic() - began)
        for label in range(1000, 1020):
            for change in (["add", str(label), "via", "inet", "10.0.2.2", "dev", "east"], ["del", str(label)]):
                generation = self.change(*change)
                began = time.monotonic()
                while ask(self.path, "status")["tables"]["generation"] < generation:
                    self.assertLess(time.monotonic() - began, DEADLINE)
                taken_over.append(time.monotonic() - began)
        shown = subprocess.run([CTL, "--control", str(self.path), "status"], capture_output=True, text=True,
                               check=False, timeout=DEADLINE)
        self.assertEqual(shown.returncode, 0, shown.stderr)
        self.end(flood)
        for what, times in (("requests answered", answered), ("changes taken over", taken_over)):
            print(f"{self.id()}: {len(times)} {what} after {1000 * statistics.median(times):.1f} ms, "
                  f"at most {1000 * max(times):.1f} ms")
        self.stop(process)

    def test_two_flooded_ports_have_like_shares(self):
        process = self.begin()
        floods = [self.flood(host, port) for host, port in ((self.west, "west"), (self.south, "south"))]
        before = [self.processed(port) for port in ("west", "south")]
        time.sleep(2)
        shares = [self.processed(port) - count for port, count in zip(("west", "south"), before)]
        for flood in floods:
            self.end(flood)
        print(f"{self.id()}: processed in 2 s: {shares[0]} of west, {shares[1]} of south")
        # One of each in turn, as long as frames of both wait; a host that does not get the processor sends none.
        self.assertLess(max(shares), 1.2 * min(shares))
        self.stop(process)

    def pinged(self, host: str, port: str, address: str) -> float:
        """Which part of a host's LSP pings is answered."""
        count = 300
        request = f.eth(self.router_mac(port), SENDER, f.ETH_IPV4, f.udp_packet(
            address, "127.0.0.1", 49152, f.LSP_PING_PORT, ECHO_REQUEST, ttl=1))
        return int(self.host(host, f"""
import socket, time
replies = socket.socket(socket.AF_INET, socket.SOCK_DGRAM); replies.bind(("{address}", 49152)); replies.settimeout(5)
replies.setsockopt(socket.SOL_SOCKET, 33, 1 << 22)  # SO_RCVBUFFORCE
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(("eth0", 0)); got = 0
for i in range({count}): s.send(bytes.fromhex("{request.hex()}")); time.sleep(0.003)
try:
    while got < {count}: replies.recv(2000); got += 1
except TimeoutError: pass
print(got)""").communicate(timeout=DEADLINE)[0]) / count

    def test_lsp_pings_at_another_port_are_answered_under_a_flood(self):
        process = self.begin(ANSWERS)
        flood = self.flood(self.south, "south")
        self.assertEqual(self.pinged(self.west, "west", "10.0.1.2"), 1)
        self.end(flood)
        self.stop(process)


class OverloadOfWorkers(Overload):
    """The same when two threads forward beside the packet thread, to which they leave these frames."""
    settings = "workers: 2\n"

    def test_lsp_pings_at_the_flooded_port_pass_the_flood(self):
        process = self.begin(ANSWERS)
        flood = self.flood(self.south, "south")
        self.until(lambda: self.fates("south").get(FULL, 0) > 0)
        answered = self.pinged(self.south, "south", "10.0.3.2")
        sent = self.end(flood)
        at_ring = self.lost_at_ring("south") / sent
        print(f"{self.id()}: answered {100 * answered:.0f} % of the pings, processed "
              f"{100 * self.processed('south') / sent:.0f} % of the flood, turned away {100 * at_ring:.0f} % at the ring")
        # There nobody has looked at a frame yet.
        self.assertLess(1 - answered, 0.1 + 2 * at_ring)
        self.stop(process)


@unittest.skipUnless(dpdk_test.MODULE.exists() and shutil.which("ethtool"),
                     "needs the module for DPDK, which was not built, and ethtool")
class OverloadOfCards(Overload):
    """Behind cards the packet thread also has to hand over what routing daemons are to hear."""
    settings = "workers: 2\n"

    test_a_flood_at_one_port_starves_no_other = None  # packets are cut before they come to such a wire
    test_two_flooded_ports_have_like_shares = None
    test_lsp_pings_at_another_port_are_answered_under_a_flood = None
    test_requests_and_changes_of_tables_are_served_under_a_flood = None

    def configure(self, extra: str = "", kind: str = "dpdk") -> None:
        ports = (("west", self.west), ("east", self.east), ("south", self.south))
        for port, host in ports:
            ip("-n", self.router, "link", "set", port, "down")
            ip("-n", self.router, "link", "set", port, "name", f"{port}w")
            ip("-n", self.router, "addr", "flush", "dev", f"{port}w")
            ip("-n", self.router, "link", "set", f"{port}w", "up")
            ip("netns", "exec", host, "ethtool", "-K", "eth0", "tx", "off")
        memory = "dpdk: {eal: ['-m', '512']}\n"
        self.config.write_text(self.settings + memory + "ports:\n" + "".join(
            f"  - {{name: {port}, kind: dpdk, device: 'net_af_packet{i},iface={port}w,qpairs=3', "
            f"addresses: [10.0.{i}.1/24]}}\n" for i, (port, _) in enumerate(ports, 1)) + extra)

    def test_routing_protocols_at_another_port_are_heard_under_a_flood(self):
        process = self.start()
        for i, port in enumerate(("west", "east", "south"), 1):
            ip("-n", self.router, "addr", "add", f"10.0.{i}.1/24", "dev", port)
        flood = self.flood(self.south, "south")
        self.until(lambda: self.fates("south").get(FULL, 0) > 0)
        mac = self.router_mac("west")
        to_group = lambda packet: f.eth("01:00:5e:00:00:05", SENDER, f.ETH_IPV4, packet)
        to_router = lambda packet: f.eth(mac, SENDER, f.ETH_IPV4, packet)
        frames = [to_group(f.ipv4("10.0.1.2", "224.0.0.5", bytes(24), proto=89, ttl=1)),
                  to_group(f.udp_packet("10.0.1.2", "224.0.0.2", 646, 646, ttl=1)),
                  to_router(f.tcp_packet("10.0.1.2", "10.0.1.1", 40000, 646)),
                  to_router(f.tcp_packet("10.0.1.2", "10.0.1.1", 179, 40000)),
                  to_router(f.udp_packet("10.0.1.2", "10.0.1.1", 49152, 3784, ttl=255))]
        count = 100
        heard = self.host(self.router, f"""
import socket
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(0x800)); s.bind(("west", 0x800))
s.setsockopt(socket.SOL_SOCKET, 33, 1 << 22); s.settimeout(15); print("ready", flush=True)
frames = {[frame.hex() for frame in frames]}; got = [0] * len(frames)
try:
    while min(got) < {count}:
        frame = s.recv(2000).hex()
        if frame in frames: got[frames.index(frame)] += 1
except TimeoutError: pass
print(got)""")
        self.assertEqual(heard.stdout.readline(), "ready\n")
        self.host(self.west, f"""
import socket, time
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(("eth0", 0))
for i in range({count}):
    for frame in {[frame.hex() for frame in frames]}: s.send(bytes.fromhex(frame)); time.sleep(0.002)""").communicate()
        self.assertEqual(heard.communicate(timeout=DEADLINE)[0], f"{[count] * len(frames)}\n")
        self.end(flood)
        self.stop(process)


if __name__ == "__main__":
    unittest.main()
