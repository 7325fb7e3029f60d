"""Why a frame goes where it goes, and what would have to change."""

import json
import re
import subprocess
import unittest

import frames as f
from agent import (AGENT, CE_EAST, CE_WEST, EAST, IP4, PLUGIN, PORTS, WEST, AgentTest, hardware, lfib, mpls,
                   port, routes, sent, via)
from running_agent import CTL, SharedTablesTest

SWAP = hardware(via("swap", [200]))
RED = PORTS.replace("{name: east,", "{name: east, vrf: red,")
PSEUDOWIRE = """
pseudowires:
  - {name: acme, port: east, label: 500, control-word: true, interface: west, nexthop: 10.0.1.2}
""" + lfib(pseudowire={200: routes(via("pop", nexthop=None, payload="ethernet"))})


def run_explain(config, frame, *flags: str, code: int = 0, at: str = "west") -> str:
    command = [AGENT, "explain", str(config), "--port", at, frame, *flags]
    command += ["--plugin", PLUGIN] if PLUGIN else []
    done = subprocess.run(command, capture_output=True, text=True, check=False, timeout=60)
    assert done.returncode == code, f"{done.returncode}: {done.stdout}{done.stderr}"
    return done.stdout if code < 2 else done.stderr


def changed(config: str, commands: list[str]) -> str:
    """The configuration with the lines of the commands in their places."""
    for command in commands:
        where, *lines = command.split("\n")
        name = re.fullmatch(r"# in \S+, of (?:port|pseudowire) (\S+)", where)
        if name:
            before = re.search(rf"{{name: {name[1]}\b", config)[0]
            key = lines[0].split(":")[0]
            config = re.sub(rf"({before}[^}}]*), {key}: \w+", r"\1", config)
            config = config.replace(before, f"{before}, {lines[0]}")
        elif lines[0] in config:
            config = config.replace(lines[0] + "\n", "\n".join(lines) + "\n")
        else:
            config += "\n".join(lines) + "\n"
    return config


