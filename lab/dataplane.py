"""Our side of a router: the agent on its interfaces, ovix-fpm, and what ovixctl tells of them."""

import json
import os
import pathlib

import network
import topology
from processes import Process, wait_until

BIN = pathlib.Path(os.environ.get("OVIX_BIN", "build/release/bin")).resolve()
SWEEP_AFTER = 5  # seconds; the routing daemons are started with zebra


def config(router: str) -> str:
    """Ports are all that the agent is told; the rest comes from the kernel and from zebra."""
    workers = topology.WORKERS.get(router, 0)
    text = f"workers: {workers}\n" if workers else ""
    # A card has a queue for each of them, and one for the thread beside; all need memory.
    queues = f",qpairs={workers + 1}" if workers else ""
    if router in topology.CARDS:
        text += "dpdk: {eal: ['-m', '512']}\n"
    text += "ports:\n"
    for i, one in enumerate(topology.interfaces(router)):
        own = [one.address] + ([f"{topology.LOOPBACKS[router]}/32"] if i == 0 else [])
        if topology.FAMILY == 6 and one.address6:
            own.append(f'"{one.address6}"')
        if topology.LOOPBACKS6 and i == 0:
            own.append(f'"{topology.LOOPBACKS6[router]}/128"')
        kind = (f"kind: dpdk, device: 'net_af_packet{i},iface={topology.wire(one)}{queues}'"
                if router in topology.CARDS else "kind: packet")
        text += (f"  - {{name: {one.name}, {kind}, vrf: {one.vrf}, "
                 f"addresses: [{', '.join(own)}]}}\n")
    if topology.circuit(router):
        text += f"  - {{name: {topology.circuit(router)}, kind: packet}}\n"
    return text


class Dataplane:
    """Table set, agent and FPM listener of one router."""

    def __init__(self, router: str, directory: pathlib.Path):
        self.router = router
        self.options = ()  # of the agent, beside those that it always has
        self.directory = directory / router
        self.directory.mkdir(exist_ok=True)
        self.control = self.directory / "agent.sock"
        (self.directory / "agent.yaml").write_text(config(router))
        self.agent = self.fpm = None

    def start_fpm(self) -> None:
        self.fpm = Process(self.router, self.directory, "ovix-fpm", BIN / "ovix-fpm",
                           "--tables", self.router, "--sweep-after", SWEEP_AFTER, *self.asked())
        wait_until(f"ovix-fpm listens on {self.router}",
                   lambda: "listening" in self.fpm.err.read_text(), 5)

    def asked(self) -> list:
        """What the listener asks FRR for, where it has more than zebra's messages say."""
        asked = ["--pseudowires"] if topology.circuit(self.router) else []
        asked += ["--next-hops"] if topology.FAMILY == 6 else []
        return [*asked, "--vty-socket", self.directory / "frr"] if asked else []

    def start_agent(self) -> None:
        (self.directory / "ovix-agent.out").unlink(missing_ok=True)  # an earlier one's balance
        self.agent = Process(self.router, self.directory, "ovix-agent", BIN / "ovix-agent", "run",
                             self.directory / "agent.yaml", "--live", "--tables", self.router,
                             "--create", "--control", self.control, "--json", "--quiet",
                             *self.options)

    def wait_for_agent(self) -> None:
        wait_until(f"the agent on {self.router} answers", self.answers, 10)

    def answers(self) -> bool:
        self.agent.expect_alive()
        return self.ctl("counters", "show", check=False).returncode == 0

    def ctl(self, *words, **keys):
        return network.run(BIN / "ovixctl", "--tables", self.router, "--control", self.control,
                           *words, "--json", **keys)

    def lfib(self, table: str = "transit") -> dict:
        """An LFIB by label; routes that wait for those of another owner are left out."""
        return {route["label"]: route for route in self.routes(table) if not route.get("waitsFor")}

    def routes(self, *table: str) -> list[dict]:
        """Those of a table, or everything."""
        return json.loads(self.ctl("lfib", "show", *table).stdout)["routes"]

    def drop_reasons(self) -> dict:
        """How often each reason has dropped a frame since the agent was started."""
        return json.loads(self.ctl("drops", "show").stdout)["dropped"]["reasons"]

    def fates_at(self, port: str) -> dict:
        """How often each reason has dropped or punted a frame that came in there."""
        shown = json.loads(self.ctl("drops", "show", "--by", "port").stdout)
        return {one["reason"]: one["frames"] for one in shown["drops-by-port"] if one["port"] == port}

    def received(self, port: str) -> int:
        shown = json.loads(self.ctl("port", "show").stdout)
        return next(one["received"] for one in shown["ports"] if one["name"] == port)

    def pseudowire(self) -> dict:
        """What the agent says of its pseudowire; empty while it has none."""
        shown = json.loads(self.ctl("pseudowire", "show").stdout)["pseudowires"]
        return shown[0] if shown else {}

    def drops(self, reason: str) -> int:
        """How many frames the agent has dropped for a reason."""
        return self.drop_reasons().get(reason, 0)

    def label_packets(self, label: int) -> int:
        counters = json.loads(self.ctl("counters", "show").stdout)
        return next((one["packets"] for one in counters["labels"] if one["label"] == label), 0)

    def stop_agent(self) -> dict:
        """Ends the agent and gives the balance that it prints."""
        code = self.agent.stop()
        if code != 0:
            raise RuntimeError(f"the agent on {self.router} ended with {code}: "
                               f"{self.agent.err.read_text(errors='replace')[-2000:]}")
        return json.loads(self.agent.out.read_text())
