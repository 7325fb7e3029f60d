"""A live run takes over another configuration without losing a frame."""

import json
import os
import re
import resource
import signal
import subprocess
import time
import unittest

import agent
import frames
from live import LiveTest, takes

LABELS = int(os.environ.get("OVIX_RELOAD_LABELS", "60000"))
RATE = 5000
RELOADED = 200  # seconds: the packet thread and everything else comes first
SECONDS = int(os.environ.get("OVIX_RELOAD_SECONDS", "6"))

SENDER = """
import socket, time
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(("eth0", 0))
head, begin, sent = bytes.fromhex("{mac}" + "020000000002" + "8847"), time.monotonic(), 0
while sent < {count}:
    due = min({count}, int((time.monotonic() - begin) * {rate}))
    while sent < due:
        label = 16 + sent * 7919 % {labels}
        s.send(head + (label << 12 | 0x140).to_bytes(4, "big") + bytes(46)); sent += 1
    time.sleep(0.0005)
"""


class Reload(LiveTest):
    def configuration(self, label: int) -> str:
        """All labels are swapped to one."""
        lines = "".join(f"    - {{label: {16 + i}, via: {{interface: east, nexthop: 10.0.2.2, "
                        f"action: swap, labels: [{label}]}}}}\n" for i in range(LABELS))
        mac = self.mac_of(self.east, "eth0")
        return f"""
ports:
  - {{name: west, kind: packet, addresses: [10.0.1.1/24]}}
  - {{name: east, kind: packet, addresses: [10.0.2.1/24]}}
neighbours:
  - {{address: 10.0.2.2, port: east, mac: "{mac}"}}
lfib:
  transit:
{lines}"""

    @staticmethod
    def mac_of(namespace: str, interface: str) -> str:
        shown = subprocess.run(["ip", "-n", namespace, "-j", "link", "show", interface], check=True,
                               capture_output=True, text=True).stdout
        return json.loads(shown)[0]["address"]

    def start_with(self, text: str) -> subprocess.Popen:
        self.config = self.directory / "agent.yaml"
        self.config.write_text(text)
        process = self.launch()
        self.until(self.path.exists, RELOADED)
        return process

    def launch(self) -> subprocess.Popen:
        self.log = self.directory / "log"
        command = ["ip", "netns", "exec", self.router, agent.AGENT, "run", str(self.config),
                   "--live", "--control", str(self.path), "--json"]
        if agent.PLUGIN:
            command += ["--plugin", agent.PLUGIN]
        with open(self.log, "wb") as log:
            process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=log, text=True)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        return process

    def lines(self, text: str) -> int:
        return len(re.findall(text, self.log.read_text()))

    def reload(self, process: subprocess.Popen, text: str, answer: str = ": reloaded\n") -> None:
        before = self.lines(answer)
        self.config.write_text(text)
        process.send_signal(signal.SIGHUP)
        self.until(lambda: self.lines(answer) == before + 1, RELOADED)

    def test_no_frame_is_lost_while_labels_are_reloaded(self):
        first, second = self.configuration(200), self.configuration(300)
        process = self.start_with(first)
        time.sleep(0.5)  # the ports' links
        mac = self.mac_of(self.router, "west").replace(":", "")
        count = RATE * SECONDS
        sender = self.host(self.west, SENDER.format(mac=mac, count=count, rate=RATE, labels=LABELS))
        self.addCleanup(sender.communicate)
        reloads = 0
        while sender.poll() is None:
            self.reload(process, first if reloads % 2 else second)
            reloads += 1
        self.assertGreaterEqual(reloads, 1)
        self.reload(process, "ports: nonsense\n", "; the configuration stays as it was\n")
        self.reload(process, second)
        self.assertEqual(self.labelled(16, 1), 0)  # swapped to 300, not to 200
        result = self.stop(process)
        self.assertEqual(sum(entry["packets"] for entry in result["labels"]), count + 1)
        self.assertEqual(result["dropped"]["frames"], 0, result["dropped"])

    def test_a_reload_asked_for_while_another_is_prepared_is_not_forgotten(self):
        process = self.start_with(self.configuration(300))
        self.config.write_text(self.configuration(400))
        process.send_signal(signal.SIGHUP)
        time.sleep(0.05)  # it is being read
        self.config.write_text(self.configuration(200))
        process.send_signal(signal.SIGHUP)
        self.until(lambda: self.labelled(16, 1) == 1, RELOADED)
        self.stop(process)

    def test_a_reload_asked_for_before_the_run_has_begun_waits_for_it(self):
        self.config = self.directory / "pipe"
        os.mkfifo(self.config)
        process = self.launch()  # and reads the pipe until somebody has written
        self.until(lambda: takes(process.pid, signal.SIGHUP), RELOADED)
        process.send_signal(signal.SIGHUP)
        ports = "ports: [{name: west, kind: packet}]\n"
        self.config.write_text(ports)
        self.until(self.path.exists, RELOADED)
        self.config.write_text(ports)
        self.until(lambda: self.lines(": reloaded\n") == 1, RELOADED)
        self.stop(process)

    def test_a_run_that_ends_does_not_wait_for_what_is_being_read(self):
        large = self.configuration(200)
        process = self.start_with("ports: [{name: west, kind: packet}]\n")
        self.config.write_text(large)
        before = self.processor_time()
        process.send_signal(signal.SIGHUP)
        self.stop(process)
        ended, before = self.processor_time() - before, self.processor_time()
        self.config.write_text(large.replace("kind: packet", 'mac: "02:00:00:00:00:0a"'))
        frames.write_pcap(self.directory / "none.pcap", [])
        subprocess.run([agent.AGENT, "run", str(self.config), "--in", f"west={self.directory}/none.pcap", "--out",
                        str(self.directory / "out")], check=True, capture_output=True)
        self.assertLess(ended, (self.processor_time() - before) / 2)

    @staticmethod
    def processor_time() -> float:
        spent = resource.getrusage(resource.RUSAGE_CHILDREN)
        return spent.ru_utime + spent.ru_stime

    def stop(self, process: subprocess.Popen) -> dict:
        process.send_signal(signal.SIGTERM)
        stdout, _ = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 0, self.log.read_text())
        result = json.loads(stdout)
        self.assertTrue(result["balanced"])
        return result


if __name__ == "__main__":
    unittest.main()
