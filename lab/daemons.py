"""FRR on a router: zebra, ospfd and ldpd with their configuration, and bgpd for the VPN."""

import json
import pathlib
import shutil

import network
import topology
from processes import Process, wait_until

HERE = pathlib.Path(__file__).resolve().parent
DAEMONS = pathlib.Path("/usr/lib/frr")
FPM_PORT = 2620

ZEBRA = f"""
no ip forwarding
no zebra nexthop kernel enable
fpm address 127.0.0.1 port {FPM_PORT}
no fpm use-next-hop-groups
"""

# A link that comes back is used again only when LDP has labels for it (RFC 5443).
OSPF = """
router ospf
 ospf router-id {loopback}
 timers throttle spf 0 10 50
 timers throttle lsa all 0
 timers lsa min-arrival 0
 mpls ldp-sync
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
    return LDP.format(loopback=topology.LOOPBACKS[router], interfaces="\n".join(lines))


def bgp_config(router: str) -> str:
    peer = next(other for other in topology.vpn_routers() if other != router)
    return BGP.format(loopback=topology.LOOPBACKS[router], peer=topology.LOOPBACKS[peer],
                      vrf=topology.VRF, table=topology.VRF_TABLE)


def compile_module(directory: pathlib.Path) -> pathlib.Path:
    module = directory / "labels_past_kernel.so"
    network.run("cc", "-shared", "-fPIC", "-o", module, HERE / "labels_past_kernel.c")
    return module


class Daemons:
    """The daemons of one router, started one by one."""

    def __init__(self, router: str, directory: pathlib.Path, module: pathlib.Path):
        self.router, self.module = router, module
        self.directory = directory / router / "frr"
        self.directory.mkdir(parents=True)
        self.socket = self.directory / "zserv.api"
        configs = {"zebra": ZEBRA, "ospfd": ospf_config(router), "ldpd": ldp_config(router)}
        if router in topology.vpn_routers():
            configs["bgpd"] = bgp_config(router)
        for name, text in configs.items():
            (self.directory / f"{name}.conf").write_text(text)
        shutil.chown(self.directory, "frr", "frr")
        self.processes = {}

    def start_all(self) -> None:
        """One that does not find zebra tries again only after ten seconds."""
        self.start_zebra()
        self.start("ospfd")
        self.start("ldpd")
        if self.router in topology.vpn_routers():
            self.start("bgpd")

    def start_zebra(self) -> None:
        self.start("zebra")
        wait_until(f"zebra listens on {self.router}", self.socket.exists, 10)

    def start(self, name: str) -> None:
        command = [DAEMONS / name, "-f", self.directory / f"{name}.conf",
                   "-i", self.directory / f"{name}.pid", "-z", self.socket,
                   "--vty_socket", self.directory, "-u", "frr", "-g", "frr", "-P", "0",
                   "--log", f"file:{self.directory / name}.log"]
        if name == "zebra":
            # Its predecessor's routes stay in the kernel until they are told again.
            command += ["-K", "15", "-M", "dplane_fpm_nl"]
            if not network.kernel_has_mpls():
                command += ["-M", self.module]  # behind dplane_fpm_nl, as the module says
            command = [HERE / "with_mpls_sysctls.sh", self.directory / "sysctls", *command]
        if name == "ldpd":
            command += ["--ctl_socket", self.directory]
        self.processes[name] = Process(self.router, self.directory, name, *command)

    def kill(self, name: str) -> None:
        self.processes[name].kill()
        if name == "zebra":
            self.socket.unlink()

    def restart_others(self) -> None:
        """What FRR's watchdog does when zebra has died: these two do not tell a new zebra what they
        have told the old one."""
        self.kill("ospfd")
        self.kill("ldpd")
        self.start("ospfd")
        self.start("ldpd")

    def show(self, words: str) -> dict:
        """The answer to `show WORDS json`."""
        done = network.run("vtysh", "--vty_socket", self.directory, "-c", f"show {words} json",
                           check=False)
        return json.loads(done.stdout) if done.returncode == 0 and done.stdout.strip() else {}

    def labels(self) -> dict:
        """FRR's label table by incoming label."""
        return {int(label): route for label, route in self.show("mpls table").items()}

    def route(self, prefix: str, vrf: str = "default") -> list[dict]:
        """Next hops of the route in use."""
        for route in self.show(f"ip route vrf {vrf} {prefix}").get(prefix, []):
            if route.get("selected"):
                return [hop for hop in route["nexthops"] if hop.get("active")]
        return []

    def pushed_label(self, prefix: str, toward: str = "p"):
        """The label that is pushed toward a prefix, when that leads to one router alone."""
        hops = self.route(prefix)
        if len(hops) != 1 or hops[0]["interfaceName"] != f"to-{toward}":
            return None
        labels = hops[0].get("labels", [])
        return labels[0] if len(labels) == 1 else None
