"""Pseudowires that ldpd signals, from the listener to the customers' frames; ldpd is played."""

import json
import os
import subprocess
import unittest

import listener
import shared_memory
from live import DEADLINE, ip
from provider import HOSTS, ProviderTest
from pseudowire_live_test import TRANSIT
from running_agent import CTL

LSR_IDS = {"pe1": "10.255.0.1", "pe2": "10.255.0.2"}
LABELS = {"pe1": 501, "pe2": 500}  # what each edge has given to the other
FAR = {"pe1": "pe2", "pe2": "pe1"}


def answers(edge: str, circuit: str = "ce", **changed) -> str:
    """What ldpd on an edge says of its one pseudowire."""
    far = LSR_IDS[FAR[edge]]
    binding = {"destination": far, "vcId": 100, "localLabel": LABELS[edge], "localControlWord": 1,
               "localVcType": "Ethernet", "localGroupID": 0, "localIfMtu": 1500,
               "lastFailureReason": "No Error", "remoteLabel": LABELS[FAR[edge]],
               "remoteControlWord": 1, "remoteVcType": "Ethernet", "remoteGroupID": 0,
               "remoteIfMtu": 1500, **changed}
    circuits = {"mpw0": {"peerId": far, "vcId": 100, "vpnName": "RED", "status": "up"}}
    return "\n".join([json.dumps({f"{far}: 100": binding}), json.dumps(circuits),
                      json.dumps({"interfaces": {}}), "l2vpn RED type vpls",
                      f" member interface {circuit}", " !", " member pseudowire mpw0",
                      f"  neighbor lsr-id {far}", "  pw-id 100", " exit", "exit", "!", "end", ""])


def edge_config(edge: str, route: bool = True) -> str:
    near, own, other, push, end = ((1, 1, 2, 100, 400) if edge == "pe1" else (2, 2, 1, 300, 200))
    tunnel = (f"routes: [{{prefix: {LSR_IDS[FAR[edge]]}/32, via: {{interface: core, "
              f"nexthop: 10.0.{near}.{other}, labels: [{push}]}}}}]\n" if route else "")
    return (f"ports:\n  - {{name: ce, kind: packet}}\n  - {{name: core, kind: packet, "
            f"addresses: [10.0.{near}.{own}/24]}}\n{tunnel}")


