"""What a change would do to labels and frames, before it is made."""

import json
import unittest

from agent import PORTS, lfib, mpls, port, routes, via
from explain_test import run_explain
from running_agent import SharedTablesTest


class WhatIfTest(SharedTablesTest):
    def what_if(self, *words: str) -> dict:
        return json.loads(self.ctl("what-if", *words, "--json"))

    def setUp(self):
        super().setUp()
        to_east, to_west = ("via", "inet", "10.0.2.2", "dev", "east"), ("via", "inet", "10.0.1.2", "dev", "west")
        self.ctl("lfib", "add", "100", "as", "200", *to_east)
        for label in ("101", "102"):
            self.ctl("lfib", "add", label, "nexthop", "as", "301", *to_east, "nexthop", "as", "302", *to_west,
                     "weight", "3")
        self.ctl("lfib", "add", "adjacency", "7", "as", "200", *to_east, "backup", "as", "300", *to_west)
        self.ctl("lfib", "add", "hardware", "110", "adjacency", "7")
        self.ctl("lfib", "add", "decap", "120", *to_east)
        self.ctl("lfib", "add", "130", "as", "200", *to_west)

    def moves(self, *words: str) -> dict:
        """Where labels go, by label: the shares of each place in percent."""
        before = self.ctl("lfib", "show")
        told = self.what_if(*words)
        self.assertEqual(self.ctl("lfib", "show"), before)
        found = {}
        for move in told["moves"]:
            for example in move["examples"]:
                first, _, last = example.partition("-")
                for label in range(int(first), int(last or first) + 1):
                    found[label] = tuple({share["interface"] or share["to"]: share["percent"]
                                          for share in move[when]} for when in ("before", "after"))
        self.assertEqual(told["labels"]["changed"], len(found))
        return found

    def test_a_link_that_goes_down(self):
        self.assertEqual(self.moves("link east down"), {
            100: ({"east": 100}, {}), 101: ({"east": 25, "west": 75}, {"west": 100}),
            102: ({"east": 25, "west": 75}, {"west": 100}), 110: ({"east": 100}, {"west": 100}),
            120: ({"east": 100}, {"lost": 100})})
        self.assertEqual(self.what_if("link", "east", "down")["labels"], {"changed": 5, "lost": 2, "gained": 0})

    def test_a_weight(self):
        self.assertEqual(self.moves("via 10.0.2.2 weight 3"), {
            label: ({"east": 25, "west": 75}, {"east": 50, "west": 50}) for label in (101, 102)})
        self.assertEqual(self.moves("via 10.0.2.2 weight 1"), {})

    def test_a_route_that_is_removed_or_changed(self):
        self.assertEqual(self.moves("lfib del 100"), {100: ({"east": 100}, {})})
        self.assertEqual(self.moves("lfib", "replace", "100", "as", "309", "via", "inet", "10.0.1.2", "dev", "west"),
                         {100: ({"east": 100}, {"west": 100})})
        swapped = self.what_if("lfib replace 100 as 309 via inet 10.0.2.2 dev east")["moves"][0]
        self.assertEqual([swapped[when][0]["to"] for when in ("before", "after")],
                         ["dev east via 10.0.2.2 swap 200", "dev east via 10.0.2.2 swap 309"])
        self.assertEqual(self.moves("lfib add 999 as 309 via inet 10.0.1.2 dev west"), {999: ({}, {"west": 100})})

    def test_a_route_that_has_waited_takes_over(self):
        self.load(PORTS + lfib(transit={100: routes(via("swap", [309], interface="west", nexthop="10.0.1.2"))}))
        self.assertEqual(self.moves("lfib del 100"), {100: ({"east": 100}, {"west": 100})})

    def test_a_via_that_is_left_alone_takes_all_whatever_its_weight(self):
        self.ctl("lfib", "add", "150", "nexthop", "as", "301", "via", "inet", "10.0.2.2", "dev", "east", "weight", "0",
                 "nexthop", "as", "302", "via", "inet", "10.0.1.2", "dev", "west", "weight", "3")
        self.assertEqual(self.moves("link west down")[150], ({"west": 100}, {"east": 100}))
        self.assertNotIn(100, self.moves("via 10.0.2.2 weight 0"))
        config = self.directory / "agent.yaml"
        config.write_text(PORTS.replace("{name: west,", "{name: west, status: down,"))
        told = json.loads(run_explain(config, mpls([150]).hex(), "--tables", self.tables, "--json"))
        self.assertEqual([one["port"] for one in told["verdict"]["sent"]], ["east"])

    def test_what_the_agent_has_beside_the_tables_counts(self):
        config = PORTS.replace("neighbours:", """  - {name: east.5, parent: east, vlan: 5}
  - {name: south, mac: "02:00:00:00:00:07", addresses: [10.0.7.1/24]}
  - {name: bare, mac: "02:00:00:00:00:08"}
neighbours:""") + """
routes:
  - {vrf: red, prefix: 10.9.0.0/16, via: {interface: east, nexthop: 10.0.2.2}}
"""
        self.ctl("lfib", "add", "140", "as", "200", "via", "inet", "10.0.5.2", "dev", "east.5")
        control = ("--control", str(self.start(config).path))
        told = json.loads(self.ctl("what-if", "link east down", "--json", *control))
        self.assertEqual(told["labels"]["changed"], 6)
        lost = {each for move in told["moves"] if move["of"] == "prefixes" for each in move["examples"]}
        self.assertEqual((lost, told["prefixes"]["lost"]), ({"10.0.2.0/24", "2001:db8:2::/64", "10.9.0.0/16 in red"}, 3))
        for port, subnets in (("south", ["10.0.7.0/24"]), ("bare", [])):  # no route but the subnet's, or none
            told = json.loads(self.ctl("what-if", f"link {port} down", "--json", *control))
            self.assertEqual((told["labels"]["changed"], told["prefixes"]["lost"]), (0, len(subnets)))
            self.assertEqual([move["examples"] for move in told["moves"]], [subnets] if subnets else [])
        self.assertIn("there is no such port", self.ctl("what-if", "link esat down", *control, code=2))
        self.assertEqual(self.what_if("link", "east", "down")["labels"]["changed"], 5)

    def test_pseudowires_of_the_agent_move_with_their_tunnels_and_circuits(self):
        config = PORTS.replace("neighbours:", """  - {name: ce, mac: "02:00:00:00:00:07"}
  - {name: ce2, mac: "02:00:00:00:00:08"}
neighbours:""") + """
pseudowires:
  - {name: acme, port: ce, label: 700, interface: east, nexthop: 10.0.2.2, labels: [70]}
  - {name: zeta, port: ce2, label: 701, interface: west, nexthop: 10.0.1.2}
"""
        self.ctl("lfib", "add", "pseudowire", "500", "dev", "ce", "payload", "ethernet")
        control = ("--control", str(self.start(config).path))

        def told(*words: str) -> list[tuple]:
            answer = json.loads(self.ctl("what-if", *words, "--json", *control))
            moves = [(move["of"], move["examples"], *([share["to"] for share in move[when]]
                                                      for when in ("before", "after")))
                     for move in answer["moves"] if move["of"] in ("pseudowires", "circuits")]
            for of in ("pseudowires", "circuits"):
                self.assertEqual(answer[of]["changed"], sum(move[0] == of for move in moves))
            return moves
        tunnel = ["dev east via 10.0.2.2"]
        self.assertEqual(told("link east down"), [("pseudowires", ["acme"], tunnel, [])])
        self.assertEqual(told("link ce down"), [("pseudowires", ["acme"], tunnel, []),
                                                ("circuits", ["acme"], ["dev ce"], [])])
        gone = ("circuits", ["acme by label 500"], ["dev ce"], [])
        self.assertEqual(told("lfib del pseudowire 500"), [gone])
        self.assertEqual(told("lfib replace pseudowire 500 dev ce2 payload ethernet"),
                         [gone, ("circuits", ["zeta by label 500"], [], ["dev ce2"])])
        self.assertEqual(told("lfib del 100"), [])
        text = self.ctl("what-if", "link ce down", *control)
        self.assertIn("\npseudowires: 1 change their way, 1 of them lose it, 0 gain one\n", text)
        self.assertIn("\n1 pseudowires, to the other end: acme\n  from dev east via 10.0.2.2 100.0 %\n  to   nowhere\n", text)
        self.assertIn("\n1 pseudowires, from the other end: acme\n  from dev ce 100.0 %\n", text)

    def test_what_the_frame_does_agrees(self):
        """The same labels lose their way in the agent when the link is down."""
        config = self.directory / "agent.yaml"
        config.write_text(port("east", status="down"))
        moved = self.moves("link east down")
        for label in (100, 101, 110, 130):
            told = json.loads(run_explain(config, mpls([label]).hex(), "--tables", self.tables, "--json",
                                          code=1 if moved.get(label, (0, 1))[1] == {} else 0))
            where = [one["port"] for one in told["verdict"]["sent"]]
            self.assertEqual(where, [] if label == 100 else ["west"])

    def test_other_words_are_refused(self):
        for words in ("link east up", "via 10.0.2 weight 3", "via 10.0.2.2 weight x", "lfib drop 100", "east"):
            self.assertIn("ovixctl: ", self.ctl("what-if", words, code=2))
        self.assertIn("label 77 is not in table transit", self.ctl("what-if", "lfib del 77", code=2))
        self.assertIn('leads out of "esat"', self.ctl("what-if", "link esat down", code=2))
        self.assertIn('leads to "10.0.9.9"', self.ctl("what-if", "via 10.0.9.9 weight 2", code=2))
        self.ctl("lfib", "add", "500", "as", "200", "via", "inet", "10.0.2.2", "dev", "east")
        self.assertIn("label 500 is already in table transit; use replace",
                      self.ctl("what-if", "lfib add 500 as 201 via inet 10.0.2.2 dev east", code=2))


if __name__ == "__main__":
    unittest.main()
