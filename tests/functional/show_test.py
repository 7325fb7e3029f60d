"""What ovixctl shows of a running agent."""

import json
import os
import shutil
import subprocess
import threading
import time
import unittest

import shared_memory
from agent import mpls
from live import DEADLINE, LiveTest
from running_agent import CTL, SharedTablesTest

CONFIG = """
ports:
  - {name: west, mac: "02:00:00:00:00:01", addresses: [10.0.1.1/24, "2001:db8:1::1/64"]}
  - {name: east, mac: "02:00:00:00:00:02", mtu: 1400, addresses: [10.0.2.1/24]}
  - {name: red1, mac: "02:00:00:00:00:03", vrf: red, mpls: false}
  - {name: east.7, parent: east, vlan: [7, 8]}
neighbours:
  - {address: 10.0.2.2, port: east, mac: "02:00:00:00:00:22"}
  - {address: "2001:db8::2", port: east, mac: "02:00:00:00:00:22"}
pseudowires:
  - {name: gold, port: red1, label: 500, control-word: false, interface: east, nexthop: 10.0.2.2,
     labels: [301, 302]}
fecs:
  - {id: 7, vias: [{interface: east, nexthop: 10.0.2.2, weight: 3}]}
routes:
  - {prefix: 10.9.0.0/16, via: {nexthop: 10.0.2.2, labels: [300, 400]}}
  - {prefix: 10.8.0.0/16, vrf: red, drop: true}
"""


