"""Several owners of one set of tables: zebra by the listener, an operator, and files."""

import os
import random
import signal
import socket
import subprocess
import time
import unittest

import listener
import shared_memory
from ovixctl import EAST
from running_agent import CTL

AF_MPLS, RTA_VIA, RTA_NEWDST, RTM_DELROUTE = 28, 18, 19, 25


def label_route(label: int, out: int, interface: int, withdrawn: bool = False) -> bytes:
    """An FPM frame with the route of a label that is swapped."""
    entry = lambda value: (value << 12 | 1 << 8).to_bytes(4, "big")
    body = listener.struct.pack("=BBBBBBBBI", AF_MPLS, 20, 0, 0, 254, 196, 0, 1, 0)
    body += listener.attribute(listener.RTA_DST, entry(label))
    if not withdrawn:
        via = listener.struct.pack("=H", socket.AF_INET) + socket.inet_aton("192.0.2.2")
        body += listener.attribute(RTA_VIA, via)
        body += listener.attribute(RTA_NEWDST, entry(out))
        body += listener.attribute(listener.RTA_OIF, listener.struct.pack("=I", interface))
    kind = RTM_DELROUTE if withdrawn else listener.RTM_NEWROUTE
    message = listener.struct.pack("=IHHII", 16 + len(body), kind, 0x401, 1, 0) + body
    return listener.struct.pack("!BBH", 1, 1, 4 + len(message)) + message


