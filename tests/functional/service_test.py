"""What the programs tell a service manager, and what they give up when they start."""

import ctypes
import os
import pathlib
import platform
import re
import signal
import socket
import struct
import subprocess
import tempfile
import time
import unittest

import agent
import live

# What is left of a process of root: CAP_CHOWN, CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_NET_ADMIN,
# CAP_NET_RAW, CAP_IPC_LOCK, CAP_PERFMON, CAP_BPF (bits of linux/capability.h).
LISTENER = 1 << 0 | 1 << 1 | 1 << 2
AGENT = LISTENER | 1 << 12 | 1 << 13 | 1 << 14 | 1 << 38 | 1 << 39


def without_choice_of_processors() -> None:
    """In a process to be: a filter of system calls, by which sched_setaffinity is not permitted."""
    refused, number = 0x00050001, 203  # EPERM; the call's number on x86-64
    program = struct.pack("HBBIHBBIHBBIHBBI", 0x20, 0, 0, 0, 0x15, 0, 1, number, 0x06, 0, 0, refused,
                          0x06, 0, 0, 0x7fff0000)
    memory = ctypes.create_string_buffer(program)
    libc = ctypes.CDLL(None, use_errno=True)
    libc.prctl(38, 1, 0, 0, 0)  # PR_SET_NO_NEW_PRIVS
    if libc.prctl(22, 2, struct.pack("HxxxxxxP", 4, ctypes.addressof(memory)), 0, 0) != 0:
        raise OSError(ctypes.get_errno(), "PR_SET_SECCOMP")


class StandingStill:
    """A thread that a debugger holds, while the others of its process go on."""

    def __init__(self, test: unittest.TestCase, thread: int):
        self.thread, self.libc = thread, ctypes.CDLL(None, use_errno=True)
        self.ptrace(0x4206)  # PTRACE_SEIZE
        self.ptrace(0x4207)  # PTRACE_INTERRUPT
        os.waitpid(thread, 0x40000000)  # __WALL
        test.addCleanup(self.go_on)

    def ptrace(self, request: int) -> None:
        if self.libc.ptrace(ctypes.c_long(request), self.thread, None, None) != 0:
            raise OSError(ctypes.get_errno(), f"ptrace {request:x}")

    def go_on(self) -> None:
        if self.thread:
            self.ptrace(17)  # PTRACE_DETACH
        self.thread = 0


class Manager:
    """The service manager's end: what has been told, in order."""

    def __init__(self, test: unittest.TestCase):
        self.path = pathlib.Path(tempfile.mkdtemp()) / "notify"
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(str(self.path))
        self.path.parent.chmod(0o755)
        self.path.chmod(0o777)  # also for programs of other users
        self.socket.settimeout(live.DEADLINE)
        test.addCleanup(self.socket.close)
        self.environment = {"NOTIFY_SOCKET": str(self.path), "WATCHDOG_USEC": "400000"}

    def hears(self, what: str) -> list[str]:
        """Everything until something of this form has been told."""
        all_of_it = []
        end = time.monotonic() + live.DEADLINE
        while not (all_of_it and re.match(what, all_of_it[-1])):
            if time.monotonic() > end:
                raise AssertionError(f"heard no {what!r}, but {set(all_of_it)}")
            all_of_it.append(self.socket.recv(4096).decode())
        return all_of_it


def privileges(process: int) -> dict[str, int]:
    status = pathlib.Path(f"/proc/{process}/status").read_text()
    return {name: int(value, 16) for name, value in re.findall(r"^(Cap\w+|NoNewPrivs):\s+(\w+)$",
                                                               status, re.MULTILINE)}


def threads(process: subprocess.Popen) -> dict[int, str]:
    """Their names."""
    return {int(thread.name): (thread / "comm").read_text().strip()
            for thread in pathlib.Path(f"/proc/{process.pid}/task").iterdir()}


def workers(process: subprocess.Popen) -> list[int]:
    return [thread for thread, name in threads(process).items() if name.startswith("worker ")]


