"""FRR on a router: zebra, ospfd and ldpd with their configuration, and bgpd for the VPN."""

import pathlib

import topology
from frr import FPM, Frr

ZEBRA = "no ip forwarding" + FPM
IMPLICIT_NULL = 3

OSPF_HEAD = """
router ospf
 ospf router-id {loopback}
 timers throttle spf 0 10 50
 timers throttle lsa all 0
 timers lsa min-arrival 0
"""

# A link that comes back is used again only when LDP has labels for it (RFC 5443).
OSPF = OSPF_HEAD + """ mpls ldp-sync
interface lo
 ip ospf area 0
"""

OSPF_INTERFACE = """
interface {name}
 ip ospf area 0
 ip ospf network point-to-point
 ip ospf cost {cost}
 ip ospf hello-interval 1
 ip ospf dead-interval 4
 ip ospf retransmit-interval 1
"""

LDP = """
mpls ldp
 router-id {loopback}
 wait-for-sync 1
 address-family ipv4
  discovery transport-address {loopback}
  ttl-security disable
  discovery hello interval 1
  discovery hello holdtime 4
{interfaces}
"""

PSEUDOWIRE = """
l2vpn LAN type vpls
 member interface {circuit}
 !
 member pseudowire mpw0
  neighbor lsr-id {neighbour}
  pw-id {id}
 !
!
"""

BGP = """
router bgp 65000
 bgp router-id {loopback}
 no bgp default ipv4-unicast
 neighbor {peer} remote-as 65000
 neighbor {peer} update-source {loopback}
 neighbor {peer} timers connect 1
 address-family ipv4 vpn
  neighbor {peer} activate
router bgp 65000 vrf {vrf}
 bgp router-id {loopback}
 address-family ipv4 unicast
  redistribute connected
  label vpn export auto
  rd vpn export 65000:{table}
  rt vpn both 65000:{table}
  export vpn
  import vpn
"""

BETWEEN_EDGES = """
router bgp 65000
 bgp router-id {loopback}
 neighbor {peer} remote-as 65000
 neighbor {peer} update-source {loopback}
 neighbor {peer} timers connect 1
 address-family ipv4 unicast
  redistribute connected
  neighbor {peer} next-hop-self
"""


def ospf_config(router: str) -> str:
    core = topology.core_interfaces(router)
    text = OSPF.format(loopback=topology.LOOPBACKS[router])
    for one in topology.interfaces(router):
        if one.vrf != "default":
            continue
        text += OSPF_INTERFACE.format(name=one.name, cost=one.cost)
        text += "" if one in core else " ip ospf passive\n"
    return text


def ldp_config(router: str) -> str:
    lines = [f"  interface {one.name}" for one in topology.core_interfaces(router)]
    text = LDP.format(loopback=topology.LOOPBACKS[router], interfaces="\n".join(lines))
    if topology.circuit(router):
        text += PSEUDOWIRE.format(circuit=topology.circuit(router), id=topology.PSEUDOWIRE_ID,
                                  neighbour=topology.LOOPBACKS[topology.far_edge(router)])
    return text


def bgp_config(router: str) -> str:
    peer = next(other for other in topology.vpn_routers() if other != router)
    return BGP.format(loopback=topology.LOOPBACKS[router], peer=topology.LOOPBACKS[peer],
                      vrf=topology.VRF, table=topology.VRF_TABLE)


def ldp(router: str) -> dict[str, str]:
    """The configurations of its daemons, zebra first."""
    configs = {"zebra": ZEBRA, "ospfd": ospf_config(router), "ldpd": ldp_config(router)}
    if router in topology.vpn_routers():
        configs["bgpd"] = bgp_config(router)
    return configs


def ldp_and_bgp(router: str) -> dict[str, str]:
    """The same, and BGP between the edges."""
    configs = ldp(router)
    if router in topology.EDGES:
        peer = next(edge for edge in topology.EDGES if edge != router)
        configs["bgpd"] = BETWEEN_EDGES.format(loopback=topology.LOOPBACKS[router],
                                               peer=topology.LOOPBACKS[peer])
    return configs


class Daemons(Frr):
    """The daemons of one router."""

    def restart_others(self) -> None:
        """What FRR's watchdog does when zebra has died: these two do not tell a new zebra what they
        have told the old one."""
        self.kill("ospfd")
        self.kill("ldpd")
        self.start("ospfd")
        self.start("ldpd")

    def labels(self) -> dict:
        """FRR's label table by incoming label."""
        return {int(label): route for label, route in self.show("mpls table").items()}

    def route(self, prefix: str, vrf: str = "default") -> list[dict]:
        """Next hops of the route in use, resolved."""
        family = "ipv6" if ":" in prefix else "ip"
        for route in self.show(f"{family} route vrf {vrf} {prefix}").get(prefix, []):
            if route.get("selected"):
                return [hop for hop in route["nexthops"]
                        if hop.get("active") and not hop.get("recursive")]
        return []

    def pushed_label(self, prefix: str, toward: str = "p"):
        """The label that is pushed toward a prefix, when that leads to one router alone."""
        hops = self.route(prefix)
        if len(hops) != 1 or hops[0]["interfaceName"] != f"to-{toward}":
            return None
        labels = [label for label in hops[0].get("labels", []) if label != IMPLICIT_NULL]
        return labels[0] if labels else None
