"""The control planes that the four routers may have: one network each, with its checks."""

import dataclasses
from collections.abc import Callable

import checks
import daemons
import forms
import overload_checks
import pseudowire_checks


@dataclasses.dataclass(frozen=True)
class Network:
    name: str
    says: str
    configs: Callable[[str], dict[str, str]]  # a router's daemons, zebra first, and their files
    checks: tuple[Callable, ...]
    family: int = 4  # of the hosts' addresses
    has_ipv6_core: bool = False


ALL = {network.name: network for network in (
    Network("ldp", "OSPF and LDP, and a VPN where the kernel has VRF devices", daemons.ldp,
            checks.ALL),
    Network("sr", "OSPF with segment routing, TI-LFA and BGP between the edges", forms.sr,
            (*checks.LABELLED, checks.backups_of_frr, checks.link_cut, checks.agent_restarted,
             checks.balances)),
    Network("bgp-lu", "BGP labelled unicast (RFC 8277) between neighbours, no other protocol",
            forms.bgp_lu, (*checks.LABELLED, checks.static_labels, checks.link_cut,
                           checks.agent_restarted, checks.balances)),
    Network("6pe", "IPv6 hosts over OSPF and LDP for IPv4 (RFC 4798)", forms.six_pe,
            (checks.labels_on_the_wire, checks.tables_equal, checks.several_neighbours,
             checks.link_cut, checks.agent_restarted, checks.balances), family=6),
    Network("ldp6", "OSPFv3, and LDP over IPv6 (RFC 7552)", forms.ldp6,
            (*checks.LABELLED, checks.link_cut, checks.agent_restarted, checks.balances),
            family=6, has_ipv6_core=True),
    Network("pseudowire", "OSPF and LDP, which signals a pseudowire between the edges", daemons.ldp,
            (*pseudowire_checks.ALL, checks.balances)),
    Network("dpdk", "OSPF and LDP; P's agent drives its links by DPDK", daemons.ldp,
            (checks.labels_on_the_wire, checks.label_counters, checks.tcp, checks.every_hop_answers,
             checks.tables_equal, checks.balances)),
    Network("overload", "OSPF, LDP and BGP; CE1 floods PE1, which has cards and workers", daemons.ldp_and_bgp,
            (overload_checks.flooded, checks.balances)),
    Network("killed", "OSPF and LDP; P's agent is killed twenty times, its links go down with it",
            daemons.ldp, (checks.killed_and_restarted, checks.balances)),
)}