class Show(SharedTablesTest):
    def setUp(self):
        super().setUp()
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.agent = self.start(CONFIG)

    def shown(self, *words: str, code: int = 0) -> str:
        return self.ctl(*words, "--control", str(self.agent.path), code=code)

    def json(self, *words: str) -> dict:
        return json.loads(self.shown(*words, "--json"))

    def test_the_status_and_what_has_become_of_frames(self):
        self.agent.send_and_wait(mpls([100]), mpls([101]), mpls([100]))
        reason = "No labels resolved to via sets, and nexthop not resolved"
        status = self.json("status")
        self.assertLess(abs(time.time() - status["tables"].pop("committedAt") / 1e9), 60)
        self.assertEqual(status["tables"].pop("entries")["hardware"], 1)
        self.assertEqual(status, {
            "version": "0.1.0", "run": "captures",
            "tables": {"name": self.tables, "generation": 2, "corruptions": 0, "problem": None},
            "frames": {"in": 3, "replicas": 0, "forwarded": 2, "punted": 0, "dropped": 1,
                       "handedOn": 0, "queued": 0, "answers": 0},
            "reasons": {"punted": {}, "dropped": {reason: 1}, "handedOn": {}},
            "neighbours": {"known": 2, "wanted": 0}, "balanced": True, "missed": 0})
        self.assertRegex(self.shown("status"), rf'tables +"{self.tables}", generation 2\n'
                                               rf"in +3\n(.*\n)*dropped +1\n  {reason}: 1\nhanded on +0\n")
        drops = self.json("drops", "show")
        self.assertEqual(drops["dropped"], {"frames": 1, "reasons": {reason: 1}})
        self.assertEqual((drops["in"], drops["forwarded"], drops["balanced"]), (3, 2, True))
        self.assertRegex(self.shown("drops", "show"), rf"dropped +1 .*\n  {reason} +1 .*\nhanded on +0 ")
        os.remove(self.memory)
        self.agent.until(lambda: self.json("status")["tables"]["problem"])
        self.assertIn("the file has been removed", self.shown("status"))

    def test_ports_neighbours_fecs_and_vrfs(self):
        ports = {port["name"]: port for port in self.json("port", "show")["ports"]}
        self.assertEqual(list(ports), ["west", "east", "red1", "east.7"])
        self.assertEqual(ports["west"], {
            "name": "west", "kind": None, "state": "up", "problem": None,
            "mac": "02:00:00:00:00:01", "mtu": 1500, "vrf": "default",
            "addresses": ["10.0.1.1/24", "2001:db8:1::1/64"], "parent": None, "vlans": [],
            "mpls": True, "received": None, "receivedBytes": None, "perSecond": None, "ring": None,
            "queues": [], "sent": {"frames": 0, "bytes": 0}})
        self.assertEqual((ports["east.7"]["parent"], ports["east.7"]["vlans"]), ("east", [7, 8]))
        self.assertRegex(self.shown("port", "show"), r"red1 +- +up +02:00:00:00:00:03 +1500 +red ")
        self.assertEqual(self.json("neighbour", "show")["neighbours"], [
            {"address": "10.0.2.2", "port": "east", "mac": "02:00:00:00:00:22",
             "configured": True},
            {"address": "2001:db8::2", "port": "east", "mac": "02:00:00:00:00:22",
             "configured": True}])
        self.assertRegex(self.shown("neighbour", "show"),
                         r"10\.0\.2\.2 +east +02:00:00:00:00:22 +configured\n")
        self.assertEqual(self.json("fec", "show"), {"fecs": [
            {"id": 7, "nexthops": [{"nexthop": "10.0.2.2", "port": "east", "weight": 3}]}]})
        self.assertRegex(self.shown("fec", "show"), r" 7  10\.0\.2\.2 +east +3\n")
        vrfs = {vrf["name"]: vrf for vrf in self.json("vrf", "show")["vrfs"]}
        self.assertEqual(vrfs["red"], {"name": "red", "routes": 1, "ports": ["red1"]})
        self.assertRegex(self.shown("vrf", "show"), r"red +1 +red1\n")

    def test_a_pseudowire_is_down_with_a_port_that_it_needs(self):
        for port in ("red1", "east"):
            self.agent.stop()
            self.agent = self.start(CONFIG.replace(f"{{name: {port},", f"{{name: {port}, status: down,"))
            shown = self.json("pseudowire", "show")["pseudowires"][0]
            self.assertEqual((shown["state"], shown["why"]), ("down", f"port {port} is down"))

    def test_pseudowires_with_their_tunnels(self):
        self.assertEqual(self.json("pseudowire", "show")["pseudowires"], [{
            "name": "gold", "circuit": "red1", "state": "up", "why": None, "signalled": False,
            "neighbour": None, "id": None, "localLabel": None, "remoteLabel": 500,
            "controlWord": False, "localMtu": None, "remoteMtu": None,
            "tunnel": [{"port": "east", "nexthop": "10.0.2.2", "labels": [301, 302]}],
            "sent": {"frames": 0, "bytes": 0}, "delivered": {"frames": 0, "bytes": 0}}])
        self.assertRegex(self.shown("pseudowire", "show"),
                         r"gold +red1 +up +-? +500 +no +0 +0 +east 10\.0\.2\.2 301/302\n")

    def test_routes_with_the_labels_that_they_push(self):
        routes = {route["prefix"]: route for route in self.json("route", "show")["routes"]}
        self.assertEqual(routes["10.9.0.0/16"], {
            "vrf": "default", "prefix": "10.9.0.0/16", "kind": "forward", "reason": None,
            "configured": True, "vias": [{"nexthop": "10.0.2.2", "port": "east", "weight": 1,
                                          "labels": [300, 400]}]})
        self.assertEqual(routes["10.0.1.1/32"]["kind"], "local")
        self.assertEqual(routes["10.0.1.255/32"]["kind"], "broadcast")
        text = self.shown("route", "show")
        self.assertRegex(text, r"default +10\.9\.0\.0/16 +forward +10\.0\.2\.2 +east +300/400 +1 ")
        self.assertLess(text.index("10.0.1.0/24"), text.index("10.9.0.0/16"))
        self.assertEqual(self.json("route", "show", "red")["routes"], [
            {"vrf": "red", "prefix": "10.8.0.0/16", "kind": "drop", "reason": "Route drops",
             "configured": True, "vias": []}])
        self.assertIn('there is no VRF "blue"', self.shown("route", "show", "blue", code=1))

    def test_an_agent_that_does_not_run_is_an_error(self):
        self.agent.kill()
        for words in (["status"], ["port", "show"], ["route", "show"], ["drops", "show"]):
            self.assertIn("control socket", self.shown(*words, code=1))

    def test_misspelt_commands_are_told_which_was_meant(self):
        for words, meant in ((["statsu"], "status"), (["port", "shwo"], "show"),
                             (["neigbour", "show"], "neighbour"), (["routes"], "route")):
            self.assertIn(f'did you mean "{meant}"', self.ctl(*words, code=2))
        for words, option, meant in ((["status", "--jsn"], "--jsn", "--json"),
                                     (["--tabels=x", "lfib", "show"], "--tabels", "--tables"),
                                     (["lfib", "load", "x", "--wiat", "3"], "--wiat", "--wait")):
            self.assertIn(f'unknown option "{option}"; did you mean "{meant}"',
                          self.ctl(*words, code=2))


