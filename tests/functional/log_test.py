"""A log that cannot be written neither ends a program nor holds it up."""

import contextlib
import os
import pathlib
import signal
import socket
import subprocess
import tempfile
import unittest

import agent
import listener
from live import DEADLINE, LiveTest
from running_agent import CTL


def broken_pipe() -> int:
    """The writing end of a pipe whose reader has gone."""
    reader, writer = os.pipe()
    os.close(reader)
    return writer


class AgentLog(unittest.TestCase):
    def test_refused_configuration_is_reported_by_exit_code_without_a_log(self):
        with tempfile.TemporaryDirectory() as directory:
            config = pathlib.Path(directory, "agent.yaml")
            config.write_text("nonsense: 1\n")
            writer = broken_pipe()
            with open("/dev/full", "wb") as full:
                for log in (full, writer):
                    done = subprocess.run([agent.AGENT, "run", str(config), "--in", "west=none",
                                           "--out", directory], stderr=log, check=False)
                    self.assertEqual(done.returncode, 1)
            os.close(writer)


class NumbersOfARun(LiveTest):
    def test_a_second_signal_ends_one_whose_numbers_nobody_reads(self):
        reader, writer = os.pipe()
        self.addCleanup(os.close, reader)
        self.addCleanup(os.close, writer)
        os.set_blocking(writer, False)
        with contextlib.suppress(BlockingIOError):
            while True:
                os.write(writer, bytes(4096))
        os.set_blocking(writer, True)
        self.config = self.directory / "agent.yaml"
        self.configure()
        process = subprocess.Popen(["ip", "netns", "exec", self.router, agent.AGENT, "run", self.config, "--live",
                                    "--control", self.path], stdout=writer, stderr=subprocess.DEVNULL)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        self.until(self.is_forwarding)
        process.terminate()
        self.until(lambda: "pipe_write" in pathlib.Path(f"/proc/{process.pid}/wchan").read_text())
        process.terminate()
        self.assertEqual(process.wait(DEADLINE), -signal.SIGTERM)


class CommandLog(unittest.TestCase):
    def test_an_error_that_cannot_be_printed_is_an_exit_code(self):
        with open("/dev/full", "wb") as full:
            done = subprocess.run([CTL, "--tables", "no-such-tables", "lfib", "show"], stderr=full,
                                  check=False)
        self.assertEqual(done.returncode, 1)


class ListenerLog(listener.ListenerTest):
    FLOOD = 40_000

    def flood(self) -> None:
        """Routes that are refused, each of which would be a line."""
        zebra = self.zebra()
        for start in range(0, self.FLOOD, 1000):
            zebra.sendall(b"".join(map(listener.refused_route, range(start, start + 1000))))
        zebra.shutdown(socket.SHUT_WR)
        self.assertEqual(zebra.recv(1), b"")  # the listener has read all

    def test_no_room_and_no_reader_for_the_log(self):
        writer = broken_pipe()
        with open("/dev/full", "wb") as full:
            for log in (full, writer):
                process = self.listen(stderr=log)
                self.flood()
                self.assertIsNone(process.poll())
                self.end(process)
        os.close(writer)

    def test_a_log_that_nobody_reads(self):
        process = self.listen("--verbose", stderr=subprocess.PIPE)
        self.addCleanup(process.stderr.close)
        self.flood()
        self.end(process)

    def test_refused_messages_do_not_fill_the_disk(self):
        with tempfile.TemporaryFile() as log:
            process = self.listen(stderr=log)
            self.flood()
            self.end(process)
            log.seek(0)
            text = log.read().decode()
        self.assertLess(len(text), 20_000)
        self.assertRegex(text, "ovix-fpm: refused routes: [0-9]+ more lines left out\n")
        self.assertIn("ovix-fpm: zebra has disconnected; its routes stay\n", text)


if __name__ == "__main__":
    unittest.main()
