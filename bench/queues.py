"""What live packet ports forward with two workers, beside one. Needs root, and two processors that have nothing else to do.

    python3 bench/queues.py [--turns N] [--frames N] [--labels N]

Two agents, one with a worker and one with two, each between two virtual links of its own, have the machine in turn. An agent
is stopped (SIGSTOP) while its rings are filled with labelled frames of 64 bytes, of which each worker gets its flows; then
it goes on, and all frames leave: a swap of each, from the ring of one interface to the other end of the next link, with what
the kernel does for that, and nobody who sends. The time is that from the tenth of the frames that leaves to nine tenths of
them. The second rate is in the processor time of each worker, which other programs disturb less. Printed are the medians of
the turns, and of the ratios in each, and how idle the machine was before them.
"""

import argparse
import json
import os
import pathlib
import random
import signal
import statistics
import subprocess
import sys
import tempfile
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent / part) for part in ("tests/support", "examples")]
import frames as f  # noqa: E402
from running_agent import ask  # noqa: E402

BUILD = pathlib.Path(os.environ.get("OVIX_BUILD", HERE.parent / "build/release")).resolve()
WEST, EAST, HOST = "02:00:00:00:00:01", "02:00:00:00:00:02", "02:00:00:00:00:99"
CONFIG = """
workers: {workers}
ports:
  - {{name: west, kind: packet, addresses: [10.0.1.1/24]}}
  - {{name: east, kind: packet, addresses: [10.0.2.1/24]}}
neighbours: [{{address: 10.0.2.2, port: east, mac: '{host}'}}]
"""
SENDER = """
import socket, sys
frames = [bytes.fromhex(line) for line in open(sys.argv[1])]
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(("west", 0))
for line in sys.stdin:
    for i in range(int(line)): s.send(frames[i % len(frames)])
    print("sent", flush=True)"""
# Looks every 0.2 ms how many frames have left, those too that the other end had no room for, and prints how long it took
# from the tenth of them to nine tenths.
WATCHER = """
import os, sys, time
counters = [os.open("/sys/class/net/east/statistics/tx_" + name, os.O_RDONLY) for name in ("packets", "dropped")]
read = lambda: sum(int(os.pread(counter, 32, 0)) for counter in counters)
for line in sys.stdin:
    count, first, seen = int(line), read(), [(time.monotonic(), 0)]
    print("ready", flush=True)
    end = time.monotonic() + 20
    while seen[-1][1] < count and time.monotonic() < end:
        time.sleep(0.0002); seen.append((time.monotonic(), read() - first))
    def when(wanted):
        for (t0, n0), (t1, n1) in zip(seen, seen[1:]):
            if n1 >= wanted: return t0 + (t1 - t0) * (wanted - n0) / (n1 - n0)
    print(seen[-1][1], when(count * 0.9) - when(count * 0.1) if seen[-1][1] >= count else 0, flush=True)"""


def run(*command: str) -> None:
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)


def idle() -> float:
    """The part of the machine's processors that nobody used in half a second."""
    def times() -> list[int]:
        return list(map(int, pathlib.Path("/proc/stat").read_text(encoding="ascii").split("\n")[0].split()[1:9]))
    before = times()
    time.sleep(0.5)
    spent = [now - then for now, then in zip(times(), before)]
    return (spent[3] + spent[4]) / sum(spent)


