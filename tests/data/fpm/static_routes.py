"""Static routes and labels, typed."""

from recorder import ROUTER, Recorder, add_addresses, run

NEEDS_VRF = False

# Name of the file, and what is typed for it.
STEPS = [
    ("plain_routes", [
        "ip route 203.0.113.0/24 192.0.2.2",
        "ipv6 route 2001:db8:100::/48 2001:db8::2",
        "ip route 203.0.114.0/24 west0",
    ]),
    ("discarding_routes", [
        "ip route 198.51.100.0/25 blackhole",
        "ip route 198.51.100.128/25 reject",
        "ipv6 route 2001:db8:200::/48 blackhole",
    ]),
    ("multipath_routes", [
        "ip route 203.0.115.0/24 192.0.2.2",
        "ip route 203.0.115.0/24 192.0.2.6",
        "ipv6 route 2001:db8:300::/48 2001:db8::2",
        "ipv6 route 2001:db8:300::/48 2001:db8:1::2",
    ]),
    ("labelled_routes", [
        "ip route 203.0.116.0/24 192.0.2.2 label 16/1048575",
        "ip route 203.0.117.0/24 192.0.2.2 label 100",
        "ip route 203.0.117.0/24 192.0.2.6 label 200/300/400",
        "ipv6 route 2001:db8:400::/48 2001:db8::2 label 500",
    ]),
    ("changed_route", [
        "no ip route 203.0.113.0/24 192.0.2.2",
        "ip route 203.0.113.0/24 192.0.2.6",
    ]),
    ("label_routes", [
        "mpls lsp 1000 192.0.2.2 2000",
        "mpls lsp 1001 192.0.2.2 implicit-null",
        "mpls lsp 1002 192.0.2.6 explicit-null",
        "mpls lsp 1003 192.0.2.2 2003",
        "mpls lsp 1003 192.0.2.6 2013",
        "mpls lsp 1004 2001:db8::2 2004",
        "mpls lsp 1005 2001:db8::2 explicit-null",
    ]),
    ("changed_label_route", [
        "mpls lsp 1000 192.0.2.6 2100",
        "no mpls lsp 1000 192.0.2.2 2000",
    ]),
    ("withdrawals", [
        "no ip route 203.0.116.0/24 192.0.2.2 label 16/1048575",
        "no ipv6 route 2001:db8:100::/48 2001:db8::2",
        "no mpls lsp 1001 192.0.2.2 implicit-null",
    ]),
]


def make_links() -> None:
    for name, v4, v6 in (("west0", "192.0.2.1/30", "2001:db8::1/64"),
                         ("east0", "192.0.2.5/30", "2001:db8:1::1/64")):
        run("ip", "link", "add", name, "type", "veth", "peer", "name", name + "p")
        add_addresses(ROUTER, name, v4, v6)
        run("ip", "link", "set", name + "p", "up")


def record(recorder: Recorder) -> None:
    make_links()
    recorder.start(staticd="")
    for name, lines in STEPS:
        recorder.typed(name, *lines)
    print(recorder.shown("show mpls table", "show ip route", "show ipv6 route"))
    recorder.reconnect("full_dump")
    recorder.frr.vtysh("configure terminal", "zebra nexthop kernel enable",
                       "fpm use-next-hop-groups")
    recorder.reconnect("next_hop_groups")
