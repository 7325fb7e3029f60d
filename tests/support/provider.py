"""Two customers' hosts, two provider edges and a transit router in a row, each in a network namespace
of its own; the routers are live agents: ce1 - pe1 - p - pe2 - ce2."""

import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import tempfile

import agent
from live import DEADLINE, NamespaceTest, ip

CE_MTU, CORE_MTU = 1500, 1530  # a full frame with a tag, a control word and two labels
HOSTS = {"ce1": "192.0.2.1", "ce2": "192.0.2.2"}
LINKS = [("ce1", "eth0", "pe1", "ce", None), ("pe1", "core", "p", "west", 1),
         ("p", "east", "pe2", "core", 2), ("pe2", "ce", "ce2", "eth0", None)]

# Prints the frames near whose beginning a MAC address is. The kernel keeps a received tag apart from
# its frame.
RECEIVE = """
import socket, struct, sys, time
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(3))
s.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 22)
s.bind((sys.argv[1], 3)); s.setsockopt(263, 8, 1)
s.setsockopt(263, 1, struct.pack("iHH8x", socket.if_nametoindex(sys.argv[1]), 1, 0))
print("ready", flush=True); left = int(sys.argv[3]); s.settimeout(float(sys.argv[4]))
try:
    while left > 0:
        frame, control, _, (_, _, kind, _, _) = s.recvmsg(70000, 100)
        status, _, _, _, _, tci, tpid = struct.unpack("IIIHHHH", control[0][2])
        if status & 0x10:
            frame = frame[:12] + struct.pack("!HH", tpid if status & 0x40 else 0x8100, tci) + frame[12:]
        if kind != 4 and bytes.fromhex(sys.argv[2]) in frame[:64]:
            print(frame.hex(), flush=True); left -= 1
except TimeoutError: pass
"""
SEND = """
import socket, sys
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind((sys.argv[1], 0))
for line in sys.stdin: s.send(bytes.fromhex(line))
"""


class ProviderTest(NamespaceTest):
    maxDiff = None

    def setUp(self):
        self.directory = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.directory)
        self.agents = {}
        for node in ("ce1", "pe1", "p", "pe2", "ce2"):
            ip("netns", "add", self.node(node))
            self.addCleanup(subprocess.run, ["ip", "netns", "del", self.node(node)], check=False)
        for one, name, other, other_name, network in LINKS:
            ip("link", "add", name, "netns", self.node(one), "type", "veth", "peer", "name",
               other_name, "netns", self.node(other))
            for place, (node, link) in enumerate(((one, name), (other, other_name)), 1):
                if network:
                    ip("-n", self.node(node), "addr", "add", f"10.0.{network}.{place}/24", "dev", link)
                ip("-n", self.node(node), "link", "set", link, "mtu",
                   str(CORE_MTU if network else CE_MTU), "up")
        for host, address in HOSTS.items():
            ip("-n", self.node(host), "addr", "add", f"{address}/24", "dev", "eth0")

    def node(self, name: str) -> str:
        return f"ovix{os.getpid()}{name}"

    def inside(self, node: str, *command: str, **keys) -> subprocess.Popen:
        return subprocess.Popen(["ip", "netns", "exec", self.node(node), *command], text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **keys)

    def run_in(self, node: str, *command: str) -> tuple[int, str]:
        process = self.inside(node, *command)
        text = process.communicate(timeout=DEADLINE)[0]
        return process.returncode, text

    def start(self, node: str, config: str, *options: str) -> None:
        """An agent, which answers at its control socket when it returns."""
        path, control = self.directory / f"{node}.yaml", self.directory / f"{node}.sock"
        path.write_text(config)
        command = ["ip", "netns", "exec", self.node(node), agent.AGENT, "run", str(path), "--live",
                   "--control", str(control), "--json", *options]
        if agent.PLUGIN:
            command += ["--plugin", agent.PLUGIN]
        process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        self.agents[node] = process
        self.until(lambda: process.poll() is not None or self.answers_at(node))
        self.assertIsNone(process.poll(), process.poll() is not None and process.communicate())

    def answers_at(self, node: str) -> bool:
        try:
            return self.ask(node, "status")["ok"]
        except (ConnectionError, FileNotFoundError):
            return False

    def ask(self, node: str, command: str) -> dict:
        """What an agent answers to a request."""
        with socket.socket(socket.AF_UNIX) as client:
            client.settimeout(DEADLINE)
            client.connect(str(self.directory / f"{node}.sock"))
            client.sendall(json.dumps({"command": command}).encode() + b"\n")
            with client.makefile() as answer:
                return json.loads(answer.readline())

    def reload(self, node: str, config: str) -> None:
        (self.directory / f"{node}.yaml").write_text(config)
        self.agents[node].send_signal(signal.SIGHUP)

    def stop(self, node: str) -> dict:
        return super().stop(self.agents.pop(node))

    def pings(self, *options: str, to: str = "ce2", node: str = "ce1") -> bool:
        return self.run_in(node, "ping", "-c", "1", "-W", "0.4", *options, HOSTS[to])[0] == 0

    def listen(self, node: str, link: str, source: str, count: int,
               seconds: float = 3) -> subprocess.Popen:
        """Prints the frames that come in at a link and have a station's address in one of their
        headers; ends after so many, or when none has come for a while."""
        process = self.inside(node, "python3", "-c", RECEIVE, link, source.replace(":", ""),
                              str(count), str(seconds))
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        self.assertEqual(process.stdout.readline(), "ready\n")
        return process

    def heard(self, listener: subprocess.Popen) -> list[bytes]:
        return [bytes.fromhex(line) for line in
                listener.communicate(timeout=DEADLINE)[0].splitlines()]

    def send(self, node: str, frames: list[bytes], link: str = "eth0") -> None:
        text = "".join(f"{frame.hex()}\n" for frame in frames)
        process = self.inside(node, "python3", "-c", SEND, link, stdin=subprocess.PIPE)
        self.assertEqual(process.communicate(text, timeout=DEADLINE)[0], "")

    def carried(self, frames: list[bytes], source: str, near: str = "ce1", far: str = "ce2",
                link: str = "eth0") -> list:
        """What comes out of the far host's link of the frames that the near one sends by its own."""
        listener = self.listen(far, "eth0", source, len(frames))
        self.send(near, frames, link)
        return self.heard(listener)
