"""Faults on purpose around an agent that forwards: writers that are killed, a routing daemon that is
killed in mid-burst, too little memory, room or descriptors."""

import os
import pathlib
import random
import re
import resource
import shutil
import signal
import socket
import struct
import subprocess
import time
import unittest

import agent
import faults
import frames as f
from agent import PORTS, lfib, mpls, routes, via
from running_agent import CTL, DEADLINE, SharedTablesTest, top_label

LISTENER = str(pathlib.Path(agent.AGENT).with_name("ovix-fpm"))
RECORDINGS = agent.SOURCE / "tests" / "data" / "fpm"
WRITERS = 200
ZEBRAS = 50


class KilledWriters(SharedTablesTest):
    LABELS = range(100, 400)

    def tables_with(self, swapped_to: int) -> str:
        path = self.directory / f"to{swapped_to}.yaml"
        text = routes(via("swap", [swapped_to]))
        path.write_text(PORTS + lfib(transit={label: text for label in self.LABELS}))
        return str(path)

    def test_frames_go_by_whole_tables_however_often_the_writer_is_killed(self):
        chance = random.Random(1)
        files = [self.tables_with(label) for label in (2000, 3000)]
        self.ctl("lfib", "load", files[0])
        started = time.monotonic()
        self.ctl("lfib", "load", files[1])
        takes = time.monotonic() - started
        running = self.start()
        running.send_and_wait(mpls([100]))
        before = faults.settled_descriptors(running.process.pid)
        for number in range(WRITERS):
            with subprocess.Popen([CTL, "--tables", self.tables, "lfib", "load", files[number % 2]],
                                  stdout=subprocess.DEVNULL) as writer:
                time.sleep(chance.random() * takes)
                writer.kill()
            running.send(*(mpls([label]) for label in (100, 250, 399)))
        running.until(lambda: running.ask("status")["frames"]["in"] == running.sent)
        self.assertEqual(faults.settled_descriptors(running.process.pid), before)
        self.ctl("lfib", "load", files[0])
        running.send_and_wait(mpls([100]))
        result = running.stop()
        labels = [top_label(frame) for frame in result.frames("east")]
        self.assertEqual(len(labels), running.sent)
        self.assertEqual(set(labels), {2000, 3000})
        self.assertEqual(labels[-1], 2000)
        self.assertEqual(result.json["tables"]["corruptions"], 0)


class KilledZebra(SharedTablesTest):
    def listen(self) -> subprocess.Popen:
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.port = probe.getsockname()[1]
        listener = subprocess.Popen([LISTENER, "--tables", self.tables, "--listen",
                                     f"127.0.0.1:{self.port}", "--sweep-after", "1"],
                                    stderr=subprocess.PIPE, text=True)
        self.addCleanup(listener.communicate)
        self.addCleanup(listener.kill)
        return listener

    def connect(self) -> socket.socket:
        end = time.monotonic() + DEADLINE
        while True:
            try:
                return socket.create_connection(("127.0.0.1", self.port))
            except ConnectionRefusedError:
                self.assertLess(time.monotonic(), end)
                time.sleep(0.02)

    def routes(self) -> str:
        return self.ctl("lfib", "show") if self.memory.exists() else ""

    def until(self, met) -> None:
        end = time.monotonic() + DEADLINE
        while not met():
            self.assertLess(time.monotonic(), end, "nothing happened for too long")
            time.sleep(0.02)

    def test_killed_in_mid_burst_it_leaves_what_the_next_one_says(self):
        chance = random.Random(1)
        burst = b"".join((RECORDINGS / f"{name}.bin").read_bytes()
                         for name in ("full_dump", "label_routes", "labelled_routes"))
        listener = self.listen()
        with self.connect() as zebra:
            zebra.sendall(burst)
            self.until(lambda: self.routes() and self.is_settled())
        whole = self.routes()
        before = faults.settled_descriptors(listener.pid)
        memory = faults.status(listener.pid, "VmRSS")
        for _ in range(ZEBRAS):
            zebra = self.connect()
            zebra.sendall(burst[:chance.randrange(1, len(burst))])
            if chance.random() < 0.5:  # the connection is reset
                zebra.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            zebra.close()
        with self.connect() as zebra:
            zebra.sendall(burst)
            self.until(lambda: self.is_settled() and self.routes() == whole)
            self.until(lambda: faults.descriptors(listener.pid) <= before + 1)
        self.assertLess(faults.status(listener.pid, "VmRSS"), memory + 2048)
        self.assertIsNone(listener.poll())
        listener.send_signal(signal.SIGTERM)
        self.assertEqual(listener.wait(DEADLINE), 0)

    def is_settled(self) -> bool:
        before = self.routes()
        time.sleep(0.3)
        return self.routes() == before


