"""Everything that goes wrong at once, for as long as asked, around a live agent and a listener; then the
slopes of what they have in use and of the latency. ./run soak runs it."""

import os
import random
import signal
import socket
import statistics
import struct
import subprocess
import threading
import time
import unittest

import agent
import faults
import listener
import shared_memory
from live import LiveTest, ip
from running_agent import CTL

SECONDS = 60 * float(os.environ.get("OVIX_SOAK_MINUTES", "1"))
WINDOW = 5
LONG_STOP = 20  # the number of the stop that lasts a minute; the agent is stopped every 7 seconds
RECORDINGS = agent.SOURCE / "tests" / "data" / "fpm"

SENDER = """
import socket, struct, time
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
while True:
    s.sendto(struct.pack("=Q", time.monotonic_ns()), ("10.0.2.2", 7000)); time.sleep(0.002)"""
# A line for each window: how many have come, and the median and the worst latency in microseconds.
RECEIVER = f"""
import socket, struct, time
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM); s.bind(("10.0.2.2", 7000)); s.settimeout(1)
while True:
    late, end = [], time.monotonic() + {WINDOW}
    while time.monotonic() < end:
        try: sent = struct.unpack("=Q", s.recv(8))[0]
        except TimeoutError: continue
        late.append(time.monotonic_ns() - sent)
    late.sort()
    print(len(late), late[len(late) // 2] // 1000 if late else -1, late[-1] // 1000 if late else -1, flush=True)"""


def slope(values: list[float]) -> float:
    """How much a value grows in an hour, by the least squares of its windows."""
    times = [WINDOW * i / 3600 for i in range(len(values))]
    return statistics.linear_regression(times, values).slope if len(values) > 1 else 0.0


class Soak(LiveTest):
    def setUp(self):
        super().setUp()
        self.isOver = threading.Event()
        self.done: dict[str, int] = {}
        self.chance = random.Random(1)
        self.fpm_tables = f"soak-{os.getpid()}"
        self.addCleanup(shared_memory.remove, self.fpm_tables)
        ip("-n", self.router, "link", "add", "spare", "type", "veth", "peer", "name", "spare-peer")
        ip("-n", self.router, "link", "set", "spare-peer", "up")

    def again_and_again(self, name: str, pause: float, fault) -> threading.Thread:
        def work():
            while not self.isOver.wait(pause):
                fault()
                self.done[name] = self.done.get(name, 0) + 1
        thread = threading.Thread(target=work)
        thread.start()
        return thread

    def kill_writer(self):
        with subprocess.Popen([CTL, "--tables", self.tables, "lfib", "load", str(self.labels)],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as writer:
            time.sleep(self.chance.random() * 0.2)
            writer.kill()

    def stop_for_a_while(self):
        os.kill(self.program, signal.SIGSTOP)
        time.sleep(60 if self.done.get("stopped", 0) + 1 == LONG_STOP else 0.3)
        os.kill(self.program, signal.SIGCONT)

    def flap(self):
        for state in ("up", "down") * 10:
            ip("-n", self.router, "link", "set", "spare", state)

    def take_descriptors(self):
        faults.limit(self.program, "nofile", str(faults.descriptors(self.program)))
        with socket.socket(socket.AF_UNIX) as client:
            client.connect(str(self.path))
            client.sendall(b'{"command": "status"}\n')
            time.sleep(0.2)
        faults.limit(self.program, "nofile", "1024")

    def kill_zebra(self):
        burst = (RECORDINGS / "full_dump.bin").read_bytes()
        with socket.create_connection(("127.0.0.1", self.port)) as zebra:
            zebra.sendall(burst[:self.chance.randrange(1, len(burst))])
            zebra.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))

    def fail_a_call(self):
        call, error = self.chance.choice([("poll", "EINTR"), ("recvmsg", "ENOBUFS"),
                                          ("sendmmsg", "ENOBUFS"), ("accept4", "EMFILE")])
        with faults.Failing(self.program, call, error, self.directory / "strace"):
            time.sleep(0.2)

    def start_all(self) -> list[threading.Thread]:
        self.labels = self.directory / "labels.yaml"
        text = agent.routes(agent.via("swap", [200]))
        self.labels.write_text(agent.PORTS + agent.lfib(transit={n: text for n in range(100, 2100)}))
        self.agent = self.start("  - {name: spare, kind: packet}\n")
        self.program = faults.program_of(self.agent.pid)
        self.port = listener.free_port()
        self.fpm = subprocess.Popen([listener.FPM, "--tables", self.fpm_tables, "--listen",
                                     f"127.0.0.1:{self.port}"], stderr=subprocess.DEVNULL)
        self.addCleanup(self.fpm.wait)
        self.addCleanup(self.fpm.kill)
        self.learn_neighbours()
        return [self.again_and_again(*what) for what in (
            ("writers killed", 0.1, self.kill_writer), ("stopped", 7, self.stop_for_a_while),
            ("interface flaps, ten each", 1, self.flap), ("descriptors taken", 3, self.take_descriptors),
            ("zebra killed", 0.5, self.kill_zebra), ("calls failed", 5, self.fail_a_call),
            ("reloads", 2, lambda: os.kill(self.program, signal.SIGHUP)))]

    def sample(self) -> dict[str, float]:
        came, median, worst = map(int, self.receiver.stdout.readline().split())
        return {"agent KiB": faults.status(self.program, "VmRSS"),
                "agent descriptors": faults.descriptors(self.program),
                "listener KiB": faults.status(self.fpm.pid, "VmRSS"),
                "listener descriptors": faults.descriptors(self.fpm.pid),
                "median latency, us": median, "worst latency, us": worst, "frames a second": came / WINDOW}

    def test_everything_at_once(self):
        threads = self.start_all()
        self.receiver, sender = self.host(self.east, RECEIVER), self.host(self.west, SENDER)
        samples = []
        try:
            end = time.monotonic() + SECONDS
            while time.monotonic() < end:
                samples.append(self.sample())
                self.assertIsNone(self.agent.poll())
                self.assertIsNone(self.fpm.poll())
        finally:
            self.isOver.set()
            for thread in threads:
                thread.join()
            for process in (sender, self.receiver):
                process.kill()
                process.communicate()
        result = self.stop(self.agent)
        self.report(samples, result)

    def report(self, samples: list[dict[str, float]], result: dict) -> None:
        print("\nfaults:", ", ".join(f"{count} {name}" for name, count in sorted(self.done.items())))
        print(f"{result['in']['frames']} frames in, balanced: {result['balanced']}, dropped:",
              result["dropped"]["reasons"])
        settled = samples[len(samples) // 4:]  # what grows at first is caches and queues
        print(f"{'':22}{'first':>10}{'last':>10}{'most':>10}{'slope per hour':>18}")
        for name in samples[0]:
            values = [sample[name] for sample in settled]
            print(f"{name:22}{values[0]:10.0f}{values[-1]:10.0f}{max(values):10.0f}{slope(values):18.0f}")


if __name__ == "__main__":
    unittest.main()
