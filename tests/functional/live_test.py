"""Frames between live ports: forwarded, counted, and not lost while links and settings change."""

import json
import os
import signal
import subprocess
import unittest

import frames as f
from live import DEADLINE, LiveTest, ip
from running_agent import CTL


class Live(LiveTest):
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

    def test_the_first_ipv6_packets_to_a_neighbour_on_a_vlan_wait_for_it(self):
        # The device that has the VLAN's neighbours is told by its name, so any will do for one.
        ip("link", "add", "west.100", "netns", self.router, "type", "veth", "peer", "name", "vlan",
           "netns", self.west)
        for name, link, address in ((self.router, "west.100", "2001:db8:3::1/64"),
                                    (self.west, "vlan", "2001:db8:3::2/64"),
                                    (self.router, "east", "2001:db8:2::1/64"),
                                    (self.east, "eth0", "2001:db8:2::2/64")):
            ip("-n", name, "addr", "add", address, "dev", link, "nodad")
            ip("-n", name, "link", "set", link, "up")
        ip("-n", self.east, "-6", "route", "add", "default", "via", "2001:db8:2::1")
        # A kernel that still resolves the router may send what has waited behind later packets.
        ip("-n", self.east, "neigh", "add", "2001:db8:2::1", "dev", "eth0", "lladdr",
           self.link_address(self.router, "east"))
        self.until(lambda: "fe80::" in self.addresses(self.router, "west.100"))
        process = self.start("  - {name: west.100, parent: west, vlan: 100, "
                             "addresses: ['2001:db8:3::1/64']}\n")
        receiver = self.host(self.west, """
import socket
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(3)); s.bind(("eth0", 3))
s.setsockopt(263, 8, 1); s.settimeout(5); print("ready", flush=True); got = []
try:
    while len(got) < 3:
        frame, control, _, _ = s.recvmsg(2000, 100)
        vlan = int.from_bytes(control[0][2][16:18], "little")
        if frame[12:14] == b"\\x86\\xdd" and frame[20] == 17: got.append((vlan, frame[-1]))
except TimeoutError: pass
print(got)""")
        self.assertEqual(receiver.stdout.readline(), "ready\n")
        self.host(self.east, """
import socket
s = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)
for i in range(3): s.sendto(bytes([i]), ("2001:db8:3::2", 7000))""").communicate()
        self.assertEqual(receiver.communicate()[0], "[(100, 0), (100, 1), (100, 2)]\n")
        result = self.stop(process)
        self.assertEqual(result["forwarded"]["ports"]["west.100"]["frames"], 3)

    def addresses(self, name: str, link: str) -> str:
        """Those that are in use."""
        return subprocess.run(["ip", "-n", name, "addr", "show", link, "-tentative"], check=True,
                              capture_output=True, text=True).stdout

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
        paths = {entry["reason"]: entry["count"] for entry in result["counters"]
                 if entry["category"] == "Path"}
        self.assertGreaterEqual(paths["fast"], 25)
        self.assertLessEqual(paths["fast"] + paths["slow"], result["in"]["frames"])

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

    def test_ports_that_cannot_be_opened_are_reported_without_failing_the_run(self):
        absent = self.run_briefly("{name: west, kind: packet}, {name: nowhere, kind: packet}")
        self.assertEqual(absent.returncode, 0)
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

    def test_what_came_while_the_ring_was_full_shows_as_missed(self):
        process = self.start()
        self.learn_neighbours()
        os.kill(process.pid, signal.SIGSTOP)
        frame = f.eth(self.router_mac("west"), "02:00:00:00:00:09", f.ETH_MPLS, f.stack(999)).hex()
        self.host(self.west, f"""
import socket
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(("eth0", 0))
for i in range(60000): s.send(bytes.fromhex("{frame}"))
""").communicate()
        os.kill(process.pid, signal.SIGCONT)

        def shown(*words: str) -> str:
            return subprocess.run([CTL, "--control", str(self.path), *words], check=True, capture_output=True,
                                  text=True).stdout
        status = lambda: json.loads(shown("status", "--json"))
        self.until(lambda: status()["missed"] > 0 and status()["missed"] + status()["frames"]["in"] >= 60000)
        missed = status()["missed"]
        self.assertRegex(shown("status"), rf"(?m)^missed +{missed}, which came while rings were full")
        self.assertRegex(shown("port", "show"), rf"(?m)^west .* {missed} ")
        self.stop(process)

    def test_addresses_and_status_change_with_the_configuration(self):
        process = self.start()
        self.learn_neighbours()
        self.config.write_text(self.settings + """
ports:
  - {name: west, kind: packet, addresses: [10.0.1.77/24]}
  - {name: east, kind: packet, addresses: [10.0.2.1/24]}
""")
        process.send_signal(signal.SIGHUP)
        spent = f.eth(self.router_mac("west"), "02:00:00:00:00:09", f.ETH_IPV4,
                      f.udp_packet("10.0.1.2", "10.0.2.2", ttl=1))
        self.until(lambda: [one[12:16] for one in self.icmp_answers(spent)]
                   == [bytes([10, 0, 1, 77])])
        self.config.write_text(self.settings + """
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