class TooLittle(agent.AgentTest):
    CONFIG = PORTS + lfib(transit={100: routes(via("swap", [200]))})

    def run_limited(self, prefix: list[str], frames: int = 200, out: str = "out", **limits):
        (self.path / "config.yaml").write_text(self.CONFIG)
        f.write_pcap(self.path / "in.pcap", [mpls([100])] * frames)
        command = prefix + [agent.AGENT, "run", str(self.path / "config.yaml"), "--in",
                            f"west={self.path / 'in.pcap'}", "--out", str(self.path / out)]
        if agent.PLUGIN:
            command += ["--plugin", agent.PLUGIN]

        def set_limits():
            for name, value in limits.items():
                resource.setrlimit(getattr(resource, f"RLIMIT_{name}"), (value, value))

        return subprocess.run(command, capture_output=True, text=True, check=False, timeout=120,
                              preexec_fn=set_limits)

    def expect_reason(self, done: subprocess.CompletedProcess) -> None:
        """It has done its work, or says why not; a program loader says so by 127."""
        self.assertIn(done.returncode, (0, 1, 127), f"{done.returncode}: {done.stderr}")
        if done.returncode != 0:
            self.assertNotEqual(done.stderr, "")

    @unittest.skipIf(faults.is_sanitized(), "the sanitizer needs its address space")
    def test_memory(self):
        codes = set()
        for mebibytes in [20, 40, 60, 100, 1000, 1200, 2500]:
            with self.subTest(mebibytes=mebibytes):
                done = self.run_limited([], AS=mebibytes << 20)
                self.expect_reason(done)
                codes.add(done.returncode)
        self.assertLessEqual({0, 1}, codes)

    def test_descriptors(self):
        codes = set()
        for number in range(3, 16, 2):
            with self.subTest(descriptors=number):
                done = self.run_limited([], NOFILE=number)
                self.expect_reason(done)
                codes.add(done.returncode)
        self.assertLessEqual({0, 1}, codes)

    def on_small_disk(self, size: str, directory: pathlib.Path) -> list[str]:
        """The words before a command that finds a file system of this size in a directory."""
        directory.mkdir()
        script = f'mount -t tmpfs -o size={size},mode=700 tmpfs "$0"; exec "$@"'
        prefix = ["unshare", "--mount", "--propagation", "private", "sh", "-e", "-c", script,
                  str(directory)]
        tried = subprocess.run([*prefix, "true"], capture_output=True, check=False)
        if tried.returncode != 0:
            self.skipTest("needs a mount namespace")
        return prefix

    def test_room_for_the_tables(self):
        memory, lines = self.path / "memory", self.path / "lines"
        prefix = self.on_small_disk("4m", memory)
        lines.write_text("".join(f"{label} as 200 dev east\n" for label in range(16, 200000)))
        done = subprocess.run(
            [*prefix, "sh", "-c", """
ctl="$0 --tables full"
echo '100 as 200 dev east' | $ctl --create lfib load - || exit
$ctl lfib load "$1"
echo "code $?"
$ctl lfib show transit
$ctl lfib del 100 owner file""", CTL, str(lines)],
            capture_output=True, text=True, check=False, timeout=120,
            env={**os.environ, "OVIX_TABLES_DIR": str(memory)})
        self.assertRegex(done.stderr, rf"^ovixctl: {lines}:\d+: label \d+ in table transit: no memory "
                                      "is left for the tables: the file system of shared memory is "
                                      "full\n$")
        self.assertEqual(done.stdout.splitlines()[1:3],
                         ["code 1", "transit 100 owner file as to 200 dev east"])
        self.assertEqual(done.returncode, 0, "a small change finds room again")

    def test_room_for_the_captures(self):
        out = self.path / "small"
        prefix = self.on_small_disk("64k", out)
        self.assertEqual(self.run_limited(prefix, 100, "small").returncode, 0)
        done = self.run_limited(prefix, 5000, "small")
        self.assertEqual(done.returncode, 1)
        self.assertIn(str(out / "east.pcap"), done.stderr)
        self.assertIn("No space left on device", done.stderr)


