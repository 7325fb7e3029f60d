"""Live ports while things fail on purpose: afterwards everything goes on, and nothing stays in use."""

import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import time
import unittest

import agent
import faults
from live import DEADLINE, LiveTest, ip
from running_agent import ask

# What a call that is not here fails with.
USUAL_ERROR = "ENOMEM"
ERRORS = {"poll": "EINTR", "epoll_wait": "EINTR", "recvmsg": "ENOBUFS", "recvfrom": "ECONNRESET",
          "sendmmsg": "ENOBUFS", "sendto": "ENOBUFS", "accept4": "EMFILE", "read": "EIO",
          "getsockopt": "ENOBUFS", "clock_gettime": "EINVAL"}
# Memory of the process, and an end that does not come; no calls of ports.
OTHER_CALLS = {"brk", "madvise", "exit_group", "futex", "restart_syscall", "munmap", "close"}
# In the start of a run: how often each may be made to fail, at the most.
STARTING_CALLS = {"socket": 4, "bind": 3, "setsockopt": 4, "ioctl": 2, "getsockopt": 1,
                  "sendto": 2, "recvmsg": 2, "epoll_create1": 1, "signalfd4": 1, "listen": 1,
                  "epoll_ctl": 1}
XDP_CALLS = {"bpf": 4, "socket": 2, "setsockopt": 2, "bind": 1}


