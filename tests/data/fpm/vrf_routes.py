"""Two VRFs of a provider edge router: routes in their tables, labels that lead to them, and routes
from one into another or over the core. The VRFs' own routes come first, then the labels."""

from recorder import ROUTER, Recorder, add_addresses, add_link, add_node, run, run_in, wait_until

NEEDS_VRF = True

PE2 = "pe2"
TRANSPORT_LABEL = 16
VRFS = {"red": (10, "198.51.100.1/30", "2001:db8:a::1/64"),
        "blue": (1000, "198.51.100.5/30", "2001:db8:b::1/64")}
TABLE_OF_NO_VRF = 30
NO_ROUTE_METRIC = "4278198272"  # of a VRF's last route: whatever else is there comes before it

# What is typed before any label is there.
ROUTES = [
    ("vrf_routes", [
        "ip route 203.0.113.0/24 198.51.100.2 vrf red",
        "ip route 203.0.113.0/24 198.51.100.6 vrf blue",
        "ipv6 route 2001:db8:100::/48 2001:db8:a::2 vrf red",
        "ip route 203.0.114.0/24 blackhole vrf red",
        f"ip route 203.0.115.0/24 192.0.2.2 table {TABLE_OF_NO_VRF}",
    ]),
    ("vrf_leaked_routes", [
        "ip route 203.0.116.0/24 192.0.2.2 vrf red nexthop-vrf default",
        "ip route 203.0.117.0/24 198.51.100.2 nexthop-vrf red",
        "ip route 203.0.118.0/24 red nexthop-vrf red",
        "ip route 203.0.119.0/24 192.0.2.2 label 16/500 vrf red nexthop-vrf default",
    ]),
]

BGP = """
router bgp 65000
 bgp router-id {here}
 neighbor {there} remote-as 65000
 neighbor {there} update-source {here}
 neighbor {there} timers connect 1
 no neighbor {there} activate
 address-family ipv4 vpn
  neighbor {there} activate
 address-family ipv6 vpn
  neighbor {there} activate
"""


def bgp(here: str, there: str) -> str:
    return BGP.format(here=here, there=there)


def vrf_bgp(vrf: str, number: int) -> list[str]:
    """Lines that put a VRF into the VPN, each family with a label of its own."""
    lines = [f"router bgp 65000 vrf {vrf}"]
    for family in ("ipv4", "ipv6"):
        lines += [f"address-family {family} unicast", "redistribute connected",
                  "label vpn export auto", f"rd vpn export 65000:{number}",
                  f"rt vpn both 65000:{number}", "export vpn", "import vpn",
                  "exit-address-family"]
    return [*lines, "exit"]


def make_network() -> None:
    add_node(PE2)
    add_node("ce")
    add_link("west0", PE2, "192.0.2.1/30", "2001:db8::1/64")
    add_addresses(PE2, "west0p", "192.0.2.2/30", "2001:db8::2/64")
    run("ip", "addr", "add", "10.255.0.1/32", "dev", "lo")
    run("ip", "-n", PE2, "addr", "add", "10.255.0.2/32", "dev", "lo")
    for vrf, (table, v4, v6) in VRFS.items():
        run("ip", "link", "add", vrf, "type", "vrf", "table", table)
        run("ip", "link", "set", vrf, "up")
        for family in ("-4", "-6"):
            run("ip", family, "route", "add", "table", table, "unreachable", "default",
                "metric", NO_ROUTE_METRIC)
        add_link(f"{vrf}0", "ce")
        run("ip", "link", "set", f"{vrf}0", "master", vrf)
        add_addresses(ROUTER, f"{vrf}0", v4, v6)


def make_pe2(recorder: Recorder):
    """Pops the transport label itself, so that sessions over the labelled path stand."""
    run("ip", "-n", PE2, "link", "add", "red", "type", "vrf", "table", 10)
    run("ip", "-n", PE2, "link", "set", "red", "up")
    run("ip", "-n", PE2, "link", "add", "red0", "master", "red", "type", "dummy")
    add_addresses(PE2, "red0", "203.0.120.1/24", "2001:db8:120::1/64")
    frr = recorder.neighbour(PE2, staticd="ip route 10.255.0.1/32 192.0.2.1\n",
                             bgpd=bgp("10.255.0.2", "10.255.0.1"))
    run_in(PE2, "sysctl", "-qw", "net.mpls.conf.west0p.input=1")
    run("ip", "-n", PE2, "-f", "mpls", "route", "add", TRANSPORT_LABEL, "dev", "lo")
    return frr


def record(recorder: Recorder) -> None:
    make_network()
    recorder.start(staticd="", bgpd=bgp("10.255.0.1", "10.255.0.2"))
    recorder.frr.vtysh("configure terminal",
                       f"ip route 10.255.0.2/32 192.0.2.2 label {TRANSPORT_LABEL}")
    pe2 = make_pe2(recorder)
    wait_until("the session stands", lambda: "BGP state = Established" in
               recorder.shown("show bgp neighbors"), 90)
    recorder.drained()
    for name, lines in ROUTES:
        recorder.typed(name, *lines)
    recorder.typed("vrf_labels", *vrf_bgp("red", 1), *vrf_bgp("blue", 2), quiet=8)
    recorder.typed("vpn_routes", *vrf_bgp("red", 1), frr=pe2, quiet=8)
    recorder.typed("vrf_imports", "router bgp 65000 vrf blue", "address-family ipv4 unicast",
                   "rt vpn import 65000:1 65000:2", quiet=8)
    print(recorder.shown("show mpls table", "show ip route vrf all", "show ipv6 route vrf all",
                         "show bgp ipv4 vpn", "show bgp ipv6 vpn"))
    recorder.reconnect("vrf_full_dump")
    recorder.typed("vrf_withdrawals", "no ip route 203.0.113.0/24 198.51.100.2 vrf red",
                   "no ipv6 route 2001:db8:100::/48 2001:db8:a::2 vrf red",
                   "router bgp 65000 vrf blue", "address-family ipv4 unicast",
                   "no label vpn export auto", quiet=8)
    run("ip", "link", "del", "red")
    recorder.record("vrf_gone", quiet=8)
