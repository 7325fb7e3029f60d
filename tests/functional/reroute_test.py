"""A link goes down under traffic: its flows take the other vias, or the backups, before anybody changes a route."""

import json
import subprocess
import unittest

from live import LiveTest, ip

RATE = 50_000  # frames a second
SECONDS = 0.6
# Sends frames of many flows at RATE on eth0; when a third of the time is over, it says so.
SENDER = """
import socket, sys, time
frames = [bytes.fromhex(line) for line in iter(sys.stdin.readline, "\\n")]
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(("eth0", 0))
start = time.monotonic(); sent = 0; told = False
while (now := time.monotonic() - start) < {seconds}:
    while sent < now * {rate}:
        s.send(frames[sent % len(frames)]); sent += 1
    if not told and now > {seconds} / 3: print("now", flush=True); told = True
    time.sleep(0.0005)
print(sent, flush=True)
"""
MACS = {"east": "02:00:00:00:02:02", "spare": "02:00:00:00:03:02"}


class Reroute(LiveTest):
    def setUp(self):
        super().setUp()
        for name in (self.router, self.east):  # so that nothing else is received
            subprocess.run(["ip", "netns", "exec", name, "sysctl", "-q", "-w",
                            "net.ipv6.conf.all.disable_ipv6=1",
                            "net.ipv6.conf.default.disable_ipv6=1"], check=True)
        ip("link", "add", "spare", "netns", self.router, "type", "veth", "peer", "name", "eth1",
           "netns", self.east)
        ip("-n", self.router, "addr", "add", "10.0.3.1/24", "dev", "spare")
        ip("-n", self.router, "link", "set", "spare", "up")
        ip("-n", self.east, "link", "set", "eth1", "up")

    def start_with_routes(self, kind: str) -> subprocess.Popen:
        """10.9.0.0/16 and label 100 are shared by two ports; label 164 has a backup."""
        neighbours = [f"  - {{address: 10.0.{network}.2, port: {port}, mac: '{MACS[port]}'}}\n"
                      for port, network in (("east", 2), ("spare", 3))]
        process = self.start(f"  - {{name: spare, kind: {kind}, addresses: [10.0.3.1/24]}}\n"
                             "neighbours:\n" + "".join(neighbours) +
                             "routes: [{prefix: 10.9.0.0/16, vias: [{nexthop: 10.0.2.2}, "
                             "{nexthop: 10.0.3.2}]}]\n", kind)
        east = ("via", "inet", "10.0.2.2", "dev", "east")
        spare = ("via", "inet", "10.0.3.2", "dev", "spare")
        self.ctl("lfib", "add", "100", "nexthop", "as", "300", *east, "nexthop", "as", "300", *spare)
        self.ctl("lfib", "add", "adjacency", "5", "as", "300", *east, "backup", "as", "300", *spare)
        self.ctl("lfib", "add", "hardware", "164", "adjacency", "5")
        return process

    def frames(self, kind: str) -> str:
        """Of 256 flows, as hexadecimal lines."""
        to = self.router_mac("west").replace(":", "") + "020000000001"
        ether, label = {"ip": ("0800", ""), "ecmp": ("8847", "00064140"),
                        "backup": ("8847", "000a4140")}[kind]
        lines = []
        for flow in range(256):
            header = bytes.fromhex("4500002e00000000401100000a0001020a0900") + bytes([flow])
            total = sum(int.from_bytes(header[i:i + 2], "big") for i in range(0, 20, 2))
            total = (total & 0xffff) + (total >> 16)
            checksum = 0xffff - ((total & 0xffff) + (total >> 16))
            packet = header[:10] + checksum.to_bytes(2, "big") + header[12:]
            udp = (1024 + flow).to_bytes(2, "big") + bytes.fromhex("1b58001a0000") + bytes(18)
            lines.append(to + ether + label + (packet + udp).hex())
        return "\n".join(lines)

    def received(self) -> dict:
        shown = subprocess.run(["ip", "-n", self.east, "-j", "-s", "link", "show"], check=True,
                               capture_output=True, text=True).stdout
        return {link["ifname"]: link["stats64"]["rx"]["packets"] for link in json.loads(shown)}

    def cut_under(self, traffic: str) -> tuple[int, dict]:
        """Frames sent while the link east goes down, and how many came by each link."""
        before = self.received()
        sender = self.host(self.west, SENDER.format(rate=RATE, seconds=SECONDS),
                           stdin=subprocess.PIPE)
        sender.stdin.write(self.frames(traffic) + "\n\n")
        sender.stdin.flush()
        self.assertEqual(sender.stdout.readline(), "now\n")
        ip("-n", self.router, "link", "set", "east", "down")
        sent = int(sender.communicate()[0])
        by = {}

        def is_quiet() -> bool:
            nonlocal by
            last, by = by, {name: count - before[name] for name, count in self.received().items()}
            return last == by
        self.until(is_quiet)
        return sent, by

    def check(self, traffic: str, kind: str = "packet") -> None:
        process = self.start_with_routes(kind)
        sent, by = self.cut_under(traffic)
        result = self.stop(process)
        taken = result["in"]["frames"]  # on a machine that is busy with other things not all
        lost = taken - by["eth0"] - by["eth1"]
        print(f"{kind} {traffic}: {lost} of {taken} lost, {by['eth0']} and {by['eth1']} received",
              flush=True)
        self.assertGreater(sent, RATE * SECONDS / 2)
        self.assertGreater(by["eth0"], 0)
        # What the link had been given when it went down: nothing that was forwarded later.
        self.assertLess(lost, RATE * 0.02, result["counters"])
        self.assertEqual(result["dropped"]["frames"], 0, result["dropped"])

    def test_ip_flows_take_the_remaining_via(self):
        self.check("ip")

    def test_labelled_flows_take_the_remaining_via(self):
        self.check("ecmp")

    def test_labelled_flows_take_the_backup(self):
        self.check("backup")

    def test_labelled_flows_take_the_backup_past_the_hosts_stack(self):
        self.check("backup", "xdp")


if __name__ == "__main__":
    unittest.main()
