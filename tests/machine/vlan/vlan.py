"""VLAN sub-interfaces beside the kernel's VLAN devices of their names, between two hosts whose ends are VLAN devices,
too: west – router – east. The router's kernel resolves neighbours, and forwards nothing."""

import json
import pathlib
import signal
import subprocess
import sys
import unittest

from in_machine import run, until

CONTROL = "/tmp/agent.sock"
CONFIG = """ports:
- {name: west, kind: packet, addresses: [10.0.1.1/24]}
- {name: west.7, parent: west, vlan: 7, addresses: [10.0.7.1/24]}
- {name: west.q, parent: west, vlan: [100, 200], addresses: [10.0.8.1/24]}
- {name: west.9, parent: west, vlan: 9, addresses: [10.0.9.1/24]}
- {name: east, kind: packet, addresses: [10.0.2.1/24]}
routes:
- {prefix: 192.0.2.0/24, via: {nexthop: 10.0.2.2}}
lfib:
  transit:
  - {label: 100, via: {interface: west.q, nexthop: 10.0.8.2, action: swap, labels: [300]}}
  - {label: 101, via: {interface: east, nexthop: 10.0.2.2, action: swap, labels: [301]}}
"""
# The addresses of east that west reaches over each VLAN, and what the VLAN's device has of its own at the router.
OVER = {"7": "10.0.2.7", "q": "10.0.2.8"}
DEVICES = {"west.7": ("02:00:00:00:07:01", 1400), "west.q": ("02:00:00:00:08:01", 1496)}
SEND = """
import socket, sys
wire = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); wire.bind((sys.argv[1], 0))
wire.send(bytes.fromhex(sys.argv[2].replace(":", "") + "020000000909" + "8847") + (int(sys.argv[3]) << 12 | 0x140).to_bytes(4, "big") + bytes(46))
"""
RECEIVE = """
import socket, sys
wire = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(0x8847)); wire.bind((sys.argv[1], 0x8847))
wire.settimeout(60); print("ready", flush=True)
print(int.from_bytes(wire.recv(2000)[14:17], "big") >> 4)
"""


def inside(name: str, *command, check: bool = True):
    return run("ip", "netns", "exec", name, *command, check=check)


def ip(name: str, words: str) -> None:
    run("ip", "-n", name, *words.split())


def vlan_devices(name: str, below: str) -> None:
    """BELOW.7 in VLAN 7, and BELOW.q in the VLANs 100 and 200."""
    ip(name, f"link add link {below} name {below}.7 type vlan id 7")
    ip(name, f"link add link {below} name {below}.s type vlan proto 802.1ad id 100")
    ip(name, f"link add link {below}.s name {below}.q type vlan id 200")
    for device in ("7", "s", "q"):
        ip(name, f"link set {below}.{device} up")


