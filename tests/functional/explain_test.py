"""Why a frame goes where it goes, and what would have to change."""

import json
import re
import shutil
import struct
import subprocess
import unittest

import frames as f
from agent import (AGENT, CE_EAST, CE_WEST, IP4, PLUGIN, PORTS, WEST, AgentTest, hardware, lfib, mpls,
                   port, routes, sent, via)
from running_agent import CTL, SharedTablesTest

SWAP = hardware(via("swap", [200]))
RED = PORTS.replace("{name: east,", "{name: east, vrf: red,")
PSEUDOWIRE = """
pseudowires:
  - {name: acme, port: east, label: 500, control-word: true, interface: west, nexthop: 10.0.1.2}
""" + lfib(pseudowire={200: routes(via("pop", nexthop=None, payload="ethernet"))})


def run_explain(config, frame, *flags: str, code: int = 0, at: str = "west") -> str:
    command = [AGENT, "explain", str(config), *(["--port", at] if at else []), frame, *flags]
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
        elif below := re.search(r", below (.*)", where):
            key = below[1].split()[-1]
            config = re.sub(rf"(?m)^( *{key})\n", lambda found: found[1] + "\n" + "\n".join(lines) + "\n", config)
        else:
            config += "\n".join(lines) + "\n"
    return config