class ExplainTest(AgentTest):
    def explain(self, config: str, frame, *flags: str, code: int = 0) -> dict:
        path = self.path / "explained.yaml"
        path.write_text(config if "ports:" in config else PORTS + config)
        text = frame if isinstance(frame, str) else frame.hex()
        return json.loads(run_explain(path, text, "--json", *flags, code=code))

    def test_the_walk_of_a_forwarded_frame(self):
        two = hardware(via("swap", [200]), via("swap", [201], nexthop="10.0.2.3", weight=3))
        told = self.explain(two, mpls([100]))
        steps = [(step["step"], step["values"]) for step in told["steps"]]
        asked = [(values["table"], values["found"]) for kind, values in steps if kind == "table"]
        self.assertEqual(asked, [("decap", "no"), ("evpn-ethernet-segment-filter", "no"), ("pseudowire", "no"),
                                 ("evpn-etree-leaf-label", "no"), ("hardware", "yes")])
        choice = dict(steps)["choice"]
        self.assertEqual((choice["weights"], choice["total"], choice["vias"]), ("1:3", 4, 2))
        label, to = ((200, CE_EAST), (201, "02:00:00:00:02:03"))[choice["via"]]
        self.assertEqual(choice["via"], 0 if choice["hash"] % 4 < 1 else 1)
        neighbour = dict(steps)["neighbour"]
        self.assertEqual((neighbour["port"], neighbour["mac"]), ("east", to))
        mtu = dict(steps)["mtu"]
        self.assertEqual((mtu["length"], mtu["mtu"], mtu["up"]), (len(IP4) + 4, 1500, "yes"))
        out = sent([(label, 0, 63)], to=to)
        self.assertEqual(told["verdict"], {"fate": "forwarded", "reason": None, "sent": [
            {"port": "east", "length": len(out), "bytes": out.hex()}]})
        self.assertEqual((told["fastPath"], told["change"]), ("same", None))
        self.assertEqual(told["generation"], 2)

    def test_words_and_captures_are_the_same_frame(self):
        capture = self.path / "some.pcap"
        packet = f.udp_packet("10.1.0.1", "10.9.0.1", 1024, 9, b"\0" * 18, ident=0)
        frame = mpls([100, (7, 3, 9)], packet)
        f.write_pcap(capture, [b"\0" * 60, frame])
        words = (f"mac {WEST} from {CE_WEST}, label 100, label 7/tc 3/ttl 9, "
                 "ip 10.1.0.1 > 10.9.0.1 udp 1024 > 9 size 46")
        for text in (f"{capture}:2", words):
            self.assertEqual(self.explain(SWAP, text)["frame"]["bytes"], frame.hex())

    def test_the_page_is_whole_and_has_no_outside_resources(self):
        page = self.path / "page.html"
        self.explain("", "label 100, ip 10.1.1.1 > 10.9.0.1", "--html", str(page), code=1)
        text = page.read_text(encoding="utf-8")
        self.assertIn("✗ label 100 in table hardware", text)
        self.assertIn("viewport", text)
        self.assertIn("@media print", text)
        self.assertEqual(re.findall(r"(?:src|href)=|@import|url\(", text), [])

    def test_faulty_input_is_refused_with_its_place(self):
        path = self.path / "faulty.yaml"
        path.write_text(PORTS)
        self.assertIn('FRAME, word 3: "tl"', run_explain(path, "label 100/tl 1", code=2))
        self.assertIn('no port "wst"; did you mean "west"?', run_explain(path, "00", at="wst", code=2))
        path.write_text(PORTS + "lfibs: {}\n")
        self.assertIn("faulty.yaml", run_explain(path, "00", code=2))

    def repaired(self, config: str, frame: bytes, fate: str, reason: str, code: int = 1) -> dict:
        """What the change says is so: the frame is forwarded by the real agent once it is made."""
        config = config if "ports:" in config else PORTS + config
        told = self.explain(config, frame, code=code)
        self.assertEqual((told["verdict"]["fate"], told["verdict"]["reason"]), (fate, reason))
        self.assertEqual([step["failed"] for step in told["steps"]].count(True), 1)
        self.assertIsNotNone(told["change"], told)
        then = told["change"]["then"]
        self.assertEqual(then["fate"], "forwarded")
        fixed = changed(config, told["change"]["commands"])
        self.assertEqual(self.run_frames(fixed, [frame], malformed=True).sent(),
                         {one["port"]: [bytes.fromhex(one["bytes"])] for one in then["sent"]})
        return told["change"]

    def test_a_missing_label(self):
        change = self.repaired("", mpls([100]), "dropped", "No labels resolved to via sets, and nexthop not resolved")
        self.assertIn("label: 100", change["commands"][0])

    def test_an_unprogrammed_route(self):
        config = hardware(via("swap", [200]), route=", unprogrammed: true")
        told = self.explain(config, mpls([100]), code=1)
        self.assertEqual(told["steps"][-1]["values"]["found"], "unprogrammed")
        self.assertEqual(told["change"]["commands"][0].split("\n")[-1], "    - {label: 100, adjacency: 1}")
        self.assertEqual(told["change"]["then"]["sent"][0]["bytes"], sent([(200, 0, 63)]).hex())

    def test_a_port_that_is_down(self):
        # With the link of its only via down a label of the hardware status has no usable via.
        for tables in (SWAP, lfib(decap={100: routes(via("swap", [200]))})):
            told = self.explain(port("east", status="down") + tables, mpls([100]), code=1)
            self.assertEqual(told["change"]["commands"][0].split("\n")[-1], "status: up")
            self.assertEqual(told["change"]["then"]["sent"][0]["port"], "east")
        self.repaired(port("east", status="down") + lfib(decap={100: routes(via("swap", [200]))}), mpls([100]),
                      "dropped", "Egress port is down")

    def test_an_unresolved_neighbour(self):
        change = self.repaired(hardware(via("swap", [200], nexthop="10.0.2.9")), mpls([100]), "dropped",
                               "No neighbour for the next hop")
        self.assertIn('address: "10.0.2.9", port: east', change["commands"][0])

    def test_an_mtu(self):
        change = self.repaired(port("east", mtu=100) + SWAP, mpls([100], f.udp_packet("10.1.0.1", "10.9.0.1",
                                                                                      payload=b"x" * 200)),
                               "dropped", "MTU exceeded")
        self.assertEqual(change["commands"][0].split("\n")[-1], "mtu: 232")

    def expect_other_frame(self, config: str, frame: bytes, reason: str) -> bytes:
        """The frame itself would have to be another, which the real agent forwards."""
        told = self.explain(config, frame)
        self.assertEqual((told["verdict"]["fate"], told["verdict"]["reason"]), ("punted", reason))
        other = bytes.fromhex(told["change"]["commands"][-1].split()[-1])
        self.assertEqual(self.run_frames(config, [other]).sent(), {
            "east": [bytes.fromhex(told["change"]["then"]["sent"][0]["bytes"])]})
        return other

    def test_a_spent_ttl(self):
        other = self.expect_other_frame(SWAP, mpls([(100, 0, 1)]), "ttl for label 100 is <= 1, trapping")
        self.assertEqual(other, mpls([(100, 0, 2)]))

    def test_an_lsp_ping(self):
        null = mpls([0], f.lsp_ping("10.1.0.1", "127.0.0.1"))
        self.assertEqual(self.explain(SWAP, null)["verdict"]["reason"], "MPLS Oam packet")
        alert = mpls([1, 100])
        self.assertEqual(self.expect_other_frame(SWAP, alert, "MPLS Oam packet"), mpls([100]))

    def test_a_vrf_without_a_route(self):
        config = PORTS + lfib(decap={100: "type: ip-lookup, via: {action: pop, payload: auto, vrf: red}"})
        self.repaired(config, mpls([100]), "dropped", "VRF not configured")
        config = RED + lfib(decap={100: "type: ip-lookup, via: {action: pop, payload: auto, vrf: red}"})
        change = self.repaired(config, mpls([100]), "dropped", "No route")
        self.assertIn('vrf: red, prefix: "10.9.0.1/32"', change["commands"][0])

    def test_a_wrong_control_word(self):
        inner = f.eth("22:00:00:00:00:0a", "02:00:00:00:00:0b", f.ETH_IPV4, IP4)
        change = self.repaired(PSEUDOWIRE, mpls([200], inner), "dropped",
                               "Pseudowire control word missing: the first nibble is neither 0 nor 1")
        self.assertEqual(change["commands"][0].split("\n")[-1], "control-word: false")

    def test_two_mistakes_at_once(self):
        change = self.repaired(port("east", mtu=80) + hardware(via("swap", [200], nexthop="10.0.2.9")),
                               mpls([100], f.udp_packet("10.1.0.1", "10.9.0.1", payload=b"x" * 100)),
                               "dropped", "No neighbour for the next hop")
        self.assertEqual(len(change["commands"]), 2)

    def test_no_change_is_made_up(self):
        told = self.explain("", f.eth(WEST, CE_WEST, 0x88CC, b"\0" * 46), code=1)
        self.assertEqual((told["verdict"]["fate"], told["change"]), ("handed on", None))


