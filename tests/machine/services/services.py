"""The packages under systemd, as README.md and docs/install.md have it: in a machine of its own, as root."""

import os
import pathlib
import re
import signal
import subprocess
import sys
import time
import unittest

from in_machine import block_after, run, shell, shown, until

MACS = {"eth0": "02:00:00:00:00:01", "eth9": "02:00:00:00:00:02"}
AGENT = "ovix-agent@ovix"
README = block_after("README.md", "Or as packages")


def main_pid(unit: str) -> int:
    return int(shown(unit, "MainPID"))


def status_of(process: int) -> dict[str, str]:
    return dict(re.findall(r"^(\w+):\s+(\S+)", pathlib.Path(f"/proc/{process}/status").read_text(), re.MULTILINE))


def as_user(user: str, *command) -> subprocess.CompletedProcess:
    return run("setpriv", f"--reuid={user}", f"--regid={user}", "--init-groups", *command, check=False)


class Services(unittest.TestCase):
    """In the order of their numbers, since a machine boots once."""

    def test_1_the_packages_install_without_a_network_and_start_nothing(self):
        shell(README[0].replace("./run package && apt", "apt-get -y -qq").replace("./build/package", "./packages"))
        self.assertIn("ovix-admin", run("id", "-nG", "ovix").stdout)
        for directory, mode in (("/run/ovix", 0o755), ("/dev/shm/ovix", 0o750)):
            found = os.stat(directory)
            self.assertEqual((found.st_mode & 0o777, found.st_uid), (mode, int(run("id", "-u", "ovix").stdout)))
        for unit in (AGENT, "ovix-fpm"):
            self.assertEqual(run("systemctl", "is-active", unit, check=False).stdout.strip(), "inactive")

    def test_2_a_router_starts_as_the_readme_says(self):
        for name, mac in MACS.items():
            run("ip", "link", "add", name, "address", mac, "numrxqueues", "2", "numtxqueues", "2", "type", "veth",
                "peer", "name", f"{name}h", "numrxqueues", "2", "numtxqueues", "2")
            run("ip", "link", "set", name, "up")
            run("ip", "link", "set", f"{name}h", "up")
        run("ip", "addr", "add", "192.0.2.1/24", "dev", "eth0")
        printed = "".join(shell(line) for line in README[1:])
        self.assertRegex(printed, r"run +live\n(.*\n)*forwarded")
        self.assertEqual(shown(AGENT, "StatusText"), "forwarding on 1 of 1 ports")

    def test_3_both_run_as_a_user_who_has_only_what_they_need(self):
        for unit, capabilities in ((AGENT, 1 << 12 | 1 << 13 | 1 << 39), ("ovix-fpm", 0)):
            held = status_of(main_pid(unit))
            self.assertEqual(pathlib.Path(f"/proc/{main_pid(unit)}").stat().st_uid, int(run("id", "-u", "ovix").stdout))
            for name in ("CapPrm", "CapEff", "CapBnd"):
                self.assertEqual(int(held[name], 16) & ~capabilities, 0, f"{unit} {name}")
            self.assertEqual((held["NoNewPrivs"], held["Seccomp"]), ("1", "2"))

    def test_4_a_packet_loop_that_stands_still_is_started_again(self):
        first = main_pid(AGENT)
        os.kill(first, signal.SIGSTOP)
        until("another agent", lambda: main_pid(AGENT) not in (0, first) and
              run("ovixctl", "status", "--quiet", check=False).returncode == 0)
        self.assertEqual(shown(AGENT, "NRestarts"), "1")

    def test_5_reload_takes_a_configuration_and_keeps_the_old_one_of_two(self):
        pathlib.Path("/etc/ovix/ovix.yaml").write_text(
            "ports: [{name: eth0, kind: packet, addresses: [192.0.2.1/24]}]\nneighbours:\n"
            "- {address: 192.0.2.9, port: eth0, mac: '02:00:00:00:00:99'}\n")
        before = main_pid(AGENT)
        run("systemctl", "reload", AGENT)
        until("the neighbour", lambda: "192.0.2.9" in run("ovixctl", "neighbour", "show").stdout)
        pathlib.Path("/etc/ovix/ovix.yaml").write_text("ports: [{name: eth0, kind: carrier pigeon}]\n")
        run("systemctl", "reload", AGENT, check=False)
        until("the refusal in the journal", lambda: "carrier pigeon" in run(
            "journalctl", "-u", AGENT, "--no-pager").stdout)
        self.assertEqual(main_pid(AGENT), before)
        self.assertIn("192.0.2.9", run("ovixctl", "neighbour", "show").stdout)

    def test_6_readers_read_and_admins_change(self):
        for user, groups in (("alice", "ovix"), ("bob", "ovix,ovix-admin"), ("mallory", "")):
            run("useradd", user)
            if groups:
                run("usermod", "--append", "--groups", groups, user)
        add = ("ovixctl", "lfib", "add", "100", "as", "200", "via", "inet", "192.0.2.9", "dev", "eth0")
        self.assertNotEqual(as_user("alice", *add).returncode, 0)
        done = as_user("bob", *add)
        self.assertEqual(done.returncode, 0, done.stderr)
        for user in ("alice", "bob"):
            self.assertIn("100", as_user(user, "ovixctl", "lfib", "show", "transit").stdout)
            self.assertEqual(as_user(user, "ovixctl", "status", "--quiet").returncode, 0)
        self.assertIn("ovix-admin", as_user("alice", "ovixctl", "counters", "clear").stderr)
        self.assertEqual(as_user("bob", "ovixctl", "counters", "clear").returncode, 0)
        for command in (("lfib", "show"), ("status",)):
            self.assertNotEqual(as_user("mallory", "ovixctl", *command).returncode, 0)

    def test_7_workers_have_their_processors_and_feed_the_watchdog_under_the_same_filters(self):
        pathlib.Path("/etc/ovix/ovix.yaml").write_text(
            "ports:\n- {name: eth0, kind: packet, addresses: [192.0.2.1/24]}\n"
            "- {name: eth9, kind: xdp, addresses: [198.51.100.1/24]}\nworkers: 2\ncpus: [0, 1]\n")
        run("systemctl", "restart", AGENT)
        self.assertEqual(shown(AGENT, "StatusText"), "forwarding on 2 of 2 ports")
        first = main_pid(AGENT)
        threads = [status_of(int(thread.name)) for thread in pathlib.Path(f"/proc/{first}/task").iterdir()]
        self.assertEqual({thread["Seccomp"] for thread in threads}, {"2"})
        pinned = [thread["Cpus_allowed_list"] for thread in threads]
        self.assertEqual((pinned.count("0"), pinned.count("1")), (1, 1), pinned)
        time.sleep(25)  # more than twice the watchdog's time
        self.assertEqual((main_pid(AGENT), run("ovixctl", "status", "--quiet", check=False).returncode), (first, 0))
        os.kill(first, signal.SIGSTOP)
        until("another agent", lambda: main_pid(AGENT) not in (0, first))

    def test_8_stopped_it_prints_the_balance(self):
        run("systemctl", "stop", AGENT)
        self.assertEqual(shown(AGENT, "Result"), "success")
        self.assertRegex(run("journalctl", "-u", AGENT, "--no-pager").stdout, r"in +\d+ +\d+")

    def test_9_removed_while_it_runs_it_ends_and_purged_it_leaves_what_was_written(self):
        run("systemctl", "start", AGENT)
        packages = ("ovix-agent", "ovix-fpm", "ovixctl", "ovix-common")
        run("apt-get", "remove", "-y", "-qq", *packages)
        self.assertEqual(run("pgrep", "-u", "ovix", check=False).stdout, "")
        self.assertTrue(pathlib.Path("/etc/default/ovix-agent").exists())
        run("dpkg", "--purge", *packages)
        left = shell("ls -d /run/*ovix* /dev/shm/*ovix*; find /etc /usr /lib/systemd /var/lib/systemd -name '*ovix*'; true").split()
        self.assertEqual(left, ["/etc/ovix", "/etc/ovix/ovix.yaml"])


if __name__ == "__main__":
    sys.stderr = sys.stdout
    unittest.main(verbosity=2)