class Bed:
    """An agent with so many workers, between two links."""

    def __init__(self, workers: int, options, directory: pathlib.Path):
        self.workers, self.count = workers, options.frames
        self.control = directory / "control"
        self.router, self.host = (f"ovix-{name}{workers}-{os.getpid()}" for name in ("router", "host"))
        for namespace in (self.router, self.host):
            run("ip", "netns", "add", namespace)
        for port, mac in (("west", WEST), ("east", EAST)):
            run("ip", "link", "add", port, "address", mac, "netns", self.router, "type", "veth", "peer", "name", port,
                "netns", self.host)
            for namespace in (self.router, self.host):
                run("ip", "netns", "exec", namespace, "sysctl", "-qw", f"net.ipv6.conf.{port}.disable_ipv6=1")
                run("ip", "-n", namespace, "link", "set", port, "up")
        self.start(options.labels, directory)
        self.sender = self.inside(self.host, SENDER, str(self.frames(options.labels, directory)))
        self.watcher = self.inside(self.router, WATCHER)

    def start(self, labels: int, directory: pathlib.Path) -> None:
        tables = os.environ | {"OVIX_TABLES_DIR": str(directory / "tables")}
        (directory / "tables").mkdir(mode=0o700)
        (directory / "agent.yaml").write_text(CONFIG.format(workers=self.workers, host=HOST), encoding="utf-8")
        (directory / "routes").write_text("".join(
            f"transit {label} as {label + labels} via inet 10.0.2.2 dev east\n"
            for label in range(16, 16 + labels)), encoding="ascii")
        subprocess.run([BUILD / "bin/ovixctl", "--tables", "queues", "--create", "lfib", "load", directory / "routes"],
                       check=True, stdout=subprocess.DEVNULL, env=tables)
        self.agent = subprocess.Popen(
            ["ip", "netns", "exec", self.router, BUILD / "bin/ovix-agent", "run", directory / "agent.yaml", "--live",
             "--tables", "queues", "--control", self.control, "--json"], stdout=subprocess.PIPE, text=True, env=tables)

    def frames(self, labels: int, directory: pathlib.Path) -> pathlib.Path:
        path, chance = directory / "frames", random.Random(1)
        path.write_text("".join(
            f.eth(WEST, HOST, f.ETH_MPLS, f.stack(chance.randrange(16, 16 + labels)) + f.udp_packet(
                f"10.1.{chance.randrange(256)}.1", "10.9.0.1", chance.randrange(1024, 65536))).hex() + "\n"
            for _ in range(4096)), encoding="ascii")
        return path

    def inside(self, namespace: str, program: str, *arguments: str) -> subprocess.Popen:
        return subprocess.Popen(["ip", "netns", "exec", namespace, "python3", "-c", program, *arguments],
                                stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def asked(self, process: subprocess.Popen) -> str:
        process.stdin.write(f"{self.count}\n")
        process.stdin.flush()
        return process.stdout.readline()

    def wait(self) -> None:
        """Until it forwards, by decisions for all labels."""
        for _ in range(100):
            try:
                if ask(self.control, "status")["ok"] and ask(self.control, "ports")["ports"][0]["state"] == "up":
                    break
            except OSError:
                time.sleep(0.1)
        time.sleep(0.5)
        self.turn()
        self.stop()

    def spent(self) -> list[tuple[int, float]]:
        """Frames of each worker, and the seconds of processor time that it has used."""
        west = next(port for port in ask(self.control, "ports")["ports"] if port["name"] == "west")
        tasks = pathlib.Path(f"/proc/{self.agent.pid}/task").iterdir()
        times = {(task / "comm").read_text(encoding="ascii").strip():
                 int((task / "schedstat").read_text(encoding="ascii").split()[0]) / 1e9 for task in tasks}
        return [(queue["received"], times[f"worker {i}"]) for i, queue in enumerate(west["queues"])]

    def stop(self) -> None:
        """Returns when all its threads stand."""
        self.agent.send_signal(signal.SIGSTOP)
        while any(") T " not in (task / "stat").read_text(encoding="ascii")
                  for task in pathlib.Path(f"/proc/{self.agent.pid}/task").iterdir()):
            time.sleep(0.001)

    def turn(self) -> tuple[float, float]:
        """Frames a second, by the clock and by the workers' processor time."""
        self.agent.send_signal(signal.SIGCONT)
        time.sleep(0.1)
        before = self.spent()
        self.stop()
        self.asked(self.sender)
        self.asked(self.watcher)
        self.agent.send_signal(signal.SIGCONT)
        left, seconds = self.watcher.stdout.readline().split()
        if int(left) != self.count:
            raise RuntimeError(f"of {self.count} frames {left} have left: {json.dumps(ask(self.control, 'ports'))[:2000]}")
        after = self.spent()
        self.stop()
        by_processor = sum((frames - frames_before) / (spent - spent_before)
                           for (frames, spent), (frames_before, spent_before) in zip(after, before))
        return 0.8 * self.count / float(seconds), by_processor

    def end(self) -> None:
        for process in (self.sender, self.watcher):
            process.kill()
            process.communicate()
        self.agent.send_signal(signal.SIGCONT)
        self.agent.terminate()
        self.agent.communicate(timeout=60)
        for namespace in (self.router, self.host):
            run("ip", "netns", "del", namespace)


def measure(beds: list[Bed], turns: int) -> None:
    rates, quiet = [], []
    for bed in beds:
        bed.wait()
    for number in range(turns):
        quiet.append(idle())
        rates.append({bed.workers: bed.turn() for bed in (beds if number % 2 else beds[::-1])})
    for way, name in enumerate(("by the clock", "by the processor time of each worker")):
        one, two = (statistics.median(rate[workers][way] for rate in rates) for workers in (1, 2))
        ratio = statistics.median(rate[2][way] / rate[1][way] for rate in rates)
        print(f"thousand frames a second {name}: one worker {one / 1e3:.0f}, two {two / 1e3:.0f} (x {ratio:.2f})")
    print(f"{turns} turns of {beds[0].count} frames; the machine was {100 * min(quiet):.0f} to {100 * max(quiet):.0f} % idle "
          "before them")


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--turns", type=int, default=9)
    parser.add_argument("--frames", type=int, default=20_000, help="in each turn; a ring has room for 26,880")
    parser.add_argument("--labels", type=int, default=1000)
    options = parser.parse_args()
    if len(os.sched_getaffinity(0)) < 2:
        sys.exit("queues: needs two processors")
    beds = []
    with tempfile.TemporaryDirectory() as directory:
        try:
            for workers in (1, 2):
                own = pathlib.Path(directory) / str(workers)
                own.mkdir()
                beds.append(Bed(workers, options, own))
            measure(beds, options.turns)
        finally:
            for bed in beds:
                bed.end()


if __name__ == "__main__":
    main()
