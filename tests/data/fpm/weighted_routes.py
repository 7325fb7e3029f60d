"""Routes of two BGP neighbours that say how much bandwidth each has: IPv4 plain, IPv6 labelled."""

from recorder import Recorder, add_addresses, add_link, add_node, wait_until

NEEDS_VRF = False

LINKS = {
    "west0": ("192.0.2.1", "192.0.2.2", 30, "2001:db8::1", "2001:db8::2", 65001),
    "east0": ("192.0.2.5", "192.0.2.6", 30, "2001:db8:1::1", "2001:db8:1::2", 65002),
}

# {sessions} are lines for all neighbours, {plain} and {labelled} for the address families.
BGP = """
router bgp {number}
 bgp router-id {router_id}
 no bgp ebgp-requires-policy
 no bgp network import-check
 bgp bestpath as-path multipath-relax
{sessions}
 address-family ipv4 unicast
{plain}
 address-family ipv6 labeled-unicast
{labelled}
"""


def bgp(number: int, router_id: str, neighbours: list[tuple[str, int]], policy: bool) -> str:
    sessions, families = [], {"plain": ["  maximum-paths 4"], "labelled": ["  maximum-paths 4"]}
    for address, remote in neighbours:
        family = "labelled" if ":" in address else "plain"
        sessions += [f" neighbor {address} remote-as {remote}",
                     f" neighbor {address} timers connect 1",
                     f" neighbor {address} advertisement-interval 0"]
        if family == "labelled":
            sessions += [f" no neighbor {address} activate"]
        families[family] += [f"  neighbor {address} activate"]
        if policy:
            families[family] += [f"  neighbor {address} route-map bandwidth out"]
    return BGP.format(number=number, router_id=router_id, sessions="\n".join(sessions),
                      **{name: "\n".join(lines) for name, lines in families.items()})


def bandwidth(megabits: int) -> list[str]:
    return ["route-map bandwidth permit 10", f"set extcommunity bandwidth {megabits}", "exit"]


def announced(number: int, no: str = "") -> list[str]:
    """Lines for a neighbour: one prefix of each family."""
    return [f"router bgp {number}",
            "address-family ipv4 unicast", f"{no}network 203.0.113.0/24", "exit-address-family",
            "address-family ipv6 unicast", f"{no}network 2001:db8:100::/48",
            "exit-address-family", "exit"]


def record(recorder: Recorder) -> None:
    neighbours = []
    for name, (here, there, length, here6, there6, _) in LINKS.items():
        add_node(name)
        add_link(name, name, f"{here}/{length}", f"{here6}/64")
        add_addresses(name, name + "p", f"{there}/{length}", f"{there6}/64")
    recorder.start(bgpd=bgp(65000, "10.255.0.1",
                            [(address, link[5]) for link in LINKS.values()
                             for address in (link[1], link[4])], False))
    for name, (here, there, _, here6, _, number) in LINKS.items():
        text = bgp(number, there, [(here, 65000), (here6, 65000)], True)
        neighbours.append(recorder.neighbour(name, bgpd=text))
    wait_until("four sessions stand", lambda: established(recorder) == 4, 60)
    west, east = neighbours
    recorder.drained()
    recorder.typed("routes_with_bandwidth", *bandwidth(3000), *announced(65001), frr=west, quiet=8)
    recorder.typed("weighted_routes", *bandwidth(1000), *announced(65002), frr=east, quiet=8)
    print(recorder.shown("show ip route", "show ipv6 route", "show mpls table",
                         "show bgp ipv4 unicast 203.0.113.0/24", "show bgp ipv6 labeled-unicast"))
    recorder.typed("changed_weights", *bandwidth(500), frr=east, quiet=8)
    recorder.typed("weights_gone", *announced(65002, "no "), frr=east, quiet=8)


def established(recorder: Recorder) -> int:
    shown = recorder.shown("show bgp neighbors")
    return shown.count("BGP state = Established")
