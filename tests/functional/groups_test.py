"""Who may read and who may change what belongs to the user of the packages."""

import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

import agent
import live

SERVICE, READERS, ADMINS = 64001, 64001, 64002
USERS = {"ovix": (SERVICE, READERS, ADMINS), "reader": (64003, 64003, READERS),
         "admin": (64004, 64004, READERS, ADMINS), "stranger": (64005, 64005)}

# In a mount namespace: the accounts, and a system's directories for tables and sockets.
WORLD = """
set -e
mount --bind {directory}/passwd /etc/passwd
mount --bind {directory}/group /etc/group
mount -t tmpfs none /dev/shm
mount -t tmpfs none /run
mkdir -m 755 /run/ovix; mkdir -m 750 /dev/shm/ovix
chown {service}:{service} /run/ovix /dev/shm/ovix
echo ready
exec sleep 600
"""


def may_make_a_world() -> bool:
    return os.geteuid() == 0 and subprocess.run(
        ["unshare", "--mount", "mount", "-t", "tmpfs", "none", "/run"], capture_output=True,
        check=False).returncode == 0


@unittest.skipUnless(may_make_a_world(), "needs root and mount namespaces")
@unittest.skipUnless(live.others_may_run(os.environ["OVIX_CTL"]), "others may not run the programs")
class Groups(unittest.TestCase):
    def setUp(self):
        self.directory = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.directory)
        self.directory.chmod(0o755)
        self.write_accounts()
        self.world = subprocess.Popen(
            ["unshare", "--mount", "sh", "-c",
             WORLD.format(directory=self.directory, service=SERVICE)],
            stdout=subprocess.PIPE, text=True)
        self.addCleanup(self.world.communicate)
        self.addCleanup(self.world.kill)
        self.assertEqual(self.world.stdout.readline(), "ready\n")

    def write_accounts(self):
        passwd = pathlib.Path("/etc/passwd").read_text()
        group = pathlib.Path("/etc/group").read_text()
        passwd += f"ovix:x:{SERVICE}:{READERS}::/:/bin/false\n"
        group += f"ovix:x:{READERS}:reader,admin\novix-admin:x:{ADMINS}:ovix,admin\n"
        (self.directory / "passwd").write_text(passwd)
        (self.directory / "group").write_text(group)

    def command(self, user: str, *words: str) -> list[str]:
        number, group, *others = USERS[user]
        return ["nsenter", f"--mount=/proc/{self.world.pid}/ns/mnt", "setpriv",
                f"--reuid={number}", f"--regid={group}",
                f"--groups={','.join(map(str, others or [group]))}", "env", "-u", "XDG_RUNTIME_DIR",
                *(["OVIX_TABLES_DIR=/dev/shm/ovix", "OVIX_RUNTIME_DIR=/run/ovix"]
                  if user == "ovix" else []), *words]

    def ctl(self, user: str, *words: str) -> subprocess.CompletedProcess:
        return subprocess.run(self.command(user, os.environ["OVIX_CTL"], "--tables", "lab", *words),
                              capture_output=True, text=True, check=False, timeout=live.DEADLINE)

    def done(self, user: str, *words: str) -> str:
        finished = self.ctl(user, *words)
        self.assertEqual(finished.returncode, 0, finished.stderr)
        return finished.stdout

    def refused(self, user: str, *words: str) -> str:
        finished = self.ctl(user, *words)
        self.assertEqual(finished.returncode, 1, finished.stdout)
        return finished.stderr

    def test_readers_read_tables_and_admins_write_them(self):
        route = ("100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.done("ovix", "--create", "lfib", "add", *route)
        self.done("admin", "lfib", "add", "101", *route[1:])
        for user in ("reader", "admin", "ovix"):
            self.assertIn("101", self.done(user, "lfib", "show"))
        self.refused("reader", "lfib", "add", "102", *route[1:])
        self.refused("stranger", "lfib", "show")
        self.done("ovix", "lfib", "del", "101")
        self.assertNotIn("101", self.done("reader", "lfib", "show"))

    def test_readers_ask_an_agent_and_admins_clear_its_counters_and_trace(self):
        config = self.directory / "agent.yaml"
        config.write_text("ports:\n  - {name: west, kind: tap, mac: '02:00:00:00:00:01'}\n")
        config.chmod(0o644)
        os.mkfifo(self.directory / "in.fifo")
        (self.directory / "in.fifo").chmod(0o666)
        (self.directory / "out").mkdir(0o777)
        (self.directory / "out").chmod(0o777)
        process = subprocess.Popen(
            self.command("ovix", agent.AGENT, "run", str(config), "--tables", "lab", "--create",
                         "--in", f"west={self.directory}/in.fifo", "--out",
                         str(self.directory / "out"), "--plugin", os.environ["OVIX_PLUGIN"]),
            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        with open(self.directory / "in.fifo", "wb") as frames:
            frames.write(bytes.fromhex("d4c3b2a1020004000000000000000000ffff000001000000"))
            frames.flush()
            end = pathlib.Path("/proc", str(self.world.pid), "root", "run", "ovix", "lab.sock")
            live.NamespaceTest.until(self, end.exists)
            for user in ("reader", "admin"):
                self.assertEqual(json.loads(self.done(user, "status", "--json"))["run"], "captures")
            self.done("admin", "counters", "clear")
            for words in (("counters", "clear"), ("trace", "start")):
                self.assertIn("only members of ovix-admin may", self.refused("reader", *words))
            self.assertIn("denied", self.refused("stranger", "status"))


if __name__ == "__main__":
    unittest.main()
