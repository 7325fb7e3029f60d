"""The lab as a whole: brings it up, compares tables, cuts and mends."""

import pathlib

import daemons
import network
import topology
import traffic
from dataplane import Dataplane
from frr import compile_module
from processes import wait_until


class Lab:
    def __init__(self, directory: pathlib.Path, network):
        """`network` is one of networks.py."""
        self.directory, self.network = directory, network
        self.daemons, self.planes = {}, {}
        self.losses = []  # (what happened, packets sent, lost, expected at the most)

    def start(self) -> float:
        """Brings everything up; seconds from the start of FRR until all label tables stand."""
        if self.network.family == 6:
            topology.use_ipv6(self.network.has_ipv6_core)
        if self.network.name == "ldp" and network.kernel_has_vrfs():
            topology.add_vpn()
        if self.network.name == "dpdk":
            topology.use_cards("p")
        if self.network.name == "overload":
            topology.use_cards("pe1")
            topology.use_workers("pe1", 2)
        if self.network.name == "pseudowire":
            topology.add_lan()
        network.build()
        module = None if network.kernel_has_mpls() else compile_module(self.directory)
        for router in topology.ROUTERS:
            plane = self.planes[router] = Dataplane(router, self.directory)
            plane.start_fpm()
            plane.start_agent()
        for plane in self.planes.values():
            plane.wait_for_agent()
        for router in topology.CARDS:
            network.address_cards(router)
        for router in topology.ROUTERS:
            self.daemons[router] = daemons.Daemons(router, self.directory, module,
                                                   self.network.configs(router))
            self.daemons[router].start_all()
        took = self.wait_for_path("p")
        wait_until("CE2 answers CE1", lambda: traffic.reaches(self.directory), 10)
        return took

    def wait_for_path(self, over: str, timeout: float = 30) -> float:
        """Until labelled traffic goes over one of the two routers, both ways."""
        return wait_until(f"the path between the hosts is over {over}",
                          lambda: None not in self.path_labels(over).values(), timeout)

    def path_labels(self, over: str = "p") -> dict:
        """The label pushed toward the network of each host, when the path is over that router."""
        return {host: self.daemons[router].pushed_label(topology.prefix(host), over)
                for router, host in (("pe1", "ce2"), ("pe2", "ce1"))}

    def table_differences(self) -> list[str]:
        """What FRR's label tables and the agents' LFIBs do not have in common."""
        text = []
        for router in topology.ROUTERS:
            wanted = {label: frr_hops(router, route)
                      for label, route in self.daemons[router].labels().items()}
            found = self.labels(router)
            text += [f"{router}: label {label}: FRR {wanted.get(label)}, LFIB {found.get(label)}"
                     for label in sorted(wanted.keys() | found.keys())
                     if wanted.get(label) != found.get(label)]
        return text

    def labels(self, router: str) -> dict:
        """What the LFIBs do with each label."""
        plane = self.planes[router]
        return ({label: lfib_hops(route) for label, route in plane.lfib().items()} |
                {label: lfib_hops(route) for label, route in plane.lfib("decap").items()})

    def vpn_stack(self, router: str, host: str) -> list[int]:
        """The labels that a router pushes toward the network of a host of the VPN."""
        hops = self.daemons[router].route(topology.prefix(host), topology.VRF)
        return hops[-1]["labels"] if hops else []

    def has_neighbour(self, router: str, name: str) -> bool:
        """Whether OSPF on a router has another one for a neighbour."""
        shown = self.daemons[router].show("ip ospf neighbor")
        return topology.LOOPBACKS[name] in shown.get("neighbors", {})

    def count_lost(self, what: str, sent: int, received: int, expected: int) -> str:
        """Keeps it for the table of losses; raises ValueError when more were lost than expected."""
        lost = sent - received
        self.losses.append((what, sent, lost, expected))
        if lost > expected:
            raise ValueError("\n".join(
                [f"{what}: {lost} of {sent} pings lost, at most {expected} expected",
                 *(f"dropped by {router}: {plane.drop_reasons()}"
                   for router, plane in self.planes.items())]))
        return f"{lost} of {sent} pings lost"

    def wait_for_tables(self, timeout: float = 20) -> None:
        try:
            wait_until("tables equal", lambda: not self.table_differences(), timeout)
        except TimeoutError as late:
            raise TimeoutError("\n".join([str(late), *self.table_differences()])) from None


def frr_hops(router: str, route: dict) -> set:
    """(labels that replace the label, next hop, interface or VRF) of each hop; none of a pop."""
    return {(tuple(label for label in hop["outLabelStack"]
                   if label != daemons.IMPLICIT_NULL),
             hop.get("nexthop"),
             hop.get("interface") or interface_toward(router, hop["nexthop"]))
            for hop in route["nexthops"] if hop.get("installed")}


def lfib_hops(route: dict) -> set:
    if route["lookup"]:
        return {((), None, route["lookup"]["vrf"])}
    return {(tuple(via["labels"]), via["nexthop"], via["interface"]) for via in route["vias"]}


def interface_toward(router: str, nexthop: str) -> str:
    """FRR's table leaves the interface out: it is the one that shares a link with the next hop."""
    return next(one.name for link in topology.LINKS for one, other in (link.ends, link.ends[::-1])
                if one.node == router and other.host == nexthop)