class ExplainTest(AgentTest):
    def explain(self, config: str, frame, *flags: str, code: int = 0, at: str = "west") -> dict:
        path = self.path / "explained.yaml"
        path.write_text(config if "ports:" in config else PORTS + config)
        text = frame if isinstance(frame, str) else frame.hex()
        return json.loads(run_explain(path, text, "--json", *flags, code=code, at=at))

    def test_the_walk_of_a_forwarded_frame(self):
        two = hardware(via("swap", [200]), via("swap", [201], nexthop="10.0.2.3", weight=3))
        told = self.explain(two, mpls([100]))
        steps = [(step["step"], step["values"]) for step in told["steps"]]
        asked = [(values["table"], values["found"]) for kind, values in steps if kind == "table"]
        self.assertEqual(asked, [("decap", False), ("evpn-ethernet-segment-filter", False), ("pseudowire", False),
                                 ("evpn-etree-leaf-label", False), ("hardware", True)])
        choice = dict(steps)["choice"]
        self.assertEqual((choice["weights"], choice["total"], choice["vias"]), ([1, 3], 4, 2))
        label, to = ((200, CE_EAST), (201, "02:00:00:00:02:03"))[choice["via"] - 1]
        self.assertEqual(choice["via"], 1 if choice["hash"] % 4 < 1 else 2)
        neighbour = dict(steps)["neighbour"]
        self.assertEqual((neighbour["port"], neighbour["mac"]), ("east", to))
        mtu = dict(steps)["mtu"]
        self.assertEqual((mtu["length"], mtu["mtu"], mtu["up"]), (len(IP4) + 4, 1500, True))
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

    def test_a_frame_of_a_capture_comes_in_where_the_capture_says(self):
        capture, config = self.path / "some.pcapng", self.path / "explained.yaml"
        config.write_text(PORTS + SWAP)
        frame = mpls([100])
        for order in "<>":
            f.write_pcapng(capture, [b"\0" * 60, frame], order=order, interface="west")
            told = self.explain(SWAP, f"{capture}:2", at="")
            self.assertEqual((told["frame"]["port"], told["frame"]["bytes"]), ("west", frame.hex()))
        for text, said in ((f"{capture}:3", "has 2 frames, and no number 3"), ("label 100", "--port is needed: only a frame of a "),
                           (frame.hex(), "--port is needed"), (f"{self.path}/none.pcapng:1", "cannot be opened")):
            self.assertIn(said, run_explain(config, text, code=2, at=""))
        f.write_pcapng(capture, [frame], interface="wets")
        self.assertIn(f'--port is needed: frame 1 of {capture} came in at "wets", and there is no port "wets"; did you mean "west"?',
                      run_explain(config, f"{capture}:1", code=2, at=""))
        self.assertEqual(self.explain(SWAP, f"{capture}:1")["verdict"]["fate"], "forwarded")
        for nameless in (f.write_pcapng, f.write_pcap):
            nameless(capture, [frame])
            self.assertIn(f"--port is needed: {capture} does not say where frame 1 came in",
                          run_explain(config, f"{capture}:1", code=2, at=""))

    def test_what_the_words_leave_out_is_said_to_be_made_up(self):
        packet = "is an IPv4 packet from 192.0.2.1 to 192.0.2.2, UDP port 9"
        for words, made in (("label 0", f"beneath the labels {packet}"), ("label 0, control-word", f"behind the control word {packet}"),
                            ("label 0, ethernet 02:00:00:00:00:0a", "the pseudowire's Ethernet frame is of ARP (type 0x0806), and empty"),
                            ("vlan 5", "the EtherType is of IPv4, with nothing behind it")):
            remark, = self.explain(SWAP, words, code=1)["remarks"]
            self.assertRegex(remark, "^made up, as the words name n.*: ")
            self.assertTrue(remark.endswith(made), remark)
        self.assertEqual(self.explain(SWAP, "label 100, ip 10.1.0.1 > 10.9.0.1")["remarks"], [])

    def test_the_page_is_whole_and_has_no_outside_resources(self):
        page = self.path / "page.html"
        self.explain("", "label 100, ip 10.1.1.1 > 10.9.0.1", "--html", str(page), code=1)
        text = page.read_text(encoding="utf-8")
        self.assertIn("✗ label 100 in table hardware", text)
        self.assertIn("viewport", text)
        self.assertIn("@media print", text)
        self.assertEqual(re.findall(r"(?:src|href)=|@import|url\(", text), [])

    @unittest.skipUnless(shutil.which("chromium"), "there is no Chromium")
    def test_the_page_in_a_browser(self):
        """On a phone nothing is wider than the screen, the failing step is marked, and nothing is fetched."""
        page, frame = self.path / "page.html", self.path / "frame.html"
        self.explain("", "label 100, ip 10.1.1.1 > 10.9.0.1", "--html", str(page), code=1)
        frame.write_text("""<iframe src="page.html" width="390" height="800"></iframe><p id="told"></p><script>
            onload = () => { const shown = document.querySelector("iframe").contentDocument;
                const root = shown.documentElement, drawn = shown.querySelector("svg").getBoundingClientRect();
                told.textContent = JSON.stringify({wide: root.scrollWidth, drawn: drawn.height > 100,
                    failed: [...shown.querySelectorAll("li.failed")].map(each => each.textContent),
                    boxes: shown.querySelectorAll("svg .failed rect").length,
                    fetched: shown.defaultView.performance.getEntriesByType("resource").length}); };</script>""")
        done = subprocess.run(["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--virtual-time-budget=3000",
                               "--allow-file-access-from-files", "--dump-dom", f"--user-data-dir={self.path}/profile",
                               frame.as_uri()], capture_output=True, text=True, check=True, timeout=60)
        told = json.loads(re.search(r'<p id="told">(.*?)</p>', done.stdout)[1])
        self.assertLessEqual(told.pop("wide"), 390)
        self.assertEqual(told, {"drawn": True, "failed": ["✗ label 100 in table hardware: no route"], "boxes": 1,
                                "fetched": 0})

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

    def text(self, config: str, frame: str, at: str = "west", code: int = 0) -> str:
        path = self.path / "explained.yaml"
        path.write_text(config)
        return run_explain(path, frame, at=at, code=code)

    def test_a_route_that_drops_is_not_gone_round(self):
        told = self.text(PORTS + "routes: [{prefix: 10.9.0.0/16, drop: true}]\n", "ip 10.1.1.1 > 10.9.0.1", code=1)
        self.assertIn("nearest change: none: the route drops what it covers, as it is configured to", told)

    def test_a_next_hop_that_is_the_routers_own_address(self):
        told = self.text(PORTS + hardware(via("swap", [200], nexthop="10.0.2.1")), "label 100")
        self.assertIn("none: the next hop 10.0.2.1 is this router's own address, and a route has to name its "
                      "neighbour's", told)

    def test_a_route_of_a_vrf_goes_by_the_next_hops_of_that_vrf(self):
        config = PORTS.replace("ports:\n", 'ports:\n  - {name: ce, vrf: red, mac: "02:00:00:00:00:07", '
                               "addresses: [10.0.7.1/24]}\n") + """
routes: [{vrf: red, prefix: 10.1.0.0/16, via: {nexthop: 10.0.7.7}}]
""" + lfib(decap={500: "type: ip-lookup, via: {action: pop, payload: auto, vrf: red}"})
        told = self.explain(config, "label 500, ip 10.1.1.1 > 10.77.0.1", code=1)
        self.assertIn('{vrf: red, prefix: "10.77.0.1/32", via: {interface: ce, nexthop: "10.0.7.7"}}',
                      told["change"]["commands"][0])
        self.assertNotIn("leak", str(told["change"]["notes"]))

    def test_a_sub_interface_is_of_the_vrf_of_its_port(self):
        config = RED + "routes: [{vrf: red, prefix: 10.1.0.0/16, via: {nexthop: 10.0.2.2}}]\n"
        frame = "vlan 7, ip 10.7.1.1 > 10.1.0.1"
        told = self.explain(config, frame, code=1, at="east")
        self.assertIn("{name: east.7, parent: east, vlan: 7, vrf: red}", told["change"]["commands"][0])
        again = self.explain(changed(config, told["change"]["commands"]), frame, at="east")
        self.assertEqual(again["verdict"], told["change"]["then"])

    def test_a_next_hop_toward_a_fec_has_its_number(self):
        told = self.text(PORTS + "fecs: [{id: 42, vias: [{interface: east, nexthop: 10.0.2.2}]}]\n" + lfib(decap={
            118: "type: external-fec, via: {fec: 42, action: swap, labels: [200]}"}), "label 118")
        self.assertIn("next hop: toward FEC 42", told)

    def test_an_unprogrammed_route(self):
        config = hardware(via("swap", [200]), route=", unprogrammed: true")
        told = self.explain(config, mpls([100]), code=1)
        values = told["steps"][-1]["values"]
        self.assertEqual((values["found"], values["state"]), (True, "unprogrammed"))
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

    def expect_echo(self, config: str, packet: bytes, answer: str, at: str = "west", labels=(0,), **values) -> list[dict]:
        """What becomes of an LSP ping behind the punt: the step that says so, and those behind it."""
        told = self.explain(config, mpls(list(labels), packet), at=at)
        self.assertEqual(told["verdict"]["fate"], "punted")
        steps = [step for step in told["steps"] if step["step"] in ("answer", "reply")]
        found = steps[0]["values"]
        self.assertEqual(found["answer"], answer, steps)
        self.assertEqual({name: found[name] for name in values}, values)
        return steps

    def test_what_the_router_answers_an_lsp_ping(self):
        ours, theirs = f.ldp_fec("10.0.2.0", 24), f.ldp_fec("10.77.0.0", 16)
        sent_on, reply = self.expect_echo(SWAP, f.lsp_ping("10.0.1.2", "127.0.0.1", ours), "LSP echo: sent", code=3,
                                          meaning="egress for the FEC", depth=1, fec="10.0.2.0/24")
        self.assertEqual(sent_on["details"], ["return code 3: egress for the FEC, depth 1, FEC 10.0.2.0/24"])
        self.assertEqual((reply["values"]["fate"], reply["values"]["port"]), ("forwarded", "west"))
        self.assertIn("the answer is forwarded by west, ", reply["text"])
        self.expect_echo(SWAP, f.lsp_ping("10.0.1.2", "127.0.0.1", theirs), "LSP echo: sent", code=4,
                         meaning="no mapping for the FEC", fec="10.77.0.0/16")
        mapping = f.downstream_mapping("10.0.9.9", 0)
        self.expect_echo(SWAP, f.lsp_ping("10.0.1.2", "127.0.0.1", ours, mapping), "LSP echo: sent", code=5,
                         meaning="downstream mapping mismatch")
        self.expect_echo(SWAP, f.lsp_ping("10.0.1.2", "127.0.0.1"), "LSP echo: sent", code=1, meaning="malformed request")
        expired, _ = self.expect_echo(SWAP, f.lsp_ping("10.0.1.2", "127.0.0.1", ours), "LSP echo: sent",
                                      labels=((100, 0, 1),), code=8, meaning="label switched")
        self.assertFalse(expired["failed"])

    def test_an_lsp_ping_in_words(self):
        ping = mpls([0], f.lsp_ping("10.0.1.2", "127.0.0.1", f.ldp_fec("10.0.2.0", 24)))
        for words, meaning, fec in (("10.0.2.0/24", "egress for the FEC", "10.0.2.0/24"),
                                    ("2001:db8:7::/48", "no mapping for the FEC", "2001:db8:7::/48")):
            told = self.explain(SWAP, f"label 0, ip 10.0.1.2 > 127.0.0.1 lsp-ping {words}")
            found = [step["values"] for step in told["steps"] if step["step"] == "answer"]
            self.assertEqual([(one["meaning"], one["fec"]) for one in found], [(meaning, fec)], told)
            self.assertEqual(told["remarks"], [])
        self.assertEqual(told["frame"]["length"], len(ping) + 12)
        config = self.path / "explained.yaml"
        for words, why in (("", "word 8: the prefix of the FEC is missing"), ("10.0.2.0/33", '"33" as the length of the prefix'),
                           ("10.0.2.0/24 udp 5", "the protocol is given twice")):
            self.assertIn(why, run_explain(config, f"label 0, ip 10.0.1.2 > 127.0.0.1 lsp-ping {words}", code=2))

    def test_why_the_router_does_not_answer_an_lsp_ping(self):
        ours = f.ldp_fec("10.0.2.0", 24)
        unanswered = "LSP echo unanswered: "
        self.expect_echo(SWAP, f.lsp_ping("10.0.1.2", "127.0.0.1", ours, mode=1), unanswered + "no reply wanted")
        self.expect_echo(SWAP, f.lsp_ping("10.0.1.2", "127.0.0.1", ours, port=0), unanswered + "no source port")
        self.expect_echo(SWAP, f.lsp_ping("0.0.0.0", "127.0.0.1", ours), unanswered + "source is not a single host")
        damaged = bytearray(f.lsp_ping("10.0.1.2", "127.0.0.1", ours))
        damaged[-1] ^= 1
        self.expect_echo(SWAP, bytes(damaged), unanswered + "UDP length or checksum wrong")
        self.expect_echo(PORTS.replace(", addresses: [10.0.1.1/24]", "") + SWAP,
                         f.lsp_ping("10.0.1.2", "127.0.0.1", ours), unanswered + "port has no address of the family")
        self.expect_echo(SWAP, f.lsp_ping("10.5.5.5", "127.0.0.1", ours), unanswered + "no path to the source", labels=(1,))
        self.expect_echo("answers: {lsp-echo: false}\n" + SWAP, f.lsp_ping("10.0.1.2", "127.0.0.1", ours),
                         "LSP echo: suppressed")

    def test_what_the_router_answers_a_packet_that_goes_nowhere(self):
        routed = SWAP + "routes: [{prefix: 10.55.0.0/16, via: {interface: east, nexthop: 10.0.2.2}}]\n"

        def answer(frame: bytes) -> list[str]:
            told = self.explain(routed, frame, code=1 if frame[12:14] == b"\x08\0" else 0)
            return [step["text"] for step in told["steps"] if step["step"] in ("answer", "reply")]
        expired = mpls([(100, 0, 1)], f.udp_packet("10.0.1.2", "10.9.0.1"))
        self.assertEqual(answer(expired)[0], "answer: time exceeded: sent")
        self.assertRegex(answer(expired)[1], "^the answer is forwarded by west, ")
        lost = f.eth(WEST, CE_WEST, f.ETH_IPV4, f.udp_packet("10.0.1.2", "10.66.0.1"))
        self.assertEqual(answer(lost)[0], "answer: unreachable: sent")
        error = f.eth(WEST, CE_WEST, f.ETH_IPV4, f.ipv4("10.0.1.2", "10.66.0.1", bytes([3, 1, 0, 0]) + bytes(24), 1))
        self.assertEqual(answer(error), ["answer: unreachable: not sent, none is due about such a packet"])

    def test_what_answers_a_frame_that_was_kept_in_part_is_not_guessed(self):
        whole = mpls([(100, 0, 1)], f.udp_packet("10.0.1.2", "10.9.0.1", payload=b"x" * 300))
        capture = self.path / "cut.pcap"
        header = struct.pack("<IHHiIII", 0xa1b2c3d4, 2, 4, 0, 0, 128, 1)
        capture.write_bytes(header + struct.pack("<IIII", 0, 0, 128, len(whole)) + whole[:128])
        answers = [[step["text"] for step in self.explain(SWAP, frame)["steps"] if step["step"] == "answer"]
                   for frame in (whole, f"{capture}:1")]
        self.assertEqual(answers, [["answer: time exceeded: sent"],
                                   [f"answer: not known, of {len(whole)} bytes only 128 were kept"]])

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

    def test_a_pseudowire_s_payload_is_shown_as_what_it_is(self):
        def headers(config: str, payload: bytes) -> tuple[dict, list[str]]:
            told = self.explain(config, mpls([200], payload))
            return ({step["values"]["when"]: step["values"]["headers"] for step in told["steps"]
                     if step["step"] == "headers"}, told["frame"]["headers"][2:])
        inner = f.eth("22:00:00:00:00:0a", "02:00:00:00:00:0b", f.ETH_IPV4, IP4)
        named = "Ethernet 02:00:00:00:00:0b > 22:00:00:00:00:0a, type 0x0800"
        found, parsed = headers(PSEUDOWIRE, bytes(4) + inner)
        self.assertEqual((found["rewritten"], found["sent"]), (f"control word 00000000, {named}", named))
        self.assertEqual(parsed[:2], ["control word 00000000", named])
        self.assertIn(named, found["received"])
        for first in "46":  # as an IP packet begins, too
            inner = f.eth(f"{first}2:00:00:00:00:0a", "02:00:00:00:00:0b", f.ETH_IPV4, IP4)
            found, parsed = headers(PSEUDOWIRE.replace("control-word: true", "control-word: false"), inner)
            named = f"Ethernet 02:00:00:00:00:0b > {first}2:00:00:00:00:0a, type 0x0800"
            self.assertEqual((found["rewritten"], parsed[0]), (named, named))
            self.assertTrue(found["received"].endswith(named), found)

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

    def expect_repaired(self, found: str | bool) -> str:
        config = self.directory / "agent.yaml"
        config.write_text(PORTS)
        flags = ("--tables", self.tables, "--json")
        told = json.loads(run_explain(config, mpls([100]).hex(), *flags, code=1))
        values = told["steps"][-1]["values"]
        self.assertEqual(values.get("state", values["found"]), found)
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
        self.assertEqual(self.expect_repaired(False), "lfib add 100 as 100 via inet 10.0.2.2 dev east")

    def test_an_unprogrammed_route(self):
        self.ctl("lfib", "add", "adjacency", "7", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.ctl("lfib", "add", "hardware", "100", "adjacency", "7", "unprogrammed")
        self.assertEqual(self.expect_repaired("unprogrammed"), "lfib replace hardware 100 adjacency 7")


class RunningTest(SharedTablesTest):
    """A running agent is asked, and does nothing."""

    def explain(self, running, frame: bytes, *flags: str, code: int = 0) -> str:
        return self.ctl("explain", "--control", str(running.path), "--port", "west", frame.hex(), *flags, code=code)

    def everything_counted(self, running) -> list:
        return [running.ask(command) for command in ("status", "fates", "counters", "ports", "neighbours")]

    def test_it_forwards_counts_and_learns_nothing(self):
        running = self.start()
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        running.send_and_wait(mpls([100]), mpls([999]))
        before = self.everything_counted(running)
        told = json.loads(self.explain(running, mpls([100]), "--json"))
        self.assertEqual(told["verdict"]["sent"], [{"port": "east", "length": len(mpls([100])),
                                                    "bytes": sent([(200, 0, 63)]).hex()}])
        self.assertEqual((told["tables"], told["generation"]), (self.tables, running.generation()))
        other = subprocess.run([CTL, "--tables", self.tables, "explain", "--control", str(running.path), "--port",
                                "west", mpls([999]).hex()], capture_output=True, text=True, check=False, timeout=30)
        self.assertEqual(other.returncode, 1, other.stderr)
        self.assertIn(f"ovixctl --tables {self.tables} lfib add 999", other.stdout)
        self.assertEqual(self.everything_counted(running), before)
        result = running.stop()
        self.assertEqual(result.json["in"]["frames"], 2)
        self.assertEqual(result.sent(), {"east": [sent([(200, 0, 63)])]})

    def test_the_configuration_is_the_one_in_force(self):
        running = self.start()
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        (self.directory / "agent.yaml").write_text("changed: since\n")
        self.assertIn("verdict: forwarded by east", self.explain(running, mpls([100])))

    def test_faults_are_named(self):
        self.assertIn("is the agent running?", self.ctl("explain", "--control", "/nonexistent", "--port", "west", "00",
                                                        code=2))
        running = self.start()
        self.assertIn("--port is needed", self.ctl("explain", "--control", str(running.path), "00", code=2))
        self.assertIn("FRAME, character 3: half a byte", self.ctl("explain", "--control", str(running.path), "--port", "west", "000",
                                                     code=2))


if __name__ == "__main__":
    unittest.main()
