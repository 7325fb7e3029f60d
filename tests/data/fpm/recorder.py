"""zebra with its forwarding plane manager in this process, and other routers around it."""

import pathlib
import socket
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parents[2] / "lab"))

from frr import FPM, FPM_PORT, Frr  # noqa: E402
from network import MPLS_SYSCTLS, kernel_has_mpls, run, run_in  # noqa: E402
from processes import wait_until  # noqa: E402

ROUTER = "router"
QUIET = 1.5  # seconds without a byte after which nothing more is expected


def add_node(node: str) -> None:
    run("ip", "netns", "add", node)
    prepare(node)


def prepare(node: str) -> None:
    run("ip", "-n", node, "link", "set", "lo", "up")
    if kernel_has_mpls():
        run_in(node, "sysctl", "-qw", *[f"{key}={value}" for key, value in MPLS_SYSCTLS.items()])


def add_link(name: str, node: str, *addresses: str) -> None:
    """A link of the router, NAME, whose other end, NAMEp, is in that node."""
    run("ip", "link", "add", name, "type", "veth", "peer", "name", name + "p", "netns", node)
    add_addresses(ROUTER, name, *addresses)
    run("ip", "-n", node, "link", "set", name + "p", "up")


def add_addresses(node: str, name: str, *addresses: str) -> None:
    for address in addresses:
        nodad = ["nodad"] if ":" in address else []
        run("ip", "-n", node, "addr", "add", address, "dev", name, *nodad)
    run("ip", "-n", node, "link", "set", name, "up")


class Recorder:
    """The router, whose namespace this process is in, and the files that its FPM fills."""

    def __init__(self, directory: pathlib.Path, output: pathlib.Path, module: pathlib.Path):
        self.directory, self.output, self.module = directory, output, module
        self.frr, self.connection = None, None
        self.listener = socket.create_server(("127.0.0.1", FPM_PORT))

    def start(self, **configs: str) -> None:
        """zebra and these daemons, and what zebra says first, which is recorded nowhere."""
        self.frr = Frr(ROUTER, self.directory, self.module, {"zebra": FPM} | configs)
        self.frr.start_all()
        self.connection = self.accepted()
        for name in configs:
            wait_until(f"{name} has come to zebra", lambda wanted=name.removesuffix("d"):
                       wanted in self.shown("show zebra client summary"), 60)
        self.drained()

    def neighbour(self, node: str, **configs: str) -> Frr:
        """Daemons on another node, running."""
        frr = Frr(node, self.directory, self.module, {"zebra": ""} | configs)
        frr.start_all()
        return frr

    def typed(self, name: str, *lines: str, frr: Frr | None = None, quiet: float = QUIET) -> None:
        """What zebra says when configuration is typed, here or at a neighbour."""
        done = (frr or self.frr).vtysh("configure terminal", *lines)
        if done.returncode or done.stdout.strip():
            print(f"{name}: {done.stdout}{done.stderr}", file=sys.stderr)
        self.record(name, quiet)

    def reconnect(self, name: str) -> None:
        self.connection.close()
        self.connection = self.accepted()
        self.record(name)

    def record(self, name: str, quiet: float = QUIET) -> None:
        taken = self.drained(quiet)
        (self.output / f"{name}.bin").write_bytes(taken)
        print(f"{name}.bin: {len(taken)} bytes", flush=True)

    def shown(self, *commands: str) -> str:
        return self.frr.vtysh(*commands).stdout

    def drained(self, quiet: float = QUIET) -> bytes:
        self.connection.settimeout(quiet)
        taken = b""
        try:
            while chunk := self.connection.recv(65536):
                taken += chunk
        except TimeoutError:
            pass
        return taken

    def accepted(self) -> socket.socket:
        self.listener.settimeout(30)
        return self.listener.accept()[0]
