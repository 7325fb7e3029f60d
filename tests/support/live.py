"""The agent on live ports between two hosts, each in a network namespace of its own."""

import contextlib
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

import agent
import shared_memory
from running_agent import CTL, ask

DEADLINE = 30


def ip(*arguments: str) -> None:
    subprocess.run(["ip", *arguments], check=True, capture_output=True)


def why_not() -> str:
    """Why there can be no namespaces here; empty when there can."""
    if os.geteuid() != 0:
        return "needs root"
    name = f"ovix-try-{os.getpid()}"
    done = subprocess.run(["sh", "-e", "-c", f"ip netns add {name}; ip -n {name} link show"],
                          capture_output=True, text=True, check=False)
    subprocess.run(["ip", "netns", "del", name], capture_output=True, check=False)
    return "" if done.returncode == 0 else f"needs network namespaces: {done.stderr.strip()}"


def others_may_run(program: str) -> bool:
    """Whether a user who is not root reaches a program: the sources may lie in root's home."""
    return subprocess.run(["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "test",
                           "-x", program], capture_output=True, check=False).returncode == 0


class NamespaceTest(unittest.TestCase):
    """A test with agents in network namespaces."""

    @classmethod
    def setUpClass(cls):
        reason = why_not()
        if reason:
            raise unittest.SkipTest(reason)

    def stop(self, process: subprocess.Popen) -> dict:
        process.send_signal(signal.SIGTERM)
        stdout, stderr = process.communicate(timeout=DEADLINE)
        self.assertEqual(process.returncode, 0, stderr)
        result = json.loads(stdout)
        self.assertTrue(result["balanced"])
        return result

    def until(self, met, deadline: float = DEADLINE) -> None:
        end = time.monotonic() + deadline
        while not met():
            self.assertLess(time.monotonic(), end, "nothing happened for too long")
            time.sleep(0.02)


def takes(process: int, one: signal.Signals) -> bool:
    """Whether a process keeps the signal for itself. The C library blocks all signals for a moment while it starts a
    thread."""
    status = pathlib.Path(f"/proc/{process}/status").read_text()
    blocked = int(re.search(r"SigBlk:\s*([0-9a-f]+)", status)[1], 16)
    return blocked >> (one - 1) & 1 == 1 and blocked >> (signal.SIGWINCH - 1) & 1 == 0


def takes_signals(process: int) -> bool:
    """Whether a run has begun to: before, SIGTERM ends it like any program."""
    return takes(process, signal.SIGTERM)