class Vlan(unittest.TestCase):
    """In the order of their numbers, since a machine boots once."""

    agent: subprocess.Popen

    @classmethod
    def setUpClass(cls):
        for name in ("w", "r", "e"):
            run("ip", "netns", "add", name)
        for host, port, network in (("w", "west", 1), ("e", "east", 2)):
            run("ip", "link", "add", port, "netns", "r", "type", "veth", "peer", "name", "host", "netns", host)
            for name, device, last in (("r", port, 1), (host, "host", 2)):
                ip(name, f"link set {device} up")
                ip(name, f"addr add 10.0.{network}.{last}/24 dev {device}")
        for name, below, last in (("r", "west", 1), ("w", "host", 2)):
            vlan_devices(name, below)
            ip(name, f"addr add 10.0.7.{last}/24 dev {below}.7")
            ip(name, f"addr add 10.0.8.{last}/24 dev {below}.q")
        for device, (mac, mtu) in DEVICES.items():
            ip("r", f"link set {device} address {mac} mtu {mtu}")
        for (vlan, address), network in zip(OVER.items(), (7, 8)):
            ip("e", f"addr add {address}/24 dev host")
            ip("w", f"route add {address}/32 via 10.0.{network}.1")
        ip("e", "route add default via 10.0.2.1")
        inside("r", "sysctl", "-qw", "net.ipv4.ip_forward=0")
        pathlib.Path("agent.yaml").write_text(CONFIG)
        cls.agent = subprocess.Popen(
            ["ip", "netns", "exec", "r", "ovix-agent", "run", "agent.yaml", "--live", "--json", "--control", CONTROL],
            stdout=subprocess.PIPE, text=True)
        until("the agent forwards", lambda: run("ovixctl", "--control", CONTROL, "status", check=False).returncode == 0)

    def port(self, name: str) -> dict:
        shown = json.loads(run("ovixctl", "--control", CONTROL, "--json", "port", "show").stdout)
        return next(one for one in shown["ports"] if one["name"] == name)

    def answers(self, address: str) -> bool:
        return inside("w", "ping", "-c", "1", "-W", "3", address, check=False).returncode == 0

    def label_at(self, host: str, device: str, sender: str, by: str, mac: str, label: int) -> str:
        receiver = subprocess.Popen(["ip", "netns", "exec", host, "python3", "-c", RECEIVE, device],
                                    stdout=subprocess.PIPE, text=True)
        self.addCleanup(receiver.kill)
        self.assertEqual(receiver.stdout.readline(), "ready\n")
        inside(sender, "python3", "-c", SEND, by, mac, label)
        return receiver.communicate(timeout=90)[0].strip()

    def test_1_a_device_gives_its_mac_and_mtu(self):
        for name, (mac, mtu) in DEVICES.items():
            self.assertEqual((self.port(name)["mac"], self.port(name)["mtu"]), (mac, mtu), name)
        parent = self.port("west")
        self.assertEqual((self.port("west.9")["mac"], self.port("west.9")["mtu"]), (parent["mac"], parent["mtu"]))

    def test_2_packets_pass_with_one_tag_and_with_two(self):
        for vlan, address in OVER.items():
            until(f"an answer over VLAN {vlan}", lambda address=address: self.answers(address))

    def test_3_labels_pass_from_and_to_a_vlan(self):
        mac = DEVICES["west.7"][0]
        self.assertEqual(self.label_at("e", "host", "w", "host.7", mac, 101), "301")
        self.assertEqual(self.label_at("w", "host.q", "e", "host", self.port("east")["mac"], 100), "300")

    def test_4_what_exceeds_the_devices_mtu_is_answered(self):
        ping = ("ping", "-I", OVER["7"], "-c", "2", "-W", "10", "-M", "do", "10.0.7.2", "-s")
        self.assertIn("mtu = 1400", inside("e", *ping, "1373", check=False).stdout)
        inside("e", *ping, "1372")

    def test_5_a_device_that_is_down_takes_its_port_down_alone(self):
        ip("r", "link set west.7 down")
        until("west.7 is down", lambda: self.port("west.7")["state"] == "down")
        self.assertFalse(self.answers(OVER["7"]))
        self.assertTrue(self.answers(OVER["q"]))
        ip("r", "link set west.7 up")
        until("an answer over VLAN 7", lambda: self.answers(OVER["7"]))

    def test_6_without_its_device_a_port_has_what_its_parent_has(self):
        ip("r", "link del west.q")
        parent = self.port("west")
        until("west.q is its parent's", lambda: (self.port("west.q")["mac"], self.port("west.q")["mtu"]) == (
            parent["mac"], parent["mtu"]))

    def test_7_frames_of_a_vlan_that_nobody_has_are_dropped(self):
        ip("w", "link add link host name host.55 type vlan id 55")
        ip("w", "link set host.55 up")
        inside("w", "python3", "-c", SEND, "host.55", self.port("west")["mac"], 101)
        self.agent.send_signal(signal.SIGTERM)
        result = json.loads(self.agent.communicate(timeout=60)[0])
        self.assertTrue(result["balanced"])
        self.assertGreaterEqual(result["dropped"]["reasons"].get("VLAN without a sub-interface", 0), 1)


if __name__ == "__main__":
    sys.stderr = sys.stdout
    unittest.main(verbosity=2)
