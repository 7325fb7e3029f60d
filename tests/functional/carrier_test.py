"""Neighbours hear of an agent that has ended: --carrier."""

import json
import os
import pathlib
import signal
import subprocess
import unittest

from live import DEADLINE, LiveTest, ip
from running_agent import CTL

SECOND = 1.0


class Carrier(LiveTest):
    options = ("--carrier",)

    def link(self, namespace: str, name: str) -> dict:
        shown = subprocess.run(["ip", "-n", namespace, "-j", "link", "show", name], check=True,
                               capture_output=True, text=True).stdout
        return json.loads(shown)[0]

    def hears(self, host: str) -> bool:
        """Whether a host's interface has a carrier."""
        return "LOWER_UP" in self.link(host, "eth0")["flags"]

    def up(self, port: str) -> bool:
        return "UP" in self.link(self.router, port)["flags"]

    def holder(self, process: subprocess.Popen) -> int:
        children = pathlib.Path(f"/proc/{process.pid}/task/{process.pid}/children").read_text()
        self.assertEqual(len(children.split()), 1, children)
        return int(children)

    def end(self, process: subprocess.Popen, number: int) -> None:
        process.send_signal(number)
        process.communicate(timeout=DEADLINE)
        self.path.unlink(missing_ok=True)

    def expect_down(self) -> None:
        for host in (self.west, self.east):
            self.until(lambda host=host: not self.hears(host), SECOND)

    def test_neighbours_hear_of_its_end_however_it_comes_about(self):
        ip("-n", self.router, "addr", "add", "fd00::1/64", "dev", "west", "nodad")
        for kind, number in (("packet", signal.SIGKILL), ("packet", signal.SIGTERM),
                             ("xdp", signal.SIGABRT), ("xdp", signal.SIGKILL)):
            process = self.start(kind=kind)
            self.until(lambda: self.hears(self.west) and self.hears(self.east))
            self.end(process, number)
            self.expect_down()
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        mac = self.link(self.east, "eth0")["address"]
        process = self.start(f"neighbours: [{{address: 10.0.2.2, port: east, mac: '{mac}'}}]\n")
        self.until(lambda: self.hears(self.west) and self.hears(self.east))
        self.assertEqual(self.labelled(100, 20), 20)  # from the first one on
        addresses = subprocess.run(["ip", "-n", self.router, "addr", "show", "west"], check=True,
                                   capture_output=True, text=True).stdout
        self.assertIn("fd00::1/64", addresses)
        self.assertNotIn("altname", addresses)
        self.stop(process)

    def test_what_an_operator_has_taken_down_stays_down(self):
        process = self.start()
        self.until(lambda: self.hears(self.west))
        ip("-n", self.router, "link", "set", "east", "down")
        self.end(process, signal.SIGKILL)
        self.until(lambda: not self.up("west"), SECOND)
        process = self.start()
        self.until(lambda: self.up("west"))
        self.assertFalse(self.up("east"))
        ip("-n", self.router, "link", "set", "east", "up")
        self.learn_neighbours()
        self.stop(process)

    def test_an_interface_that_is_made_anew_is_held_too(self):
        process = self.start()
        self.until(lambda: self.hears(self.east))
        subprocess.run([CTL, "--control", str(self.path), "counters", "show"], check=True,
                       capture_output=True, timeout=DEADLINE)  # it has begun, and told the holder
        holder = self.holder(process)
        self.until(lambda: self.waits_for_more(holder))
        before = self.read_by(holder)
        ip("-n", self.router, "link", "del", "east")
        ip("link", "add", "east", "netns", self.router, "type", "veth", "peer", "name", "eth0",
           "netns", self.east)
        for end, name in ((self.router, "east"), (self.east, "eth0")):
            ip("-n", end, "addr", "add", f"10.0.2.{2 if name == 'eth0' else 1}/24", "dev", name)
            ip("-n", end, "link", "set", name, "up")
        ip("-n", self.east, "route", "add", "default", "via", "10.0.2.1")
        self.learn_neighbours()
        self.until(lambda: self.read_by(holder) > before)
        self.end(process, signal.SIGKILL)
        self.expect_down()

    def waits_for_more(self, holder: int) -> bool:
        """Whether it has read all that it has been told."""
        return pathlib.Path(f"/proc/{holder}/wchan").read_text().endswith("pipe_read")

    def read_by(self, holder: int) -> int:
        """How many bytes it has read: more when it has been told of another interface."""
        text = pathlib.Path(f"/proc/{holder}/io").read_text()
        return int(text.split("rchar: ")[1].split()[0])

    def test_an_agent_without_the_option_brings_links_up_that_one_with_it_has_taken_down(self):
        self.end(self.start(), signal.SIGKILL)
        self.expect_down()
        self.options = ()
        process = self.start()
        self.until(lambda: self.hears(self.west) and self.hears(self.east))
        self.end(process, signal.SIGKILL)
        self.assertTrue(self.hears(self.west))

    def test_a_holder_that_was_killed_is_started_again(self):
        process = self.start()
        self.until(lambda: self.hears(self.east))
        first = self.holder(process)
        os.kill(first, signal.SIGTERM)  # which it does not hear
        os.kill(first, signal.SIGKILL)
        self.until(lambda: self.holder(process) != first)
        self.assertTrue(self.hears(self.east))
        self.end(process, signal.SIGKILL)
        self.expect_down()

    def test_it_is_refused_where_links_cannot_be_taken_down(self):
        done = self.run_briefly("{name: west, kind: packet}", "setpriv", "--bounding-set",
                                "-net_admin", options=["--carrier"])
        self.assertEqual(done.returncode, 1)
        self.assertIn("ovix-agent: --carrier: west: Operation not permitted", done.stderr)
        self.assertTrue(self.up("west"))


if __name__ == "__main__":
    unittest.main()
