"""The operator's command reads label tables in shared memory: show and watch."""

import json
import re
import signal
import subprocess
import threading
import unittest

from agent import PORTS, hardware, lfib, routes, via
from ovixctl import EAST, OvixCtlTest, route_json, via_json
from running_agent import CTL, DEADLINE


class Show(OvixCtlTest):
    def test_every_entry_has_a_line_and_add_takes_those_of_label_routes(self):
        self.load(self.transit(_100="{action: swap, labels: [200, 300], interface: east, nexthop: "
                                    '10.0.2.2, tc: 3}, {action: pop, interface: west, nexthop: '
                                    '"2001:db8:2::2", weight: 10}') +
                  hardware(via("pop"), label=1048575, route=", unprogrammed: true"))
        lines = self.ctl("lfib", "show").splitlines()
        self.assertEqual(lines, [
            "transit 100 nexthop as to 200/300 via inet 10.0.2.2 dev east tc 3 "
            "nexthop via inet6 2001:db8:2::2 dev west weight 10",
            "hardware 1048575 adjacency 1 unprogrammed",
            "adjacency 1 via inet 10.0.2.2 dev east"])
        self.ctl("lfib", "del", "100")
        self.ctl("lfib", "add", *lines[0].split())
        self.assertEqual(self.ctl("lfib", "show", "transit").splitlines(), lines[:1])

    def test_tables_and_labels_narrow_it(self):
        self.load(lfib(decap={100: routes(via("pop"))},
                       transit={100: routes(via("pop")), 101: routes(via("pop"))}) +
                  hardware(via("pop"), label=100))
        self.assertEqual([route["table"] for route in self.show("100")],
                         ["decap", "transit", "hardware", "adjacency"])
        self.assertEqual([route["label"] for route in self.show("transit")], [100, 101])
        self.assertEqual(self.show("transit", "101"), [route_json("transit", 101, via_json())])
        for words, missing in ((("102",), "label 102"), (("decap", "101"),
                                                         "label 101 in table decap"),
                               (("mvpn", "9"), "VRF 9 in table mvpn")):
            self.assertEqual(self.ctl("lfib", "show", *words, code=1),
                             f'ovixctl: tables "{self.tables}" have no {missing}\n')

    def test_tables_that_do_not_exist_are_not_created(self):
        self.file.write_text(PORTS)
        for words, code in ((("show",), 1), (("watch",), 1), (("diff", str(self.file)), 2),
                            (("del", "5"), 1)):
            output = self.ctl("lfib", *words, code=code)
            self.assertIn(f'ovixctl: tables "{self.tables}" do not exist', output)
            self.assertFalse(self.memory.exists())

    def test_damage_is_shown_as_such(self):
        self.load(self.transit(_100=via("swap", [0xabcde]), _101=via("pop")))
        data = bytearray(self.memory.read_bytes()[:1 << 21])
        place = data.index(bytes.fromhex("0abcde"))
        with self.memory.open("r+b") as memory:
            memory.seek(place)
            memory.write(b"\1")
        done = subprocess.run([CTL, "lfib", "show", "--json", "--tables", self.tables],
                              capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr, r"^ovixctl: table transit: label 100: .*is invalid\n$")
        damaged, whole = json.loads(done.stdout)["routes"]
        self.assertEqual((damaged["label"], list(damaged)), (100, ["table", "label", "corrupt"]))
        self.assertEqual(whole, route_json("transit", 101, via_json()))
        table = subprocess.run([CTL, "lfib", "show", "--tables", self.tables], capture_output=True,
                               text=True, check=False).stdout
        self.assertRegex(table, r"transit 100 corrupt: .*is invalid")

    def test_one_show_is_of_one_generation(self):
        """While a writer gives all routes the same out label again and again."""
        def tables(out: int) -> str:
            return lfib(transit={label: routes(via("swap", [out])) for label in range(100, 1100)})
        files = []
        for out in (201, 202):
            files.append(self.directory / f"{out}.yaml")
            files[-1].write_text(PORTS + tables(out))
        self.ctl("lfib", "load", str(files[0]))
        ends = threading.Event()

        def keep_loading():
            while not ends.is_set():
                for path in reversed(files):
                    self.ctl("lfib", "load", str(path))

        writer = threading.Thread(target=keep_loading)
        writer.start()
        try:
            for _ in range(30):
                shown = self.show()
                self.assertEqual(len(shown), 1000)
                self.assertEqual(len({route["vias"][0]["labels"][0] for route in shown}), 1)
        finally:
            ends.set()
            writer.join()


class Watch(OvixCtlTest):
    def watch(self, *words: str) -> subprocess.Popen:
        process = subprocess.Popen([CTL, "lfib", "watch", "--tables", self.tables, *words],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.kill)
        self.assertIn("watching", process.stderr.readline())
        return process

    def test_changes_are_printed_as_they_become_visible(self):
        self.load(self.transit(_100=via("pop"), _101=via("pop")))
        process = self.watch("--count", "4")
        self.load(self.transit(_101=via("swap", [7]), _102=via("pop")))
        lines = [process.stdout.readline() for _ in range(3)]
        self.ctl("lfib", "load", self.write(self.transit(_101=via("swap", [7]))))
        lines += process.communicate(timeout=DEADLINE)[0].splitlines()
        self.assertEqual(process.returncode, 0)
        stamp = r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z"
        expected = [("3", "-transit 100"), ("3", "~transit 101 as to 7 via inet 10.0.2.2 dev east"),
                    ("3", "+transit 102 via inet 10.0.2.2 dev east"), ("4", "-transit 102")]
        self.assertEqual(len(lines), 4)
        for line, (generation, change) in zip(lines, expected):
            self.assertRegex(line, f"^{generation} {stamp} {re.escape(change)}$")

    def test_json_is_an_object_per_line_until_a_signal(self):
        self.load("")
        for number in (signal.SIGINT, signal.SIGTERM):
            process = self.watch("--json")
            self.ctl("lfib", "add", "100", "table", "decap", *EAST)
            added = json.loads(process.stdout.readline())
            self.assertEqual((added["change"], added["route"]),
                             ("added", route_json("decap", 100, via_json())))
            self.ctl("lfib", "del", "100", "table", "decap")
            removed = json.loads(process.stdout.readline())
            self.assertEqual((removed["change"], removed["route"]),
                             ("removed", {"table": "decap", "label": 100}))
            self.assertGreater(removed["generation"], added["generation"])
            process.send_signal(number)
            self.assertEqual(process.wait(DEADLINE), 0)
            process.stdout.close()
            process.stderr.close()


if __name__ == "__main__":
    unittest.main()
