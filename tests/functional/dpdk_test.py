"""Ports on devices that the agent drives itself by DPDK."""

import json
import pathlib
import shutil
import subprocess
import unittest

import agent
import frames as f
from live import DEADLINE, LiveTest, ip
from running_agent import ask

MODULE = pathlib.Path(agent.AGENT).resolve().parent.parent / "lib" / "libOvixDpdk.so"
LFIB = """
lfib:
  transit:
    - {label: 100, via: {action: swap, labels: [200], nexthop: 10.0.2.2, interface: east}}
neighbours:
  - {address: 10.0.2.2, port: east, mac: '02:00:00:00:00:99'}
"""


@unittest.skipUnless(MODULE.exists(), "needs the module for DPDK, which was not built")
class Dpdk(LiveTest):
    """The interfaces of LiveTest become the wires of devices; the ports are TAP devices of their names."""
    queues = ""  # of each device, in words of its driver

    def configure(self, extra: str = "", kind: str = "dpdk") -> None:
        for port in ("west", "east"):
            ip("-n", self.router, "link", "set", port, "down")
            ip("-n", self.router, "link", "set", port, "name", f"{port}w")
            ip("-n", self.router, "addr", "flush", "dev", f"{port}w")
            ip("-n", self.router, "link", "set", f"{port}w", "up")
        self.config.write_text(self.settings + "ports:\n" + "".join(
            f"  - {{name: {port}, kind: dpdk, device: 'net_af_packet{i},iface={port}w{self.queues}', "
            f"addresses: [10.0.{i}.1/24]}}\n" for i, port in ((1, "west"), (2, "east"))) + extra)

    def pings(self, address: str, count: int) -> bool:
        done = subprocess.run(["ip", "netns", "exec", self.west, "ping", "-c", str(count), "-i", "0.005", "-W", "2",
                               address], capture_output=True, text=True, check=False)
        return " 0% packet loss" in done.stdout

    def start_alone(self, text: str) -> subprocess.Popen:
        """An agent with that configuration in place of the interfaces."""
        for port in ("west", "east"):
            ip("-n", self.router, "link", "del", port)
        config = self.directory / "alone.yaml"
        config.write_text(text)
        process = subprocess.Popen(["ip", "netns", "exec", self.router, agent.AGENT, "run", str(config), "--live", "--json",
                                    "--control", str(self.path), *(["--plugin", agent.PLUGIN] if agent.PLUGIN else [])],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        return process

    def test_the_host_answers_behind_its_ports_and_the_agent_routes_between_them(self):
        process = self.start()
        for i, port in ((1, "west"), (2, "east")):
            ip("-n", self.router, "addr", "add", f"10.0.{i}.1/24", "dev", port)
        self.until(lambda: self.pings("10.0.1.1", 1))
        # Not datagrams: virtual links leave their checksums to cards, which these devices are not.
        self.until(lambda: self.pings("10.0.2.2", 1))
        self.assertTrue(self.pings("10.0.2.2", 50))
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.assertEqual(self.labelled(100, 20), 20)
        shown = {port["name"]: port for port in ask(self.path, "ports")["ports"]}
        self.assertEqual(shown["west"]["state"], "up")
        self.assertGreater(shown["west"]["received"], 50)
        self.assertGreater(shown["west"]["receivedBytes"], 50 * 64)
        result = self.stop(process)
        self.assertGreaterEqual(result["forwarded"]["ports"]["east"]["frames"], 70)
        wire = subprocess.run(["ip", "-n", self.router, "-j", "-d", "link", "show", "westw"], check=True,
                              capture_output=True, text=True).stdout
        self.assertEqual(json.loads(wire)[0]["promiscuity"], 0)

    def test_captures_leave_byte_for_byte_as_without_dpdk(self):
        west, east = "02:70:63:61:70:00", "02:70:63:61:70:01"  # as the capture driver numbers its devices
        given = self.directory / "given.pcap"
        packet = f.udp_packet("10.0.1.2", "10.0.2.2", payload=b"y" * 100)
        sent = [f.eth(west, "02:00:00:00:00:98", 0x8847, f.stack((100, 0, ttl), (7000, 3, 9)) + packet)
                for ttl in (64, 2, 255)]
        sent += [f.eth(west, "02:00:00:00:00:98", 0x8847, f.stack(label) + packet)
                 for label in (100, 101, 3)]
        sent.append(f.eth("02:00:00:00:00:77", "02:00:00:00:00:98", 0x8847, f.stack(100) + packet))  # for somebody else
        f.write_pcap(given, sent)
        devices = {"west": f"net_pcap0,rx_pcap={given},tx_pcap={self.directory}/back.pcap",
                   "east": f"net_pcap1,tx_pcap={self.directory}/dpdk.pcap"}
        for name, ways in (("dpdk", {port: f"kind: dpdk, device: '{device}'" for port, device in devices.items()}),
                           ("plain", {"west": f"mac: '{west}'", "east": f"mac: '{east}'"})):
            (self.directory / f"{name}.yaml").write_text("ports:\n" + "".join(
                f"  - {{name: {port}, addresses: [10.0.{i}.1/24], {way}}}\n"
                for i, (port, way) in enumerate(ways.items(), 1)) + LFIB)
        plugin = ["--plugin", agent.PLUGIN] if agent.PLUGIN else []
        plain = subprocess.run([agent.AGENT, "run", str(self.directory / "plain.yaml"), "--in", f"west={given}",
                                "--out", str(self.directory / "out"), "--json", *plugin],
                               capture_output=True, text=True, check=True)
        process = self.start_alone((self.directory / "dpdk.yaml").read_text())
        self.until(lambda: self.is_forwarding() and ask(self.path, "status")["frames"]["in"] >= len(sent))
        result = self.stop(process)
        self.assertEqual(result["handedOn"]["reasons"], {"For another station": 1})
        for fate in ("dropped", "punted", "handedOn"):
            self.assertEqual(result[fate]["reasons"], json.loads(plain.stdout)[fate]["reasons"])
        # The host's own packets (IPv6 neighbour discovery) leave by the device, too.
        labelled = [frame for _, frame, _ in f.read_pcap(self.directory / "dpdk.pcap") if frame[12:14] == b"\x88\x47"]
        self.assertEqual(labelled, [frame for _, frame, _ in f.read_pcap(self.directory / "out" / "east.pcap")])
        self.assertEqual(len(labelled), 4)

    def test_a_tap_of_dpdk_is_a_wire_to_this_host(self):
        process = self.start_alone("ports:\n" + "".join(
            f"  - {{name: {port}, kind: dpdk, device: 'net_tap{i},iface={port}w', "
            f"mac: '02:00:00:00:00:0{i}', addresses: [10.0.{i}.1/24]}}\n" for i, port in ((1, "west"), (2, "east"))) + LFIB)
        self.until(self.is_forwarding)
        for port in ("west", "east"):
            ip("-n", self.router, "link", "set", f"{port}w", "up")
        self.assertEqual(self.router_mac("west"), "02:00:00:00:00:01")
        sizes = (60, 1514)
        wires = self.host(self.router, f"""
import socket
west, east = (socket.socket(socket.AF_PACKET, socket.SOCK_RAW) for _ in range(2))
west.bind(("westw", 0)); east.bind(("eastw", 0x8847)); east.settimeout(10)
for size in {sizes}:
    packet = (100 << 12 | 0x140).to_bytes(4, "big") + bytes(i % 251 for i in range(size - 18))
    for _ in range(50): # the devices may only just be up
        west.send(bytes.fromhex("020000000001" "020000000098" "8847") + packet)
        east.settimeout(0.2)
        try: frame = east.recv(2000); break
        except TimeoutError: pass
    while True: # the same again
        try: east.recv(2000)
        except TimeoutError: break
    print(len(frame), int.from_bytes(frame[14:17], "big") >> 4, frame[18:] == packet[4:], frame[6:12].hex())""")
        self.assertEqual(wires.communicate()[0].splitlines(),
                         [f"{size} 200 True 020000000002" for size in sizes])
        self.stop(process)

    def test_a_device_without_a_mac_gets_one(self):
        process = self.start_alone("ports: [{name: west, kind: dpdk, device: net_ring0, addresses: [10.0.1.1/24]}]\n")
        self.until(self.is_forwarding)
        self.assertEqual(int(self.router_mac("west")[:2], 16) & 3, 2)  # locally administered, of one station
        self.stop(process)

    def test_a_device_that_does_not_exist_is_refused_with_its_port_and_what_helps(self):
        for device, refused in (("net_nothing0", "cannot be opened"),
                             ("0000:ff:1f.0", "there is no such PCI device; dpdk-devbind.py --status"),
                             ("net_null0,size=none", "cannot be"), ("net_af_packet0,iface=none9", "cannot be opened")):
            done = self.run_briefly(f"{{name: west9, kind: dpdk, device: '{device}', addresses: [10.0.9.1/24]}}")
            self.assertEqual(done.returncode, 2, done.stderr)
            self.assertIn("port west9: device " + device, done.stderr)
            self.assertIn(refused, done.stderr)
            self.assertNotIn("not permitted", done.stderr)

    def test_an_mtu_that_the_device_does_not_take_is_refused_with_both(self):
        done = self.run_briefly("{name: west9, kind: dpdk, device: net_tap9, mtu: 9000}")
        self.assertEqual(done.returncode, 2, done.stderr)
        self.assertIn("port west9: device net_tap9: does not take mtu 9000", done.stderr)

    def test_two_ports_cannot_share_a_device(self):
        done = self.run_briefly("{name: a, kind: dpdk, device: net_null7}, {name: b, kind: dpdk, device: net_null7}")
        self.assertEqual(done.returncode, 2, done.stderr)
        self.assertIn("port b: device net_null7: another port has it", done.stderr)

    def test_an_environment_that_does_not_start_is_refused_by_its_key(self):
        config = self.directory / "eal.yaml"
        config.write_text("ports: [{name: a, kind: dpdk, device: net_null0}]\ndpdk: {eal: ['--lcores=nine']}\n")
        done = subprocess.run([agent.AGENT, "run", str(config), "--live"], capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 2, done.stderr)
        self.assertIn("dpdk: eal: the environment does not start", done.stderr)
        self.assertEqual(done.stdout, "")


@unittest.skipUnless(MODULE.exists(), "needs the module for DPDK, which was not built")
class WhatIsMissing(LiveTest):
    """Runs that cannot start say what helps, end with 2, and leave nothing behind."""

    def refused(self, config: str, *prefix: str, program: str = agent.AGENT) -> str:
        done = self.attempted(config, *prefix, program=program)
        self.assertEqual((done.returncode, done.stdout), (2, ""), done.stderr)
        self.assertFalse(self.path.exists())
        left = subprocess.run(["ip", "-n", self.router, "-br", "link"], capture_output=True, text=True, check=True)
        self.assertEqual(sorted(line.split("@")[0].split()[0] for line in left.stdout.splitlines()), ["east", "lo", "west"])
        return done.stderr

    def attempted(self, config: str, *prefix: str, program: str = agent.AGENT) -> subprocess.CompletedProcess:
        path = self.directory / "agent.yaml"
        path.write_text(config)
        return subprocess.run(["ip", "netns", "exec", self.router, "timeout", "--preserve-status", "-s", "TERM", "3", *prefix,
                               program, "run", str(path), "--live", "--control", str(self.path),
                               *(["--plugin", agent.PLUGIN] if agent.PLUGIN else [])],
                              capture_output=True, text=True, check=False, timeout=DEADLINE)

    def few_hugepages(self) -> tuple[str, ...]:
        """What lets a program see three free ones, which it cannot have."""
        pages = self.directory / "hugepages" / "hugepages-2048kB"
        pages.mkdir(parents=True, exist_ok=True)
        for name, count in (("nr_hugepages", 3), ("free_hugepages", 3), ("resv_hugepages", 0), ("surplus_hugepages", 0),
                            ("nr_overcommit_hugepages", 0)):
            (pages / name).write_text(f"{count}\n")
        return ("unshare", "--mount", "sh", "-c",
                f'mount --bind {pages.parent} /sys/kernel/mm/hugepages && exec "$@"', "sh")

    def test_the_module_is_named_with_its_package(self):
        root = self.directory / "installed"
        for place, files in (("bin", [agent.AGENT]), ("lib", MODULE.parent.glob("libOvixHost.so*"))):
            (root / place).mkdir(parents=True)
            for file in files:
                shutil.copy(file, root / place)
        said = self.refused("ports: [{name: west, kind: packet}, {name: card, kind: dpdk, device: net_null0}]\n", "env",
                            f"LD_LIBRARY_PATH={root}/lib", program=str(root / "bin" / pathlib.Path(agent.AGENT).name))
        self.assertIn("lib/libOvixDpdk.so, which package ovix-dpdk has", said)

    def test_ports_that_were_opened_before_are_gone(self):
        said = self.refused("ports: [{name: west, kind: packet}, {name: card, kind: dpdk, device: net_null0}, "
                            "{name: other, kind: dpdk, device: net_nothing0}]\n")
        self.assertIn("port other: device net_nothing0: cannot be opened", said)

    def test_too_few_hugepages_are_refused_with_what_helps(self):
        said = self.refused("ports: [{name: card, kind: dpdk, device: net_null0}]\n", *self.few_hugepages())
        self.assertIn("port card: dpdk: eal: the environment does not start: Cannot allocate memory", said)
        self.assertIn("--no-huge does without hugepages", said)

    def test_few_hugepages_can_be_done_without(self):
        done = self.attempted("ports: [{name: card, kind: dpdk, device: net_null0}]\n"
                              "dpdk: {eal: ['--no-huge', '-m', '256']}\n", *self.few_hugepages())
        self.assertEqual(done.returncode, 0, done.stderr)


if __name__ == "__main__":
    unittest.main()
