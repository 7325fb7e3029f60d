"""A live agent is explained while it runs, and the changes that are shown are pasted."""

import json
import pathlib
import shlex
import subprocess
import unittest

from live import DEADLINE, LiveTest, ip
from running_agent import CTL, ask


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


if __name__ == "__main__":
    unittest.main()
