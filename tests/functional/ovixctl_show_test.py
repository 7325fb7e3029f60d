"""The operator's command reads label tables in shared memory: show and watch."""

import json
import re
import signal
import subprocess
import threading
import unittest

from agent import PORTS, hardware, lfib, routes, via
from ovixctl import EAST, OvixCtlTest, file_route, route_json, via_json
from running_agent import CTL, DEADLINE


class Show(OvixCtlTest):
    def test_every_entry_has_a_line_that_add_takes(self):
        self.load(lfib(decap={99: "type: ip-lookup, via: {vrf: red}"},
                       transit={100: routes(via("swap", [200, 300], tc=3),
                                            via("pop", interface="west", weight=10))}) +
                  hardware(via("pop"), label=1048575, route=", unprogrammed: true",
                           extra=f", backups: [{via('pop', interface='west')}]") +
                  "mvpn: [{vrf-id: 7, vlan: 100}]\n")
        lines = self.ctl("lfib", "show").splitlines()
        vias = ("nexthop as to 200/300 via inet 10.0.2.2 dev east tc 3 "
                "nexthop via inet 10.0.2.2 dev west weight 10")
        self.assertEqual(lines, [
            "decap 99 owner file vrf red payload auto",
            f"transit 100 owner file {vias}",
            "hardware 100 adjacency 100 derived",
            "hardware 1048575 adjacency 1 unprogrammed",
            "adjacency 1 via inet 10.0.2.2 dev east backup via inet 10.0.2.2 dev west",
            f"adjacency 100 {vias}",
            "mvpn 7 vlan 100"])
        for words in (("decap", "99"), ("100",), ("hardware", "1048575"), ("adjacency", "1"),
                      ("mvpn", "7")):
            self.ctl("lfib", "del", *words)
        self.assertEqual(self.ctl("lfib", "show"), "")
        for line in (lines[0], lines[1], lines[4], lines[3], lines[6]):
            self.ctl("lfib", "add", *line.split())
        self.assertEqual(self.ctl("lfib", "show").splitlines(), lines)

    def test_tables_and_labels_narrow_it(self):
        self.load(lfib(decap={100: routes(via("pop"))},
                       transit={100: routes(via("pop")), 101: routes(via("pop"))}) +
                  hardware(via("pop"), label=100))
        self.assertEqual([route["table"] for route in self.show("100")],
                         ["decap", "transit", "hardware", "adjacency"])
        self.assertEqual([route["label"] for route in self.show("transit")], [100, 101])
        self.assertEqual([entry["id"] for entry in self.show("adjacency")], [1, 101])
        self.assertEqual(self.show("transit", "101"), [file_route("transit", 101, via_json())])
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
        self.load(lfib(decap={100: routes(via("swap", [0xabcde])), 101: routes(via("pop"))}))
        data = bytearray(self.memory.read_bytes()[:1 << 21])
        place = data.index(bytes.fromhex("0abcde"))
        with self.memory.open("r+b") as memory:
            memory.seek(place)
            memory.write(b"\1")
        done = subprocess.run([CTL, "lfib", "show", "--json", "--tables", self.tables],
                              capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr, r'^\{"error":"table decap: label 100: .*is invalid"\}\n$')
        damaged, whole = json.loads(done.stdout)["routes"]
        self.assertEqual((damaged["label"], list(damaged)), (100, ["table", "label", "corrupt"]))
        self.assertEqual(whole, file_route("decap", 101, via_json()))
        table = subprocess.run([CTL, "lfib", "show", "--tables", self.tables], capture_output=True,
                               text=True, check=False).stdout
        self.assertRegex(table, r"decap 100 corrupt: .*is invalid")

    def test_one_show_is_of_one_generation(self):
        """While a writer gives all routes the same out label again and again."""
        def tables(out: int) -> str:
            return lfib(decap={label: routes(via("swap", [out])) for label in range(100, 1100)})
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
    def decap(self, **by_label: str) -> str:
        return lfib(decap={int(label[1:]): routes(text) for label, text in by_label.items()})

    def watch(self, *words: str) -> subprocess.Popen:
        process = subprocess.Popen([CTL, "lfib", "watch", "--tables", self.tables, *words],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.kill)
        self.assertIn("watching", process.stderr.readline())
        return process

    def test_changes_are_printed_as_they_become_visible(self):
        self.load(self.decap(_100=via("pop"), _101=via("pop")))
        process = self.watch("--count", "4")
        self.load(self.decap(_101=via("swap", [7]), _102=via("pop")))
        lines = [process.stdout.readline() for _ in range(3)]
        self.ctl("lfib", "load", self.write(self.decap(_101=via("swap", [7]))))
        lines += process.communicate(timeout=DEADLINE)[0].splitlines()
        self.assertEqual(process.returncode, 0)
        stamp = r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z"
        expected = [("3", "-decap 100"), ("3", "~decap 101 owner file as to 7 via inet 10.0.2.2 dev east"),
                    ("3", "+decap 102 owner file via inet 10.0.2.2 dev east"), ("4", "-decap 102")]
        self.assertEqual(len(lines), 4)
        for line, (generation, change) in zip(lines, expected):
            self.assertRegex(line, f"^{generation} {stamp} {re.escape(change)}$")

    def test_tables_that_are_made_anew_are_followed(self):
        self.load(self.decap(_100=via("pop"), _101=via("pop")))
        process = self.watch("--count", "3")
        self.memory.unlink()
        self.load(self.decap(_101=via("pop"), _102=via("pop")))
        stdout, stderr = process.communicate(timeout=DEADLINE)
        self.assertEqual(stderr, f'ovixctl: tables "{self.tables}" were made anew; what both '
                                 "have is shown as changed\n")
        self.assertEqual([line.split()[2:4] for line in stdout.splitlines()],
                         [["-decap", "100"], ["~decap", "101"], ["+decap", "102"]])

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