class Service(live.LiveTest):
    def setUp(self):
        super().setUp()
        self.manager = Manager(self)
        for name, value in self.manager.environment.items():
            os.environ[name] = value
            self.addCleanup(os.environ.pop, name)

    def test_an_agent_is_ready_when_it_forwards_and_says_what_it_does(self):
        process = self.start()
        told = self.manager.hears("READY=1")
        self.assertIn("STATUS=forwarding on 2 of 2 ports", told)
        self.assertEqual(self.datagrams(20), 20)
        for _ in range(3):
            self.manager.hears("WATCHDOG=1")
        process.send_signal(signal.SIGHUP)
        self.assertEqual([line for line in self.manager.hears("READY=1") if "WATCHDOG" not in line
                          and not line.startswith("RELOADING=1\nMONOTONIC_USEC=")], ["READY=1"])
        live.ip("-n", self.router, "link", "del", "west")
        self.assertNotIn("READY=1", self.manager.hears("STATUS=forwarding on 1 of 2 ports; .*west"))
        process.terminate()
        self.manager.hears("STOPPING=1")

    def test_an_interface_that_is_removed_after_it_was_down_is_missed(self):
        process = self.start()
        self.manager.hears("READY=1")
        live.ip("-n", self.router, "link", "set", "west", "down")
        for _ in range(8):  # the agent has noticed it
            self.manager.hears("WATCHDOG=1")
        live.ip("-n", self.router, "link", "del", "west")
        self.manager.hears("STATUS=forwarding on 1 of 2 ports; .*west")
        process.terminate()
        self.manager.hears("STOPPING=1")

    def is_not_fed_while_still(self, thread: int) -> None:
        held = StandingStill(self, thread)
        self.manager.socket.settimeout(1)
        with self.assertRaises(TimeoutError):
            self.manager.hears("nothing")
        held.go_on()
        self.manager.hears("WATCHDOG=1")

    def test_a_packet_thread_that_stands_still_does_not_feed_the_watchdog(self):
        process = self.start()
        self.manager.hears("READY=1")
        self.assertGreater(len(threads(process)), 1)
        self.is_not_fed_while_still(process.pid)
        self.stop(process)

    def test_nor_does_one_while_a_worker_stands_still(self):
        self.settings = "workers: 2\n"
        process = self.start()
        self.manager.hears("READY=1")
        self.until(lambda: len(workers(process)) == 2)
        for worker in workers(process):
            self.is_not_fed_while_still(worker)
        self.stop(process)

    def test_all_threads_have_given_up_what_is_not_needed(self):
        process = self.start()
        self.manager.hears("READY=1")
        for thread in threads(process):
            held = privileges(thread)
            self.assertEqual((held["CapPrm"] & ~AGENT, held["CapBnd"] & ~AGENT), (0, 0))
            self.assertEqual((held["CapInh"], held["CapAmb"], held["NoNewPrivs"]), (0, 0, 1))
        self.stop(process)

    @unittest.skipUnless(platform.machine() == "x86_64", "numbers of another processor")
    def test_workers_without_the_processors_that_are_asked_for_are_refused(self):
        config = self.directory / "agent.yaml"
        config.write_text("ports:\n  - {name: west, kind: packet, addresses: [10.0.1.1/24]}\ncpus: [0]\n")
        done = subprocess.run([agent.AGENT, "run", str(config), "--live", *(["--plugin", agent.PLUGIN] if agent.PLUGIN else [])],
                              capture_output=True, text=True, timeout=live.DEADLINE, check=False,
                              preexec_fn=without_choice_of_processors)
        self.assertEqual((done.returncode, done.stderr),
                         (2, f"ovix-agent: {config}: cpus: this process may not choose processors: "
                             "Operation not permitted\n"))

    @unittest.skipUnless(live.others_may_run(agent.AGENT), "others may not run the programs")
    def test_an_agent_of_another_user_forwards_with_the_capabilities_of_its_unit(self):
        os.chmod(self.directory, 0o777)
        # Memory of AF_XDP is locked: the unit raises the limit, which not every machine lets a test do.
        capabilities = "-all,+net_admin,+net_raw,+bpf,+ipc_lock"
        user = ["setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups",
                f"--inh-caps={capabilities}", f"--ambient-caps={capabilities}"]
        config = self.directory / "agent.yaml"
        config.write_text("ports:\n  - {name: west, kind: packet, addresses: [10.0.1.1/24]}\n"
                          "  - {name: east, kind: xdp, addresses: [10.0.2.1/24]}\n")
        config.chmod(0o644)
        process = subprocess.Popen(
            ["ip", "netns", "exec", self.router, *user,
             agent.AGENT, "run", str(config), "--live", "--carrier", "--json",
             *(["--plugin", agent.PLUGIN] if agent.PLUGIN else [])],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        self.manager.hears("STATUS=forwarding on 2 of 2 ports")
        self.assertEqual(privileges(process.pid)["CapPrm"], 1 << 12 | 1 << 13 | 1 << 14 | 1 << 39)
        self.stop(process)


class ListenerService(unittest.TestCase):
    def test_the_listener_is_ready_when_it_listens(self):
        manager = Manager(self)
        with tempfile.TemporaryDirectory() as tables:
            os.chmod(tables, 0o750)
            process = subprocess.Popen(
                [os.environ["OVIX_FPM"], "--tables", "service", "--listen", f"127.0.0.1:{20000 + os.getpid() % 10000}"],
                env={**os.environ, **manager.environment, "OVIX_TABLES_DIR": tables},
                stderr=subprocess.PIPE, text=True)
            self.addCleanup(process.communicate)
            self.addCleanup(process.kill)
            self.assertIn("STATUS=waiting for zebra", manager.hears("READY=1"))
            manager.hears("WATCHDOG=1")
            held = privileges(process.pid)
            self.assertEqual((held["CapPrm"] & ~LISTENER, held["NoNewPrivs"]), (0, 1))
            process.send_signal(signal.SIGTERM)
            manager.hears("STOPPING=1")
            self.assertEqual(process.wait(live.DEADLINE), 0)


if __name__ == "__main__":
    unittest.main()
