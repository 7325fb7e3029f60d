"""Network namespaces for the nodes, veth pairs for the links, and commands run inside."""

import pathlib
import subprocess

import topology

SYSCTLS = {
    # The agent forwards; the kernel of a router only speaks for the router itself.
    "net.ipv4.ip_forward": 0,
    "net.ipv4.conf.all.rp_filter": 0,
    "net.ipv4.conf.default.rp_filter": 0,
}
IPV4_ONLY = {
    "net.ipv6.conf.all.disable_ipv6": 1,
    "net.ipv6.conf.default.disable_ipv6": 1,
}
# An address is used at once, and nobody makes further ones.
IPV6_TOO = {
    "net.ipv6.conf.all.forwarding": 0,
    "net.ipv6.conf.default.accept_dad": 0,
    "net.ipv6.conf.default.accept_ra": 0,
}
# Where the kernel has MPLS, zebra tells the agent only of labels that the kernel has room for.
MPLS_SYSCTLS = {"net.mpls.platform_labels": 1048575}


def run(*command, check=True, **keys) -> subprocess.CompletedProcess:
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True,
                          check=False, **keys)
    if check and done.returncode:
        raise RuntimeError(f"{' '.join(map(str, command))}: {done.stdout}{done.stderr}")
    return done


def inside(node: str, *command) -> list[str]:
    """The command that runs another inside a node."""
    return ["ip", "netns", "exec", node, *[str(word) for word in command]]


def run_in(node: str, *command, **keys) -> subprocess.CompletedProcess:
    return run(*inside(node, *command), **keys)


def kernel_has_mpls() -> bool:
    return pathlib.Path("/proc/sys/net/mpls").exists()


def kernel_has_vrfs() -> bool:
    return run("unshare", "--net", "ip", "link", "add", "red", "type", "vrf", "table", 10,
               check=False).returncode == 0


def build() -> None:
    for node in (*topology.ROUTERS, *topology.HOSTS, *topology.LAN_HOSTS):
        add_node(node)
    for router in topology.vpn_routers():
        run("ip", "-n", router, "link", "add", topology.VRF, "type", "vrf", "table",
            topology.VRF_TABLE)
        run("ip", "-n", router, "link", "set", topology.VRF, "up")
    for link in topology.LINKS:
        add_link(link)
    for host, router in topology.LAN_HOSTS.items():
        add_circuit(host, router)
    for router, loopback in topology.LOOPBACKS.items():
        run("ip", "-n", router, "addr", "add", f"{loopback}/32", "dev", "lo")
    for router, loopback in topology.LOOPBACKS6.items():
        run("ip", "-n", router, "addr", "add", f"{loopback}/128", "dev", "lo")
    for host, router in topology.HOSTS.items():
        gateway = topology.interface(router, host)
        run("ip", "-n", host, "route", "add", "default", "via", gateway.host)
        if topology.FAMILY == 6:
            run("ip", "-n", host, "route", "add", "default", "via",
                gateway.address6.split("/")[0])


def add_node(node: str) -> None:
    run("ip", "netns", "add", node)
    wanted = SYSCTLS | (IPV4_ONLY if topology.FAMILY == 4 else IPV6_TOO) | (MPLS_SYSCTLS if kernel_has_mpls() else {})
    run_in(node, "sysctl", "-q", "-w", *[f"{key}={value}" for key, value in wanted.items()])
    run("ip", "-n", node, "link", "set", "lo", "up")


def add_link(link: topology.Link) -> None:
    one, other = link.ends
    run("ip", "link", "add", topology.wire(one), "netns", one.node, "type", "veth",
        "peer", "name", topology.wire(other), "netns", other.node)
    if any(end.node in topology.CARDS for end in link.ends):
        for end in link.ends:  # devices of DPDK do not hear of checksums that are left to them
            run_in(end.node, "ethtool", "-K", topology.wire(end), "tx", "off")
    for end in link.ends:
        if end.node in topology.CARDS:
            run("ip", "-n", end.node, "link", "set", topology.wire(end), "mtu", end.mtu, "up")
            continue
        if end.vrf != "default":
            run("ip", "-n", end.node, "link", "set", end.name, "master", end.vrf)
        run("ip", "-n", end.node, "addr", "add", end.address, "dev", end.name)
        if topology.FAMILY == 6 and end.address6:
            run("ip", "-n", end.node, "addr", "add", end.address6, "dev", end.name)
        run("ip", "-n", end.node, "link", "set", end.name, "mtu", end.mtu, "up")


def address_cards(router: str) -> None:
    """What add_link() leaves to be done when the agent has made the interfaces."""
    for one in topology.interfaces(router):
        run("ip", "-n", router, "addr", "add", one.address, "dev", one.name)


def add_circuit(host: str, router: str) -> None:
    """The router has no address there: the link belongs to the customer."""
    run("ip", "link", "add", f"to-{router}", "netns", host, "type", "veth",
        "peer", "name", f"to-{host}", "netns", router)
    run("ip", "-n", host, "addr", "add", topology.LAN[host], "dev", f"to-{router}")
    run("ip", "-n", host, "link", "set", f"to-{router}", "up")
    run("ip", "-n", router, "link", "set", f"to-{host}", "up")


def set_link(node: str, toward: str, state: str) -> None:
    """Cuts or mends a link: both ends notice."""
    run("ip", "-n", node, "link", "set", topology.interface(node, toward).name, state)