class SharedTest(SharedTablesTest):
    """Changes of shared tables are commands of ovixctl."""

    def expect_repaired(self, reason: str) -> str:
        config = self.directory / "agent.yaml"
        config.write_text(PORTS)
        flags = ("--tables", self.tables, "--json")
        told = json.loads(run_explain(config, mpls([100]).hex(), *flags, code=1))
        self.assertEqual(told["steps"][-1]["values"]["found"], reason)
        words = told["change"]["commands"][0].split()
        self.assertEqual(words[:3], ["ovixctl", "--tables", self.tables])
        before = self.ctl("lfib", "show")
        subprocess.run([CTL, *words[1:]], check=True, timeout=30)
        self.assertNotEqual(before, self.ctl("lfib", "show"))
        after = json.loads(run_explain(config, mpls([100]).hex(), *flags))
        self.assertEqual(after["verdict"], told["change"]["then"])
        return " ".join(words[3:])

    def test_a_missing_label(self):
        self.ctl("lfib", "add", "999", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.assertEqual(self.expect_repaired("no"), "lfib add 100 as 100 via inet 10.0.2.2 dev east")

    def test_an_unprogrammed_route(self):
        self.ctl("lfib", "add", "adjacency", "7", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.ctl("lfib", "add", "hardware", "100", "adjacency", "7", "unprogrammed")
        self.assertEqual(self.expect_repaired("unprogrammed"), "lfib replace hardware 100 adjacency 7")

    def test_a_missing_adjacency(self):
        self.ctl("lfib", "add", "adjacency", "7", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.ctl("lfib", "add", "hardware", "100", "adjacency", "7")
        self.ctl("lfib", "del", "adjacency", "7")
        self.assertEqual(self.expect_repaired("no adjacency"),
                         "lfib add adjacency 7 as 100 via inet 10.0.2.2 dev east")


if __name__ == "__main__":
    unittest.main()
