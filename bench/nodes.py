"""What the table changes of many routers take, as one machine's routing daemon has them. Needs root.

    python3 bench/nodes.py [--nodes N] [--rounds N] [--pause SECONDS]

What zebra of FRR has sent about 1,000 labels, when they were added, led elsewhere and led back (bench/recordings, which
tests/data/fpm/record.py records), is played to so many listeners (ovix-fpm), each with tables of its own: all get each
stream at once, as routers do that hear of the same change. Each node's share is what a machine spends on it that is one of
them. Printed are the processor time of the listeners, by node and by change, and the memory that each needs: its own
(not what programs share), and its tables. At the end the tables of all nodes must have what the last stream said.
"""

import argparse
import os
import pathlib
import re
import socket
import statistics
import struct
import subprocess
import sys
import tempfile
import time

HERE = pathlib.Path(__file__).resolve().parent
RECORDINGS = HERE / "recordings"
BIN = pathlib.Path(os.environ.get("OVIX_BUILD", HERE.parent / "build/release")).resolve() / "bin"
NAMESPACE = f"ovix-nodes-{os.getpid()}"
LABELS = 1000  # of the recordings
FIRST_PORT = 26200
PLAYER = """
import pathlib, socket, sys, time
nodes, pause = int(sys.argv[1]), float(sys.argv[2])
zebras = [socket.create_connection(("127.0.0.1", {port} + node)) for node in range(nodes)]
for line in sys.stdin:
    stream = pathlib.Path(line.strip()).read_bytes()
    for zebra in zebras: zebra.sendall(stream)
    time.sleep(pause)
    print("played", flush=True)"""


def run(*command, **keys) -> subprocess.CompletedProcess:
    return subprocess.run([str(word) for word in command], check=True, capture_output=True, text=True, **keys)


def inside(*command) -> list[str]:
    return ["ip", "netns", "exec", NAMESPACE, *[str(word) for word in command]]


def make_links() -> None:
    """With the numbers that the recordings call them by."""
    run("ip", "netns", "add", NAMESPACE)
    run("ip", "-n", NAMESPACE, "link", "set", "lo", "up")
    for number, name in ((3, "west0"), (5, "east0")):
        run("ip", "-n", NAMESPACE, "link", "add", name, "index", number, "type", "veth", "peer", "name", name + "p")
        run("ip", "-n", NAMESPACE, "link", "set", name, "up")


def messages(stream: bytes) -> int:
    """Of one or several changes each, as zebra has put them together."""
    count, at = 0, 0
    while at < len(stream):
        count += 1
        at += struct.unpack_from("!BBH", stream, at)[2]
    return count


class Node:
    """A listener with its tables."""

    def __init__(self, number: int, tables: dict):
        self.name, self.tables = f"node{number}", tables
        self.process = subprocess.Popen(
            inside(BIN / "ovix-fpm", "--tables", self.name, "--listen", f"127.0.0.1:{FIRST_PORT + number}", "--peer", "any"),
            env=tables, stderr=subprocess.DEVNULL)

    def listens(self) -> bool:
        return bool(run(*inside("ss", "-Hltn", f"sport = :{FIRST_PORT + int(self.name[4:])}")).stdout)

    def seconds(self) -> float:
        """Processor time of all its threads."""
        return sum(int((task / "schedstat").read_text(encoding="ascii").split()[0]) for task in
                   pathlib.Path(f"/proc/{self.process.pid}/task").iterdir()) / 1e9

    def memory(self) -> tuple[int, int]:
        """Bytes that are its process's own, and those of its tables."""
        text = pathlib.Path(f"/proc/{self.process.pid}/smaps_rollup").read_text(encoding="ascii")
        own = sum(int(size) for size in re.findall(r"^Private_\w+:\s+(\d+) kB", text, re.MULTILINE)) * 1024
        mapped = pathlib.Path(f"/proc/{self.process.pid}/smaps").read_text(encoding="ascii")
        parts = re.split(r"^(?=[0-9a-f]+-[0-9a-f]+ )", mapped, flags=re.MULTILINE)
        tables = sum(int(size) for part in parts if self.tables["OVIX_TABLES_DIR"] in part
                     for size in re.findall(r"^Rss:\s+(\d+) kB", part, re.MULTILINE)) * 1024
        in_own = sum(int(size) for part in parts if self.tables["OVIX_TABLES_DIR"] in part
                     for size in re.findall(r"^Private_\w+:\s+(\d+) kB", part, re.MULTILINE)) * 1024
        return own - in_own, tables

    def ways(self) -> set[tuple[int, str, str]]:
        """Each label, what it is swapped for and by which port."""
        shown = run(BIN / "ovixctl", "--tables", self.name, "lfib", "show", "transit", env=self.tables).stdout
        return {(int(label), out, port) for label, out, port in
                re.findall(r"^transit (\d+).* as to (\d+) .*dev (\S+)", shown, re.MULTILINE)}

    def stop(self) -> None:
        self.process.terminate()
        self.process.wait(30)


