"""Cards that the service drives by DPDK, as docs/install.md has it: two of the four cards of the machine, whose other
ends are the kernel's in namespaces."""

import pathlib
import subprocess
import sys
import unittest

from in_machine import block_after, run, shell, shown, until

AGENT = "ovix-agent@ovix"
DROP_IN = pathlib.Path("/etc/systemd/system/ovix-agent@.service.d/dpdk.conf")
CONFIG = """ports:
- {name: west, kind: dpdk, device: '0000:00:10.0', addresses: [10.0.1.1/24]}
- {name: east, kind: dpdk, device: '0000:00:11.0', mac: '02:00:00:00:00:22', addresses: [10.0.2.1/24]}
neighbours:
- {address: 10.0.2.2, port: east, mac: '02:00:00:00:02:02'}
"""
SEND = """
import socket
wire = socket.socket(socket.AF_PACKET, socket.SOCK_RAW); wire.bind(("host", 0))
for i in range(200):
    wire.send(bytes.fromhex("020000000101020000000102" "8847") + (100 << 12 | 0x140).to_bytes(4, "big") + bytes(46))
"""
COUNT = """
import socket
wire = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(0x8847)); wire.bind(("host", 0x8847))
wire.settimeout(30); print("ready", flush=True)
seen = [wire.recv(2000) for _ in range(200)]
print(all(int.from_bytes(one[14:17], "big") >> 4 == 200 and one[6:12].hex() == "020000000022" for one in seen))
"""


def interface_with(mac: str) -> str:
    return next(path.name for path in pathlib.Path("/sys/class/net").iterdir()
                if (path / "address").read_text().strip() == mac)


def in_host(name: str, *command, check: bool = True):
    return run("ip", "netns", "exec", name, *command, check=check)


def host(name: str, mac: str, address: str) -> None:
    run("ip", "netns", "add", name)
    interface = interface_with(mac)
    run("ip", "link", "set", interface, "down")
    run("ip", "link", "set", interface, "netns", name, "name", "host")
    in_host(name, "ip", "addr", "add", address, "dev", "host")
    in_host(name, "ip", "link", "set", "host", "up")


class Cards(unittest.TestCase):
    """In the order of their numbers, since a machine boots once."""

    def forwarded(self) -> None:
        for name in ("west", "east"): # cards take seconds to have a link
            until(f"the link of {name}", lambda name=name: pathlib.Path(f"/sys/class/net/{name}/carrier").read_text() == "1\n")
        counter = subprocess.Popen(["ip", "netns", "exec", "e", "python3", "-c", COUNT], stdout=subprocess.PIPE, text=True)
        self.addCleanup(counter.kill)
        self.assertEqual(counter.stdout.readline(), "ready\n")
        in_host("w", "python3", "-c", SEND)
        self.assertEqual(counter.communicate(timeout=60)[0], "True\n")

    def test_1_the_service_drives_cards_as_the_document_says(self):
        shell("apt-get install -y -qq --no-install-recommends ./packages/ovix*.deb")
        host("w", "02:00:00:00:01:02", "10.0.1.2/24")
        host("e", "02:00:00:00:02:02", "10.0.2.2/24")
        for line in block_after("docs/install.md", "## Cards by DPDK"):
            shell(line)
        DROP_IN.parent.mkdir()
        DROP_IN.write_text("\n".join(block_after("docs/install.md", "needs a drop-in")) + "\n")
        pathlib.Path("/etc/ovix/ovix.yaml").write_text(CONFIG)
        run("systemctl", "daemon-reload")
        run("systemctl", "start", AGENT)
        self.assertEqual(shown(AGENT, "StatusText"), "forwarding on 2 of 2 ports")

    def test_2_frames_pass_by_their_labels(self):
        shell("ovixctl lfib add 100 as 200 via inet 10.0.2.2 dev east")
        self.forwarded()
        print(run("ovixctl", "port", "show").stdout)

    def test_3_this_host_is_behind_the_cards(self):
        for name, mac in (("west", "02:00:00:00:01:01"), ("east", "02:00:00:00:00:22")):
            self.assertEqual(pathlib.Path(f"/sys/class/net/{name}/address").read_text().strip(), mac)
        for number, (name, peer) in enumerate((("west", "w"), ("east", "e")), 1):
            run("ip", "addr", "add", f"10.0.{number}.1/24", "dev", name)
            until(f"an answer of {name}", lambda peer=peer, number=number: in_host(
                peer, "ping", "-c", "2", "-W", "3", f"10.0.{number}.1", check=False).returncode == 0)

    def test_4_without_hugepages_it_does_as_well(self):
        run("systemctl", "stop", AGENT)
        self.assertEqual(shown(AGENT, "Result"), "success")
        run("sysctl", "-qw", "vm.nr_hugepages=0")
        run("systemctl", "start", AGENT)
        self.assertEqual(shown(AGENT, "StatusText"), "forwarding on 2 of 2 ports")
        self.forwarded()

    def test_5_a_card_of_the_kernel_is_refused_by_its_name(self):
        run("systemctl", "stop", AGENT)
        run("dpdk-devbind.py", "--bind=e1000e", "0000:00:10.0")
        self.assertNotEqual(run("systemctl", "start", AGENT, check=False).returncode, 0)
        self.assertIn("is bound to the kernel's driver e1000e", run("journalctl", "-u", AGENT, "--no-pager").stdout)


if __name__ == "__main__":
    sys.stderr = sys.stdout
    unittest.main(verbosity=2)
