"""Frames between live ports whose queues are forwarded by threads of their own."""

import json
import subprocess
import time
import unittest

import agent
import dpdk_test
import live_answers_test
import live_faults_test
import live_test
from live import DEADLINE, LiveTest, ip
from running_agent import CTL


class LiveByWorkers(live_test.Live):
    """The same as without workers."""
    settings = "workers: 2\n"

    test_labels_are_swapped_past_the_hosts_stack = None  # an interface with two queues has its own
    test_ports_that_cannot_be_opened_are_told_of = None  # without workers


class AnswersByWorkers(live_answers_test.LiveAnswers):
    """The same as without workers."""
    settings = "workers: 2\n"


class CardsByWorkers(dpdk_test.Dpdk):
    """The same as without workers."""
    settings = "workers: 2\n"
    queues = ",framecnt=8192,blocksz=65536,qpairs=3"

    # Where nothing is asked about workers:
    test_captures_leave_byte_for_byte_as_without_dpdk = None
    test_a_tap_of_dpdk_is_a_wire_to_this_host = None
    test_a_device_that_does_not_exist_is_refused_with_its_port_and_what_helps = None
    test_an_mtu_that_the_device_does_not_take_is_refused_with_both = None
    test_two_ports_cannot_share_a_device = None
    test_an_environment_that_does_not_start_is_refused_by_its_key = None
    test_a_device_without_a_mac_gets_one = None


class FaultsByWorkers(live_faults_test.LiveFaults):
    """The same as without workers."""
    settings = "workers: 2\n"

    # Calls of the start are those of a run without workers, or are made before it begins.
    test_every_call_of_a_run_may_fail_once = None
    test_every_call_of_the_start_may_fail_once = None
    test_an_interface_that_flaps_is_used_again = None
    test_an_interface_that_is_moved_away_and_back_is_used_again = None


