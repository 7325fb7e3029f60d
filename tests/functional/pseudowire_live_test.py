"""Pseudowires between live attachment circuits: whatever a customer's host sends leaves at the other
end as it came, and the provider's kernels stay out of it."""

import json
import subprocess
import unittest

import frames as f
from live import DEADLINE, ip
from provider import CE_MTU, CORE_MTU, HOSTS, LINKS, ProviderTest

STATION = "02:00:00:00:c0:01"
OTHER = "02:00:00:00:c0:02"
BEHIND = "02:00:00:00:c0:03"
BROADCAST = "ff:ff:ff:ff:ff:ff"
IP4 = f.udp_packet(*HOSTS.values())

LACP = f.eth("01:80:c2:00:00:02", STATION, 0x8809, bytes([1, 1, 1, 20]) + bytes(106))
STP = f.eth("01:80:c2:00:00:00", STATION, 38, bytes([0x42, 0x42, 3]) + bytes(35) + bytes(8))
LLDP = f.eth("01:80:c2:00:00:0e", STATION, 0x88cc, bytes([2, 7, 4]) + bytes(55))
ARP = f.eth(BROADCAST, STATION, 0x0806, bytes.fromhex("0001080006040001") + f.mac(STATION) +
            bytes([192, 0, 2, 77]) + bytes(6) + bytes([192, 0, 2, 78]) + bytes(18))

FRAMES = [
    ARP, LACP, STP, LLDP,
    f.eth(OTHER, STATION, f.ETH_IPV4, IP4),
    f.eth("33:33:00:00:00:01", STATION, f.ETH_IPV6, f.udp_packet("2001:db8::1", "ff02::1")),
    f.eth(OTHER, STATION, f.ETH_IPV4, IP4, [5 << 13 | 100]),
    f.eth(OTHER, STATION, f.ETH_IPV4, IP4, [5 << 13]),  # a priority and no VLAN
    f.eth(OTHER, STATION, f.ETH_IPV4, IP4, [(0x88a8, 7), 100]),
    f.eth(OTHER, STATION, f.ETH_IPV4, IP4, [(0x9100, 7), 100]),
    f.eth(OTHER, STATION, f.ETH_IPV4, IP4, [(0x88a8, 7), 100, 101, 102]),
    f.eth(OTHER, STATION, f.ETH_MPLS, f.stack(501) + IP4),
    f.eth(OTHER, STATION, 0xffff, bytes(range(46))),
    f.eth(OTHER, STATION, 0x8139, bytes(46), [100]),
    f.eth(OTHER, STATION, f.ETH_IPV4, b""),
    f.eth(OTHER, STATION, 0x88b5, b"\x5a" * CE_MTU),
    f.eth(OTHER, STATION, 0x88b5, b"\xa5" * CE_MTU, [100]),
]


def provider_edge(near: int, tunnel: tuple[int, int], labels: tuple[int, int], control_word: bool,
                  kind: str = "packet", circuit: str = "ce", more: str = "") -> str:
    """The edge beside the network 10.0.NEAR; tunnel and labels are (to be pushed, to be ended)."""
    own, other = (1, 2) if near == 1 else (2, 1)
    return f"""
ports:
  - {{name: ce, kind: {kind}}}
  - {{name: core, kind: {kind}, addresses: [10.0.{near}.{own}/24]}}
{more}
pseudowires:
  - {{name: gold, port: {circuit}, label: {labels[0]}, control-word: {str(control_word).lower()},
     interface: core, nexthop: 10.0.{near}.{other}, labels: [{tunnel[0]}]}}
lfib:
  decap:
    - {{label: {tunnel[1]}, type: ip-lookup, via: {{vrf: default, payload: auto}}}}
  pseudowire:
    - {{label: {labels[1]}, via: {{interface: {circuit}, action: pop, payload: ethernet}}}}
"""