@unittest.skipIf(faults.is_sanitized(), "the sanitizer has allocations of its own")
class OneAllocationFails(agent.AgentTest):
    """Whichever it is, a program ends as without that, or by saying that there is no memory."""

    TRIED = 60
    CONFIG = PORTS + lfib(transit={100: routes(via("swap", [200]))})

    def setUp(self):
        super().setUp()
        self.tables = self.path / "tables"

    def run_failing(self, number: int, command: list[str],
                    kept: pathlib.Path | None) -> subprocess.CompletedProcess:
        environment = {**os.environ, "LD_PRELOAD": os.environ["OVIX_FAILING_ALLOCATION"],
                       "OVIX_FAIL_ALLOCATION": str(number),
                       "OVIX_TABLES_DIR": str(kept or self.tables)}
        shutil.rmtree(self.tables, ignore_errors=True)
        self.tables.mkdir(mode=0o700)
        return subprocess.run(command, capture_output=True, text=True, check=False, timeout=60,
                              env=environment)

    def check(self, *command: str, kept: pathlib.Path | None = None) -> None:
        """Each run has empty tables, or those that are kept."""
        whole = self.run_failing(0, list(command), kept)
        counted = re.search(r"^allocations: (\d+)$", whole.stderr, re.MULTILINE)
        allocations = int(counted[1])
        ended = 0
        for number in range(1, allocations + 1, max(1, allocations // self.TRIED)):
            with self.subTest(command=command[:3], allocation=number):
                done = self.run_failing(number, list(command), kept)
                if done.returncode == whole.returncode:
                    self.assertEqual(done.stdout, whole.stdout)
                    continue
                ended += 1
                self.assertIn(done.returncode, (1, 2), done.stderr)
                self.assertRegex(done.stderr, "memory|bad_alloc")
        self.assertGreater(ended, 0)

    def test_of_a_run_on_captures(self):
        config = self.path / "config.yaml"
        config.write_text(self.CONFIG)
        f.write_pcap(self.path / "in.pcap", [mpls([100])] * 200)
        plugin = ["--plugin", agent.PLUGIN] if agent.PLUGIN else []
        self.check(agent.AGENT, "run", str(config), "--in", f"west={self.path / 'in.pcap'}", "--out",
                   str(self.path / "out"), "--force", *plugin)

    def test_of_loading_tables(self):
        lines = self.path / "lines"
        lines.write_text("".join(f"{label} as 200 dev east\n" for label in range(100, 200)))
        self.check(CTL, "--tables", "few", "--create", "lfib", "load", str(lines))

    def test_of_showing_tables_as_json(self):
        lines = self.path / "lines"
        lines.write_text("".join(f"{label} as 200 dev east\n" for label in range(100, 200)))
        tables = self.path / "filled"
        tables.mkdir(mode=0o700)
        load = [CTL, "--tables", "few", "--create", "lfib", "load", str(lines)]
        subprocess.run(load, check=True, timeout=60, capture_output=True,
                       env={**os.environ, "OVIX_TABLES_DIR": str(tables)})
        self.check(CTL, "--tables", "few", "lfib", "show", "--json", kept=tables)


if __name__ == "__main__":
    unittest.main()