class PseudowireLdp(ProviderTest):
    def setUp(self):
        super().setUp()
        self.tables = {edge: f"ldp-{os.getpid()}-{edge}" for edge in LSR_IDS}
        for name in self.tables.values():
            self.addCleanup(shared_memory.remove, name)
        self.logs = {}
        self.start("p", TRANSIT)
        for edge, end in (("pe1", 400), ("pe2", 200)):
            self.say(edge, answers(edge))
            self.assertTrue(self.ctl(edge, "lfib", "add", "--create", "decap", str(end), "vrf",
                                     "default"))
            ip("-n", self.node(edge), "link", "set", "lo", "up")
            self.start_listener(edge)
            self.start(edge, edge_config(edge), "--tables", self.tables[edge])
        self.until(self.pings)

    def say(self, edge: str, text: str) -> None:
        """What ldpd answers from now on."""
        answer = self.directory / f"{edge}.new"
        answer.write_text(text)
        answer.rename(self.directory / f"{edge}.answers")

    def start_listener(self, edge: str) -> None:
        vtysh = self.directory / f"{edge}.vtysh"
        vtysh.write_text(f"#!/bin/sh\nexec cat {self.directory}/{edge}.answers\n")
        vtysh.chmod(0o755)
        self.logs[edge] = self.directory / f"{edge}.log"
        with open(self.logs[edge], "ab") as log:
            process = subprocess.Popen(
                ["ip", "netns", "exec", self.node(edge), listener.FPM, "--tables",
                 self.tables[edge], "--pseudowires", "--pseudowires-every", "0.1", "--vtysh",
                 str(vtysh)], stderr=log)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)

    def ctl(self, edge: str, *words: str) -> bool:
        return subprocess.run([CTL, "--tables", self.tables[edge], *words], check=False,
                              capture_output=True).returncode == 0

    def shown(self, edge: str) -> dict:
        done = subprocess.run(
            [CTL, "--tables", self.tables[edge], "--control",
             str(self.directory / f"{edge}.sock"), "pseudowire", "show", "--json"],
            check=True, capture_output=True, text=True, timeout=DEADLINE)
        return next(iter(json.loads(done.stdout)["pseudowires"]), {})

    def dropped(self, edge: str, reason: str) -> int:
        return self.ask(edge, "fates")["dropped"]["reasons"].get(reason, 0)

    def expect_dropped(self, state: str, reason: str) -> None:
        self.until(lambda: self.shown("pe1")["state"] == state)
        before = self.dropped("pe1", reason)
        self.assertFalse(self.pings())
        self.assertGreater(self.dropped("pe1", reason), before)

    def test_a_pseudowire_follows_what_the_ends_have_agreed_on(self):
        up = self.shown("pe1")
        self.assertEqual(
            {key: up[key] for key in ("name", "circuit", "state", "neighbour", "localLabel",
                                      "remoteLabel", "controlWord", "signalled")},
            {"name": "RED/mpw0", "circuit": "ce", "state": "up", "neighbour": LSR_IDS["pe2"],
             "localLabel": 501, "remoteLabel": 500, "controlWord": True, "signalled": True})
        self.assertEqual(up["tunnel"], [{"port": "core", "nexthop": "10.0.1.2", "labels": [100]}])
        self.assertGreater(up["sent"]["frames"], 0)
        for changed, state, reason in (
                ({"remoteIfMtu": 9000}, "MTUs of the two ends differ",
                 "Pseudowire has ends with different MTUs"),
                ({"remoteLabel": 1048576}, "impossible label from the neighbour",
                 "Pseudowire has an impossible label"),
                ({"remoteLabel": "unassigned"}, "no label from the neighbour",
                 "Pseudowire has no label at one of its ends")):
            with self.subTest(state):
                self.say("pe1", answers("pe1", **changed))
                self.expect_dropped(state, reason)
        self.say("pe1", answers("pe1"))
        self.until(self.pings)

    def test_answers_that_are_none_change_nothing(self):
        whole = answers("pe1", remoteIfMtu=9000)
        for text in (whole[:len(whole) // 2], whole.replace("localLabel", "label"), ""):
            self.say("pe1", text)
            size = len(self.logs["pe1"].read_text())
            self.until(lambda: "stay as they are" in self.logs["pe1"].read_text()[size:])
            self.assertTrue(self.pings())
            self.say("pe1", answers("pe1"))
            self.until(lambda: "ldpd answers again" in self.logs["pe1"].read_text()[size:])

    def moved(self, change: str) -> list[tuple]:
        """What a change would do to the pseudowires of pe1."""
        done = subprocess.run([CTL, "--tables", self.tables["pe1"], "--control", str(self.directory / "pe1.sock"),
                               "what-if", change, "--json"], check=True, capture_output=True, text=True, timeout=DEADLINE)
        return [(move["of"], move["examples"], [share["to"] for share in move["before"]], move["after"])
                for move in json.loads(done.stdout)["moves"] if move["of"] in ("pseudowires", "circuits")]

    def test_what_if_has_those_that_are_signalled(self):
        out = ("pseudowires", ["RED/mpw0"], ["dev core via 10.0.1.2"], [])
        self.assertEqual(self.moved("link core down"), [out])
        self.assertEqual(self.moved("link ce down"), [out, ("circuits", ["RED/mpw0"], ["dev ce"], [])])
        self.reload("pe1", edge_config("pe1", route=False))
        self.until(lambda: not self.pings())
        self.assertEqual(self.moved("link core down"), [])  # there is no tunnel to be lost

    def test_without_a_tunnel_nothing_is_sent_to_anybody(self):
        self.reload("pe1", edge_config("pe1", route=False))
        self.until(lambda: not self.pings())
        self.assertGreater(self.dropped("pe1", "No tunnel to the pseudowire's other end"), 0)
        self.assertEqual(self.shown("pe1")["tunnel"], [])
        self.reload("pe1", edge_config("pe1"))
        self.until(self.pings)


if __name__ == "__main__":
    unittest.main()
