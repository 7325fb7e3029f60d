"""What a frame takes through the agent, beside the simplest forwarder that DPDK has. Needs root, and two processors.

    python3 bench/peers.py [--seconds N] [--rounds N] [--labels N...] [--sizes N...] [--workers]

Both take frames from a device of net_null and send them by another, in the same order by the same module
(bench/PeerFrames.cpp), which makes labelled frames of them: the agent as it runs, with its ports of kind dpdk, each label
swapped for another; testpmd's macswap, which exchanges two addresses and looks at nothing else, in bursts as large. Each
has the same processor in turn, while the other is stopped, and each number is of the processor time that its thread has
used there, so that what else the machine does disturbs it little. Printed are the medians of the rounds, and of the ratios
in each.

With --workers the agent has one worker, and two, on two processors, in place of testpmd. Each forwards the frames of its own
queue, as with cards that spread labels over their queues. The rates are in a second of each worker's processor time.
"""

import argparse
import json
import os
import pathlib
import re
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

LABELS = (1, 1_000, 100_000, 1_000_000)
SIZES = (64, 1500)
BUILD = pathlib.Path(os.environ.get("OVIX_BUILD", HERE.parent / "build/bench")).resolve()
FRAMES = BUILD / "lib/libpeer_frames.so"
MAC = "02:00:00:00:00:99"
CONFIG = """
workers: {workers}
ports:
  - {{name: west, kind: dpdk, device: 'net_null0,size={size}', addresses: [10.0.1.1/24]}}
  - {{name: east, kind: dpdk, device: 'net_null1,size={size},no-rx=1', addresses: [10.0.2.1/24]}}
dpdk: {{eal: ['-d', '{frames}']}}
neighbours: [{{address: 10.0.2.2, port: east, mac: '{mac}'}}]
"""


def processors() -> tuple[int, int]:
    """For what serves, and for what is measured."""
    allowed = sorted(os.sched_getaffinity(0))
    if len(allowed) < 2:
        sys.exit("peers: needs two processors")
    return allowed[0], allowed[-1]


def megahertz() -> float:
    return float(re.search(r"cpu MHz\s*:\s*([\d.]+)", pathlib.Path("/proc/cpuinfo").read_text(encoding="ascii")).group(1))


def environment(labels: int, size: int) -> dict[str, str]:
    packet = f.udp_packet("10.9.0.1", "10.9.0.2", payload=b"x" * (size - 14 - 4 - 28))
    first = f.eth(MAC, MAC, 0x8847, f.stack((16, 0, 255)) + packet)[:64]
    return os.environ | {"OVIX_BENCH_FRAME": first.hex(), "OVIX_BENCH_LABELS": str(labels)}


def spent(process: int, thread: int) -> float:
    """Nanoseconds of processor time."""
    return float(pathlib.Path(f"/proc/{process}/task/{thread}/schedstat").read_text(encoding="ascii").split()[0])


def thread_named(process: int, name: str) -> int:
    for task in pathlib.Path(f"/proc/{process}/task").iterdir():
        if name in (task / "comm").read_text(encoding="utf-8"):
            return int(task.name)
    raise RuntimeError(f"no thread {name}")


class Peer:
    """testpmd, forwarding."""

    def __init__(self, labels: int, size: int):
        main, worker = processors()
        self.process = subprocess.Popen(
            ["dpdk-testpmd", "-l", f"{main},{worker}", "--main-lcore", str(main), "--no-huge", "-m", "256", "--no-shconf",
             "--no-telemetry", "--no-pci", "-d", FRAMES, "--vdev", f"net_null0,size={size}", "--vdev",
             f"net_null1,size={size},no-rx=1", "--", "--forward-mode=macswap", "--nb-cores=1", "--burst=64",
             "--total-num-mbufs=4095", "--stats-period=1"],
            env=environment(labels, size), stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            stdin=subprocess.DEVNULL, text=True)

    def received(self) -> int:
        """By the first device, when that is printed next."""
        for line in self.process.stdout:
            if found := re.search(r"RX-packets: (\d+)", line):
                next(line for line in self.process.stdout if "RX-packets" in line)  # the other's
                return int(found.group(1))
        raise RuntimeError("testpmd has ended")

    def warm(self) -> None:
        self.received()

    def measure(self, seconds: int) -> float:
        self.received()
        thread = thread_named(self.process.pid, "worker")
        frames, began = self.received(), spent(self.process.pid, thread)
        for _ in range(seconds):
            last = self.received()
        return (spent(self.process.pid, thread) - began) / (last - frames)

    def stop(self) -> None:
        self.process.kill()
        self.process.communicate()


