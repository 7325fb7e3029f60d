"""The operator's command changes label tables in shared memory: load, diff, add, replace and del."""

import fcntl
import json
import struct
import subprocess
import unittest

from agent import PORTS, SOURCE, hardware, lfib, routes, via
from ovixctl import (EAST, OvixCtlTest, adjacency_json, file_route, hardware_json, route_json, switched,
                     via_json)
from running_agent import CTL, DEADLINE

F_OFD_SETLK = 37  # which Python 3.11 does not name


class Load(OvixCtlTest):
    def test_the_demo_is_shown_as_its_configuration_says(self):
        self.ctl("lfib", "load", str(SOURCE / "examples" / "demo.yaml"))
        shown = json.loads(self.ctl("lfib", "show", "--json"))
        self.assertEqual(shown["tables"], self.tables)
        self.assertEqual(shown["generation"], 2)
        self.assertRegex(shown["time"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$")
        self.assertEqual(shown["routes"], [
            file_route("decap", 102, via_json()),
            file_route("decap", 103, via_json(payload="ipv4")),
            *(hardware_json(label, number)
              for label, number in ((100, 1), (101, 2), (104, 3), (200, 4))),
            adjacency_json(1, via_json(action="swap", labels=[300])),
            adjacency_json(2, via_json(action="push", labels=[601, 602, 603], ttl="pipe")),
            adjacency_json(3, via_json(action="swap", labels=[304]),
                           via_json(action="swap", labels=[304], nexthop="10.0.2.3", weight=3)),
            adjacency_json(4, via_json(action="swap", labels=[400], nexthop="10.0.1.2",
                                       interface="west"))])

    def test_every_example_is_loaded_as_it_says(self):
        for path in sorted((SOURCE / "examples").glob("*.yaml")):
            with self.subTest(path.name):
                self.ctl("lfib", "load", str(path))
                self.assertEqual(self.ctl("lfib", "diff", str(path)), "")

    def test_it_prints_what_it_did_and_does_nothing_twice(self):
        text = self.transit(_100=via("pop"), _101=via("pop"), _102=via("pop"))
        self.assertEqual(self.load(text), f'tables "{self.tables}": 3 added, 0 changed, 0 removed; '
                                          "generation 2\n")
        memory = self.memory.read_bytes()[:1 << 22]
        self.assertEqual(self.load(text), f'tables "{self.tables}": 0 added, 0 changed, 0 removed; '
                                          "generation 2\n")
        # Only the process id of the last writer may be another.
        after = self.memory.read_bytes()[:1 << 22]
        self.assertEqual(memory[:32] + memory[40:], after[:32] + after[40:])
        done = self.ctl("lfib", "load", self.write(
            self.transit(_101=via("swap", [7]), _102=via("pop"), _103=via("pop"))), "--json")
        self.assertEqual(json.loads(done), {"tables": self.tables, "generation": 3, "added": 1,
                                            "changed": 1, "removed": 1})
        self.assertEqual([route["label"] for route in self.show("transit")], [101, 102, 103])

    def test_everything_that_the_file_does_not_name_is_removed(self):
        self.load(self.transit(_100=via("pop")) + hardware(via("pop"), label=50) +
                  "mvpn:\n  - {vrf-id: 7, vlan: 100}\n  - {vrf-id: 1048583, interface: west}\n")
        self.assertEqual([route["table"] for route in self.show()],
                         ["transit", "hardware", "hardware", "adjacency", "adjacency", "mvpn",
                          "mvpn"])
        self.load("mvpn: [{vrf-id: 1048583, interface: west}]\n")
        self.assertEqual(self.show(),
                         [{"table": "mvpn", "vrfId": 1048583, "interface": "west"}])

    def test_an_error_names_file_and_line_and_leaves_the_tables_as_they_were(self):
        self.load(self.transit(_100=via("pop")))
        deep = via("swap", range(100, 134))
        lines = len(PORTS.splitlines())
        for text, line, error in (
                (self.transit(_100=via("pop", interface="nowhere")), 3,
                 "lfib.transit[0].vias[0].interface: no port is named \"nowhere\""),
                (self.transit(_16=via("pop"), _100=deep), 4,
                 "lfib.transit[1].vias[0].labels: 34 labels given, push and swap take 1 to 33"),
                (hardware(deep), 4,
                 "hardware.adjacencies[0].vias[0].labels: 34 labels given, push and swap take 1 to 33")):
            for command, code in (("load", 1), ("diff", 2)):
                with self.subTest(error, command=command):
                    output = self.ctl("lfib", command, self.write(text), code=code)
                    self.assertIn(f"ovixctl: {self.file}:{lines + line}: {error}", output)
        self.assertEqual(self.generation(), 2)
        output = self.ctl("lfib", "load", "/nonexistent.yaml", code=1)
        self.assertEqual(output,
                         "ovixctl: /nonexistent.yaml: cannot be opened: No such file or directory\n")

    def test_standard_input_is_a_file_too(self):
        text = PORTS + self.transit(_100=via("pop"))
        self.ctl("lfib", "load", "-", input=text)
        self.assertEqual(self.ctl("lfib", "diff", "-", input=text), "")
        self.assertIn("ovixctl: standard input:1: ", self.ctl("lfib", "load", "-", input="x: 1\n",
                                                              code=1))

    def test_a_busy_writer_is_named(self):
        self.load(self.transit(_100=via("pop")))
        writer = struct.unpack_from("<Q", self.memory.read_bytes()[:64], 32)[0]
        busy = f'ovixctl: tables "{self.tables}" are being written by process {writer}\n'
        with self.memory.with_name(self.memory.name + ":lock").open("r+b") as held:
            byte = struct.pack("hhqqi4x", fcntl.F_WRLCK, 0, 0, 1, 0)
            fcntl.fcntl(held, F_OFD_SETLK, byte)
            for words in (("load", str(self.file)), ("add", "50", *EAST), ("replace", "50", *EAST),
                          ("del", "100")):
                self.assertEqual(self.ctl("lfib", *words, "--wait", "0", code=1), busy)
            self.assertEqual(len(self.show()), 3)
            self.assertEqual(self.ctl("lfib", "diff", str(self.file)), "")
            waiting = subprocess.Popen([CTL, "--tables", self.tables, "lfib", "add", "50", *EAST])
            self.assertIsNone(waiting.poll())
        self.assertEqual(waiting.wait(DEADLINE), 0)


class Diff(OvixCtlTest):
    def test_lines_say_what_load_would_change(self):
        self.load(lfib(decap={100: routes(via("pop")), 101: routes(via("pop"))}))
        wanted = self.write(lfib(
            decap={101: routes(via("swap", [7, 8])), 102: routes(via("pop", weight=5))}))
        done = subprocess.run([CTL, "--tables", self.tables, "lfib", "diff", wanted],
                              capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stdout.splitlines(), [
            "-decap 100 owner file via inet 10.0.2.2 dev east",
            "-decap 101 owner file via inet 10.0.2.2 dev east",
            "+decap 101 owner file as to 7/8 via inet 10.0.2.2 dev east",
            "+decap 102 owner file via inet 10.0.2.2 dev east weight 5"])
        done = subprocess.run([CTL, "--tables", self.tables, "lfib", "diff", wanted, "--json"],
                              capture_output=True, text=True, check=False)
        changes = json.loads(done.stdout)["changes"]
        self.assertEqual([[side and side["label"] for side in (change["before"], change["after"])]
                          for change in changes], [[100, None], [101, 101], [None, 102]])
        self.ctl("lfib", "load", wanted)
        self.assertEqual(self.ctl("lfib", "diff", wanted), "")

    def test_a_transit_route_is_programmed_by_load_as_by_add(self):
        wanted = self.write(self.transit(_100=via("pop")))
        self.ctl("lfib", "load", wanted)
        self.assertEqual(self.show(), switched(100, via_json(), owner="file"))
        self.ctl("lfib", "del", "100")
        self.ctl("lfib", "add", "100", "owner", "file", *EAST)
        self.assertEqual(self.ctl("lfib", "diff", wanted), "")


class Routes(OvixCtlTest):
    def test_add_replace_and_del_work_as_ip_route_does(self):
        self.assertEqual(self.ctl("lfib", "add", "100", "as", "200/300", *EAST), "")
        swapped = switched(100, via_json(action="swap", labels=[200, 300]))
        self.assertEqual(self.show("100"), swapped)
        self.assertEqual(self.ctl("lfib", "add", "100", *EAST, code=1),
                         "ovixctl: label 100 is already in table transit; use replace\n")
        self.assertEqual(self.show("100"), swapped)
        self.assertEqual(self.ctl("lfib", "replace", "100", *EAST), "")
        self.assertEqual(self.show("100"), switched(100, via_json()))
        self.assertEqual(self.ctl("lfib", "del", "100"), "")
        self.assertEqual(self.show(), [])
        self.assertEqual(self.ctl("lfib", "del", "100", code=1),
                         "ovixctl: label 100 is not in table transit\n")

    def test_a_route_with_vrf_ends_here(self):
        self.ctl("lfib", "add", "100", "vrf", "red", "payload", "ipv6")
        self.assertEqual(self.show(), [
            route_json("decap", 100, type="ip-lookup", lookup={"vrf": "red", "payload": "ipv6"})])
        self.ctl("lfib", "add", "100", "table", "pseudowire", *EAST)
        done = self.ctl("lfib", "del", "100", "table", "decap", "--json")
        self.assertEqual(json.loads(done), {"tables": self.tables, "generation": 4, "added": 0,
                                            "changed": 0, "removed": 1})
        self.assertEqual(self.show(), [route_json("pseudowire", 100, via_json())])

    def test_del_says_which_table_has_the_label(self):
        self.ctl("lfib", "add", "100", "vrf", "red")
        self.ctl("lfib", "add", "pseudowire", "100", *EAST)
        self.assertEqual(self.ctl("lfib", "del", "100", code=1),
                         "ovixctl: label 100 is not in table transit; it is in table decap and "
                         "pseudowire\n")

    def test_what_the_platform_has_programmed_is_neither_overwritten_nor_removed(self):
        self.load(hardware(via("swap", [300]), label=101).replace("id: 1,", "id: 100,").replace(
            "adjacency: 1", "adjacency: 100"))
        platform = self.show()
        self.ctl("lfib", "add", "100", *EAST)  # adjacency 100 is that of label 101
        self.ctl("lfib", "replace", "101", *EAST)  # has a hardware route
        self.assertEqual(self.show(), [
            route_json("transit", 100, via_json()), route_json("transit", 101, via_json()),
            hardware_json(100, 1048575, derived=True), *platform,
            adjacency_json(1048575, via_json())])
        self.ctl("lfib", "del", "100")
        self.ctl("lfib", "del", "101")
        self.assertEqual(self.show(), platform)

    def test_hardware_routes_adjacencies_and_vpns_are_added_and_removed(self):
        self.ctl("lfib", "add", "adjacency", "5", "as", "300", *EAST, "backup", "dev", "west")
        self.ctl("lfib", "add", "hardware", "100", "adjacency", "5", "unprogrammed")
        self.ctl("lfib", "replace", "hardware", "100", "adjacency", "5")
        self.ctl("lfib", "add", "mvpn", "4294967295", "vlan", "7")
        lines = self.ctl("lfib", "show").splitlines()
        self.assertEqual(lines, ["hardware 100 adjacency 5",
                                 "adjacency 5 as to 300 via inet 10.0.2.2 dev east backup dev west",
                                 "mvpn 4294967295 vlan 7"])
        for words, error in (
                (("add", "mvpn", "4294967295", "vlan", "8"),
                 "VRF 4294967295 is already in table mvpn; use replace"),
                (("add", "hardware", "101", "adjacency", "6"),
                 "label 101 in table hardware: there is no adjacency 6"),
                (("del", "adjacency", "5"),
                 "adjacency 5 in table adjacency: label 100 is forwarded by it"),
                (("del", "mvpn", "7"), "VRF 7 is not in table mvpn")):
            self.assertEqual(self.ctl("lfib", *words, code=1), f"ovixctl: {error}\n")
        for words in (("hardware", "100"), ("adjacency", "5"), ("mvpn", "4294967295")):
            self.ctl("lfib", "del", *words)
        self.assertEqual(self.show(), [])

    def test_a_platform_route_wins_over_a_transit_route_while_it_is_there(self):
        self.ctl("lfib", "add", "100", *EAST)
        self.ctl("lfib", "add", "adjacency", "5", "as", "300", *EAST)
        for words, error in (
                (("del", "hardware", "100"), "label 100 in table hardware"),
                (("replace", "adjacency", "100", *EAST), "adjacency 100 in table adjacency")):
            self.assertEqual(self.ctl("lfib", *words, code=1),
                             f"ovixctl: {error}: it belongs to the route of label 100 in table "
                             "transit; change that one\n")
        self.ctl("lfib", "replace", "hardware", "100", "adjacency", "5")
        self.assertEqual([(entry["table"], entry.get("id")) for entry in self.show()],
                         [("transit", None), ("hardware", None), ("adjacency", 5)])
        self.ctl("lfib", "del", "hardware", "100")
        self.ctl("lfib", "del", "adjacency", "5")
        self.assertEqual(self.show(), switched(100, via_json()))

    def test_a_route_of_several_hops(self):
        self.ctl("lfib", "replace", "100", "nexthop", "as", "200", *EAST, "weight", "3", "nexthop",
                 "via", "inet6", "fe80::1", "dev", "west")
        self.assertEqual(self.show(), switched(
            100, via_json(action="swap", labels=[200], weight=3),
            via_json(nexthop="fe80::1", interface="west")))

    def test_a_line_of_diff_is_a_route(self):
        self.load(lfib(decap={100: routes(via("swap", [200], ttl="pipe", tc=3, mtu=1400),
                                          via("pop", weight=5))},
                       pseudowire={101: routes(via("pop", payload="ethernet"))}))
        before = self.show()
        lines = subprocess.run([CTL, "--tables", self.tables, "lfib", "diff", self.write("")],
                               capture_output=True, text=True, check=False).stdout.splitlines()
        self.assertEqual(len(lines), 2)
        for line in lines:
            words = line.removeprefix("-").split()
            self.ctl("lfib", "del", *words[:2])
            self.ctl("lfib", "add", *words)
        self.assertEqual(self.show(), before)

    def test_a_route_without_any_weight_changes_nothing(self):
        self.ctl("lfib", "add", "100", *EAST)
        before = self.generation()
        output = self.ctl("lfib", "replace", "100", *EAST, "weight", "0", code=2)
        self.assertIn("the weights add up to 0, which is out of range", output)
        self.assertEqual(self.generation(), before)

    def test_labels_that_no_table_may_hold_are_refused(self):
        for label, rule in (("3", "RFC 3032 section 2.1"), ("0", "RFC 7274"), ("15", "RFC 7274")):
            for words in (("decap", label, *EAST), (label, *EAST),
                          ("hardware", label, "adjacency", "1")):
                self.assertIn(rule, self.ctl("lfib", "add", *words, code=2))
        self.assertFalse(self.memory.exists())

    def test_what_could_have_no_effect_is_refused(self):
        for words, rule in ((("as", "200", "payload", "ipv4"), "only a pop exposes a payload"),
                            (("push", "200", "payload", "none"), "only a pop exposes a payload"),
                            (("vrf", "red"), "vrf goes with a lookup"),
                            (("as", "200", "vrf", "red"), "vrf goes with a lookup"),
                            (("as", "200", "push-ttl", "9"), "push-ttl 9 goes with ttl pipe"),
                            (("tc", "uniform", "payload", "ethernet"), "tc uniform writes the class")):
            with self.subTest(words):
                self.assertIn(f"via 1: {rule}", self.ctl("lfib", "add", "100", *EAST, *words, code=2))
        self.assertFalse(self.memory.exists())

    def test_unknown_words_are_a_usage_error(self):
        for words, error in ((("add", "100", "frob"), '"frob" is not expected here'),
                             (("add", "1048576", *EAST), "label 1048576 is out of range"),
                             (("add", "100", "dev", "a b"), "the name of an interface is 1 to 15"),
                             (("add", "trnsit", "100"), '"trnsit" is neither a table nor a label'),
                             (("watch", "--count", "0"), "--count: "),
                             (("show", "trnasit"), 'there is no table "trnasit"; did you mean'),
                             (("del", "100", "dev", "a"), '"dev" is not expected here')):
            self.assertIn("ovixctl: " + error, self.ctl("lfib", *words, code=2))
        self.assertFalse(self.memory.exists())

    def test_errors_are_json_where_output_is(self):
        for words, code, error in ((("add", "100", "frob", "--json"), 2, '"frob" is not expected'),
                                   (("ad", "100", "--json"), 2, 'unknown command "ad"'),
                                   (("del", "100", "--json"), 1, "do not exist")):
            output = self.ctl("lfib", *words, code=code)
            self.assertEqual(list(json.loads(output)), ["error"])
            self.assertIn(error, json.loads(output)["error"])


if __name__ == "__main__":
    unittest.main()
