"""A link goes down under traffic: its flows take the other vias, or the backups, before anybody changes a route.

Frames are numbered, and counted where they pass: by the sender, by the kernel on the way to the agent and at both
links behind it, and by the agent. So each that is missing is missing at one place."""

import json
import subprocess
import time
import unittest

from live import LiveTest, ip

RATE = 50_000  # frames a second, while the processor is free for it
AT_LEAST = 10_000  # frames before the cut, and as many by the other link after it
# Sends numbered frames of many flows at RATE on eth0, and never faster, until a line comes in.
SENDER = f"""
import select, socket, sys, time
frames = [bytes.fromhex(line) for line in iter(sys.stdin.readline, "\\n")]
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(("eth0", 0))
sent = 0; last = time.monotonic(); ends = False
while not ends:
    now = time.monotonic(); due = min(int((now - last) * {RATE}), 256); last = now
    for number in range(sent, sent + due):
        s.send(frames[number % len(frames)] + number.to_bytes(4, "big"))
    if sent < {AT_LEAST} <= sent + due: print("now", flush=True)
    sent += due
    ends = bool(select.select([sys.stdin], [], [], 0.0005)[0])
print(sent, flush=True)
"""
# Lets the kernel keep all frames, and prints the numbers that came by each link when a line comes in.
RECEIVER = """
import json, socket, sys
def opened(name):
    s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(3))
    s.setsockopt(socket.SOL_SOCKET, 33, 1 << 30); s.bind((name, 3)); s.setblocking(False)
    return s
def numbers(s):
    while True:
        try: yield int.from_bytes(s.recv(2000)[-4:], "big")
        except BlockingIOError: return
        except OSError: pass  # the link has gone down: reported once
links = {name: opened(name) for name in ("eth0", "eth1")}
print("ready", flush=True); sys.stdin.readline()
print(json.dumps({name: list(numbers(s)) for name, s in links.items()}), flush=True)
"""
MACS = {"east": "02:00:00:00:02:02", "spare": "02:00:00:00:03:02"}


class Reroute(LiveTest):
    # Lost may be, of those that the agent has taken, what a thread has in hand when the link goes down. It looks at the
    # links before it takes frames, every tenth of a millisecond, and takes 256 of a port.
    in_flight = 256

    def setUp(self):
        super().setUp()
        ip("link", "add", "spare", "netns", self.router, "type", "veth", "peer", "name", "eth1",
           "netns", self.east)
        for name in (self.router, self.east, self.west):  # so that nothing else is received
            subprocess.run(["ip", "netns", "exec", name, "sysctl", "-q", "-w",
                            "net.ipv6.conf.all.disable_ipv6=1",
                            "net.ipv6.conf.default.disable_ipv6=1"], check=True)
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

    def frames(self, traffic: str) -> str:
        """Of 256 flows, as hexadecimal lines, but for the four bytes of their numbers."""
        to = self.router_mac("west").replace(":", "") + "020000000001"
        ether, label = {"ip": ("0800", ""), "ecmp": ("8847", "00064140"),
                        "backup": ("8847", "000a4140")}[traffic]
        lines = []
        for flow in range(256):
            header = bytes.fromhex("4500002e00000000401100000a0001020a0900") + bytes([flow])
            total = sum(int.from_bytes(header[i:i + 2], "big") for i in range(0, 20, 2))
            total = (total & 0xffff) + (total >> 16)
            checksum = 0xffff - ((total & 0xffff) + (total >> 16))
            packet = header[:10] + checksum.to_bytes(2, "big") + header[12:]
            udp = (1024 + flow).to_bytes(2, "big") + bytes.fromhex("1b58001a0000") + bytes(14)
            lines.append(to + ether + label + (packet + udp).hex())
        return "\n".join(lines)

    def counted(self, namespace: str, name: str) -> dict:
        shown = subprocess.run(["ip", "-n", namespace, "-j", "-s", "link", "show", name],
                               check=True, capture_output=True, text=True).stdout
        return json.loads(shown)[0]["stats64"]

    def cut_under(self, traffic: str) -> tuple[int, dict[str, list[int]]]:
        """The number of frames sent while the link east goes down, and the numbers of those that came by each link."""
        receiver = self.host(self.east, RECEIVER, stdin=subprocess.PIPE)
        self.assertEqual(receiver.stdout.readline(), "ready\n")
        sender = self.host(self.west, SENDER, stdin=subprocess.PIPE)
        sender.stdin.write(self.frames(traffic) + "\n\n")
        sender.stdin.flush()
        self.assertEqual(sender.stdout.readline(), "now\n")
        ip("-n", self.router, "link", "set", "east", "down")
        by_spare = self.counted(self.east, "eth1")["rx"]["packets"]
        self.until(lambda: self.counted(self.east, "eth1")["rx"]["packets"] >= by_spare + AT_LEAST)
        sent = int(sender.communicate("end\n")[0])
        self.until_quiet()
        return sent, json.loads(receiver.communicate("end\n")[0])

    def until_quiet(self) -> None:
        before = None
        while (now := self.counted(self.east, "eth1")["rx"]["packets"]) != before:
            before = now
            time.sleep(0.2)

    def check(self, traffic: str, kind: str = "packet") -> None:
        process = self.start_with_routes(kind)
        sent, came = self.cut_under(traffic)
        on_the_way = self.counted(self.west, "eth0")["tx"]["dropped"]
        result = self.stop(process)
        taken = result["in"]["frames"]
        events = {count["reason"]: count["count"] for count in result["counters"] if count["category"] == "Port"}
        before = on_the_way + events.get("west: ring full", 0)  # a machine that is busy with other things
        lost = sorted(set(range(sent)).difference(*came.values()))
        print(f"{kind} {traffic}: {taken} of {sent} taken, {len(came['eth0'])} and {len(came['eth1'])} received, "
              f"{len(lost) - before} lost; {events}", flush=True)
        self.assertEqual(taken + before, sent)
        self.assertEqual(taken, result["forwarded"]["frames"])
        self.assertEqual(sent - len(lost), len(came["eth0"]) + len(came["eth1"]))
        self.assertLessEqual(len(lost) - before, self.in_flight, lost)
        if before == 0 and lost and not self.settings:  # one thread loses none before the last that arrives there
            self.assertGreater(lost[0], came["eth0"][-1])

    def test_ip_flows_take_the_remaining_via(self):
        self.check("ip")

    def test_labelled_flows_take_the_remaining_via(self):
        self.check("ecmp")

    def test_labelled_flows_take_the_backup(self):
        self.check("backup")

    def test_labelled_flows_take_the_backup_past_the_hosts_stack(self):
        self.check("backup", "xdp")


class RerouteByWorkers(Reroute):
    """The same where other threads forward."""
    settings = "workers: 2\n"
    in_flight = 2 * Reroute.in_flight
    test_labelled_flows_take_the_backup_past_the_hosts_stack = None  # an interface with two queues has its own


if __name__ == "__main__":
    unittest.main()