class LiveTest(NamespaceTest):
    """west host – router – east host; the router's own kernel forwards nothing."""

    options: tuple[str, ...] = ()  # of the agent, beside those that every test needs
    settings = ""  # of the configuration, likewise

    def setUp(self):
        self.directory = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.directory)
        stem = f"ovix{os.getpid()}"
        self.router, self.west, self.east = f"{stem}r", f"{stem}w", f"{stem}e"
        for name in (self.router, self.west, self.east):
            ip("netns", "add", name)
            self.addCleanup(subprocess.run, ["ip", "netns", "del", name], check=False)
        for port, host, network in (("west", self.west, 1), ("east", self.east, 2)):
            ip("link", "add", port, "netns", self.router, "type", "veth", "peer", "name", "eth0",
               "netns", host)
            ip("-n", self.router, "addr", "add", f"10.0.{network}.1/24", "dev", port)
            ip("-n", host, "addr", "add", f"10.0.{network}.2/24", "dev", "eth0")
            ip("-n", self.router, "link", "set", port, "up")
            ip("-n", host, "link", "set", "eth0", "up")
            ip("-n", host, "route", "add", "default", "via", f"10.0.{network}.1")
        self.tables = f"live-{os.getpid()}-{self.id().rsplit('.', 1)[-1][:30]}"
        self.addCleanup(shared_memory.remove, self.tables)
        self.path = self.directory / "control.sock"

    def start(self, extra: str = "", kind: str = "packet") -> subprocess.Popen:
        self.config = self.directory / "agent.yaml"
        self.configure(extra, kind)
        command = ["ip", "netns", "exec", self.router, agent.AGENT, "run", str(self.config),
                   "--live", "--tables", self.tables, "--create", "--control", str(self.path), "--json",
                   *self.options]
        if agent.PLUGIN:
            command += ["--plugin", agent.PLUGIN]
        process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   text=True)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        self.until(self.is_forwarding)
        return process

    def is_forwarding(self) -> bool:
        """It answers once the kernel has reported the interfaces, and then it has opened them."""
        try:
            return ask(self.path, "status")["ok"]
        except (ConnectionError, FileNotFoundError):
            return False

    def configure(self, extra: str = "", kind: str = "packet") -> None:
        self.config.write_text(f"""{self.settings}
ports:
  - {{name: west, kind: {kind}, addresses: [10.0.1.1/24]}}
  - {{name: east, kind: {kind}, addresses: [10.0.2.1/24]}}
{extra}""")

    def run_briefly(self, ports: str, *prefix: str, options=()) -> subprocess.CompletedProcess:
        """A run with these ports alone, ended after a second unless it ends by itself."""
        config = self.directory / "brief.yaml"
        config.write_text(f"ports: [{ports}]\n")
        command = ["ip", "netns", "exec", self.router, *prefix, agent.AGENT, "run", str(config), "--live", "--json",
                   *options, *(["--plugin", agent.PLUGIN] if agent.PLUGIN else [])]
        with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as process:
            self.addCleanup(process.kill)
            self.until(lambda: process.poll() is not None or takes_signals(process.pid))
            with contextlib.suppress(subprocess.TimeoutExpired):
                process.wait(1)
            process.terminate()
            output, errors = process.communicate(timeout=DEADLINE)
        return subprocess.CompletedProcess(command, process.returncode, output, errors)

    def ctl(self, *arguments: str) -> None:
        subprocess.run([CTL, "--create", "--tables", self.tables, *arguments], check=True,
                       capture_output=True)

    def host(self, name: str, program: str, **keys) -> subprocess.Popen:
        """A Python program that runs on one of the hosts."""
        return subprocess.Popen(["ip", "netns", "exec", name, "python3", "-c", program],
                                stdout=subprocess.PIPE, text=True, **keys)

    def datagrams(self, count: int, patience: int = 2) -> int:
        """How many of so many datagrams, sent one after the other, come from west to east, none more than so
        many seconds after the one before."""
        receiver = self.host(self.east, f"""
import socket
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM); s.bind(("10.0.2.2", 7000))
print("ready", flush=True); s.settimeout({patience}); got = 0
try:
    while got < {count}: s.recv(100); got += 1
except TimeoutError: pass
print(got, flush=True)""")
        self.assertEqual(receiver.stdout.readline(), "ready\n")
        self.host(self.west, f"""
import socket, time
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
for i in range({count}): s.sendto(b"%d" % i, ("10.0.2.2", 7000)); time.sleep(0.002)""").communicate()
        got = int(receiver.stdout.readline())
        receiver.communicate()
        return got

    def labelled(self, label: int, count: int) -> int:
        """How many of so many labelled frames that west sends arrive at east with label 200."""
        receiver = self.host(self.east, f"""
import socket
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(0x8847)); s.bind(("eth0", 0x8847))
print("ready", flush=True); s.settimeout(2); got = 0
try:
    while got < {count}:
        frame = s.recv(2000); got += int.from_bytes(frame[14:17], "big") >> 4 == 200
except TimeoutError: pass
print(got, flush=True)""")
        self.assertEqual(receiver.stdout.readline(), "ready\n")
        mac = pathlib.Path(self.directory / "mac")
        mac.write_text(subprocess.run(
            ["ip", "-n", self.router, "-j", "link", "show", "west"], check=True,
            capture_output=True, text=True).stdout)
        address = json.loads(mac.read_text())[0]["address"].replace(":", "")
        self.host(self.west, f"""
import socket, time
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(("eth0", 0))
frame = bytes.fromhex("{address}" + "020000000002" + "8847") + ({label} << 12 | 0x140).to_bytes(4, "big")
for i in range({count}): s.send(frame + bytes(46)); time.sleep(0.002)""").communicate()
        got = int(receiver.stdout.readline())
        receiver.communicate()
        return got

    def learn_neighbours(self) -> None:
        """Makes both hosts and the router know each other: the first frame asks for its next hop."""
        self.until(lambda: self.datagrams(1) == 1)

    def router_mac(self, port: str) -> str:
        shown = subprocess.run(["ip", "-n", self.router, "-j", "link", "show", port], check=True,
                               capture_output=True, text=True).stdout
        return json.loads(shown)[0]["address"]

    def icmp_answers(self, frame: bytes, seconds: int = 1) -> list[bytes]:
        """The ICMP packets that west gets for a frame that it sends to the router."""
        heard = self.host(self.west, f"""
import socket
icmp = socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_ICMP); icmp.settimeout({seconds})
s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); s.bind(("eth0", 0))
s.send(bytes.fromhex("{frame.hex()}"))
try:
    while True: print(icmp.recv(2000).hex(), flush=True)
except TimeoutError: pass""").communicate()[0]
        return [bytes.fromhex(line) for line in heard.splitlines()]
