"""Label tables that another process publishes while the agent forwards."""

import json
import os
import subprocess
import threading
import unittest

from agent import AGENT, NO_VIA_SET, PORTS, lfib, mpls, routes, sent, via
from running_agent import CTL, RunningAgent, SharedTablesTest, top_label

DROPPED = "No labels resolved to via sets, and nexthop not resolved"


def swap_all(labels: range, out: int) -> str:
    """Every label swapped to the same one."""
    return PORTS + lfib(transit={label: routes(via("swap", [out])) for label in labels})


class SharedTables(SharedTablesTest):
    def test_the_tables_come_from_shared_memory_and_not_from_the_configuration(self):
        self.load(swap_all(range(100, 101), 200))
        agent = self.start(swap_all(range(100, 102), 999))
        agent.send_and_wait(mpls([100]), mpls([101]))
        result = agent.stop()
        self.assertEqual(result.sent(), {"east": [sent([(200, 0, 63)])]})
        self.assertTrue(result.json["balanced"])
        self.assertEqual(result.json["tables"]["name"], self.tables)

    def test_an_agent_that_is_there_before_any_tables_waits_for_them(self):
        agent = self.start()
        agent.send_and_wait(mpls([100]))
        self.ctl("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        agent.send_and_wait(mpls([100]))
        result = agent.stop()
        self.assertEqual(result.sent(), {"east": [sent([(200, 0, 63)])]})
        self.assertEqual(result.json["dropped"]["frames"], 1)

    def test_tables_that_do_not_exist_are_refused_unless_they_are_to_be_made(self):
        (self.directory / "agent.yaml").write_text(PORTS)
        done = subprocess.run([AGENT, "run", str(self.directory / "agent.yaml"), "--live",
                               "--tables", self.tables], capture_output=True, text=True,
                              check=False)
        self.assertEqual(done.returncode, 1)
        self.assertIn(f'tables "{self.tables}" do not exist; a run or an ovixctl with "--create" makes', done.stderr)
        self.assertFalse(self.memory.exists())

    def test_a_misspelt_name_makes_no_tables(self):
        route = ("lfib", "add", "100", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        for words in (route, ("lfib", "load", "/dev/null"), ("lfib", "replace", *route[2:])):
            done = subprocess.run([CTL, "--tables", self.tables, *words], capture_output=True,
                                  text=True, check=False)
            self.assertEqual(done.returncode, 1)
            self.assertIn("do not exist; lfib add and lfib load with \"--create\" make them",
                          done.stderr)
            self.assertFalse(self.memory.exists())
        subprocess.run([CTL, "--tables", self.tables, *route, "--create"], check=True,
                       capture_output=True)
        subprocess.run([CTL, "--tables", self.tables, "lfib", "del", "100"], check=True,
                       capture_output=True)

    def test_tables_that_were_cut_short_are_not_called_absent(self):
        self.load(swap_all(range(100, 101), 200))
        os.truncate(self.memory, 0)
        shown = subprocess.run([CTL, "--tables", self.tables, "lfib", "show"], capture_output=True, text=True,
                               check=False)
        self.assertEqual(shown.returncode, 1)
        self.assertIn(f'tables "{self.tables}" have no header: they are being made, or were cut short; '
                      '"ovixctl tables repair" makes them usable again', shown.stderr)

    def test_each_frame_goes_by_the_tables_as_they_are_when_it_comes(self):
        self.load(swap_all(range(100, 101), 200))
        agent = self.start()
        for out in (201, 202):
            agent.send_and_wait(mpls([100]))
            self.load(swap_all(range(100, 101), out))
        agent.send_and_wait(mpls([100]))
        self.ctl("lfib", "del", "100")
        agent.send_and_wait(mpls([100]))
        result = agent.stop()
        self.assertEqual([top_label(frame) for frame in result.frames("east")], [200, 201, 202])
        self.assertEqual(result.json["dropped"]["frames"], 1)
        self.assertEqual(result.code, 0, result.stderr)

    def test_a_batch_is_never_seen_in_part(self):
        labels = range(1000, 3000)
        self.load(swap_all(labels, 500))
        agent = self.start()
        going_on = threading.Event()

        def keep_sending():
            while not going_on.is_set():
                agent.send(*(mpls([label]) for label in (1000, 2999, 1500, 2500)))

        sender = threading.Thread(target=keep_sending)
        sender.start()
        for out in range(501, 506):
            self.load(swap_all(labels, out))
        going_on.set()
        sender.join()
        out = [top_label(frame) for frame in agent.stop().frames("east")]
        self.assertEqual(out, sorted(out), "a frame went by older tables than one before it")
        self.assertEqual((out[0], out[-1]), (500, 505))

    def test_a_restarted_agent_finds_the_tables_as_they_were(self):
        self.load(swap_all(range(100, 101), 200))
        for _ in range(2):
            agent = self.start()
            agent.send_and_wait(mpls([100]))
            agent.kill()
        agent = self.start()
        agent.send_and_wait(mpls([100]))
        self.assertEqual(agent.stop().sent(), {"east": [sent([(200, 0, 63)])]})

    def test_software_tables_change_too(self):
        def tables(out: int) -> str:
            return PORTS + lfib(decap={100: routes(via("swap", [out]))})
        self.load(tables(200))
        agent = self.start()
        agent.send_and_wait(mpls([100]))
        self.load(tables(300))
        agent.send_and_wait(mpls([100]))
        self.assertEqual([top_label(frame) for frame in agent.stop().frames("east")], [200, 300])


class Counters(SharedTablesTest):
    def labels(self, agent) -> dict[int, int]:
        return {entry["label"]: entry["packets"] for entry in agent.ask("counters")["labels"]}

    def test_a_route_that_is_removed_takes_its_counter_along(self):
        self.load(swap_all(range(100, 102), 200))
        agent = self.start()
        agent.send_and_wait(mpls([100]), mpls([100]), mpls([101]))
        self.assertEqual(self.labels(agent), {100: 2, 101: 1})
        self.ctl("lfib", "del", "100")
        agent.until(lambda: self.labels(agent) == {101: 1})
        self.ctl("lfib", "add", "100", "as", "300", "via", "10.0.2.2", "dev", "east")
        agent.send_and_wait(mpls([100]))
        self.assertEqual(self.labels(agent), {100: 1, 101: 1})
        agent.stop()

    def test_a_route_that_is_replaced_keeps_its_counter(self):
        self.load(swap_all(range(100, 101), 200))
        agent = self.start()
        agent.send_and_wait(mpls([100]))
        before = agent.generation()
        self.load(swap_all(range(100, 101), 201))
        agent.until(lambda: agent.generation() > before)
        self.assertEqual(self.labels(agent), {100: 1})
        agent.stop()

    def test_a_request_clears_them(self):
        self.load(swap_all(range(100, 102), 200))
        agent = self.start()
        agent.send_and_wait(mpls([100]), mpls([101]))
        self.ctl("counters", "clear", "--control", str(agent.path))
        self.assertEqual(self.labels(agent), {100: 0, 101: 0})
        agent.send_and_wait(mpls([101]))
        shown = self.ctl("counters", "show", "--control", str(agent.path))
        self.assertRegex(shown, r"101\s+1\s+\d+")
        agent.stop()


class Repair(SharedTablesTest):
    def test_a_damaged_header_is_repaired_and_what_is_lost_is_told(self):
        self.load(PORTS + lfib(decap={100: routes(via("swap", [200]))}))
        agent = self.start()
        agent.send_and_wait(mpls([100]))
        shown = self.ctl("lfib", "show")
        with open(self.memory, "r+b") as memory:
            memory.seek(40)  # the current generation and the horizon
            memory.write(b"x" * 16)
        refused = self.ctl("lfib", "add", "50", "vrf", "red", code=1)
        self.assertIn("is invalid; \"ovixctl tables repair\" makes the tables usable", refused)
        told = self.ctl("tables", "repair")
        self.assertIn("the horizon was damaged", told)
        self.assertIn("generation 2 is the newest that is whole", told)
        self.assertEqual(self.ctl("lfib", "show"), shown)
        self.assertIn("nothing was damaged", self.ctl("tables", "repair"))
        self.assertEqual(json.loads(self.ctl("tables", "repair", "--json"))["findings"], [])
        agent.send_and_wait(mpls([100]))  # goes on
        agent.stop()

    def test_an_agent_survives_a_file_that_is_cut_short(self):
        self.load(PORTS + lfib(decap={100: routes(via("swap", [200])),
                                      101: routes(via("swap", [200]))}))
        agent = self.start()
        agent.send_and_wait(mpls([100]))
        os.truncate(self.memory, 0)
        agent.send_and_wait(mpls([101]), mpls([100]))
        result = agent.stop()
        self.assertIn("has been cut short", result.stderr)
        self.assertTrue(result.json["balanced"])


    def test_tables_that_are_made_anew_are_gone_over_to(self):
        for ruin in (os.remove, lambda path: os.truncate(path, 0)):
            with self.subTest(ruin=ruin):
                self.load(swap_all(range(100, 102), 200))
                agent = self.start()
                agent.send_and_wait(mpls([100]))
                ruin(self.memory)
                agent.until(lambda agent=agent: agent.ask("status")["tables"]["problem"])
                if self.memory.exists():
                    self.assertIn("cut short", self.ctl("lfib", "add", "99", "vrf", "red", code=1))
                    self.assertIn("cut short to 0 bytes", self.ctl("tables", "repair"))
                self.load(swap_all(range(100, 102), 300))
                agent.until(lambda agent=agent: not agent.ask("status")["tables"]["problem"])
                agent.send_and_wait(mpls([100]), mpls([101]))
                result = agent.stop()
                self.assertEqual([top_label(frame) for frame in result.frames("east")],
                                 [200, 300, 300])
                self.assertIn("gone over to the new file", result.stderr)
                self.assertTrue(result.json["balanced"])
                os.remove(self.memory)

    def test_a_file_cut_behind_its_data_is_not_said_to_be_whole(self):
        self.load(swap_all(range(100, 101), 200))
        shown = self.ctl("lfib", "show")
        os.truncate(self.memory, 1 << 21)
        self.assertIn("the file had been cut short to 2097152 bytes", self.ctl("tables", "repair"))
        self.assertEqual(self.ctl("lfib", "show"), shown)
        self.assertIn("nothing was damaged", self.ctl("tables", "repair"))

    def test_a_copy_with_holes_is_as_whole_as_the_original(self):
        for out in range(200, 230):
            self.load(swap_all(range(100, 400), out))
        shown = self.ctl("lfib", "show")
        copy = self.memory.with_name("copy")
        subprocess.run(["cp", "--sparse=always", "-p", self.memory, copy], check=True)
        os.replace(copy, self.memory)
        self.assertIn("nothing was damaged", self.ctl("tables", "repair"))
        self.assertEqual(self.ctl("lfib", "show"), shown)


class Trouble(SharedTablesTest):
    def flip(self, offset: int, mask: int = 1) -> None:
        with open(self.memory, "r+b") as memory:
            memory.seek(offset)
            value = memory.read(1)[0] ^ mask
            memory.seek(offset)
            memory.write(bytes([value]))

    def test_damage_is_counted_and_hurts_no_other_label(self):
        self.load(PORTS + lfib(decap={101: routes(via("swap", [200]))}))
        self.load(PORTS + lfib(decap={101: routes(via("swap", [200])),
                                      100: routes(via("swap", [200]))}))
        agent = self.start()
        # What is damaged is met first after that: a generation once read stays as it was.
        agent.send_and_wait(mpls([101]), mpls([101]))
        marked = bytes.fromhex("0000c8")  # label 200 as vias carry it
        data = self.memory.read_bytes()[:1 << 21]
        places, at = [], data.find(marked)
        while at >= 0:
            places.append(at)
            at = data.find(marked, at + 1)
        self.flip(places[-1] + 2)  # the route of label 100 was written last
        agent.send_and_wait(mpls([100]), mpls([101]))
        result = agent.stop()
        self.assertEqual(len(result.frames("east")), 3)
        self.assertEqual(result.json["dropped"]["frames"], 1)
        self.assertEqual(result.json["tables"]["corruptions"], 1)
        self.assertIn("the label tables are damaged: 1 times, last: ", result.stderr)
        self.assertIn("is invalid", result.stderr)
        self.assertEqual(result.code, 1)
        self.assertTrue(result.json["balanced"])

    def test_tables_of_another_version_are_refused_by_name(self):
        self.load(swap_all(range(100, 101), 200))
        self.flip(8, 0x40)
        done = subprocess.run([CTL, "--tables", self.tables, "lfib", "show"], capture_output=True,
                              text=True, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertIn("tables of version 69, not 5", done.stderr)
        agent = RunningAgent(self.directory, PORTS, self.tables, wait=False)
        self.addCleanup(agent.kill)
        _, stderr = agent.process.communicate(timeout=30)
        self.assertEqual(agent.process.returncode, 1)
        self.assertIn("tables of version 69, not 5", stderr)

    def test_two_agents_do_not_answer_at_one_socket(self):
        first = self.start()
        other = self.directory / "other"
        other.mkdir()
        second = RunningAgent(other, PORTS, self.tables, control=first.path, wait=False)
        self.addCleanup(second.kill)
        second.input.write(first.capture_header)
        _, stderr = second.process.communicate(timeout=30)
        self.assertEqual(second.process.returncode, 1)
        self.assertIn("another agent serves it", stderr)
        self.assertTrue(first.ask("status")["ok"])

    def test_requests_that_make_no_sense_are_answered_with_an_error(self):
        agent = self.start()
        self.assertEqual(agent.ask("dance"),
                         {"ok": False, "error": 'there is no command "dance"'})
        agent.send_and_wait(mpls([100]))
        counters = agent.ask("counters")["counters"]
        self.assertEqual([entry["count"] for entry in counters
                          if (entry["category"], entry["reason"]) == NO_VIA_SET], [4])
        self.assertEqual(agent.stop().json["dropped"]["reasons"], {DROPPED: 1})


if __name__ == "__main__":
    unittest.main()
