"""Traffic between the hosts, and captures of it on the way."""

import contextlib
import json
import pathlib
import re
import time

import network
import topology
from processes import Process, wait_until

BETWEEN_CES = ("ce1", "ce2")


class Ping:
    """Echo requests from one host to another, sent in the background."""

    def __init__(self, directory: pathlib.Path, count: int, hosts: tuple[str, str] = BETWEEN_CES,
                 interval: float = 0.005):
        source, target = hosts
        self.process = Process(source, directory, f"ping-{time.monotonic_ns()}", "ping", "-n",
                               "-c", count, "-i", interval, "-W", 1, topology.address(target))

    def finish(self) -> tuple[int, int]:
        """Waits for the end; requests sent and answers received."""
        self.process.process.wait(120)
        return self.result()

    def stop(self) -> tuple[int, int]:
        """As finish(); a request that was still on its way does not count."""
        self.process.interrupt()
        sent, received = self.result()
        answered = re.findall(r"icmp_seq=(\d+) ttl", self.process.out.read_text())
        return sent - (1 if str(sent) not in answered[-3:] else 0), received

    def result(self) -> tuple[int, int]:
        text = self.process.out.read_text()
        found = re.search(r"(\d+) packets transmitted, (\d+) received", text)
        if not found:
            raise RuntimeError(f"ping: {text[-500:]}{self.process.err.read_text()}")
        return int(found[1]), int(found[2])


class Streams:
    """Datagrams on several ways at once, each from one node to another, in the background."""

    def __init__(self, directory: pathlib.Path, ways: list[list[str]]):
        words = [word for source, target in ways for word in (source, target, topology.address(target))]
        self.process = Process(ways[0][0], directory, f"streams-{time.monotonic_ns()}", "python3",
                               pathlib.Path(__file__).with_name("streams.py"), *words)
        wait_until("the streams begin", lambda: "ready" in self.process.out.read_text(), 10)

    def stop(self) -> tuple[int, dict[str, int]]:
        """Datagrams sent on each way, and lost by each."""
        self.process.interrupt()
        lines = self.process.out.read_text().splitlines()
        if len(lines) < 2:
            raise RuntimeError(f"streams: {self.process.err.read_text()}")
        result = json.loads(lines[1])
        return result["sent"], result["lost"]


def ping(directory: pathlib.Path, count: int,
         hosts: tuple[str, str] = BETWEEN_CES) -> tuple[int, int]:
    return Ping(directory, count, hosts).finish()


def reaches(directory: pathlib.Path, hosts: tuple[str, str] = BETWEEN_CES) -> bool:
    return ping(directory, 1, hosts)[1] == 1


def requests_to(host: str) -> str:
    """The display filter of echo requests to a host."""
    six = topology.FAMILY == 6
    return (f"{'icmpv6.type == 128 && ipv6' if six else 'icmp.type == 8 && ip'}.dst == "
            f"{topology.address(host)}")


def throughput(directory: pathlib.Path, seconds: int) -> float:
    """Megabits per second of one TCP connection from one host to the other."""
    server = Process("ce2", directory, "iperf3-server", "iperf3", "-s", "-1")
    try:
        wait_until("iperf3 listens", lambda: ":5201" in network.run_in("ce2", "ss", "-ltn").stdout,
                   5)
        done = network.run_in("ce1", "iperf3", "-c", topology.address("ce2"), "-t", seconds,
                              "--json", check=False, timeout=seconds + 20)
        result = json.loads(done.stdout)
        if "error" in result:
            raise RuntimeError(f"iperf3: {result['error']}")
        return result["end"]["sum_received"]["bits_per_second"] / 1e6
    finally:
        server.kill()


def hops(hosts: tuple[str, str] = BETWEEN_CES) -> list[str]:
    """The nodes on the way from one host to another by their addresses, "*" for one that does not answer;
    with the label that it saw when it tells one (RFC 4950)."""
    source, target = hosts
    shown = network.run_in(source, "traceroute", "-n", "-e", "-q", 1, "-w", 1, "-m", 6,
                           topology.address(target)).stdout
    nodes = []
    for line in shown.splitlines()[1:]:
        label = re.search(r"<MPLS:L=(\d+)", line)
        nodes.append(line.split()[1] + (f" label {label[1]}" if label else ""))
    return nodes


@contextlib.contextmanager
def capture(directory: pathlib.Path, node: str, toward: str = ""):
    """Captures on an interface, or on all, also those that come up meanwhile, while the body runs; the path of the
    capture."""
    interface = topology.wire(topology.interface(node, toward)) if toward else "any"
    path = directory / f"{node}-to-{toward}.pcap"
    process = Process(node, directory, f"dumpcap-{node}-{toward}", "dumpcap", "-q", "-P",
                      "-i", interface, "-w", path)
    wait_until("dumpcap captures", lambda: "File:" in process.err.read_text(), 10)
    try:
        yield path
    finally:
        time.sleep(0.3)  # what has been captured is written a little later
        process.interrupt()


def dissected(path: pathlib.Path, wanted: str, *fields: str, decode: str = "") -> list[list[str]]:
    """The values of tshark's fields in the frames that its display filter wants; `decode` says as what
    it is to take something."""
    command = ["tshark", "-r", path, "-Y", wanted, "-T", "fields", *(["-d", decode] if decode else [])]
    for field in fields:
        command += ["-e", field]
    return [line.split("\t") for line in network.run(*command).stdout.splitlines()]