class Many(SharedTablesTest):
    def test_many_are_shown_while_frames_are_forwarded(self):
        count = 10_000
        neighbours = "".join(
            f'  - {{address: 10.{i >> 16}.{i >> 8 & 255}.{i & 255}, port: east, '
            f'mac: "02:00:00:00:00:22"}}\n' for i in range(count))
        routes = "".join(
            f"  - {{prefix: 20.{i >> 16}.{i >> 8 & 255}.{i & 255}/32, "
            f"via: {{interface: east, nexthop: 10.0.2.2, labels: [300]}}}}\n" for i in range(count))
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        agent = self.start(
            'ports:\n  - {name: west, mac: "02:00:00:00:00:01"}\n'
            '  - {name: east, mac: "02:00:00:00:00:02"}\n'
            f"neighbours:\n{neighbours}routes:\n{routes}")
        ends = threading.Event()
        sent = 0

        def keep_asking():
            while not ends.is_set():
                agent.ask("status")

        asker = threading.Thread(target=keep_asking)
        asker.start()
        shown = json.loads(self.ctl("neighbour", "show", "--json", "--control", str(agent.path)))
        self.assertEqual(len(shown["neighbours"]), count)
        for _ in range(100):
            agent.send(mpls([100]))
            sent += 1
        shown = self.ctl("route", "show", "--control", str(agent.path)).splitlines()
        self.assertEqual(len([line for line in shown if " 300 " in line]), count)
        ends.set()
        asker.join()
        self.assertEqual(agent.ask("status")["frames"]["forwarded"], sent)
        agent.stop()


class Live(LiveTest):
    log = ""

    def shown(self, *words: str) -> dict:
        return json.loads(subprocess.run(
            [CTL, "--tables", self.tables, "--control", str(self.path), *words, "--json"],
            check=True, capture_output=True, text=True).stdout)

    def logged(self, process: subprocess.Popen) -> str:
        try:
            self.log += os.read(process.stderr.fileno(), 65536).decode()
        except BlockingIOError:
            pass
        return self.log

    def test_what_a_live_run_has_and_what_becomes_of_its_tables(self):
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        process = self.start("  - {name: later, kind: packet}\n")
        os.set_blocking(process.stderr.fileno(), False)
        self.learn_neighbours()
        ports = {port["name"]: port for port in self.shown("port", "show")["ports"]}
        self.assertEqual([(port["kind"], port["state"]) for port in ports.values()],
                         [("packet", "up"), ("packet", "up"), ("packet", "waiting")])
        self.assertIn("No such device", ports["later"]["problem"])
        self.assertGreater(ports["west"]["received"], 0)
        self.assertGreater(ports["east"]["sent"]["frames"], 0)
        self.assertEqual(ports["west"]["mac"], self.router_mac("west"))
        neighbours = self.shown("neighbour", "show")["neighbours"]
        self.assertIn(("10.0.2.2", "east", False),
                      [(each["address"], each["port"], each["configured"]) for each in neighbours])
        self.assertIn("later: finding the interface: No such device; waiting for the interface",
                      self.logged(process))
        memory = shared_memory.path(self.tables)
        os.truncate(memory, 1 << 21)
        self.until(lambda: "the file has been cut short" in self.logged(process))
        os.remove(memory)
        self.until(lambda: "the file has been removed" in self.logged(process))
        self.assertTrue(self.shown("status")["tables"]["problem"])
        self.assertEqual(self.labelled(100, 20), 20)  # by what it had
        self.ctl("lfib", "add", "101", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.until(lambda: "gone over to the new file" in self.logged(process))
        self.assertEqual((self.labelled(101, 20), self.labelled(100, 1)), (20, 0))
        process.terminate()
        process.wait(DEADLINE)


class Completion(unittest.TestCase):
    def test_zsh_is_offered_what_bash_is(self):
        script = subprocess.run([CTL, "completion", "zsh"], capture_output=True, text=True,
                                check=True).stdout
        self.assertTrue(script.startswith("#compdef ovixctl\n"))
        if shutil.which("zsh") is None:
            self.skipTest("needs zsh")
        offered = subprocess.run(
            ["zsh", "-f", "-c", "compdef() { :; }; compadd() { shift; print -l -- $@; }\n" + script +
             f"words=({CTL} neigh); CURRENT=2; _ovixctl"], capture_output=True, text=True,
            check=True).stdout
        self.assertEqual(offered, "neighbour\n")


if __name__ == "__main__":
    unittest.main()
