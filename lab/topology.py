"""What stands in the lab, and where: two customer hosts and four routers; and, where the kernel has
VRF devices, two hosts of a VPN.

              to-p +---+ to-pe2
          .--------| P |--------.
    +-----+        +---+        +-----+
CE1-| PE1 |                     | PE2 |-CE2
    +-----+        +----+       +-----+
          '--------| P2 |-------'
                   +----+

An interface is named after the node at its other end. OSPF prefers the path over P. VPN1 and VPN2
stand beside CE1 and CE2, and have the same addresses as those. In the network with a pseudowire LAN1 and
LAN2, of one subnet, stand beside CE1 and CE2, at either end of it.
"""

import dataclasses


@dataclasses.dataclass(frozen=True)
class Interface:
    node: str
    name: str
    address: str  # with its prefix length
    cost: int
    mtu: int
    vrf: str = "default"  # that its router has it in
    address6: str = ""  # likewise, of the links to hosts

    @property
    def host(self) -> str:
        return self.address.split("/")[0]


@dataclasses.dataclass(frozen=True)
class Link:
    ends: tuple[Interface, Interface]


def link(one: str, other: str, network: str, cost: int = 10, vrf: str = "default") -> Link:
    """The first two host addresses of a network, in the order of the nodes. Between routers there
    is room for labels on a full packet of a host."""
    base, length = network.split("/")
    start, last = base.rsplit(".", 1)
    mtu = 1500 if length == "24" else 1600
    six = [f"2001:db8:{start.split('.')[-1]}::{i}/64" if length == "24" else "" for i in (1, 2)]
    return Link((
        Interface(one, f"to-{other}", f"{start}.{int(last) + 1}/{length}", cost, mtu, vrf, six[0]),
        Interface(other, f"to-{one}", f"{start}.{int(last) + 2}/{length}", cost, mtu,
                  address6=six[1])))


LOOPBACKS = {"pe1": "10.255.0.1", "p": "10.255.0.2", "p2": "10.255.0.3", "pe2": "10.255.0.4"}
ROUTERS = tuple(LOOPBACKS)
LOOPBACKS6 = {}  # empty where the core has IPv4 alone
HOSTS = {"ce1": "pe1", "ce2": "pe2"}  # host: its router
EDGES = ("pe1", "pe2")
FAMILY = 4  # of the hosts' addresses
VPN_HOSTS = {"vpn1": "pe1", "vpn2": "pe2"}
VRF, VRF_TABLE = "red", 10
WORKERS = {}  # router: how many threads forward beside its agent's packet thread
CARDS = ()  # routers whose ports are devices of DPDK; wire() is what they drive
LAN_HOSTS = {}  # host: the router with its attachment circuit; empty without a pseudowire
LAN = {"lan1": "198.51.100.1/24", "lan2": "198.51.100.2/24"}
PSEUDOWIRE_ID = 100

LINKS = (
    link("pe1", "ce1", "192.168.1.0/24"),
    link("pe1", "p", "10.1.1.0/30"),
    link("p", "pe2", "10.1.2.0/30"),
    link("pe1", "p2", "10.2.1.0/30", cost=20),
    link("p2", "pe2", "10.2.2.0/30", cost=20),
    link("pe2", "ce2", "192.168.2.0/24"),
)
VPN_LINKS = (
    link("pe1", "vpn1", "192.168.1.0/24", vrf=VRF),
    link("pe2", "vpn2", "192.168.2.0/24", vrf=VRF),
)


def use_ipv6(in_core: bool) -> None:
    """From here on the hosts' addresses are of IPv6, beside those of IPv4, and the loopbacks' if the
    core has IPv6, too."""
    global FAMILY
    FAMILY = 6
    if in_core:
        LOOPBACKS6.update({router: f"2001:db8:ff::{i}" for i, router in enumerate(ROUTERS, 1)})


def add_vpn() -> None:
    """From here on the VPN's hosts and links stand in the lab, too."""
    global LINKS
    LINKS += VPN_LINKS
    HOSTS.update(VPN_HOSTS)


def add_lan() -> None:
    """From here on the hosts at both ends of the pseudowire stand in the lab, too."""
    LAN_HOSTS.update({"lan1": "pe1", "lan2": "pe2"})


def use_cards(*routers: str) -> None:
    """From here on these routers' agents drive their interfaces by DPDK."""
    global CARDS, LINKS
    CARDS = routers
    # Their driver has room for no more.
    LINKS = tuple(Link(tuple(dataclasses.replace(end, mtu=1500) for end in one.ends))
                  if any(end.node in routers for end in one.ends) else one for one in LINKS)


def use_workers(router: str, count: int) -> None:
    """From here on so many threads forward in that router."""
    WORKERS[router] = count


def wire(one: Interface) -> str:
    """The end of the link: the interface itself, unless that is a TAP device of the agent."""
    return f"{one.name}w" if one.node in CARDS else one.name


def has_vpn() -> bool:
    return HOSTS.keys() >= VPN_HOSTS.keys()


def vpn_routers() -> list[str]:
    """Those that have the VPN's VRF."""
    return list(VPN_HOSTS.values()) if has_vpn() else []


def interfaces(node: str) -> list[Interface]:
    return [end for one in LINKS for end in one.ends if end.node == node]


def core_interfaces(router: str) -> list[Interface]:
    """Those toward other routers."""
    return [one for one in interfaces(router) if neighbour(one) in ROUTERS]


def neighbour(one: Interface) -> str:
    """The node at the other end."""
    return one.name.removeprefix("to-")


def host_networks(router: str) -> list[str]:
    return [prefix(host) for host, of in HOSTS.items() if of == router]


def interface(node: str, toward: str) -> Interface:
    return next(one for one in interfaces(node) if one.name == f"to-{toward}")


def address(node: str) -> str:
    """The one address that names the node."""
    if node in LAN:
        return LAN[node].split("/")[0]
    if node in LOOPBACKS:
        return LOOPBACKS[node]
    one = interfaces(node)[0]
    return one.host if FAMILY == 4 else one.address6.split("/")[0]


def answering(router: str, toward: str) -> str:
    """The address that a router's ICMP errors come from that it sends to a neighbour: without one of
    the link in IPv6, its loopback's."""
    one = interface(router, toward)
    if FAMILY == 4:
        return one.host
    return one.address6.split("/")[0] or LOOPBACKS6[router]


def circuit(router: str) -> str | None:
    """The interface that is an attachment circuit of the router."""
    return next((f"to-{host}" for host, edge in LAN_HOSTS.items() if edge == router), None)


def far_edge(router: str) -> str:
    """The other end of the pseudowire."""
    return next(edge for edge in LAN_HOSTS.values() if edge != router)


def prefix(host: str) -> str:
    """The network that a host stands in."""
    if FAMILY == 4:
        return address(host).rsplit(".", 1)[0] + ".0/24"
    return address(host).rsplit(":", 1)[0] + ":/64"
