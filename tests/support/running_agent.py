"""An agent that keeps running: its frames come through a pipe, its label tables from shared memory."""

import json
import os
import pathlib
import shutil
import socket
import struct
import subprocess
import tempfile
import time
import unittest

import agent
import frames as f
import shared_memory

CTL = os.environ.get("OVIX_CTL", "build/release/bin/ovixctl")
DEADLINE = 30


def ctl(*arguments: str, tables: str, code: int = 0, **keys) -> str:
    """Runs ovixctl and returns what it printed."""
    done = subprocess.run([CTL, "--create", "--tables", tables, *arguments], capture_output=True, text=True,
                          timeout=DEADLINE, check=False, **keys)
    assert done.returncode == code, f"{arguments}: {done.returncode}: {done.stdout}{done.stderr}"
    return done.stdout if code == 0 else done.stderr


def ask(path: pathlib.Path, command: str, **keys) -> dict:
    """What the agent with this control socket answers."""
    with socket.socket(socket.AF_UNIX) as client:
        client.settimeout(DEADLINE)
        client.connect(str(path))
        client.sendall(json.dumps({"command": command, **keys}).encode() + b"\n")
        answer = b""
        while not answer.endswith(b"\n"):
            got = client.recv(65536)
            if not got:
                raise ConnectionError("no answer")
            answer += got
        return json.loads(answer)


class RunningAgent:
    """Frames are sent in at the west port one by one; `stop` ends the run and gives the result.
    Without `tables` it has those of its configuration."""

    capture_header = struct.pack("<IHHiIII", 0xa1b2c3d4, 2, 4, 0, 0, 65535, 1)

    def __init__(self, directory: pathlib.Path, config: str, tables: str | None,
                 control: pathlib.Path | None = None, wait: bool = True):
        self.directory, self.tables = directory, tables
        self.path = control or directory / "control.sock"
        self.fifo = directory / "west.fifo"
        (directory / "agent.yaml").write_text(config)
        if not self.fifo.exists():
            os.mkfifo(self.fifo)
        command = [agent.AGENT, "run", str(directory / "agent.yaml"), "--in", f"west={self.fifo}",
                   "--out", str(directory / "out"), "--control", str(self.path), "--json"]
        command += ["--tables", tables, "--create"] if tables else []
        if agent.PLUGIN:
            command += ["--plugin", agent.PLUGIN]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                        text=True)
        # For reading, too, so that opening it does not wait for the agent.
        self.input = open(os.open(self.fifo, os.O_RDWR), "wb", buffering=0)
        self.input.write(self.capture_header)
        self.sent = 0
        if wait:
            self.until(lambda: self.path.exists() and self.ask("status")["ok"])

    def until(self, met) -> None:
        """Waits until a condition holds."""
        end = time.monotonic() + DEADLINE
        while True:
            try:
                if met():
                    return
            except (ConnectionError, FileNotFoundError):
                pass
            assert self.process.poll() is None, self.process.communicate()
            assert time.monotonic() < end, "nothing happened for too long"
            time.sleep(0.005)

    def ask(self, command: str, **keys) -> dict:
        return ask(self.path, command, **keys)

    def send(self, *data: bytes) -> None:
        for frame in data:
            self.input.write(struct.pack("<IIII", self.sent, 0, len(frame), len(frame)) + frame)
            self.sent += 1

    def send_and_wait(self, *data: bytes) -> None:
        self.send(*data)
        self.until(lambda: self.ask("status")["frames"]["in"] == self.sent)

    def generation(self) -> int:
        return self.ask("status")["tables"]["generation"]

    def stop(self) -> agent.Result:
        self.input.close()
        stdout, stderr = self.process.communicate(timeout=DEADLINE)
        return agent.Result(
            subprocess.CompletedProcess([], self.process.returncode, stdout, stderr),
            self.directory / "out")

    def kill(self) -> None:
        if self.process.poll() is None:
            self.process.kill()
            self.process.communicate()
        self.input.close()


def damage(tables: pathlib.Path, label: int) -> None:
    """Of the record of these tables that was written last of those with the label among their vias."""
    content = tables.read_bytes()[:1 << 21]
    with tables.open("r+b") as memory:
        memory.seek(content.rindex(label.to_bytes(3, "big")))
        memory.write(b"\xff")


class SharedTablesTest(unittest.TestCase):
    """Each test has label tables of its own, gone afterwards."""

    def setUp(self):
        self.directory = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.directory)
        self.tables = f"test-{os.getpid()}-{self.id().rsplit('.', 1)[-1][:40]}"
        self.memory = shared_memory.path(self.tables)
        self.addCleanup(shared_memory.remove, self.tables)

    def start(self, config: str = agent.PORTS) -> RunningAgent:
        running = RunningAgent(self.directory, config, self.tables)
        self.addCleanup(running.kill)
        return running

    def ctl(self, *arguments: str, code: int = 0, **keys) -> str:
        return ctl(*arguments, tables=self.tables, code=code, **keys)

    def load(self, text: str) -> None:
        path = self.directory / "tables.yaml"
        path.write_text(text)
        self.ctl("lfib", "load", str(path))


def top_label(frame: bytes) -> int:
    return f.parse(frame).labels[0][0]
