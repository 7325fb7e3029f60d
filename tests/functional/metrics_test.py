"""The metrics of a live agent: what is served, what the documents and the dashboard say of it, and clients
that mean no good."""

import re
import shutil
import subprocess
import time
import unittest

import agent
import faults
from listener import FPM, fetch, free_port
from live import LiveTest, ip
from running_agent import ask

PORT = 9473
SERIES = re.compile(r"\b((?:ovix|process)_[a-z_]+[a-z])\b")
FETCH = f"""
import sys, urllib.request
sys.stdout.write(urllib.request.urlopen("http://127.0.0.1:{PORT}/metrics", timeout=10).read().decode())"""
# Connections that say nothing, one that never ends its request, and one with a header of a megabyte.
HOSTILE = f"""
import socket, sys, time
held = [socket.create_connection(("127.0.0.1", {PORT})) for _ in range(200)]
held[0].sendall(b"GET /metrics HTTP/1.1\\r\\nX: ")
try: held[1].sendall(b"GET /metrics HTTP/1.1\\r\\nX: " + b"x" * (1 << 20))
except OSError: pass
print("held", flush=True); sys.stdin.read()"""


class Metrics(LiveTest):
    options = ("--metrics", str(PORT), "--metrics-labels", "2")
    settings = "workers: 1\n"  # so that all series are there

    def setUp(self):
        super().setUp()
        ip("-n", self.router, "link", "set", "lo", "up")

    def scrape(self) -> str:
        text, _ = self.host(self.router, FETCH).communicate(timeout=30)
        return text

    def values(self) -> dict[str, float]:
        """By series with its labels."""
        lines = [line for line in self.scrape().splitlines() if not line.startswith("#")]
        return {name: float(value) for name, value in (line.rsplit(" ", 1) for line in lines)}

    def test_what_is_served_is_what_ovixctl_shows(self):
        process = self.start()
        self.learn_neighbours()
        self.assertEqual(self.labelled(100, 3), 0)  # dropped: there is no such label
        time.sleep(0.3)  # older answers are not given again
        status, values = ask(self.path, "status"), self.values()
        self.assertEqual(values["ovix_up"], 1)
        self.assertEqual(values["ovix_frames_balanced"], 1)
        self.assertGreaterEqual(values['ovix_frames_in_total{origin="ports"}'], status["frames"]["in"])
        self.assertEqual(values['ovix_frames_in_total{origin="router"}'], 0)
        self.assertGreater(values['ovix_port_received_bytes_total{port="west"}'],
                           14 * values['ovix_port_received_frames_total{port="west"}'])
        self.assertGreater(values['ovix_port_ring_frames{port="west"}'], 1000)
        self.assertEqual(values['ovix_port_ring_drops_total{port="west"}'], 0)
        self.assertGreaterEqual(values["ovix_neighbours"], 2)
        self.assertEqual(values["ovix_neighbours_wanted"], 0)
        drops = [value for name, value in values.items()
                 if name.startswith("ovix_frames_total") and "No labels resolved" in name]
        self.assertEqual(drops, [3])
        self.assertEqual(values['ovix_port_up{port="west"}'], 1)
        self.assertGreaterEqual(values['ovix_port_sent_frames_total{port="east"}'], 1)
        self.assertGreater(values["process_resident_memory_bytes"], 1 << 20)
        self.assertLess(abs(values["process_start_time_seconds"] - time.time()), 60)
        fates = sum(value for name, value in values.items() if name.startswith("ovix_frames_total"))
        arrived = sum(value for name, value in values.items() if name.startswith("ovix_frames_in_total"))
        self.assertEqual(arrived + values["ovix_frame_replicas_total"],
                         fates + values["ovix_frames_queued"])
        self.stop(process)

    def test_routes_labels_and_events_are_in_the_operator_s_words(self):
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.ctl("lfib", "add", "101", "as", "201", "via", "inet", "10.0.2.2", "dev", "east")
        process = self.start()
        self.learn_neighbours()
        for label, count in ((100, 3), (101, 1), (102, 2)):
            self.labelled(label, count)
        self.until(lambda: 'ovix_label_routes{table="transit",owner="operator"}' in self.values())
        time.sleep(0.3)
        values = self.values()
        self.assertEqual(values['ovix_label_routes{table="transit",owner="operator"}'], 2)
        self.assertEqual(values['ovix_table_entries{table="hardware"}'], 2)
        committed = values[f'ovix_tables_commit_timestamp_seconds{{tables="{self.tables}"}}']
        self.assertLess(abs(time.time() - committed), 60)
        labels = {name: value for name, value in values.items() if name.startswith("ovix_label_frames")}
        self.assertEqual(len(labels), 2)  # as many as were asked for, the busiest
        self.assertEqual(labels['ovix_label_frames_total{label="100"}'], 3)
        events = [name for name in values if name.startswith("ovix_events_total")]
        self.assertNotIn("%s", "".join(events))
        reasons = ask(self.path, "fates")["dropped"]["reasons"]
        dropped = {re.search(r'event="(.*)"}', name)[1] for name in events if 'category="Drop"' in name}
        self.assertLessEqual(dropped, set(reasons))
        self.ctl("lfib", "del", "101")
        self.until(lambda: self.values().get('ovix_label_routes{table="transit",owner="operator"}') == 1)
        self.stop(process)

    def test_series_documents_and_dashboard_agree(self):
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        process = self.start()
        self.learn_neighbours()
        self.labelled(100, 1)
        self.until(lambda: "ovix_label_routes" in self.scrape())
        own = set(re.findall(r"^# TYPE (\S+)", self.scrape(), re.MULTILINE))
        path = self.directory / "fpm.http"
        fpm = subprocess.Popen([FPM, "--tables", self.tables, "--listen", f"127.0.0.1:{free_port()}",
                                "--metrics", str(path)], stderr=subprocess.DEVNULL)
        self.addCleanup(fpm.wait)
        self.addCleanup(fpm.kill)
        self.until(path.exists)
        own |= set(re.findall(r"^# TYPE (\S+)", fetch(path), re.MULTILINE))
        table = (agent.SOURCE / "docs/metrics.md").read_text(encoding="utf-8")
        self.assertEqual(set(re.findall(r"^\| `(\w+)`", table, re.MULTILINE)), own)
        for path in ("alerts.yml", "dashboard.json"):
            text = (agent.SOURCE / "examples/metrics" / path).read_text(encoding="utf-8")
            named = set(SERIES.findall(text))
            self.assertGreater(len(named), 4, path)
            self.assertLessEqual(named, own, path)
        self.stop(process)

    @unittest.skipUnless(shutil.which("promtool"), "needs promtool, of Debian's package prometheus")
    def test_promtool_finds_nothing_wrong(self):
        process = self.start()
        checked = subprocess.run(["promtool", "check", "metrics"], input=self.scrape(), capture_output=True,
                                 text=True, check=False)
        self.assertEqual((checked.returncode, checked.stderr), (0, ""))
        rules = subprocess.run(["promtool", "check", "rules",
                                str(agent.SOURCE / "examples/metrics/alerts.yml")],
                               capture_output=True, text=True, check=False)
        self.assertEqual(rules.returncode, 0, rules.stderr)
        self.stop(process)

    def test_hostile_clients_disturb_nobody(self):
        process = self.start()
        self.learn_neighbours()
        self.scrape()
        pid = faults.program_of(process.pid) or process.pid
        before = faults.status(pid, "VmRSS")
        hostile = self.host(self.router, HOSTILE, stdin=subprocess.PIPE)
        self.addCleanup(hostile.communicate)
        self.assertEqual(hostile.stdout.readline(), "held\n")
        began = time.monotonic()
        self.assertIn("ovix_up 1", self.scrape())
        self.assertLess(time.monotonic() - began, 3)  # with the start of Python; silence is ended after five
        self.assertEqual(self.datagrams(50), 50)
        self.assertLess(faults.status(pid, "VmRSS") - before, 8 << 10)
        began = time.monotonic()
        result = self.stop(process)  # with all of them connected
        self.assertLess(time.monotonic() - began, 10)
        self.assertGreaterEqual(result["forwarded"]["ports"]["east"]["frames"], 50)

    def test_another_host_s_name_is_refused(self):
        """Else a page of another site whose name leads here could read all of it."""
        process = self.start()
        told, _ = self.host(self.router, f"""
import http.client
for host in ("evil.example:{PORT}", "localhost:{PORT}"):
    client = http.client.HTTPConnection("127.0.0.1", {PORT}, timeout=10)
    client.request("GET", "/metrics", headers={{"Host": host}})
    print(client.getresponse().status)""").communicate(timeout=30)
        self.assertEqual(told.split(), ["421", "200"])
        self.stop(process)

    def test_a_port_in_use_is_an_error(self):
        process = self.start()
        other = self.run_briefly("{name: spare, kind: tap}", options=(
            "--control", str(self.directory / "other.sock"), *self.options))
        self.assertEqual(other.returncode, 1)
        self.assertIn(f"--metrics: cannot listen at 127.0.0.1:{PORT}", other.stderr)
        self.stop(process)


if __name__ == "__main__":
    unittest.main()
