"""What a router on live ports answers: errors with the label stack, unreachables, LSP pings."""

import json
import pathlib
import socket
import struct
import subprocess
import unittest

import agent
import frames as f
from live import LiveTest, ip
from running_agent import CTL, ask


class LiveAnswers(LiveTest):
    def test_the_first_packets_wait_for_their_neighbour(self):
        process = self.start()
        self.assertEqual(self.datagrams(3), 3)
        result = self.stop(process)
        self.assertEqual(result["dropped"]["reasons"], {})

    def test_packets_wait_for_a_neighbour_that_was_removed_and_has_not_failed(self):
        process = self.start()
        self.learn_neighbours()
        ip("-n", self.router, "neigh", "flush", "dev", "east")
        self.until(lambda: "10.0.2.2" not in {one["address"] for one in ask(self.path, "neighbours")["neighbours"]})
        self.assertEqual(self.datagrams(3), 3)
        self.assertEqual(self.stop(process)["dropped"]["reasons"], {})

    def test_a_bundle_leaves_out_what_the_router_has_made_itself(self):
        process = self.start()
        self.learn_neighbours()
        frame = f.eth(self.router_mac("west"), "02:00:00:00:00:09", f.ETH_IPV4,
                      f.udp_packet("10.0.1.77", "10.0.2.2", ttl=1))  # nobody has that address
        self.host(self.west, f"""
import socket
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(("eth0", 0)); s.send(bytes.fromhex("{frame.hex()}"))""")
        self.until(lambda: ask(self.path, "fates")["dropped"]["reasons"].get(
            "No neighbour for the next hop") == 1)
        self.assertIn({"port": None, "fate": "dropped", "reason": "No neighbour for the next hop", "frames": 1},
                      ask(self.path, "drops-by-port")["drops-by-port"])
        bundle = self.directory / "own.bundle"
        written = subprocess.run([CTL, "--control", str(self.path), "bundle", str(bundle), "--json"], check=True,
                                 capture_output=True).stdout
        self.assertEqual(json.loads(written)["frames"], len(json.loads(bundle.read_bytes().split(b"\n")[1])["frames"]))
        self.stop(process)

    def test_a_flood_to_nobody_keeps_no_neighbour_from_being_resolved(self):
        count = 20
        for host in range(101, 101 + 2 * count):
            ip("-n", self.east, "addr", "add", f"10.0.2.{host}/24", "dev", "eth0")
        process = self.start("routes:\n  - {prefix: 10.4.0.0/16, via: {interface: east}}\n" + "".join(
            f"  - {{prefix: 10.9.{i}.0/24, via: {{nexthop: 10.0.2.{101 + i}}}}}\n"
            for i in range(count)))
        real = [f"10.9.{i}.1" for i in range(count)] + [
            f"10.0.2.{101 + count + i}" for i in range(count)]
        mac = self.router_mac("west")

        def frame(source: str, destination: str) -> bytes:
            return f.eth(mac, "02:00:00:00:00:09", f.ETH_IPV4, f.udp_packet(source, destination))
        receiver = self.host(self.east, f"""
import socket
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(0x800)); s.bind(("eth0", 0x800))
print("ready", flush=True); s.settimeout(6); got = set()
try:
    while len(got) < {2 * count}:
        packet = s.recv(2000)[14:]
        if packet[12:16] == bytes([10, 7, 7, 7]): got.add(packet[16:20])
except TimeoutError: pass
print(len(got), flush=True)""")
        self.assertEqual(receiver.stdout.readline(), "ready\n")
        # Of a flood on a busy machine any frame may be lost at a full ring; who is kept out loses all of them.
        wanted = 3 * [frame("10.7.7.7", destination).hex() for destination in real]
        self.host(self.west, f"""
import socket, struct, time
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(("eth0", 0))
def checksum(header):
    total = sum(struct.unpack("!10H", header)); total = (total & 0xffff) + (total >> 16)
    return ~((total & 0xffff) + (total >> 16)) & 0xffff
flood = bytearray.fromhex("{frame('10.0.1.2', '10.4.0.0').hex()}")
real = {wanted}
start = time.monotonic(); number = 0
while real:
    for i in range(200):
        struct.pack_into("!H", flood, 14 + 18, number % 65536); number += 1
        struct.pack_into("!H", flood, 14 + 10, 0)
        struct.pack_into("!H", flood, 14 + 10, checksum(bytes(flood[14:34])))
        s.send(flood)
    while time.monotonic() < start + number / 20000: pass
    if number > 20000 and number % 400 == 0: s.send(bytes.fromhex(real.pop()))
""").communicate()
        got = receiver.stdout.readline()
        receiver.communicate()
        reasons = self.stop(process)["dropped"]["reasons"]
        self.assertEqual(got, f"{2 * count}\n", reasons)
        self.assertGreater(reasons["Too many unknown neighbours asked for"], 20000)

    def test_what_cannot_be_delivered_is_answered(self):
        process = self.start("""routes:
  - {prefix: 198.51.100.0/24, drop: prohibit}
  - {prefix: 203.0.113.0/24, drop: true}
""")
        self.learn_neighbours()
        mac = self.router_mac("west")

        def answers(destination: str, seconds: int = 1) -> list[tuple[int, int]]:
            frame = f.eth(mac, "02:00:00:00:00:09", f.ETH_IPV4,
                          f.udp_packet("10.0.1.2", destination))
            return [(packet[20], packet[21]) for packet in self.icmp_answers(frame, seconds)]
        self.assertEqual(answers("192.0.2.1"), [(3, 0)])
        self.assertEqual(answers("198.51.100.1"), [(3, 13)])
        self.assertEqual(answers("203.0.113.1"), [])
        self.assertEqual(answers("10.0.2.99", 6), [(3, 1)])
        result = self.stop(process)
        self.assertEqual(result["dropped"]["reasons"], {
            "No route": 1, "Route prohibits": 1, "Route drops": 1,
            "No neighbour for the next hop": 1})
        counts = {entry["reason"]: entry["count"] for entry in result["counters"]
                  if entry["category"] == "Answer"}
        self.assertEqual(counts, {"unreachable: sent": 3})

    def echo_reply(self, frame: bytes) -> pathlib.Path:
        """A capture of the MPLS echo reply that west gets for a frame."""
        heard = self.host(self.west, f"""
import socket
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(0x800)); s.bind(("eth0", 0x800))
s.settimeout(3)
s.send(bytes.fromhex("{frame.hex()}"))
try:
    while True:
        got = s.recv(2000)
        if got[23] == 17 and got[34:36] == (3503).to_bytes(2, "big"): print(got.hex()); break
except TimeoutError: pass""").communicate()[0]
        capture = self.directory / "reply.pcap"
        f.write_pcap(capture, [bytes.fromhex(line) for line in heard.splitlines()])
        return capture

    def test_an_lsp_ping_is_answered_at_the_end_of_the_lsp(self):
        process = self.start()
        self.learn_neighbours()
        self.ctl("lfib", "add", "500", "vrf", "default", "payload", "auto")
        mac = self.router_mac("west")
        address = {name: socket.inet_aton(text) for name, text in (
            ("west", "10.0.1.2"), ("port", "10.0.1.1"), ("prefix", "10.0.2.0"))}

        def tlv(kind: int, value: bytes) -> bytes:
            return struct.pack("!HH", kind, len(value)) + value + bytes(-len(value) % 4)
        ldp = tlv(1, address["prefix"] + bytes([24]))
        prefix_segment = tlv(34, address["prefix"] + bytes([24, 1, 0, 0]))
        adjacency = tlv(36, bytes([4, 1, 0, 0]) + address["west"] + address["port"] + bytes(8))
        elsewhere = tlv(36, bytes([4, 1, 0, 0]) + address["west"] + address["west"] + bytes(8))

        def reply(fec: bytes, labels=(), mapping: bytes = b"") -> list[str]:
            request = struct.pack("!HHBBBBIIQQ", 1, 0, 1, 2, 0, 0, 1, 7, 0, 0) + tlv(1, fec)
            packet = f.udp_packet("10.0.1.2", "127.0.0.1", 49152, 3503, request + mapping, ttl=1)
            kind = f.ETH_MPLS if labels else f.ETH_IPV4
            frame = f.eth(mac, "02:00:00:00:00:09", kind,
                          (f.stack(*labels) if labels else b"") + packet)
            rows = agent.dissected(self.echo_reply(frame), "mpls_echo.return_code",
                                   "mpls_echo.return_subcode", "mpls_echo.sequence", "ip.dst",
                                   "mpls_echo.tlv.ilso_ipv4.int_addr",
                                   "mpls_echo.tlv.ilso_ipv4.label", "_ws.malformed", "ip.ttl")
            return rows[0] if rows else []
        for what, labels in (("no label", ()), ("explicit null", ((0, 0, 255),)),
                             ("pop and look up", ((500, 0, 255),))):
            with self.subTest(labels=what):
                self.assertEqual(reply(ldp, labels)[:4], ["3", "1", "7", "10.0.1.2"])
        self.assertEqual(reply(prefix_segment)[:2], ["3", "1"])
        self.assertEqual(reply(adjacency)[:2], ["3", "1"])
        self.assertEqual(reply(elsewhere)[:2], ["35", "1"])
        wants_interface = 2

        def mapping(interface: str, flags: int = 0) -> bytes:
            return tlv(20, struct.pack("!HBB", 1500, 1, flags) + 2 * socket.inet_aton(interface) +
                       struct.pack("!BBH", 0, 0, 8) + tlv(2, (500 << 12).to_bytes(4, "big")))
        labels = ((500, 0, 255),)
        self.assertEqual(reply(ldp, labels, mapping("10.0.1.1", wants_interface)),
                         ["3", "1", "7", "10.0.1.2", "10.0.1.1", "500", "", "255"])
        self.assertEqual(reply(ldp, labels, mapping("10.0.2.1")),
                         ["5", "0", "7", "10.0.1.2", "10.0.1.1", "500", "", "255"])
        self.stop(process)

    def test_a_trace_says_what_became_of_an_lsp_ping(self):
        """In the words of the counts."""
        process = self.start("answers: {lsp-echo: {per-second: 1, burst: 1}}\n")
        self.learn_neighbours()
        ping = f.lsp_ping("10.0.1.2", "127.0.0.1", f.ldp_fec("10.0.2.0", 24), ttl=1)
        trace = subprocess.Popen([CTL, "--tables", self.tables, "--control", str(self.path), "trace", "start", "--limit",
                                  "3", "--prefix", "127.0.0.1/32"], stdout=subprocess.PIPE, text=True)
        self.addCleanup(trace.communicate)
        self.addCleanup(trace.kill)
        self.until(lambda: ask(self.path, "trace-lines")["on"])
        quiet = f.lsp_ping("10.0.1.2", "127.0.0.1", f.ldp_fec("10.0.2.0", 24), ttl=1, mode=1)
        frames = [f.eth(self.router_mac("west"), "02:00:00:00:00:09", f.ETH_IPV4, packet).hex()
                  for packet in (quiet, ping, ping)]
        self.host(self.west, f"""
import socket
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(("eth0", 0))
for frame in {frames}: s.send(bytes.fromhex(frame))""").communicate()
        told = [line.split(" answer: ")[1] for line in trace.communicate(timeout=10)[0].splitlines() if " answer: " in line]
        self.assertEqual(told, ["LSP echo unanswered: no reply wanted",
                                "LSP echo: sent, code 3, meaning egress for the FEC, depth 1, fec 10.0.2.0/24",
                                "LSP echo: suppressed"])
        counts = {entry["reason"]: entry["count"] for entry in self.stop(process)["counters"]
                  if entry["category"] == "Answer"}
        self.assertEqual(counts, {"LSP echo unanswered: no reply wanted": 1, "LSP echo: sent": 1, "LSP echo: suppressed": 1})

    def labelled_at_east(self, frame: bytes) -> list[list[str]]:
        """Labels, TTLs, UDP source port and router alert option, as tshark reads them, of what east
        gets for a frame that west sends."""
        receiver = self.host(self.east, """
import socket
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(0x8847)); s.bind(("eth0", 0x8847))
print("ready", flush=True); s.settimeout(2)
try:
    while True: print(s.recv(2000).hex(), flush=True)
except TimeoutError: pass""")
        self.assertEqual(receiver.stdout.readline(), "ready\n")
        self.host(self.west, f"""
import socket
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(("eth0", 0))
s.send(bytes.fromhex("{frame.hex()}"))""").communicate()
        capture = self.directory / "east.pcap"
        f.write_pcap(capture, [bytes.fromhex(line) for line in receiver.communicate()[0].split()])
        return agent.dissected(capture, "mpls.label", "mpls.ttl", "udp.srcport", "ip.opt.ra",
                               "_ws.malformed")

    def test_an_lsp_ping_reply_alerts_the_routers_along_an_lsp(self):
        """The source is known at the end of the LSP only."""
        process = self.start()
        self.learn_neighbours()
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        mac = self.router_mac("west")

        def echo(kind: int, mode: int) -> bytes:
            fec = struct.pack("!HHHH", 1, 12, 1, 5) + socket.inet_aton("10.9.0.0") + bytes([16, 0, 0, 0])
            return struct.pack("!HHBBBBIIQQ", 1, 0, kind, mode, 0, 0, 1, 7, 0, 0) + fec

        def under(labels, packet: bytes) -> bytes:
            return f.eth(mac, "02:00:00:00:00:09", f.ETH_MPLS, f.stack(*labels) + packet)
        for mode, expected in ((2, ["200", "254", "3503", "", ""]),
                               (3, ["1,200", "254,254", "3503", "0", ""])):
            with self.subTest(mode=mode):
                request = f.udp_packet("172.16.0.1", "127.0.0.1", 49152, 3503, echo(1, mode), ttl=1)
                self.assertEqual(self.labelled_at_east(under([(1, 0, 9), (100, 0, 64)], request)),
                                 [expected])
        reply = f.udp_packet("10.0.1.2", "172.16.0.1", 3503, 49152, echo(2, 3))
        self.assertEqual(self.labelled_at_east(under([(1, 0, 9), (100, 0, 64)], reply)),
                         [["1,200", "63,63", "3503", "", ""]])
        counts = {entry["reason"]: entry["count"] for entry in self.stop(process)["counters"]
                  if entry["category"] == "Answer"}
        self.assertEqual(counts, {"LSP echo: sent": 2, "LSP echo: replies passed on": 1})

    def test_a_spent_ttl_is_answered_with_the_label_stack(self):
        process = self.start()
        self.learn_neighbours()
        packet = f.udp_packet("10.0.1.2", "10.0.2.2", ttl=1)
        unlabelled, = self.icmp_answers(f.eth(self.router_mac("west"), "02:00:00:00:00:09",
                                              f.ETH_IPV4, packet))
        self.assertEqual((unlabelled[20], unlabelled[21]), (11, 0))
        self.assertEqual(unlabelled[12:16], bytes([10, 0, 1, 1]))
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        labelled, = self.icmp_answers(
            f.eth(self.router_mac("west"), "02:00:00:00:00:09", f.ETH_MPLS,
                  f.stack((100, 5, 1)) + f.udp_packet("10.0.1.2", "10.0.2.2")))
        self.assertEqual((labelled[20], labelled[21]), (11, 0))
        self.assertEqual(labelled[-8:], bytes([0, 8, 1, 1]) + f.stack((100, 5, 1)))
        self.assertEqual(ask(self.path, "fates")["answers"], 2)
        self.stop(process)

    def test_a_packet_too_big_for_its_port_is_answered_with_the_mtu(self):
        process = self.start()
        self.learn_neighbours()
        ip("-n", self.router, "link", "set", "east", "mtu", "1000")
        self.ctl("lfib", "add", "100", "as", "200/300", "via", "inet", "10.0.2.2", "dev", "east")
        dont_fragment = 0x4000
        packet = f.ipv4("10.0.1.2", "10.0.2.2", bytes(1200), fragment=dont_fragment)
        heard = []

        def is_answered() -> bool:
            heard[:] = self.icmp_answers(
                f.eth(self.router_mac("west"), "02:00:00:00:00:09", f.ETH_MPLS,
                      f.stack((100, 0, 64)) + packet))
            return bool(heard)
        self.until(is_answered)
        self.assertEqual((heard[0][20], heard[0][21]), (3, 4))
        self.assertEqual(int.from_bytes(heard[0][26:28], "big"), 1000 - 2 * 4)
        self.stop(process)


if __name__ == "__main__":
    unittest.main()
