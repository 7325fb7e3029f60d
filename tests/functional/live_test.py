"""The agent on live ports between two hosts, each in a network namespace of its own."""

import json
import os
import pathlib
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import time
import unittest

import agent
import frames as f
from running_agent import CTL

DEADLINE = 30


def ip(*arguments: str) -> None:
    subprocess.run(["ip", *arguments], check=True, capture_output=True)


def why_not() -> str:
    """Why there can be no namespaces here; empty when there can."""
    if os.geteuid() != 0:
        return "needs root"
    name = f"ovix-try-{os.getpid()}"
    done = subprocess.run(["sh", "-e", "-c", f"ip netns add {name}; ip -n {name} link show"],
                          capture_output=True, text=True, check=False)
    subprocess.run(["ip", "netns", "del", name], capture_output=True, check=False)
    return "" if done.returncode == 0 else f"needs network namespaces: {done.stderr.strip()}"


class Live(unittest.TestCase):
    """west host – router – east host; the router's own kernel forwards nothing."""

    @classmethod
    def setUpClass(cls):
        reason = why_not()
        if reason:
            raise unittest.SkipTest(reason)

    def setUp(self):
        self.directory = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.directory)
        stem = f"ovix{os.getpid()}"
        self.router, self.west, self.east = f"{stem}r", f"{stem}w", f"{stem}e"
        for name in (self.router, self.west, self.east):
            ip("netns", "add", name)
            self.addCleanup(subprocess.run, ["ip", "netns", "del", name], check=False)
        for port, host, network in (("west", self.west, 1), ("east", self.east, 2)):
            ip("link", "add", port, "netns", self.router, "type", "veth", "peer", "name", "eth0",
               "netns", host)
            ip("-n", self.router, "addr", "add", f"10.0.{network}.1/24", "dev", port)
            ip("-n", host, "addr", "add", f"10.0.{network}.2/24", "dev", "eth0")
            ip("-n", self.router, "link", "set", port, "up")
            ip("-n", host, "link", "set", "eth0", "up")
            ip("-n", host, "route", "add", "default", "via", f"10.0.{network}.1")
        self.tables = f"live-{os.getpid()}-{self.id().rsplit('.', 1)[-1][:30]}"
        self.addCleanup(pathlib.Path(f"/dev/shm/ovix-{self.tables}").unlink, missing_ok=True)
        self.path = self.directory / "control.sock"

    def start(self, extra: str = "", kind: str = "packet") -> subprocess.Popen:
        self.config = self.directory / "agent.yaml"
        self.configure(extra, kind)
        command = ["ip", "netns", "exec", self.router, agent.AGENT, "run", str(self.config),
                   "--live", "--tables", self.tables, "--control", str(self.path), "--json"]
        if agent.PLUGIN:
            command += ["--plugin", agent.PLUGIN]
        process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   text=True)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        self.until(self.path.exists)
        return process

    def configure(self, extra: str = "", kind: str = "packet") -> None:
        self.config.write_text(f"""
ports:
  - {{name: west, kind: {kind}, addresses: [10.0.1.1/24]}}
  - {{name: east, kind: {kind}, addresses: [10.0.2.1/24]}}
{extra}""")

    def run_briefly(self, ports: str, *prefix: str) -> subprocess.CompletedProcess:
        """A run with these ports alone, ended after a second unless it ends by itself."""
        config = self.directory / "brief.yaml"
        config.write_text(f"ports: [{ports}]\n")
        return subprocess.run(
            ["ip", "netns", "exec", self.router, "timeout", "--preserve-status", "-s", "TERM", "1.5",
             *prefix, agent.AGENT, "run", str(config), "--live", "--json",
             *(["--plugin", agent.PLUGIN] if agent.PLUGIN else [])],
            capture_output=True, text=True, check=False, timeout=DEADLINE)

    def stop(self, process: subprocess.Popen) -> dict:
        process.send_signal(signal.SIGTERM)
        stdout, stderr = process.communicate(timeout=DEADLINE)
        self.assertEqual(process.returncode, 0, stderr)
        result = json.loads(stdout)
        self.assertTrue(result["balanced"])
        return result

    def until(self, met) -> None:
        end = time.monotonic() + DEADLINE
        while not met():
            self.assertLess(time.monotonic(), end, "nothing happened for too long")
            time.sleep(0.02)

    def ctl(self, *arguments: str) -> None:
        subprocess.run([CTL, "--tables", self.tables, *arguments], check=True,
                       capture_output=True)

    def host(self, name: str, program: str, **keys) -> subprocess.Popen:
        """A Python program that runs on one of the hosts."""
        return subprocess.Popen(["ip", "netns", "exec", name, "python3", "-c", program],
                                stdout=subprocess.PIPE, text=True, **keys)

    def datagrams(self, count: int) -> int:
        """How many of so many datagrams, sent one after the other, come from west to east."""
        receiver = self.host(self.east, f"""
import socket
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM); s.bind(("10.0.2.2", 7000))
print("ready", flush=True); s.settimeout(2); got = 0
try:
    while got < {count}: s.recv(100); got += 1
except TimeoutError: pass
print(got, flush=True)""")
        self.assertEqual(receiver.stdout.readline(), "ready\n")
        self.host(self.west, f"""
import socket, time
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
for i in range({count}): s.sendto(b"%d" % i, ("10.0.2.2", 7000)); time.sleep(0.002)""").communicate()
        got = int(receiver.stdout.readline())
        receiver.communicate()
        return got

    def labelled(self, label: int, count: int) -> int:
        """How many of so many labelled frames that west sends arrive at east with label 200."""
        receiver = self.host(self.east, f"""
import socket
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(0x8847)); s.bind(("eth0", 0x8847))
print("ready", flush=True); s.settimeout(2); got = 0
try:
    while got < {count}:
        frame = s.recv(2000); got += int.from_bytes(frame[14:17], "big") >> 4 == 200
except TimeoutError: pass
print(got, flush=True)""")
        self.assertEqual(receiver.stdout.readline(), "ready\n")
        mac = pathlib.Path(self.directory / "mac")
        mac.write_text(subprocess.run(
            ["ip", "-n", self.router, "-j", "link", "show", "west"], check=True,
            capture_output=True, text=True).stdout)
        address = json.loads(mac.read_text())[0]["address"].replace(":", "")
        self.host(self.west, f"""
import socket, time
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(("eth0", 0))
frame = bytes.fromhex("{address}" + "020000000002" + "8847") + ({label} << 12 | 0x140).to_bytes(4, "big")
for i in range({count}): s.send(frame + bytes(46)); time.sleep(0.002)""").communicate()
        got = int(receiver.stdout.readline())
        receiver.communicate()
        return got

    def learn_neighbours(self) -> None:
        """Makes both hosts and the router know each other: the first frame asks for its next hop."""
        self.until(lambda: self.datagrams(1) == 1)

    def test_ip_is_forwarded_and_a_neighbour_is_asked_for(self):
        process = self.start()
        self.learn_neighbours()
        self.assertEqual(self.datagrams(50), 50)
        result = self.stop(process)
        self.assertLessEqual(set(result["dropped"]["reasons"]), {"No neighbour for the next hop"})
        self.assertGreaterEqual(result["forwarded"]["ports"]["east"]["frames"], 51)

    def link_address(self, name: str, link: str) -> str:
        shown = subprocess.run(["ip", "-n", name, "-j", "link", "show", link], check=True,
                               capture_output=True, text=True).stdout
        return json.loads(shown)[0]["address"]

    def test_a_vlan_has_a_port_of_its_own(self):
        host = self.link_address(self.west, "eth0")
        process = self.start("  - {name: west.100, parent: west, vlan: 100, "
                             "addresses: [10.0.3.1/24]}\n"
                             "neighbours:\n"
                             f"  - {{address: 10.0.3.2, port: west.100, mac: '{host}'}}\n")
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.3.2", "dev", "west.100")
        router = self.link_address(self.router, "west").replace(":", "")
        # The kernel keeps a received tag apart from the frame: with the auxiliary data.
        program = f"""
import socket
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(3)); s.bind(("eth0", 3))
s.setsockopt(263, 8, 1); s.settimeout(1); got = 0
for vlan in [100] * 10 + [101]:
    s.send(bytes.fromhex("{router}" + "020000000002" + "8100%04x" % vlan + "8847" + "00064140") + bytes(46))
try:
    while got < 10:
        frame, control, _, _ = s.recvmsg(2000, 100)
        vlan = int.from_bytes(control[0][2][16:18], "little")
        got += vlan == 100 and int.from_bytes(frame[14:17], "big") >> 4 == 200
except TimeoutError: pass
print(got)"""
        self.until(lambda: self.host(self.west, program).communicate()[0] == "10\n")
        result = self.stop(process)
        self.assertGreaterEqual(result["forwarded"]["ports"]["west.100"]["frames"], 10)
        self.assertEqual(result["forwarded"]["ports"]["west"]["frames"], 0)
        self.assertGreaterEqual(result["dropped"]["reasons"]["VLAN without a sub-interface"], 1)

    def sent_by_west(self) -> int:
        """How many frames west's end of its link has sent, uncut ones counted once."""
        return int(self.host(self.west, """
print(open("/sys/class/net/eth0/statistics/tx_packets").read())""").communicate()[0])

    def test_a_stream_whose_sender_leaves_cutting_it_up_to_the_hardware_arrives_whole(self):
        process = self.start()
        self.learn_neighbours()
        receiver = self.host(self.east, """
import hashlib, socket
s = socket.create_server(("10.0.2.2", 7001)); print("ready", flush=True)
stream = s.accept()[0].makefile("rb").read()
print(len(stream), hashlib.sha256(stream).hexdigest())""")
        self.assertEqual(receiver.stdout.readline(), "ready\n")
        sent = self.host(self.west, """
import hashlib, random, socket
stream = random.Random(1).randbytes(5_000_000)
with socket.create_connection(("10.0.2.2", 7001), timeout=20) as s: s.sendall(stream)
print(len(stream), hashlib.sha256(stream).hexdigest())""").communicate(timeout=DEADLINE)[0]
        self.assertEqual(receiver.communicate(timeout=DEADLINE)[0], sent)
        frames = self.sent_by_west()
        result = self.stop(process)
        self.assertGreater(result["forwarded"]["ports"]["east"]["frames"], 2 * frames)

    def test_labels_are_swapped_and_counted(self):
        process = self.start()
        self.learn_neighbours()
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.assertEqual(self.labelled(100, 30), 30)
        result = self.stop(process)
        self.assertEqual([(entry["label"], entry["packets"]) for entry in result["labels"]],
                         [(100, 30)])

    def test_labels_are_swapped_past_the_hosts_stack(self):
        process = self.start(kind="xdp")
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.until(lambda: self.labelled(100, 5) == 5)
        self.assertEqual(self.labelled(100, 30), 30)
        self.stop(process)

    def test_a_link_that_goes_down_and_a_port_that_goes_and_comes_back_are_survived(self):
        process = self.start()
        self.learn_neighbours()
        ip("-n", self.router, "link", "set", "east", "down")
        self.assertEqual(self.datagrams(3), 0)
        ip("-n", self.router, "link", "set", "east", "up")
        self.until(lambda: self.datagrams(1) == 1)
        ip("-n", self.router, "link", "del", "east")
        self.assertEqual(self.host(self.west, "print(1)").communicate()[0], "1\n")
        ip("link", "add", "east", "netns", self.router, "type", "veth", "peer", "name", "eth0",
           "netns", self.east)
        ip("-n", self.router, "addr", "add", "10.0.2.1/24", "dev", "east")
        ip("-n", self.east, "addr", "add", "10.0.2.2/24", "dev", "eth0")
        ip("-n", self.router, "link", "set", "east", "up")
        ip("-n", self.east, "link", "set", "eth0", "up")
        ip("-n", self.east, "route", "add", "default", "via", "10.0.2.1")
        self.until(lambda: self.datagrams(1) == 1)
        self.assertEqual(self.datagrams(20), 20)
        self.stop(process)

    def test_the_first_packets_wait_for_their_neighbour(self):
        process = self.start()
        self.assertEqual(self.datagrams(3), 3)
        result = self.stop(process)
        self.assertEqual(result["dropped"]["reasons"], {})

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
                                   "mpls_echo.tlv.ilso_ipv4.label", "_ws.malformed")
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
                         ["3", "1", "7", "10.0.1.2", "10.0.1.1", "500", ""])
        self.assertEqual(reply(ldp, labels, mapping("10.0.2.1")),
                         ["5", "0", "7", "10.0.1.2", "10.0.1.1", "500", ""])
        self.stop(process)

    def icmp_answers(self, frame: bytes, seconds: int = 1) -> list[bytes]:
        """The ICMP packets that west gets for a frame that it sends to the router."""
        heard = self.host(self.west, f"""
import socket
icmp = socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_ICMP); icmp.settimeout({seconds})
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(("eth0", 0))
s.send(bytes.fromhex("{frame.hex()}"))
try:
    while True: print(icmp.recv(2000).hex(), flush=True)
except TimeoutError: pass""").communicate()[0]
        return [bytes.fromhex(line) for line in heard.splitlines()]

    def router_mac(self, port: str) -> str:
        shown = subprocess.run(["ip", "-n", self.router, "-j", "link", "show", port], check=True,
                               capture_output=True, text=True).stdout
        return json.loads(shown)[0]["address"]

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

    def test_ports_that_cannot_be_opened_are_told_of(self):
        absent = self.run_briefly("{name: west, kind: packet}, {name: nowhere, kind: packet}")
        self.assertEqual(absent.returncode, 1)
        problem = "nowhere: finding the interface: No such device"
        self.assertIn(f"ovix-agent: {problem}\n", absent.stderr)
        self.assertEqual(json.loads(absent.stdout)["problems"], [problem])
        unprivileged = self.run_briefly("{name: west, kind: packet}", "setpriv",
                                        "--bounding-set", "-net_raw,-net_admin")
        self.assertEqual(unprivileged.returncode, 1)
        self.assertIn("ovix-agent: no port can be used: west: opening a packet socket: "
                      "Operation not permitted\n", unprivileged.stderr)
        self.assertEqual(unprivileged.stdout, "")

    def test_a_tap_port_is_made_and_disturbs_no_other(self):
        config = "cpu: {tap: cpu0}"
        process = self.start(config)
        self.learn_neighbours()
        process.send_signal(signal.SIGTERM)
        process.communicate(timeout=DEADLINE)
        tap = self.run_briefly("{name: west, kind: packet}, {name: tap0, kind: tap}")
        self.assertEqual(tap.returncode, 0, tap.stderr)
        self.assertEqual(tap.stderr, "")

    def test_what_has_come_in_before_the_end_is_forwarded(self):
        process = self.start()
        self.learn_neighbours()
        before = json.loads(subprocess.run([CTL, "--control", str(self.path), "counters", "show",
                                            "--json"], check=True, capture_output=True).stdout)
        self.assertIn("counters", before)
        os.kill(process.pid, signal.SIGSTOP)
        mac = self.router_mac("west").replace(":", "")
        packet = f.udp_packet("10.0.1.2", "10.0.2.2").hex()
        self.host(self.west, f"""
import socket
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(("eth0", 0))
for i in range(2000): s.send(bytes.fromhex("{mac}" + "020000000009" + "0800" + "{packet}"))
""").communicate()
        process.send_signal(signal.SIGTERM)
        os.kill(process.pid, signal.SIGCONT)
        stdout, stderr = process.communicate(timeout=DEADLINE)
        self.assertEqual(process.returncode, 0, stderr)
        result = json.loads(stdout)
        self.assertTrue(result["balanced"])
        self.assertGreaterEqual(result["forwarded"]["ports"]["east"]["frames"], 2000)

    def test_addresses_and_status_change_with_the_configuration(self):
        process = self.start()
        self.learn_neighbours()
        self.config.write_text("""
ports:
  - {name: west, kind: packet, addresses: [10.0.1.77/24]}
  - {name: east, kind: packet, addresses: [10.0.2.1/24]}
""")
        process.send_signal(signal.SIGHUP)
        spent = f.eth(self.router_mac("west"), "02:00:00:00:00:09", f.ETH_IPV4,
                      f.udp_packet("10.0.1.2", "10.0.2.2", ttl=1))
        self.until(lambda: [one[12:16] for one in self.icmp_answers(spent)]
                   == [bytes([10, 0, 1, 77])])
        self.config.write_text("""
ports:
  - {name: west, kind: packet, addresses: [10.0.1.1/24]}
  - {name: east, kind: packet, addresses: [10.0.2.1/24], status: down}
""")
        process.send_signal(signal.SIGHUP)
        self.until(lambda: self.datagrams(1) == 0)
        self.configure()
        process.send_signal(signal.SIGHUP)
        self.until(lambda: self.datagrams(1) == 1)
        self.stop(process)

    def test_the_configuration_is_read_anew_and_a_bad_one_is_refused(self):
        process = self.start()
        self.learn_neighbours()
        drop = "routes: [{prefix: 10.0.2.2/32, drop: true}]"
        self.configure(drop)
        process.send_signal(signal.SIGHUP)
        self.until(lambda: self.datagrams(1) == 0)
        self.configure("routes: [{prefix: nonsense}]")
        process.send_signal(signal.SIGHUP)
        self.assertEqual(self.datagrams(1), 0)
        self.configure()
        process.send_signal(signal.SIGHUP)
        self.until(lambda: self.datagrams(1) == 1)
        process.send_signal(signal.SIGTERM)
        _, stderr = process.communicate(timeout=DEADLINE)
        self.assertIn("nonsense", stderr)
        self.assertIn("; the configuration stays as it was", stderr)
        self.assertEqual(stderr.count(": reloaded"), 2)
        self.assertEqual(process.returncode, 0)


if __name__ == "__main__":
    unittest.main()