class Agent:
    """ovix-agent, forwarding by tables of so many labels."""

    def __init__(self, labels: int, size: int, directory: pathlib.Path, workers: int = 0):
        self.control, self.workers = directory / "control", workers
        self.namespace = f"ovix-peers-{os.getpid()}-{workers}"  # its TAP devices have the ports' names
        subprocess.run(["ip", "netns", "add", self.namespace], check=True)
        processor = f"{processors()[0]},{processors()[1]}" if workers else str(processors()[1])
        tables = environment(labels, size) | {"OVIX_TABLES_DIR": str(directory / "tables")}
        (directory / "tables").mkdir(mode=0o700)
        (directory / "agent.yaml").write_text(CONFIG.format(
            size=size, frames=FRAMES, mac=MAC, workers=workers), encoding="utf-8")
        (directory / "routes").write_text("".join(
            f"transit {label} as {(label * 7919) % 1_000_000 + 16} via inet 10.0.2.2 dev east\n"
            for label in range(16, 16 + labels)), encoding="ascii")
        subprocess.run([BUILD / "bin/ovixctl", "--tables", "peers", "--create", "lfib", "load", directory / "routes"],
                       check=True, stdout=subprocess.DEVNULL, env=tables)
        self.log = open(directory / "log", "w+", encoding="utf-8")
        self.process = subprocess.Popen(
            ["ip", "netns", "exec", self.namespace, "taskset", "-c", processor, BUILD / "bin/ovix-agent", "run",
             directory / "agent.yaml", "--live", "--tables", "peers", "--control", self.control, "--json"],
            stdout=subprocess.PIPE, stderr=self.log, text=True, env=tables)

    def counts(self) -> tuple[int, int]:
        """Frames that came in, and those that did not take the fast path."""
        if self.process.poll() is not None:
            self.log.seek(0)
            raise RuntimeError("the agent has ended: " + self.log.read())
        try:
            counters = ask(self.control, "events")["counters"]
        except OSError:
            return 0, 0
        fast, slow = ([c["count"] for c in counters if c["reason"] == name] for name in ("fast", "slow"))
        return fast[0] + slow[0], slow[0]

    def warm(self) -> None:
        """Until each label in use has its decision."""
        frames, slow = 0, 0
        for _ in range(300):
            time.sleep(0.5)
            now, now_slow = self.counts()
            if now > frames > 0 and now_slow - slow < (now - frames) / 10_000:
                return
            frames, slow = now, now_slow
        raise RuntimeError("the agent does not settle")

    def spent(self) -> float:
        """By those who forward."""
        threads = [thread_named(self.process.pid, f"worker {i}") for i in range(self.workers)]
        return sum(spent(self.process.pid, thread) for thread in threads or [self.process.pid])

    def measure(self, seconds: int) -> float:
        time.sleep(0.2)
        frames, began = self.counts()[0], self.spent()
        time.sleep(seconds)
        return (self.spent() - began) / (self.counts()[0] - frames)

    def stop(self) -> None:
        self.process.send_signal(signal.SIGCONT)
        self.process.terminate()
        printed = self.process.communicate(timeout=60)[0]
        subprocess.run(["ip", "netns", "del", self.namespace], check=True)
        if not printed:
            self.log.seek(0)
            raise RuntimeError("the agent has ended: " + self.log.read())
        balance = json.loads(printed)
        # Workers leave frames of labels without a decision, at first more than can be taken.
        early = balance["dropped"]["reasons"].get("Queue to the packet thread full", 0)
        if not balance["balanced"] or balance["forwarded"]["frames"] < (balance["in"]["frames"] - early) * 0.99:
            raise RuntimeError("frames were lost: " + json.dumps(balance)[:2000])


def rounds(both: tuple, options) -> list[tuple[float, ...]]:
    """Nanoseconds a frame of each, round by round."""
    both[1].process.send_signal(signal.SIGSTOP)
    all_times = []
    for _ in range(options.rounds):
        times = []
        for one in both:
            one.process.send_signal(signal.SIGCONT)
            times.append(one.measure(options.seconds))
            one.process.send_signal(signal.SIGSTOP)
        all_times.append(tuple(times))
    return all_times


def measure(labels: int, size: int, options) -> None:
    with tempfile.TemporaryDirectory() as directory:
        peer = Peer(labels, size)
        try:
            peer.warm()
            peer.process.send_signal(signal.SIGSTOP)
            agent = Agent(labels, size, pathlib.Path(directory))
            try:
                agent.warm()
                times = rounds((peer, agent), options)
            finally:
                agent.stop()
        finally:
            peer.stop()
    macswap, swap = (statistics.median(each) for each in zip(*times))
    ratio = statistics.median(own / other for other, own in times)
    cycles = megahertz() / 1000
    print(f"{labels:>9} {size:>6} {macswap:>10.1f} {macswap * cycles:>7.0f} {1000 / swap:>12.2f} {swap:>7.1f} "
          f"{swap * cycles:>7.0f} {ratio:>7.2f}", flush=True)


def measure_workers(labels: int, size: int, options) -> None:
    with tempfile.TemporaryDirectory() as directory:
        both = []
        try:
            for workers in (1, 2):
                own = pathlib.Path(directory) / str(workers)
                own.mkdir()
                both.append(Agent(labels, size, own, workers))
                both[-1].warm()
                both[-1].process.send_signal(signal.SIGSTOP)
            times = rounds(tuple(both), options)
        finally:
            for agent in both:
                agent.stop()
    one, two = (statistics.median(each) for each in zip(*times))
    cycles = megahertz() / 1000
    ratio = statistics.median(2 * of_one / of_two for of_one, of_two in times)
    print(f"{labels:>9} {size:>6} {1000 / one:>10.2f} {one * cycles:>7.0f} {2000 / two:>12.2f} {two * cycles:>7.0f} {ratio:>7.2f}",
          flush=True)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--seconds", type=int, default=2, help="measured, of each in each round")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--labels", type=int, nargs="*", default=LABELS)
    parser.add_argument("--sizes", type=int, nargs="*", default=SIZES)
    parser.add_argument("--workers", action="store_true", help="one worker and two, in place of testpmd")
    options = parser.parse_args()
    print("                  one worker              two workers\n"
          "   labels  bytes  million a s  cycles  million a s  cycles   ratio" if options.workers else
          "                   macswap               agent, a swap\n"
          "   labels  bytes   ns a frame  cycles  million a s      ns  cycles   ratio")
    for size in options.sizes:
        for labels in options.labels:
            (measure_workers if options.workers else measure)(labels, size, options)


if __name__ == "__main__":
    main()