class Owners(listener.ListenerTest):
    LO = 1  # the loopback's number, in every namespace

    def ctl(self, *words: str, code: int = 0, **more) -> str:
        done = subprocess.run([CTL, "--tables", self.tables, *words], capture_output=True, text=True,
                              check=False, **more)
        self.assertEqual(done.returncode, code, f"{words}: {done.stdout}{done.stderr}")
        return done.stdout + done.stderr

    def transit(self) -> list[str]:
        return self.ctl("lfib", "show", "transit").splitlines()

    def until(self, is_so, what: str):
        end = time.monotonic() + listener.DEADLINE
        while not is_so():
            self.assertLess(time.monotonic(), end, what)
            time.sleep(0.01)

    def test_an_operator_changes_routes_beside_the_listener_which_never_sweeps_them(self):
        process = self.listen("--sweep-after", "0.2", stderr=subprocess.PIPE, text=True)
        zebra = self.zebra()
        zebra.sendall(label_route(100, 200, self.LO) + label_route(101, 201, self.LO))
        zebras = ["transit 100 owner fpm as to 200 via inet 192.0.2.2 dev lo",
                  "transit 101 owner fpm as to 201 via inet 192.0.2.2 dev lo"]
        self.until(lambda: self.transit() == zebras, "zebra's routes are published")
        self.ctl("lfib", "add", "50", "as", "60", *EAST)
        waits = self.ctl("lfib", "replace", "101", "as", "70", *EAST, "preference", "30")
        self.assertEqual(waits, "ovixctl: label 101 is forwarded by the route of fpm; this one waits\n")
        self.ctl("lfib", "replace", "100", "as", "70", *EAST)
        fifty = "transit 50 as to 60 via inet 10.0.2.2 dev east"
        hundred = "transit 100 as to 70 via inet 10.0.2.2 dev east"
        late = "transit 101 preference 30 as to 70 via inet 10.0.2.2 dev east"
        self.assertEqual(self.transit(), [fifty, hundred, zebras[1],
                                          f"# waits for operator: {zebras[0]}",
                                          f"# waits for fpm: {late}"])
        # A new connection that announces only one route: the others of zebra are swept.
        zebra.close()
        zebra = self.zebra()
        zebra.sendall(label_route(100, 202, self.LO))
        self.until(lambda: zebras[1] not in self.transit(), "what is stale is swept")
        self.assertEqual(self.transit(), [
            fifty, hundred, late,
            "# waits for operator: transit 100 owner fpm as to 202 via inet 192.0.2.2 dev lo"])
        self.ctl("lfib", "del", "100")
        self.assertIn("transit 100 owner fpm as to 202 via inet 192.0.2.2 dev lo", self.transit())
        self.assertIn("it is a route of fpm; \"owner fpm\" removes it",
                      self.ctl("lfib", "del", "100", code=1))
        zebra.sendall(label_route(100, 0, self.LO, withdrawn=True))
        self.until(lambda: self.transit() == [fifty, late], "zebra withdraws its own")
        self.end(process)
        self.assertEqual(self.transit(), [fifty, late])

    def test_loading_what_show_has_printed_changes_nothing(self):
        self.listen(stderr=subprocess.DEVNULL)
        self.zebra().sendall(label_route(100, 200, self.LO) + label_route(101, 201, self.LO))
        self.until(lambda: shared_memory.path(self.tables).exists() and len(self.transit()) == 2,
                   "zebra's routes are published")
        self.ctl("lfib", "load", "-", input="100 as 70 dev east\n101 as 71 dev east preference 90\n"
                                            "102 as 72 dev east\n")
        self.ctl("lfib", "add", "102", "as", "80", *EAST)
        self.ctl("lfib", "add", "103", "as", "81", *EAST)
        before = self.ctl("lfib", "show")
        self.assertEqual(before.count("# waits for"), 3)
        loaded = self.ctl("lfib", "load", "-", input=before)
        self.assertIn("0 added, 0 changed, 0 removed", loaded)
        self.assertIn("routes of other owners that were left out: 4", loaded)
        self.assertEqual(self.ctl("lfib", "show"), before)

    def test_two_commands_at_once_both_succeed(self):
        self.listen(stderr=subprocess.DEVNULL)
        self.zebra().sendall(label_route(100, 200, self.LO))
        running = [subprocess.Popen([CTL, "--tables", self.tables, "lfib", "add", str(label), *EAST])
                   for label in range(1000, 1030)]
        self.assertEqual({process.wait(listener.DEADLINE) for process in running}, {0})
        self.until(lambda: len(self.transit()) == 31, "all routes are there")

    def test_a_second_listener_for_the_same_tables_is_refused(self):
        self.listen(stderr=subprocess.DEVNULL)
        self.zebra()
        second = self.listen(stderr=subprocess.PIPE, text=True)
        self.assertEqual(second.wait(listener.DEADLINE), 1)
        self.assertIn("another process publishes routes of this owner", second.stderr.read())

    def test_tables_that_are_removed_are_made_again_and_zebra_asked_for_its_routes(self):
        self.listen(stderr=subprocess.DEVNULL)
        zebra = self.zebra()
        zebra.sendall(label_route(100, 200, self.LO))
        self.until(lambda: shared_memory.path(self.tables).exists() and len(self.transit()) == 1,
                   "the route is published")
        shared_memory.remove(self.tables)
        self.assertEqual(zebra.recv(1), b"", "the connection is closed")
        self.zebra().sendall(label_route(100, 200, self.LO))
        self.until(lambda: len(self.transit()) == 1, "the route is published again")

    def test_a_file_removed_alone_or_cut_and_repaired_is_filled_again_by_zebra(self):
        self.listen(stderr=subprocess.DEVNULL)
        zebra = self.zebra()
        zebra.sendall(label_route(100, 200, self.LO))
        table = shared_memory.path(self.tables)
        self.until(lambda: table.exists() and len(self.transit()) == 1, "the route is published")
        table.unlink()  # its lock stays
        self.assertEqual(zebra.recv(1), b"", "the connection is closed")
        zebra = self.zebra()
        zebra.sendall(label_route(100, 200, self.LO))
        self.until(lambda: len(self.transit()) == 1, "the route is published again")
        os.truncate(table, 4096)
        zebra.sendall(label_route(101, 201, self.LO))
        self.ctl("tables", "repair")
        self.assertEqual(zebra.recv(1), b"", "the connection is closed")
        self.zebra().sendall(label_route(100, 200, self.LO) + label_route(101, 201, self.LO))
        self.until(lambda: len(self.transit()) == 2, "all routes are published again")

    def test_owners_killed_at_any_moment_leave_whole_tables_and_nobodys_routes_lost(self):
        self.listen(stderr=subprocess.DEVNULL)
        zebra = self.zebra()
        zebra.sendall(b"".join(label_route(label, 200, self.LO) for label in range(100, 200)))
        self.until(lambda: shared_memory.path(self.tables).exists() and len(self.transit()) == 100,
                   "zebra's routes are published")
        lines = "".join(f"{label} as 300 via inet 10.0.2.2 dev east\n" for label in range(100, 400))
        chance = random.Random(7)
        added = []
        for turn in range(200):
            label = 5000 + turn
            words, text = ((("load", "-"), lines) if turn % 2 else
                           (("add", str(label), *EAST), None))
            process = subprocess.Popen([CTL, "--tables", self.tables, "lfib", *words],
                                       stdin=subprocess.PIPE, stdout=subprocess.DEVNULL)
            if text:
                process.stdin.write(text.encode())
            process.stdin.close()
            time.sleep(chance.random() * 0.008)
            process.send_signal(signal.SIGKILL)
            if process.wait() == 0 and not text:
                added.append(label)
            zebra.sendall(label_route(100 + turn % 100, 201 + turn, self.LO))
        self.ctl("lfib", "load", "-", input="16 dev east\n")
        zebras = [f"transit {label} owner fpm as to {label + 201} via inet 192.0.2.2 dev lo"
                  for label in range(100, 200)]
        self.until(lambda: [line for line in self.transit() if "owner fpm" in line] == zebras,
                   "each of zebra's routes is there as announced last")
        by_hand = {int(line.split()[1]) for line in self.transit()
                   if line.startswith("transit 5") and "owner" not in line}
        self.assertLessEqual(set(added), by_hand)


if __name__ == "__main__":
    unittest.main()
