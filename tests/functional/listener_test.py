"""Who may take zebra's place."""

import pathlib
import shutil
import subprocess
import tempfile
import time
import unittest

import listener


class Peers(listener.ListenerTest):
    def refused(self, *arguments: str) -> str:
        done = subprocess.run([listener.FPM, "--tables", self.tables, *arguments],
                              capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 2)
        return done.stderr

    def test_other_hosts_only_when_that_is_asked_for(self):
        self.assertIn("--listen: 0.0.0.0:2620 can be reached from other hosts",
                      self.refused("--listen", "0.0.0.0:2620"))
        self.assertIn('--peer: there is no user "no-such-user"',
                      self.refused("--peer", "no-such-user"))
        process = self.listen("--peer", "any", stderr=subprocess.DEVNULL)
        self.zebra()
        self.end(process)


class Metrics(listener.ListenerTest):
    def value(self, series: str) -> float:
        for line in listener.fetch(self.path).splitlines():
            if line.startswith(series + " "):
                return float(line.rsplit(" ", 1)[1])
        raise KeyError(series)

    def until(self, met) -> None:
        end = time.monotonic() + listener.DEADLINE
        while not met():
            self.assertLess(time.monotonic(), end)
            time.sleep(0.02)

    def test_they_say_how_it_stands_with_zebra(self):
        directory = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, directory)
        self.path = directory / "metrics.sock"
        process = self.listen("--metrics", str(self.path), stderr=subprocess.DEVNULL)
        self.until(self.path.exists)
        self.assertEqual(self.value("ovix_fpm_connected"), 0)
        self.assertEqual(self.value("ovix_fpm_heard_timestamp_seconds"), 0)
        zebra = self.zebra()
        self.until(lambda: self.value("ovix_fpm_connected") == 1)
        zebra.sendall(listener.refused_route(1) + listener.refused_route(2))
        self.until(lambda: self.value('ovix_fpm_messages_total{kind="routes"}') == 2)
        self.assertLess(abs(time.time() - self.value("ovix_fpm_heard_timestamp_seconds")), 30)
        zebra.close()
        self.until(lambda: self.value("ovix_fpm_connected") == 0)
        again = self.zebra()
        again.sendall(listener.refused_route(3))
        self.until(lambda: self.value('ovix_fpm_messages_total{kind="routes"}') == 3)
        self.assertEqual(self.value("ovix_fpm_connections_total"), 2)
        self.end(process)
        self.assertFalse(self.path.exists())

    def test_a_bad_address_is_refused(self):
        done = subprocess.run([listener.FPM, "--tables", self.tables, "--metrics", "host:1"],
                              capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 2)
        self.assertIn('--metrics: "host:1" is not [ADDRESS:]PORT or /PATH', done.stderr)


if __name__ == "__main__":
    unittest.main()