def wait_for(what: str, met, seconds: float = 120) -> None:
    end = time.monotonic() + seconds
    while not met():
        if time.monotonic() > end:
            sys.exit(f"nodes: not within {seconds:g} s: {what}")
        time.sleep(0.05)


def measure(nodes: list[Node], player: subprocess.Popen, options) -> None:
    def play(name: str) -> None:
        player.stdin.write(f"{RECORDINGS / name}.bin\n")
        player.stdin.flush()
        player.stdout.readline()
    play("many_labels")
    expected = {(label, str(label + 10_000), "west0") for label in range(1000, 1000 + LABELS)}
    for node in nodes:
        wait_for("all labels are there", lambda one=node: one.ways() == expected)
    before, began = [node.seconds() for node in nodes], time.monotonic()
    for _ in range(options.rounds):
        play("many_labels_moved")
        play("many_labels_back")
    for node in nodes:
        wait_for("all labels are back", lambda one=node: one.ways() == expected)
    spent, passed = [node.seconds() - then for node, then in zip(nodes, before)], time.monotonic() - began
    changes = 2 * LABELS * options.rounds
    sent = sum(messages((RECORDINGS / f"many_labels_{name}.bin").read_bytes()) for name in ("moved", "back")) * options.rounds
    own, tables = (statistics.median(each) / 1e6 for each in zip(*(node.memory() for node in nodes)))
    median = statistics.median(spent)
    print(f"{len(nodes)} nodes of {LABELS} labels, each led elsewhere {changes} times within {passed:.1f} s ({sent} messages)\n"
          f"processor time: {sum(spent):.2f} s of all; of a node {1e3 * median:.0f} ms (least {1e3 * min(spent):.0f}, most "
          f"{1e3 * max(spent):.0f}), {1e6 * median / changes:.1f} µs a change\n"
          f"memory of a node: {own:.1f} MB of its own, tables {tables:.1f} MB")


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--nodes", type=int, default=64)
    parser.add_argument("--rounds", type=int, default=10, help="how often labels are led elsewhere and back")
    parser.add_argument("--pause", type=float, default=0.2, help="seconds after each stream")
    options = parser.parse_args()
    nodes = []
    player = None
    with tempfile.TemporaryDirectory(dir="/dev/shm") as directory:
        tables = os.environ | {"OVIX_TABLES_DIR": directory}
        make_links()
        try:
            nodes = [Node(number, tables) for number in range(options.nodes)]
            wait_for("all listen", lambda: all(node.listens() for node in nodes))
            player = subprocess.Popen(inside("python3", "-c", PLAYER.format(port=FIRST_PORT), len(nodes), options.pause),
                                      stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
            measure(nodes, player, options)
        finally:
            if player:
                player.kill()
                player.communicate()
            for node in nodes:
                node.stop()
            run("ip", "netns", "del", NAMESPACE)


if __name__ == "__main__":
    main()
