"""Label tables that tests change and read with the operator's command."""

import json

from agent import PORTS, lfib, routes
from running_agent import SharedTablesTest

EAST = ("via", "inet", "10.0.2.2", "dev", "east")


def via_json(**keys) -> dict:
    """A via as JSON, of which everything but `keys` is as usual."""
    usual = {"action": "pop", "labels": [], "nexthop": "10.0.2.2", "interface": "east", "weight": 1,
             "ttl": "uniform", "tc": None, "pushTc": None, "pushTtl": None, "payload": "auto",
             "mtu": None, "vlan": None, "fec": None, "vrf": None, "entropy": False}
    return {**usual, **keys}


def route_json(table: str, label: int, *vias: dict, **keys) -> dict:
    usual = {"table": table, "label": label, "type": "ip", "multicast": False,
             "owner": "operator", "preference": None, "waitsFor": None, "flags": 0, "lookup": None, "tail": None, "vias": list(vias)}
    return {**usual, **keys}


def file_route(table: str, label: int, *vias: dict, **keys) -> dict:
    """One that was loaded."""
    return route_json(table, label, *vias, owner="file", **keys)


def hardware_json(label: int, adjacency: int, **keys) -> dict:
    return {"table": "hardware", "label": label, "adjacency": adjacency, "unprogrammed": False,
            "derived": False, **keys}


def switched(label: int, *vias: dict, owner: str = "operator") -> list[dict]:
    """What a label of table transit comes to."""
    return [route_json("transit", label, *vias, owner=owner), hardware_json(label, label, derived=True),
            adjacency_json(label, *vias)]


def adjacency_json(number: int, *vias: dict) -> dict:
    return {"table": "adjacency", "id": number, "type": "ip", "multicast": False,
            "useBackups": False, "vias": list(vias), "backups": []}


class OvixCtlTest(SharedTablesTest):
    def setUp(self):
        super().setUp()
        self.file = self.directory / "tables.yaml"

    def write(self, text: str) -> str:
        self.file.write_text(PORTS + text)
        return str(self.file)

    def load(self, text: str) -> str:
        return self.ctl("lfib", "load", self.write(text))

    def show(self, *words: str) -> list[dict]:
        return json.loads(self.ctl("lfib", "show", *words, "--json"))["routes"]

    def generation(self) -> int:
        return json.loads(self.ctl("lfib", "show", "--json"))["generation"]

    def transit(self, **by_label: str) -> str:
        return lfib(transit={int(label[1:]): routes(text) for label, text in by_label.items()})
