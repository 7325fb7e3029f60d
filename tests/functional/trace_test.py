"""Traces of some of a running agent's frames, step by step."""

import signal
import subprocess
import unittest

import agent
import frames as f
from agent import mpls
from running_agent import CTL, SharedTablesTest

CONFIG = """
ports:
  - {name: west, mac: "02:00:00:00:00:01", addresses: [10.0.1.1/24]}
  - {name: east, mac: "02:00:00:00:00:02", addresses: [10.0.2.1/24]}
neighbours:
  - {address: 10.0.2.2, port: east, mac: "02:00:00:00:00:22"}
"""


class Trace(SharedTablesTest):
    def setUp(self):
        super().setUp()
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.agent = self.start(CONFIG)

    def trace(self, *options: str) -> subprocess.Popen:
        process = subprocess.Popen([CTL, "--tables", self.tables, "--control", str(self.agent.path),
                                    "trace", "start", *options],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        self.agent.until(lambda: self.agent.ask("trace-lines")["on"] or process.poll() is not None)
        return process

    def test_a_line_for_each_step_of_the_frames_asked_for(self):
        process = self.trace("--label", "100", "--limit", "1")
        self.agent.send_and_wait(mpls([77]), mpls([100]), mpls([100]))
        told, _ = process.communicate(timeout=10)
        lines = told.splitlines()
        self.assertTrue(all(line.startswith("frame 2 west ") for line in lines), told)
        self.assertIn("frame 2 west hardware table: label 100, found yes, adjacency 100", lines)
        for step in ("nexthop: interface east, address 10.0.2.2",
                     "headers: when rewritten, headers label 200",
                     "neighbour: address 10.0.2.2, port east, mac 02:00:00:00:00:22",
                     "mtu: port east, length", "fate: forwarded"):
            self.assertIn(step, told)
        self.assertFalse(self.agent.ask("trace-lines")["on"])

    def test_frames_that_go_nowhere_for_a_reason(self):
        process = self.trace("--reason", "labels resolved", "--limit", "1")
        self.agent.send_and_wait(mpls([100]), mpls([77]), mpls([78]), mpls([100]), mpls([77]), mpls([77]))
        told, _ = process.communicate(timeout=10)
        self.assertRegex(told, r"^frame 2 west - fate: dropped, reason No labels resolved.*are traced\n"
                               r"frame 3 west - fate: .*are traced\nframe 5 west ")
        self.assertIn("frame 5 west hardware table: label 77, found no, adjacency 0", told)
        self.assertNotIn("frame 6", told)

    def test_a_run_with_trace_writes_the_same_lines_of_all_frames(self):
        process = self.trace("--limit", "1")
        self.agent.send_and_wait(mpls([100]))
        live, _ = process.communicate(timeout=10)
        capture = self.directory / "again.pcap"
        f.write_pcap(capture, [mpls([100]), mpls([77])])
        command = [agent.AGENT, "run", str(self.directory / "agent.yaml"), "--in", f"west={capture}",
                   "--out", str(self.directory / "again"), "--tables", self.tables, "--trace",
                   *(["--plugin", agent.PLUGIN] if agent.PLUGIN else [])]
        done = subprocess.run(command, capture_output=True, text=True, timeout=60, check=True)
        result = agent.Result(done, self.directory / "again")
        lines = result.trace("Ovix::Trace")
        self.assertEqual([line for line in lines if line.startswith("frame 1 ")],
                         live.splitlines())
        self.assertIn("frame 2 west hardware table: label 77, found no, adjacency 0", lines)
        self.assertIn("Pkt 2: No viaSet for label 77", result.trace())

    def test_what_would_answer_a_frame_is_said_though_captures_are_not_answered(self):
        fec = f.ldp_fec("10.0.2.0", 24)
        process = self.trace("--limit", "3")
        self.agent.send_and_wait(mpls([0], f.lsp_ping("10.0.2.2", "127.0.0.1", fec)),
                                 mpls([0], f.lsp_ping("10.0.2.2", "127.0.0.1", fec, mode=1)),
                                 mpls([(100, 0, 1)], f.udp_packet("10.0.2.2", "10.9.0.1")))
        told, _ = process.communicate(timeout=10)
        self.assertEqual([line for line in told.splitlines() if " answer: " in line], [
            "frame 1 west - answer: LSP echo: sent, code 3, meaning egress for the FEC, depth 1, fec 10.0.2.0/24, "
            "by live runs only",
            "frame 2 west - answer: LSP echo unanswered: no reply wanted, by live runs only",
            "frame 3 west hardware answer: time exceeded: sent, by live runs only"])
        self.assertEqual(self.agent.stop().sent(), {})

    def test_it_ends_by_command_by_time_and_by_interruption(self):
        process = self.trace()
        self.ctl("trace", "stop", "--control", str(self.agent.path))
        self.assertEqual(process.wait(10), 0)
        process = self.trace("--seconds", "1")
        self.assertEqual(process.wait(10), 0)
        process = self.trace()
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(10), 0)
        self.assertFalse(self.agent.ask("trace-lines")["on"])

    def test_what_is_no_trace_is_refused(self):
        self.assertIn('there is no port "north"', self.ctl(
            "trace", "start", "--port", "north", "--control", str(self.agent.path), code=1))
        self.assertIn('"ten" is no prefix', self.ctl(
            "trace", "start", "--prefix", "ten", "--control", str(self.agent.path), code=1))


if __name__ == "__main__":
    unittest.main()
