"""Who may take zebra's place."""

import subprocess
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


if __name__ == "__main__":
    unittest.main()
