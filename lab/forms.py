"""Configurations of FRR for the networks other than LDP alone."""

import daemons
import topology

# From here on are the labels of segment routing: index N has label 16000 + N.
SEGMENT_BASE = 16000

SR = daemons.OSPF_HEAD + """ capability opaque
 mpls-te on
 mpls-te router-address {loopback}
 router-info area 0.0.0.0
 segment-routing on
 segment-routing global-block {base} {last}
 segment-routing prefix {loopback}/32 index {index}
 fast-reroute ti-lfa
interface lo
 ip ospf area 0
"""

LABELLED = """
router bgp {number}
 bgp router-id {loopback}
 no bgp default ipv4-unicast
 no bgp ebgp-requires-policy
{neighbours}
 address-family ipv4 unicast
{networks}
 exit-address-family
 address-family ipv4 labeled-unicast
{active}
"""

SIX = """
router bgp 65000
 bgp router-id {loopback}
 no bgp default ipv4-unicast
 neighbor {peer} remote-as 65000
 neighbor {peer} update-source {loopback}
 neighbor {peer} timers connect 1
 address-family ipv6 unicast
  network {network}
 exit-address-family
 address-family ipv6 labeled-unicast
  neighbor {peer} activate
"""

OSPF6 = """
router ospf6
 ospf6 router-id {loopback}
 timers throttle spf 0 10 50
exit
interface lo
 ipv6 ospf6 area 0
"""

OSPF6_INTERFACE = """
interface {name}
 ipv6 ospf6 area 0
 ipv6 ospf6 network point-to-point
 ipv6 ospf6 cost {cost}
 ipv6 ospf6 hello-interval 1
 ipv6 ospf6 dead-interval 4
 ipv6 ospf6 retransmit-interval 1
{passive}exit
"""

LDP6 = """
mpls ldp
 router-id {loopback}
 address-family ipv6
  discovery transport-address {loopback6}
  ttl-security disable
  discovery hello interval 1
  discovery hello holdtime 4
{interfaces}
"""


def other_edge(router: str) -> str:
    return next(edge for edge in topology.EDGES if edge != router)


def sr(router: str) -> dict[str, str]:
    """OSPF knows the core alone; the hosts' networks are BGP's, and go by the other edge's label."""
    index = topology.ROUTERS.index(router) + 1
    ospf = SR.format(loopback=topology.LOOPBACKS[router], index=index, base=SEGMENT_BASE,
                     last=SEGMENT_BASE + 999)
    for one in topology.core_interfaces(router):
        ospf += daemons.OSPF_INTERFACE.format(name=one.name, cost=one.cost)
    configs = {"zebra": daemons.ZEBRA, "ospfd": ospf}
    if router in topology.EDGES:
        configs["bgpd"] = daemons.BETWEEN_EDGES.format(
            loopback=topology.LOOPBACKS[router], peer=topology.LOOPBACKS[other_edge(router)])
    return configs


def bgp_lu(router: str) -> dict[str, str]:
    """Each router is an AS of its own; what comes from P is preferred."""
    numbers = {name: 65001 + i for i, name in enumerate(topology.ROUTERS)}
    neighbours, active = "", ""
    for one in topology.core_interfaces(router):
        name = topology.neighbour(one)
        address = topology.interface(name, router).host
        neighbours += (f" neighbor {address} remote-as {numbers[name]}\n"
                       f" neighbor {address} timers 1 3\n neighbor {address} timers connect 1\n"
                       f" neighbor {address} advertisement-interval 0\n")
        active += f"  neighbor {address} activate\n"
        active += f"  neighbor {address} weight 100\n" if name == "p" else ""
    networks = "".join(f"  network {prefix}\n" for prefix in
                       (f"{topology.LOOPBACKS[router]}/32", *topology.host_networks(router)))
    return {"zebra": daemons.ZEBRA,
            "bgpd": LABELLED.format(number=numbers[router], loopback=topology.LOOPBACKS[router],
                                    neighbours=neighbours, networks=networks, active=active)}


def six_pe(router: str) -> dict[str, str]:
    """The core has IPv4 and LDP; the edges tell each other of IPv6 networks with labels."""
    configs = daemons.ldp(router)
    configs.pop("bgpd", None)
    if router in topology.EDGES:
        configs["bgpd"] = SIX.format(
            loopback=topology.LOOPBACKS[router], peer=topology.LOOPBACKS[other_edge(router)],
            network=topology.host_networks(router)[0])
    return configs


def ldp6(router: str) -> dict[str, str]:
    """OSPFv3, and LDP over IPv6 (RFC 7552)."""
    ospf = OSPF6.format(loopback=topology.LOOPBACKS[router])
    core = topology.core_interfaces(router)
    for one in topology.interfaces(router):
        ospf += OSPF6_INTERFACE.format(name=one.name, cost=one.cost,
                                       passive="" if one in core else " ipv6 ospf6 passive\n")
    lines = "\n".join(f"  interface {one.name}" for one in core)
    return {"zebra": daemons.ZEBRA, "ospf6d": ospf,
            "ldpd": LDP6.format(loopback=topology.LOOPBACKS[router], interfaces=lines,
                                loopback6=topology.LOOPBACKS6[router])}