class LiveFaults(LiveTest):
    def start(self, extra: str = "", kind: str = "packet") -> subprocess.Popen:
        process = super().start(extra, kind)
        self.until(lambda: faults.program_of(process.pid) > 0)
        self.program = faults.program_of(process.pid)
        return process

    def status(self, path: pathlib.Path | None = None) -> dict:
        return ask(path or self.path, "status")

    def is_answering(self, path: pathlib.Path | None = None) -> bool:
        try:
            return self.status(path)["ok"]
        except OSError:
            return False

    def change_tables(self, label: int = 100) -> None:
        self.ctl("lfib", "add", str(label), "as", "200", "via", "inet", "10.0.2.2", "dev", "east")

    def everything(self) -> None:
        """Frames, an address that has to be asked for, a request, a change of a link."""
        self.is_answering()
        ip("-n", self.router, "link", "set", "west", "mtu", "1400")
        ip("-n", self.router, "link", "set", "west", "mtu", "1500")
        ip("-n", self.router, "neigh", "flush", "dev", "east")
        self.datagrams(1)

    def everything_until_a_frame_arrives(self) -> None:
        self.everything()
        self.until(lambda: self.datagrams(1) == 1)

    def expect_all_is_well(self, frames: int = 5) -> None:
        self.until(lambda: self.datagrams(1) == 1)
        self.assertEqual(self.datagrams(frames), frames)
        self.until(self.is_answering)

    @unittest.skipIf(faults.is_sanitized(), "the sanitizer makes calls of its own")
    def test_every_call_of_a_run_may_fail_once(self):
        process = self.start()
        self.learn_neighbours()
        self.change_tables()
        log = self.directory / "calls"
        calls = faults.calls_of(self.program, log, self.everything_until_a_frame_arrives)
        failed = []
        before = faults.settled_descriptors(self.program)
        for call in sorted(set(calls) - OTHER_CALLS):
            error = ERRORS.get(call, USUAL_ERROR)
            with self.subTest(call=call, error=error):
                with faults.Failing(self.program, call, error, log) as failing:
                    end = time.monotonic() + DEADLINE
                    while not failing.has_failed() and process.poll() is None:
                        self.everything()
                        if time.monotonic() > end:
                            break
                    self.assertTrue(failing.has_failed())
                self.assertIsNone(process.poll())
                self.until(lambda: self.datagrams(1) == 1 and self.is_answering())
                failed.append(call)
        print("failed once:", " ".join(failed))
        self.assertLessEqual({"poll", "sendmmsg", "recvmsg", "sendto"}, set(failed))
        self.assertEqual(faults.settled_descriptors(self.program), before)
        self.stop(process)

    def start_with_a_failure(self, call: str, number: int, kind: str) -> bool:
        """Whether there was such a call. The run ends by itself with a reason, or does its work."""
        log, config = self.directory / "calls", self.directory / "agent.yaml"
        config.write_text(f"ports: [{{name: west, kind: {kind}}}, {{name: east, kind: {kind}}}]\n")
        control = self.directory / f"{kind}-{call}-{number}.sock"
        command = ["ip", "netns", "exec", self.router, "strace", "-f", "-o", str(log), "-e",
                   f"trace={call}", "-e", f"inject={call}:error={USUAL_ERROR}:when={number}",
                   agent.AGENT, "run", str(config), "--live", "--json", "--control", str(control)]
        if agent.PLUGIN:
            command += ["--plugin", agent.PLUGIN]
        with self.subTest(call=call, number=number, kind=kind), \
             subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              text=True) as process:
            try:
                self.until(lambda: process.poll() is not None or self.is_answering(control))
                if process.poll() is None:
                    os.kill(faults.program_of(process.pid), signal.SIGTERM)
                stdout, stderr = process.communicate(timeout=DEADLINE)
            finally:
                process.kill()
            self.assertIn(process.returncode, (0, 1), stderr)
            if process.returncode == 1:
                self.assertRegex(stderr, "^ovix-agent: ")
            else:
                self.assertTrue(json.loads(stdout)["balanced"])
        return "(INJECTED)" in log.read_text()

    @unittest.skipIf(faults.is_sanitized(), "the sanitizer makes calls of its own")
    def test_every_call_of_the_start_may_fail_once(self):
        for kind, calls in (("packet", STARTING_CALLS), ("xdp", XDP_CALLS)):
            for call, most in calls.items():
                number = 1
                while number <= most and self.start_with_a_failure(call, number, kind):
                    number += 1
                self.assertGreater(number, 1, f"{call} is not made")

    def ask(self, client: socket.socket) -> None:
        client.connect(str(self.path))
        client.sendall(b'{"command": "status"}\n')
        client.settimeout(10)

    def hold_the_last_descriptor(self) -> socket.socket:
        faults.limit(self.program, "nofile", str(faults.settled_descriptors(self.program)))
        idle = socket.socket(socket.AF_UNIX)
        self.addCleanup(idle.close)
        idle.connect(str(self.path))
        time.sleep(0.2)
        return idle

    def test_without_descriptors_requests_are_answered_one_after_the_other(self):
        process = self.start()
        self.expect_all_is_well()
        faults.limit(self.program, "nofile", str(faults.settled_descriptors(self.program)))
        for _ in range(40):
            with socket.socket(socket.AF_UNIX) as client:
                self.ask(client)
                self.assertTrue(client.recv(65536).startswith(b'{"ok":true'))
        self.stop(process)

    def test_without_descriptors_frames_go_on_and_further_requests_wait(self):
        process = self.start()
        self.expect_all_is_well()
        before = faults.settled_descriptors(self.program)
        idle = self.hold_the_last_descriptor()
        with socket.socket(socket.AF_UNIX) as client:
            self.ask(client)
            self.assertEqual(self.datagrams(20), 20)
            spent = faults.processor_seconds(self.program)
            time.sleep(2)
            spent = faults.processor_seconds(self.program) - spent
            self.assertLess(spent, 1, "it does not sleep")
            idle.close()
            self.assertTrue(client.recv(65536).startswith(b'{"ok":true'))
        faults.limit(self.program, "nofile", "1024")
        self.expect_all_is_well()
        self.until(lambda: faults.descriptors(self.program) == before)
        self.stop(process)

    def test_a_request_that_no_descriptor_was_left_for_is_answered_in_steady_traffic(self):
        process = self.start()
        self.learn_neighbours()
        sender = self.host(self.west, """
import socket, time
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
while True: s.sendto(b"x", ("10.0.2.2", 7000)); time.sleep(0.005)""")
        self.addCleanup(sender.communicate)
        self.addCleanup(sender.kill)
        self.hold_the_last_descriptor()
        with socket.socket(socket.AF_UNIX) as client:
            self.ask(client)
            time.sleep(0.3)
            faults.limit(self.program, "nofile", "1024")
            self.assertTrue(client.recv(65536).startswith(b'{"ok":true'))
        self.stop(process)

    @unittest.skipIf(faults.is_sanitized(), "the sanitizer needs its address space")
    def test_without_more_memory_frames_go_on(self):
        process = self.start()
        self.expect_all_is_well()
        self.change_tables()
        self.assertEqual(self.labelled(100, 20), 20)
        faults.limit(self.program, "as", str(faults.status(self.program, "VmSize") * 1024))
        self.assertEqual(self.labelled(100, 50), 50)
        self.assertEqual(self.datagrams(20), 20)
        faults.limit(self.program, "as", "unlimited")
        self.expect_all_is_well()
        self.stop(process)

    def test_one_that_was_stopped_goes_on_by_the_newest_tables(self):
        process = self.start()
        self.learn_neighbours()
        self.change_tables()
        self.assertEqual(self.labelled(100, 5), 5)
        os.kill(self.program, signal.SIGSTOP)
        for label in range(101, 121):
            self.change_tables(label)
        self.ctl("lfib", "del", "100")
        self.assertEqual(self.labelled(120, 100), 0)  # nobody forwards, and the frames wait
        os.kill(self.program, signal.SIGCONT)
        self.until(lambda: self.status()["frames"]["forwarded"] >= 105)
        self.assertEqual(self.labelled(120, 5), 5)
        self.assertEqual(self.labelled(100, 3), 0)
        self.stop(process)

    @unittest.skipUnless(faults.FAKETIME, "needs libfaketime")
    @unittest.skipIf(faults.is_sanitized(), "the sanitizer must be loaded first")
    def test_a_clock_that_is_set_back_an_hour_disturbs_nothing(self):
        clock = faults.Clock(self.directory)
        with clock.programs():
            process = self.start()
        self.expect_all_is_well()
        for label, offset in ((100, "+0"), (101, "-3600"), (102, "+3600")):
            clock.set(offset)
            with clock.programs():
                self.change_tables(label)
            self.assertEqual(self.labelled(label, 20), 20)
            ip("-n", self.router, "neigh", "flush", "dev", "east")
            self.expect_all_is_well(20)
        self.stop(process)

    def test_an_interface_that_flaps_is_used_again(self):
        process = self.start()
        self.expect_all_is_well()
        before = faults.settled_descriptors(self.program)
        memory = faults.status(self.program, "VmRSS")
        flaps = "link set east down\nlink set east up\n" * 100
        subprocess.run(["ip", "-n", self.router, "-batch", "-"], input=flaps, text=True, check=True)
        self.expect_all_is_well(20)
        self.assertEqual(faults.settled_descriptors(self.program), before)
        self.assertLess(faults.status(self.program, "VmRSS"), memory + 4096)
        self.stop(process)

    def test_an_interface_that_is_moved_away_and_back_is_used_again(self):
        process = self.start()
        self.expect_all_is_well()
        before = faults.settled_descriptors(self.program)
        ip("-n", self.router, "link", "set", "east", "netns", self.west)
        self.assertEqual(self.datagrams(3), 0)
        self.assertIsNone(process.poll())
        ip("-n", self.west, "link", "set", "east", "netns", self.router)
        ip("-n", self.router, "addr", "add", "10.0.2.1/24", "dev", "east")
        ip("-n", self.router, "link", "set", "east", "up")
        self.expect_all_is_well(20)
        self.assertEqual(faults.settled_descriptors(self.program), before)
        self.stop(process)


if __name__ == "__main__":
    unittest.main()
