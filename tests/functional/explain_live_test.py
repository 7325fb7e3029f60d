"""A live agent is explained while it runs, and the changes that are shown are pasted."""

import json
import pathlib
import shlex
import signal
import subprocess
import unittest

import frames as f
import shared_memory
from explain_test import changed
from live import DEADLINE, LiveTest, ip
from running_agent import CTL, ask, damage


class ExplainLiveTest(LiveTest):
    def explain(self, frame: str) -> dict:
        done = subprocess.run([CTL, "--tables", self.tables, "explain", "--control", str(self.path), "--port", "west",
                               frame, "--json"], capture_output=True, text=True, check=False, timeout=DEADLINE)
        self.assertIn(done.returncode, (0, 1), done.stderr)
        return json.loads(done.stdout)

    def expect_repaired(self, frame: str, reasons: set, commands: list) -> None:
        """What the change says is so once its commands have been run beside the agent."""
        told = self.explain(frame)
        self.assertEqual(told["verdict"]["fate"], "dropped")
        self.assertIn(told["verdict"]["reason"], reasons)
        self.assertEqual(told["change"]["commands"], commands)
        for command in commands:
            path = f"PATH={shlex.quote(str(pathlib.Path(CTL).parent))}:$PATH"
            subprocess.run(["ip", "netns", "exec", self.router, "sh", "-ec", f"{path}; {command}"], check=True)
        self.until(lambda: self.explain(frame)["verdict"]["fate"] == "forwarded")
        self.assertEqual(self.explain(frame)["verdict"], told["change"]["then"])

    def expect_no_groups_among_neighbours(self) -> None:
        """The kernel has entries for the groups that it sends to itself, as for RFC 4861 and RFC 3810."""
        kernel = subprocess.run(["ip", "-n", self.router, "neigh", "show", "nud", "noarp"], check=True,
                                capture_output=True, text=True).stdout
        self.assertIn("33:33:", kernel)
        for neighbour in ask(self.path, "neighbours")["neighbours"]:
            self.assertNotRegex(neighbour["address"], "^(ff|22[4-9]|23)", neighbour)

    def test_each_change_that_is_shown_has_the_frame_forwarded(self):
        process = self.start("""neighbours:
  - {address: 10.0.2.3, port: east, mac: "02:00:00:00:02:03"}
""")
        self.ctl("lfib", "add", "decap", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.ctl("lfib", "add", "decap", "102", "as", "200", "via", "inet", "10.0.2.3", "dev", "east")
        self.until(lambda: ask(self.path, "ports")["ports"][1]["state"] == "up")
        before = [ask(self.path, command) for command in ("status", "counters", "ports", "neighbours")]
        told = self.explain("label 100")
        self.assertEqual((told["verdict"]["fate"], told["verdict"]["reason"]), ("waiting", "Waits for its neighbour"))
        self.assertEqual(told["steps"][-1]["step"], "waits")
        self.assertEqual([ask(self.path, command) for command in ("status", "counters", "ports", "neighbours")], before)
        self.assertEqual(told["change"]["commands"], ["ping -c 1 -I east 10.0.2.2"])
        subprocess.run(["ip", "netns", "exec", self.router, *told["change"]["commands"][0].split()], check=True,
                       capture_output=True)
        self.until(lambda: self.explain("label 100")["verdict"]["fate"] == "forwarded")
        subprocess.run(["ip", "-n", self.router, "link", "set", "east", "mtu", "1000"], check=True)
        self.until(lambda: ask(self.path, "ports")["ports"][1]["mtu"] == 1000)
        self.expect_repaired("label 100, ip 10.1.1.1 > 10.9.0.1 size 1400 df", {"MTU exceeded"},
                             ["ip link set dev east mtu 1404"])
        self.ctl("lfib", "add", "103", "as", "203", "via", "inet", "10.0.2.3", "dev", "east", "mtu", "100")
        show = f"ovixctl --tables {self.tables} lfib show transit 103"
        self.expect_repaired("label 103, ip 10.1.1.1 > 10.9.0.1 size 300 df", {"MTU exceeded"}, [
            f"ovixctl --tables {self.tables} lfib replace $({show} | sed -n '/^#/!s/ mtu [0-9]*//gp')"])
        self.ctl("lfib", "add", "104", "as", "204", "via", "inet", "10.0.2.3", "dev", "esat")
        show = f"ovixctl --tables {self.tables} lfib show transit 104"
        self.assertIn("via 10.0.2.3 dev esat, which is no port of this router", json.dumps(self.explain("label 104")))
        self.expect_repaired("label 104", {"No labels resolved to via sets, and nexthop not resolved"}, [
            f"ovixctl --tables {self.tables} lfib replace $({show} | sed -n '/^#/!s/ dev esat\\b/ dev east/gp')"])
        self.ctl("lfib", "add", "105", "as", "205", "via", "inet", "10.0.2.3", "dev", "e';id>&2;'")
        self.assertNotIn("id>", str(self.explain("label 105")["change"]))
        self.expect_no_groups_among_neighbours()
        self.expect_repaired("label 5000", {"No labels resolved to via sets, and nexthop not resolved"}, [
            f"ovixctl --tables {self.tables} lfib add 5000 as 5000 via inet 10.0.2.3 dev east"])
        subprocess.run(["ip", "-n", self.router, "link", "set", "east", "down"], check=True)
        self.until(lambda: ask(self.path, "ports")["ports"][1]["state"] != "up")
        self.expect_repaired("label 102", {"Egress port is down"}, ["ip link set dev east up"])
        ip("-n", self.east, "link", "set", "eth0", "down")
        self.until(lambda: ask(self.path, "ports")["ports"][1]["problem"] == "no carrier")
        self.assertEqual(self.explain("label 102")["change"]["commands"],
                         ["# east has no carrier: connect it, or set the other end up"])
        ip("-n", self.router, "link", "del", "east")
        self.until(lambda: ask(self.path, "ports")["ports"][1]["problem"] not in ("no carrier", None))
        command, = self.explain("label 102")["change"]["commands"]
        self.assertRegex(command, "^# (there is no interface east|port east waits: )")
        self.stop(process)

    def paste(self, process: subprocess.Popen, commands: list[str]) -> None:
        """Commands into a shell, lines of the configuration into that, which is then read again."""
        lines = [command for command in commands if command.startswith("# in ")]
        for command in commands:
            if command not in lines:
                path = f"PATH={shlex.quote(str(pathlib.Path(CTL).parent))}:$PATH"
                subprocess.run(["ip", "netns", "exec", self.router, "sh", "-ec", f"{path}; {command}"], check=True,
                               capture_output=True)
        if lines:
            self.config.write_text(changed(self.config.read_text(), lines))
            process.send_signal(signal.SIGHUP)

    def test_mistakes_in_tables_configuration_and_frames_are_found_by_one_command(self):
        process = self.start("""  - {name: ce, kind: tap, vrf: red, addresses: [10.0.7.1/24]}
  - {name: circuit, kind: tap}
neighbours:
  - {address: 10.0.1.2, port: west, mac: "02:00:00:00:01:02"}
  - {address: 10.0.2.2, port: east, mac: "02:00:00:00:02:02"}
  - {address: 10.0.7.2, port: ce, mac: "02:00:00:00:07:02"}
pseudowires:
  - {name: acme, port: circuit, label: 500, control-word: true, interface: east, nexthop: 10.0.2.2}
""")
        to_east = ("as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        for words in (("adjacency", "8", "as", "703710", *to_east[2:]), ("hardware", "301", "adjacency", "8"),
                      ("302", "as", "703711", *to_east[2:]), ("100", *to_east), ("adjacency", "7", *to_east), ("hardware", "300", "adjacency", "7", "unprogrammed"),
                      ("decap", "400", "vrf", "red"), ("pseudowire", "600", "dev", "circuit", "payload", "ethernet")):
            self.ctl("lfib", "add", *words)
        self.until(lambda: {port["state"] for port in ask(self.path, "ports")["ports"]} == {"up"})
        # An adjacency that is forwarded by cannot be removed, nor named before it is there: one is missing when it is damaged.
        for label in (703710, 703711):
            damage(shared_memory.path(self.tables), label)
        self.until(lambda: ask(self.path, "status")["tables"]["generation"] >= 9)
        for frame, reason, command in (
                ("label 300", "No labels resolved to via sets, and nexthop not resolved", "lfib replace hardware 300 adjacency 7"),
                ("label 301", "No labels resolved to via sets, and nexthop not resolved", "lfib add adjacency 8 as 301 via "),
                ("label 302", "No labels resolved to via sets, and nexthop not resolved", "lfib replace $("),
                ("label 400, ip 10.1.1.1 > 10.8.0.1", "No route", '{vrf: red, prefix: "10.8.0.1/32", via: {interface: ce, '),
                ("label 600, ethernet 22:00:00:00:00:0a, ip 10.1.1.1 > 10.2.2.2",
                 "Pseudowire control word missing: the first nibble is neither 0 nor 1", "control-word: false")):
            told = self.explain(frame)
            self.assertEqual((told["verdict"]["fate"], told["verdict"]["reason"]), ("dropped", reason))
            self.assertIn(command, told["change"]["commands"][0])
            self.paste(process, told["change"]["commands"])
            self.until(lambda: self.explain(frame)["verdict"] == told["change"]["then"])
        for frame, reason in (("label 100/ttl 1", "ttl for label 100 is <= 1, trapping"), ("label 1, label 100", "MPLS Oam packet")):
            told = self.explain(frame)
            self.assertEqual((told["verdict"]["fate"], told["verdict"]["reason"]), ("punted", reason))
            self.paste(process, told["change"]["commands"])  # another frame, which the command explains
        ping = f.lsp_ping("10.0.1.2", "127.0.0.1", f.ldp_fec("10.77.0.0", 16), ttl=1)
        told = self.explain(f.eth(self.router_mac("west"), "02:00:00:00:01:02", f.ETH_IPV4, ping).hex())
        self.assertEqual([step["values"].get("meaning") for step in told["steps"] if step["step"] == "answer"],
                         ["no mapping for the FEC"])
        self.stop(process)


if __name__ == "__main__":
    unittest.main()
