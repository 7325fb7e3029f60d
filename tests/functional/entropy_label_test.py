"""Entropy labels (RFC 6790) and flow labels (RFC 6391) that the ingress adds, as tshark reads them,
and what the other end makes of them."""

import shutil
import unittest

import frames as f
from agent import (CE_EAST, EAST, PORTS, WEST, CE_WEST, AgentTest, dissected, hardware, mpls,
                   via)

ROUTES = PORTS.replace("addresses: [10.0.1.1/24]", "addresses: [10.0.1.1/24], vrf: default") + """
routes:
  - {prefix: 10.9.0.0/16,
     via: {interface: east, nexthop: 10.0.2.2, labels: [100, 500], entropy: true}}
"""
HOST_A, HOST_B = "02:00:00:00:0a:01", "02:00:00:00:0b:01"


def provider_edge(keys: str, labels: str = "[100]") -> str:
    return f"""
ports:
  - {{name: west, mac: "{WEST}"}}
  - {{name: east, mac: "{EAST}", mtu: 1600}}
neighbours:
  - {{address: 10.0.2.2, port: east, mac: "{CE_EAST}"}}
pseudowires:
  - {{name: red, port: west, label: 500, interface: east, nexthop: 10.0.2.2, labels: {labels},
     {keys}}}
"""


# The other end of provider_edge(): the tunnel and the pseudowire end here.
OTHER_END = f"""
ports:
  - {{name: west, mac: "{CE_EAST}"}}
  - {{name: ce, mac: "02:00:00:00:00:09"}}
pseudowires:
  - {{name: red, port: ce, label: 501, interface: west, nexthop: 10.0.1.2, flow-label: true}}
neighbours:
  - {{address: 10.0.1.2, port: west, mac: "{CE_WEST}"}}
lfib:
  decap:
    - {{label: 100, type: ip-lookup, via: {{action: pop, payload: none}}}}
  pseudowire:
    - {{label: 500, via: {{interface: ce, action: pop, payload: ethernet}}}}
"""


def flow(port: int) -> bytes:
    return f.udp_packet("10.1.0.1", "10.9.0.1", port, 9)


class AddedByTheIngress(AgentTest):
    def stacks(self, config, frames):
        """What tshark reads of the stacks that leave: (label, bottom, TTL) from the top."""
        result = self.run_frames(config, frames, malformed=True)
        east = next(path for path in result.files if path.stem == "east")
        return [list(zip(*(column.split(",") for column in row)))
                for row in dissected(east, "mpls.label", "mpls.bottom", "mpls.ttl")], result

    def check_flows(self, values):
        self.assertTrue(all(16 <= value < 1 << 20 for value in values))
        self.assertGreater(len(set(values)), len(values) * 9 // 10)

    def test_beneath_the_outermost_label_pushed_onto_ip(self):
        frames = [f.eth(WEST, CE_WEST, f.ETH_IPV4, flow(port)) for port in range(200)]
        stacks, _ = self.stacks(ROUTES, frames)
        values = []
        for entries in stacks:
            (tunnel, indicator, entropy, bottom) = entries
            self.assertEqual((tunnel, indicator, bottom),
                             (("100", "0", "63"), ("7", "0", "63"), ("500", "1", "63")))
            self.assertEqual(entropy[1:], ("0", "0"))
            values.append(int(entropy[0]))
        self.check_flows(values)
        self.assertEqual(self.stacks(ROUTES, frames)[0], stacks)  # a flow keeps its label

    def test_pushed_onto_labels(self):
        config = hardware(via("push", [300], entropy="true"))
        (entries,), _ = self.stacks(config, [mpls([(100, 0, 50)], flow(1))])
        self.assertEqual([entries[0], entries[1], entries[3]],
                         [("300", "0", "49"), ("7", "0", "49"), ("100", "1", "49")])
        self.assertEqual(entries[2][1:], ("0", "0"))

    def test_on_a_pseudowire(self):
        frames = [f.eth(HOST_B, HOST_A, f.ETH_IPV4, flow(port)) for port in range(50)]
        for keys, labels, expected in (
                ("entropy: true", "[100]", ["100", "7", "EL", "500"]),
                ("entropy: true", "[100, 101]", ["100", "101", "7", "EL", "500"]),
                ("flow-label: true", "[100]", ["100", "500", "FL"]),
                ("flow-label: true", "[]", ["500", "FL"]),
                ("entropy: true, flow-label: true", "[100]", ["100", "7", "EL", "500", "FL"])):
            with self.subTest(keys=keys, labels=labels):
                stacks, _ = self.stacks(provider_edge(keys, labels), frames)
                for name, ttl, bottom in (("EL", "0", "0"), ("FL", "1", "1")):
                    if name in expected:
                        at = expected.index(name)
                        self.assertEqual({entries[at][1:] for entries in stacks}, {(bottom, ttl)})
                        self.check_flows([int(entries[at][0]) for entries in stacks])
                for entries in stacks:
                    self.assertEqual([entry[0] for entry, name in zip(entries, expected)
                                      if name not in ("EL", "FL")],
                                     [name for name in expected if name not in ("EL", "FL")])
                    self.assertEqual([entry[1] for entry in entries],
                                     ["0"] * (len(expected) - 1) + ["1"])

    def test_the_other_end_removes_them(self):
        frames = [f.eth(HOST_B, HOST_A, f.ETH_IPV4, flow(port)) for port in range(5)]
        for keys in ("flow-label: true", "entropy: true, flow-label: true", "entropy: true"):
            with self.subTest(keys):
                _, result = self.stacks(provider_edge(keys), frames)
                shutil.rmtree(self.path / "out")
                delivered = self.run_frames(OTHER_END, result.frames("east"), malformed=True)
                self.assertEqual(delivered.frames("ce"), frames)
                shutil.rmtree(self.path / "out")

    def test_a_label_too_many_is_no_flow_label(self):
        config = OTHER_END.replace(CE_EAST, WEST)
        payload = bytes(4) + f.eth(HOST_B, HOST_A, f.ETH_IPV4, flow(1))
        for labels, config in (([500, 70000, 80000], config),
                               ([500, 70000], config.replace(", flow-label: true", ""))):
            with self.subTest(labels):
                result = self.run_frames(config, [mpls(labels, payload)], malformed=True)
                self.assertEqual(result.reasons("dropped"),
                                 {"Label beneath the label of a pseudowire": 1})
                shutil.rmtree(self.path / "out")

    def test_only_a_push_adds_one(self):
        for action, labels in (("swap", [300]), ("pop", ())):
            f.write_pcap(self.path / "in.pcap", [])
            result = self.run_files(PORTS + hardware(via(action, labels, entropy="true")),
                                    [f"west={self.path / 'in.pcap'}"])
            self.assertNotEqual(result.code, 0)
            self.assertIn("an entropy label is added by a push only", result.stderr)


if __name__ == "__main__":
    unittest.main()