TRANSIT = """
ports:
  - {name: west, kind: packet, addresses: [10.0.1.2/24]}
  - {name: east, kind: packet, addresses: [10.0.2.1/24]}
lfib:
  transit:
    - {label: 100, via: {interface: east, nexthop: 10.0.2.2, action: swap, labels: [200]}}
    - {label: 300, via: {interface: west, nexthop: 10.0.1.1, action: swap, labels: [400]}}
"""


class PseudowireLive(ProviderTest):
    def provide(self, control_word: bool = True, kind: str = "packet", near: str = "", far: str = "",
                wait: bool = True) -> None:
        self.start("p", TRANSIT)
        self.start("pe1", near or provider_edge(1, (100, 400), (500, 501), control_word, kind))
        self.start("pe2", far or provider_edge(2, (300, 200), (501, 500), control_word, kind))
        if wait:
            self.until(self.pings)

    def check_frames(self, kind: str, control_word: bool) -> None:
        self.provide(control_word, kind)
        self.expect_carried(control_word)

    def check_frames_of_a_tap(self, control_word: bool) -> None:
        """The host behind it is the edge's own kernel."""
        ip("-n", self.node("pe1"), "link", "del", "ce")
        near = provider_edge(1, (100, 400), (500, 501), control_word)
        self.provide(near=near.replace("ce, kind: packet", "ce, kind: tap"),
                     far=provider_edge(2, (300, 200), (501, 500), control_word), wait=False)
        ip("-n", self.node("pe1"), "addr", "add", f"{HOSTS['ce1']}/24", "dev", "ce")
        self.until(lambda: self.pings(node="pe1"))
        back = [frame[:6] + f.mac(BEHIND) + frame[12:] for frame in FRAMES]
        listener = self.listen("pe1", "ce", BEHIND, len(back))
        self.send("ce2", back)
        self.assertEqual(self.heard(listener), back)
        self.expect_carried(control_word, "pe1", "ce")

    def expect_carried(self, control_word: bool, near: str = "ce1", link: str = "eth0") -> None:
        middle = self.listen("p", "west", STATION, len(FRAMES))
        found = self.carried(FRAMES, STATION, near, link=link)
        self.assertEqual([frame[:60].hex() for frame in found], [frame[:60].hex() for frame in FRAMES])
        self.assertEqual(found, FRAMES)
        self.dissect(self.heard(middle), control_word)
        balances = {node: self.stop(node) for node in ("pe1", "p", "pe2")}
        self.assertGreater(balances["pe1"]["pseudowires"][0]["sent"]["frames"], len(FRAMES))
        self.assertGreater(balances["pe2"]["pseudowires"][0]["delivered"]["frames"], len(FRAMES))

    def dissect(self, wire: list[bytes], control_word: bool) -> None:
        path = self.directory / "middle.pcap"
        f.write_pcap(path, wire)
        payload = "pwethcw" if control_word else "pwethnocw"
        rows = subprocess.run(
            ["tshark", "-r", str(path), "-d", f"mpls.label==500,{payload}", "-T", "fields", "-e",
             "mpls.label", "-e", "pweth.cw", "-e", "eth.src"],
            check=True, capture_output=True, text=True).stdout.splitlines()
        self.assertEqual(len(rows), len(FRAMES))
        for labels, word, sources in (row.split("\t") for row in rows):
            self.assertEqual(labels.split(",")[:2], ["100", "500"])
            self.assertEqual(bool(word), control_word)
            self.assertEqual(sources.split(",")[1], STATION)

    def test_whatever_a_host_sends_leaves_as_it_came(self):
        self.check_frames("packet", control_word=True)

    def test_whatever_a_host_sends_leaves_as_it_came_without_a_control_word(self):
        self.check_frames("packet", control_word=False)

    def test_whatever_a_host_sends_leaves_as_it_came_past_the_hosts_stack(self):
        self.check_frames("xdp", control_word=True)

    def test_whatever_a_host_sends_leaves_as_it_came_past_the_hosts_stack_without_a_control_word(self):
        self.check_frames("xdp", control_word=False)

    def test_jumbo_frames_leave_as_they_came(self):
        """They are longer than a slot of the ring."""
        for one, name, other, other_name, network in LINKS:
            for node, link in ((one, name), (other, other_name)):
                self.set_mtu(node, link, 9000 + (CORE_MTU - CE_MTU if network else 0))
        self.provide()
        jumbo = [f.eth(OTHER, STATION, 0x88b5, bytes([byte]) * size, tags)
                 for byte, size, tags in ((0x5a, 9000, []), (0xa5, 9000, [100]), (0x3c, 8996, [(0x88a8, 7)]))]
        frames = [*jumbo, FRAMES[0], *jumbo]
        self.assertEqual(self.carried(frames, STATION), frames)

    def test_a_stream_whose_sender_leaves_cutting_it_up_to_the_hardware_arrives_whole(self):
        self.provide()
        server = self.inside("ce2", "iperf3", "-s", "-1")
        self.until(lambda: ":5201" in self.run_in("ce2", "ss", "-ltn")[1])
        code, text = self.run_in("ce1", "iperf3", "-c", HOSTS["ce2"], "-n", "20M", "-J")
        self.assertEqual(code, 0, text)
        self.assertEqual(server.wait(DEADLINE), 0)
        server.communicate()
        self.assertGreaterEqual(json.loads(text)["end"]["sum_received"]["bytes"], 10_000_000)

    def test_a_frame_of_exactly_the_mtu_leaves_and_a_longer_one_is_counted(self):
        """And nobody answers for the other end, even when the provider's routes lead to the host."""
        sides = [provider_edge(near, tunnel, labels, True) +
                 f"routes: [{{prefix: 192.0.2.0/24, via: {{nexthop: 10.0.{near}.{other}}}}}]\n"
                 for near, tunnel, labels, other in (
                     (1, (100, 400), (500, 501), 2), (2, (300, 200), (501, 500), 1))]
        self.provide(near=sides[0], far=sides[1])
        full = ("-s", str(CE_MTU - 28), "-M", "do")
        self.set_mtu("pe1", "core", CE_MTU + 26)
        self.until(lambda: self.pings(*full))
        self.set_mtu("pe1", "core", CE_MTU + 25)
        self.until(lambda: not self.pings(*full))
        code, text = self.run_in("ce1", "ping", "-c", "3", "-i", "0.1", "-W", "0.4", *full, HOSTS["ce2"])
        self.assertIn("3 packets transmitted, 0 received, 100% packet loss", text)
        self.assertTrue(self.pings("-s", str(CE_MTU - 29), "-M", "do"))
        self.set_mtu("pe2", "ce", CE_MTU - 100)
        short = ("-s", str(CE_MTU - 29), "-M", "do")
        self.until(lambda: not self.pings(*short))
        code, text = self.run_in("ce1", "ping", "-c", "3", "-i", "0.1", "-W", "0.4", *short, HOSTS["ce2"])
        self.assertIn("3 packets transmitted, 0 received, 100% packet loss", text)
        for node in ("pe1", "pe2"):
            result = self.stop(node)
            self.assertGreaterEqual(result["dropped"]["reasons"]["MTU exceeded"], 3)
            self.assertEqual([entry for entry in result["counters"] if entry["category"] == "Answer"],
                             [])

    def set_mtu(self, node: str, link: str, mtu: int) -> None:
        ip("-n", self.node(node), "link", "set", link, "mtu", str(mtu))

    def test_the_kernel_neither_hears_nor_says_anything(self):
        """Not even of addresses that it has at the circuit, or while a killed agent is down."""
        ip("-n", self.node("pe1"), "addr", "add", "192.0.2.9/24", "dev", "ce")
        self.assertTrue(self.answers("192.0.2.9"))
        self.provide()
        ip("-n", self.node("pe1"), "neigh", "flush", "dev", "ce")
        self.assertFalse(self.answers("192.0.2.9"))
        self.assertFalse(self.answers("10.0.1.1"))
        self.assertEqual(self.run_in("pe1", "ip", "neigh", "show", "dev", "ce")[1], "")
        mac = self.link_address("pe1", "ce")
        listener = self.listen("ce1", "eth0", mac, 1, seconds=0.5)
        self.run_in("pe1", "ping", "-c", "1", "-W", "0.3", HOSTS["ce1"])
        self.assertEqual(self.heard(listener), [])
        self.agents["pe1"].kill()
        self.agents.pop("pe1").communicate()
        self.assertFalse(self.answers("192.0.2.9"))
        self.start("pe1", (self.directory / "pe1.yaml").read_text())
        self.until(self.pings)
        self.assertGreater(self.stop("pe1")["in"]["frames"], 0)
        self.assertTrue(self.answers("192.0.2.9"))

    def answers(self, address: str) -> bool:
        """Whether somebody answers ce1's ARP."""
        ip("-n", self.node("ce1"), "neigh", "flush", "all")
        ip("-n", self.node("ce1"), "route", "replace", f"{address}/32", "dev", "eth0")
        self.run_in("ce1", "ping", "-c", "1", "-W", "0.3", address)
        return "lladdr" in self.run_in("ce1", "ip", "neigh", "show", address)[1]

    def link_address(self, node: str, link: str) -> str:
        return json.loads(self.run_in(node, "ip", "-j", "link", "show", link)[1])[0]["address"]

    def test_vlan_sub_interfaces_are_circuits(self):
        """The tag of either end is its own; those beneath are the customer's."""
        sides = [provider_edge(near, tunnel, labels, True, circuit=f"ce.{vlan}", more=f"""
  - {{name: ce.{vlan}, parent: ce, vlan: {vlan}}}
  - {{name: ce.9, parent: ce, vlan: 9, addresses: [198.51.100.1/24]}}""")
                 for near, tunnel, labels, vlan in (
                     (1, (100, 400), (500, 501), 100), (2, (300, 200), (501, 500), 300))]
        self.provide(near=sides[0], far=sides[1], wait=False)
        def tagged(*vlans):
            return f.eth(OTHER, STATION, f.ETH_IPV4, IP4, vlans)
        frames = [tagged(100), tagged(100, 7), tagged(101), tagged(9), tagged(),
                  f.eth(BROADCAST, STATION, 0x0806, bytes(46), [100])]
        expected = [tagged(300), tagged(300, 7), f.eth(BROADCAST, STATION, 0x0806, bytes(46), [300])]
        self.until(lambda: self.carried(frames[:1], STATION) == expected[:1])
        listener = self.listen("ce2", "eth0", STATION, 3)
        self.send("ce1", frames)
        self.assertEqual(self.heard(listener), expected)
        result = self.stop("pe1")
        self.assertEqual(result["dropped"]["reasons"]["VLAN without a sub-interface"], 1)
        self.assertEqual(result["handedOn"]["reasons"]["For another station"], 1)

    def test_a_tap_port_is_a_circuit(self):
        self.check_frames_of_a_tap(control_word=True)

    def test_a_tap_port_is_a_circuit_without_a_control_word(self):
        self.check_frames_of_a_tap(control_word=False)

    def test_a_port_becomes_a_circuit_and_ceases_to_be_one(self):
        ip("-n", self.node("pe1"), "addr", "add", "192.0.2.9/24", "dev", "ce")
        circuit = provider_edge(1, (100, 400), (500, 501), True)
        at = circuit.index("pseudowires:")
        self.provide(near=circuit[:at], wait=False)
        self.assertTrue(self.answers("192.0.2.9"))
        self.reload("pe1", circuit)
        self.until(self.pings)
        self.assertFalse(self.answers("192.0.2.9"))
        self.reload("pe1", circuit[:at])
        self.until(lambda: self.answers("192.0.2.9"))
        self.assertFalse(self.pings())


if __name__ == "__main__":
    unittest.main()