class Workers(LiveTest):
    settings = "workers: 2\n"

    def counters(self, *arguments: str) -> dict:
        return json.loads(subprocess.run([CTL, "--control", str(self.path), *arguments, "--json"],
                                         check=True, capture_output=True).stdout)

    def paths(self) -> dict:
        return {entry["reason"]: entry["count"] for entry in self.counters("counters", "show")["counters"]
                if entry["category"] == "Path"}

    def test_what_workers_count_shows_while_they_forward(self):
        process = self.start()
        self.learn_neighbours()
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.until(lambda: self.labelled(100, 1) == 1)
        before = self.counters("counters", "show")
        self.assertEqual(self.labelled(100, 300), 300)
        after = self.counters("counters", "show")
        label = lambda shown: [entry["packets"] for entry in shown["labels"] if entry["label"] == 100]
        self.assertEqual(label(after)[0] - label(before)[0], 300)
        self.stop(process)

    def test_each_workers_queue_shows_its_share(self):
        process = self.start()
        self.learn_neighbours()
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.until(lambda: self.labelled(100, 1) == 1)
        queues = lambda: [queue["received"] for port in self.counters("port", "show")["ports"]
                          if port["name"] == "west" for queue in port["queues"]]
        before = queues()
        self.assertEqual(self.labelled(100, 200), 200)
        came = [after - one for one, after in zip(before, queues())]
        self.assertEqual(len(came), 2)
        self.assertGreaterEqual(max(came), 200)  # of one flow
        shown = subprocess.run([CTL, "--control", str(self.path), "port", "show"], check=True,
                               capture_output=True, text=True).stdout
        self.assertRegex(shown, r"(?m)^  worker 0 +- +\d+ %")
        rates = lambda: [part["perSecond"] for port in self.counters("port", "show")["ports"]
                         if port["name"] == "west" for part in (port, *port["queues"])]
        self.assertGreater(rates()[0], 0)
        self.assertGreater(max(rates()[1:]), 0)
        self.until(lambda: not any(rates()))
        self.stop(process)

    def test_an_xdp_port_has_a_queue_of_its_interface_for_each_worker(self):
        for port, host, network in (("west", self.west, 1), ("east", self.east, 2)):
            ip("-n", self.router, "link", "del", port)
            ip("link", "add", port, "netns", self.router, "numrxqueues", "2", "numtxqueues", "2",
               "type", "veth", "peer", "name", "eth0", "netns", host, "numrxqueues", "2",
               "numtxqueues", "2")
            ip("-n", self.router, "addr", "add", f"10.0.{network}.1/24", "dev", port)
            ip("-n", host, "addr", "add", f"10.0.{network}.2/24", "dev", "eth0")
            ip("-n", self.router, "link", "set", port, "up")
            ip("-n", host, "link", "set", "eth0", "up")
        process = self.start(kind="xdp")
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.until(lambda: self.labelled(100, 5) == 5)
        self.assertEqual(self.labelled(100, 100), 100)
        self.assertEqual(len(self.counters("port", "show")["ports"][0]["queues"]), 2)
        self.stop(process)

    def test_an_interface_with_fewer_queues_than_workers_is_refused(self):
        config = self.directory / "bad.yaml"
        config.write_text("workers: 2\nports: [{name: west, kind: xdp}]\n")
        plugin = ["--plugin", agent.PLUGIN] if agent.PLUGIN else []
        done = subprocess.run(["ip", "netns", "exec", self.router, agent.AGENT, "run", str(config),
                               "--live", *plugin], capture_output=True, text=True, check=False,
                              timeout=DEADLINE)
        self.assertIn("workers: port west has 1 receive queues for 2 workers", done.stderr)
        self.assertEqual(done.returncode, 2)

    def test_frames_of_decided_labels_never_reach_the_packet_thread(self):
        process = self.start()
        self.learn_neighbours()
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.until(lambda: self.labelled(100, 1) == 1)
        slow = self.paths()["slow"]
        self.assertEqual(self.labelled(100, 500), 500)
        self.assertLess(self.paths()["slow"] - slow, 20)
        self.stop(process)

    def counting(self) -> subprocess.Popen:
        """Prints how many numbered frames came behind later ones of their flows, and how many came at all."""
        receiver = self.host(self.east, """
import socket
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(0x8847)); s.bind(("eth0", 0x8847))
s.setsockopt(socket.SOL_SOCKET, 33, 1 << 24); s.settimeout(3); print("ready", flush=True)
last, early, got = {}, 0, 0
try:
    while True:
        frame = s.recv(2000); flow, number = frame[49], int.from_bytes(frame[50:54], "big")
        early += number < last.get(flow, 0); last[flow] = number; got += 1
except TimeoutError: pass
print(early, got)""")
        self.assertEqual(receiver.stdout.readline(), "ready\n")
        return receiver

    def numbered(self, flows: int, count: int) -> subprocess.Popen:
        """Sends so many numbered frames of label 100 in each flow."""
        mac = self.router_mac("west").replace(":", "")
        return self.host(self.west, f"""
import socket, time
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(("eth0", 0))
for i in range(1, {count} + 1):
    for flow in range({flows}):
        packet = bytes.fromhex("450000280000000040110000" + "0a0001020a0009%02x" % flow) + bytes(11) + bytes([flow]) + i.to_bytes(4, "big") + bytes(4)
        s.send(bytes.fromhex("{mac}020000000009" + "8847" + "00064140") + packet)
    if i % 20 == 0: time.sleep(0.005)""")

    def test_a_flow_stays_in_order_while_its_labels_are_routed_anew(self):
        process = self.start()
        self.learn_neighbours()
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.until(lambda: self.labelled(100, 1) == 1)
        receiver = self.counting()
        sender = self.numbered(4, 4000)
        changes = 0
        while sender.poll() is None:
            changes += 1
            self.ctl("lfib", "replace", "100", "as", str(200 + changes % 2), "via", "inet",
                     "10.0.2.2", "dev", "east")
        early, got = map(int, receiver.communicate(timeout=DEADLINE)[0].split())
        self.assertGreater(changes, 10)
        self.assertEqual((early, got), (0, 16000))
        self.stop(process)

    def test_flows_stay_in_order_when_it_starts_under_traffic(self):
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        receiver = self.counting()
        sender = self.numbered(64, 1500)
        time.sleep(0.3)  # frames come by now
        process = self.start()  # the neighbour is not known, either
        sender.wait(DEADLINE)
        early, got = map(int, receiver.communicate(timeout=DEADLINE)[0].split())
        self.assertEqual(early, 0)
        self.assertGreater(got, 1000)
        self.stop(process)

    def test_more_workers_than_processors_are_refused(self):
        for settings, problem in (
                ("workers: 200", "workers: 200 for "),
                ("cpus: [1023]", "cpus: this process may not run on processor 1023"),
                ("cpus: [0, 0]", "processor 0 is given twice"),
                ("{workers: 1, cpus: [0, 1]}", "2 processors for 1 workers")):
            with self.subTest(settings):
                config = self.directory / "bad.yaml"
                config.write_text(settings.strip("{}").replace(", cpus", "\ncpus") +
                                  "\nports: [{name: west, kind: packet}]\n")
                plugin = ["--plugin", agent.PLUGIN] if agent.PLUGIN else []
                done = subprocess.run(["ip", "netns", "exec", self.router, agent.AGENT, "run",
                                       str(config), "--live", *plugin],
                                      capture_output=True, text=True, check=False, timeout=DEADLINE)
                self.assertIn(problem, done.stderr)
                self.assertEqual(done.stdout, "")
                if "processors" not in problem and "twice" not in problem:
                    self.assertEqual(done.returncode, 2)


if __name__ == "__main__":
    unittest.main()
