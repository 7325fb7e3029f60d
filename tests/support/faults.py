"""Faults on purpose: calls that fail, a clock that is set back, too little of something; and what a
process has in use before and after."""

import contextlib
import os
import pathlib
import re
import signal
import subprocess
import time

import agent

PROC = pathlib.Path("/proc")
FAKETIME = sorted(pathlib.Path("/usr/lib").glob("*/faketime/libfaketimeMT.so.1"))


def is_sanitized() -> bool:
    """The address sanitizer needs more address space and other calls than a limit leaves."""
    return b"__asan_init" in pathlib.Path(agent.AGENT).read_bytes()


def descriptors(process: int) -> int:
    return len(list((PROC / str(process) / "fd").iterdir()))


def settled_descriptors(process: int) -> int:
    """Once a process has closed what its peers have: as many for a while."""
    count, since = descriptors(process), time.monotonic()
    while time.monotonic() - since < 0.3:
        time.sleep(0.02)
        if (now := descriptors(process)) != count:
            count, since = now, time.monotonic()
    return count


def status(process: int, field: str) -> int:
    """A number of /proc/PID/status, for example VmRSS in KiB."""
    text = (PROC / str(process) / "status").read_text()
    return int(re.search(rf"^{field}:\s+(\d+)", text, re.MULTILINE)[1])


def processor_seconds(process: int) -> float:
    fields = (PROC / str(process) / "stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def limit(process: int, resource: str, value: str) -> None:
    """Sets the soft limit: prlimit's name of it, a number or "unlimited"."""
    subprocess.run(["prlimit", f"--pid={process}", f"--{resource}={value}:"], check=True)


def program_of(process: int) -> int:
    """The process that runs the program, where `process` only goes to another namespace first."""
    children = (PROC / str(process) / "task" / str(process) / "children").read_text().split()
    return int(children[0]) if children else process


class Failing:
    """While the block runs, one call of the process fails: the first of its kind."""

    def __init__(self, process: int, call: str, error: str, log: pathlib.Path):
        self.log = log
        self.tracer = subprocess.Popen(
            ["strace", "-f", "-p", str(process), "-o", str(log), "-e", f"trace={call}", "-e",
             f"inject={call}:error={error}:when=1"], stderr=subprocess.PIPE, text=True)
        assert "attached" in self.tracer.stderr.readline()

    def has_failed(self) -> bool:
        return "(INJECTED)" in self.log.read_text()

    def __enter__(self) -> "Failing":
        return self

    def __exit__(self, *_) -> None:
        self.tracer.send_signal(signal.SIGINT)
        self.tracer.communicate()


def calls_of(process: int, log: pathlib.Path, work) -> dict[str, int]:
    """How often each system call is made while something is done."""
    with subprocess.Popen(["strace", "-f", "-p", str(process), "-o", str(log)],
                          stderr=subprocess.PIPE, text=True) as tracer:
        assert "attached" in tracer.stderr.readline()
        try:
            work()
        finally:
            tracer.send_signal(signal.SIGINT)
            tracer.communicate()
    return counted(log)


def counted(log: pathlib.Path) -> dict[str, int]:
    calls: dict[str, int] = {}
    for name in re.findall(r"^\d+ +(\w+)\(", log.read_text(errors="replace"), re.MULTILINE):
        calls[name] = calls.get(name, 0) + 1
    return calls


class Clock:
    """A wall clock that can be set."""

    def __init__(self, directory: pathlib.Path):
        self.file = directory / "clock"
        self.set("+0")

    def set(self, offset: str) -> None:
        """How far it is off, for example "-3600" seconds."""
        self.file.write_text(offset)

    @contextlib.contextmanager
    def programs(self):
        """Those that are started in the block have this clock."""
        own = {"LD_PRELOAD": str(FAKETIME[0]), "FAKETIME_TIMESTAMP_FILE": str(self.file),
               "FAKETIME_NO_CACHE": "1", "FAKETIME_DONT_FAKE_MONOTONIC": "1",
               "DONT_FAKE_MONOTONIC": "1"}
        os.environ.update(own)
        try:
            yield
        finally:
            for name in own:
                del os.environ[name]
