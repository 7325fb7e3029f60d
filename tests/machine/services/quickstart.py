"""The agent becomes the data plane of a router whose FRR runs already, by the lines of docs/install.md: as root, in a
machine of its own. Its two neighbours are namespaces with FRR and the kernel's MPLS."""

import pathlib
import shutil
import subprocess
import sys
import unittest

from in_machine import block_after, run, shell, until

FRR = pathlib.Path("/etc/frr")
PEERS = {1: "n1", 2: "n2"}  # behind eth1 and eth2


def config(number: int, interfaces: list[str]) -> dict[str, str]:
    """By daemon: each gives up its file at a section of another's. `number` is the last byte of the loopback's address."""
    ldp = "".join(f"  interface {interface}\n" for interface in interfaces)
    links = "".join(f"interface {interface}\n ip ospf network point-to-point\nexit\n" for interface in interfaces)
    return {"zebra": f"interface lo\n ip address 10.255.0.{number}/32\nexit\n",
            "ospfd": f"{links}router ospf\n ospf router-id 10.255.0.{number}\n network 0.0.0.0/0 area 0\nexit\n",
            "ldpd": f"mpls ldp\n router-id 10.255.0.{number}\n address-family ipv4\n"
                    f"  discovery transport-address 10.255.0.{number}\n{ldp}"}


def in_peer(name: str, *command, check: bool = True):
    return run("ip", "netns", "exec", name, *command, check=check)


def kernel_forwards_labels(where: tuple[str, ...], interfaces: list[str]) -> None:
    settings = ["net.mpls.platform_labels=1048575", "net.ipv4.ip_forward=1",
                *(f"net.mpls.conf.{interface}.input=1" for interface in interfaces)]
    run(*where, "sysctl", "-qw", *settings)


def make_peer(number: int, name: str) -> None:
    run("ip", "netns", "add", name)
    run("ip", "link", "add", f"eth{number}", "type", "veth", "peer", "name", "eth0", "netns", name)
    run("ip", "addr", "add", f"10.0.{number}.1/24", "dev", f"eth{number}")
    run("ip", "link", "set", f"eth{number}", "up")
    in_peer(name, "ip", "addr", "add", f"10.0.{number}.2/24", "dev", "eth0")
    for interface in ("lo", "eth0"):
        in_peer(name, "ip", "link", "set", interface, "up")
    kernel_forwards_labels(("ip", "netns", "exec", name), ["eth0", "lo"])
    (FRR / name).mkdir()
    daemons = config(number + 1, ["eth0"])
    for daemon, text in daemons.items():
        (FRR / name / f"{daemon}.conf").write_text(text)
    shell(f"chown -R frr:frr /etc/frr/{name}")
    for daemon in daemons:
        in_peer(name, f"/usr/lib/frr/{daemon}", "-d", "-N", name, "-f", FRR / name / f"{daemon}.conf")


def what_is_known() -> str:
    asked = [*(["vtysh", "-N", name, "-c", "show running-config", "-c", "show mpls ldp neighbor"]
               for name in PEERS.values()),
             ["vtysh", "-c", "show running-config"], ["grep", "options", FRR / "daemons"],
             ["journalctl", "-u", "ovix-fpm", "-u", "frr", "-n", "40", "--no-pager"], ["ss", "-tnp"],
             ["vtysh", "-c", "show ip ospf neighbor", "-c", "show mpls ldp neighbor", "-c", "show mpls table"],
             ["ip", "-M", "route"], ["ip", "route"], ["ip", "-s", "link"], ["ovixctl", "status"], ["ovixctl", "lfib", "show"],
             ["ovixctl", "drops", "show"], ["ovixctl", "port", "show"], ["ovixctl", "neighbour", "show"],
             ["journalctl", "-u", "ovix-agent@ovix", "-n", "20", "--no-pager"]]
    return "\n".join(run(*command, check=False).stdout for command in asked)


def is_configured() -> bool:
    """FRR's own start gives up on a machine this slow, and leaves the configuration unread."""
    if "router ospf" in run("vtysh", "-c", "show running-config", check=False).stdout:
        return True
    run("vtysh", "-b", check=False)
    return False


def ping(check: bool = False) -> bool:
    done = in_peer("n1", "ping", "-c", "3", "-i", "0.3", "-W", "3", "-I", "10.255.0.2", "10.255.0.3", check=check)
    assert "DUP!" not in done.stdout, "forwarded by the kernel, too: " + done.stdout
    return " 0% packet loss" in done.stdout


class QuickStart(unittest.TestCase):
    def test_1_a_router_with_frr_forwards_labels_by_its_kernel(self):
        for module in ("mpls_router", "mpls_iptunnel"):
            run("modprobe", module)
        for number, name in PEERS.items():
            make_peer(number, name)
        kernel_forwards_labels((), ["eth1", "eth2"])
        daemons = FRR / "daemons"
        daemons.write_text(daemons.read_text().replace("ospfd=no", "ospfd=yes").replace("ldpd=no", "ldpd=yes"))
        (FRR / "frr.conf").write_text("".join(config(1, ["eth1", "eth2"]).values()))
        shutil.chown(FRR / "frr.conf", "frr", "frr")
        run("systemctl", "start", "frr")
        until("the configuration of FRR", is_configured)
        until("labels in the kernel", lambda: run("ip", "-M", "route").stdout.count("via") >= 2, what_is_known)
        until("pings by the kernel", ping, what_is_known)

    def test_2_the_ten_lines_make_the_agent_its_data_plane(self):
        self.assertEqual(len(LINES := block_after("docs/install.md", "in ten lines")), 10)
        printed = ""
        for line in LINES:
            if "lfib show" in line:
                until("labels from zebra", lambda command=line: "owner fpm" in run("bash", "-c", command).stdout,
                      what_is_known)
            printed += shell(line.replace("./ovix", "./packages/ovix"))
            if "restart frr" in line:
                until("the configuration of FRR", is_configured)
        self.assertIn("owner fpm", printed)
        until("pings by the agent", ping, what_is_known)
        self.assertIn("forwarded", run("ovixctl", "status").stdout)

    def test_3_without_the_agent_nobody_forwards(self):
        run("systemctl", "stop", "ovix-agent@ovix")
        self.assertFalse(ping())
        run("systemctl", "start", "ovix-agent@ovix")
        until("pings by the next agent", ping)


if __name__ == "__main__":
    sys.stderr = sys.stdout
    unittest.main(verbosity=2)
