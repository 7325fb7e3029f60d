"""What the lab shows of the pseudowire between LAN1 and LAN2, which ldpd signals."""

import time

import network
import topology
import traffic
from checks import expect
from processes import wait_until

HOSTS = ("lan1", "lan2")
EDGES = ("pe1", "pe2")
FULL = 1472  # bytes of an echo request in a frame of 1500
AT_EDGES = 2  # the loss may begin and end between two datagrams, which are sent one right after the other


def is_up(lab) -> bool:
    return all(lab.planes[edge].pseudowire().get("state") == "up" for edge in EDGES)


def wait_for_pseudowire(lab, timeout: float = 30) -> float:
    """Until both ends are up and the hosts reach each other."""
    return wait_until("LAN2 answers LAN1 through the pseudowire",
                      lambda: is_up(lab) and traffic.reaches(lab.directory, HOSTS), timeout)


def tunnel_labels(lab) -> list[int] | None:
    """The labels of the tunnel from PE1 by P, when the agent and FRR agree on it."""
    pushed = lab.daemons["pe1"].pushed_label(f"{topology.LOOPBACKS['pe2']}/32")
    tunnel = lab.planes["pe1"].pseudowire()["tunnel"]
    agree = [(way["port"], way["labels"]) for way in tunnel] == [("to-p", [pushed])]
    return [pushed] if agree else None


def pseudowire(lab) -> str:
    """LAN1 reaches LAN2 as on one link, through a pseudowire with the labels that ldpd has agreed on."""
    wait_for_pseudowire(lab)
    wait_until("the tunnel goes by P", lambda: tunnel_labels(lab) is not None, 20)
    near = lab.planes["pe1"].pseudowire()
    stack = ",".join(map(str, [*tunnel_labels(lab), near["remoteLabel"]]))
    with traffic.capture(lab.directory, "p", "pe1") as path:
        sent, received = traffic.ping(lab.directory, 20, HOSTS)
    expect((sent, received) == (20, 20), f"{sent} pings, {received} answers")
    frames = traffic.dissected(path, f"mpls.label == {near['remoteLabel']} && icmp.type == 8",
                               "mpls.label", "pweth.cw",
                               decode=f"mpls.label=={near['remoteLabel']},pwethcw")
    expect(frames == [[stack, frames[0][1]]] * 20 and frames[0][1] != "",
           f"FRR chose labels {stack}; on the wire: {frames}")
    full = network.run_in("lan1", "ping", "-c", 3, "-i", "0.1", "-W", 1, "-M", "do", "-s", FULL,
                          topology.address("lan2"), check=False)
    expect(full.returncode == 0, full.stdout)
    neighbours = network.run_in("lan1", "ip", "neigh", "show").stdout.split()
    expect(topology.address("lan2") in neighbours and "lladdr" in neighbours,
           f"LAN1's neighbours: {neighbours}")
    return (f"20 of 20 pings and frames of 1500 bytes; tshark sees labels {stack} and a control word on "
            "each request")


def pseudowire_rerouted(lab) -> str:
    """When the link from PE1 to P is cut and mended, the pseudowire moves with its tunnel, and loses no more."""
    wait_for_pseudowire(lab)
    tunnels = {"lan1 to lan2": "ce1 to pe2", "lan2 to lan1": "ce2 to pe1"}
    texts = []
    for state, over in (("down", "p2"), ("up", "p")):
        sent, lost, without = move_under_streams(lab, state, over, tunnels)
        seen = f"link {state}, {sent} datagrams each way: lost {lost}, without a label {without}"
        for way, tunnel in tunnels.items():
            most = lost[tunnel] + without[tunnel] + AT_EDGES
            lab.losses.append((f"link {state}, {way} by pseudowire", sent, lost[way], most))
            expect(lost[way] <= most, seen)
        texts.append(seen)
    wait_for_pseudowire(lab)
    return "; ".join(texts)


def move_under_streams(lab, state: str, over: str, tunnels: dict) -> tuple[int, dict, dict]:
    """Datagrams sent on each way while the link changes, lost by each, and those beside the pseudowire that its edges
    sent on without a label, since the new tunnel was not there yet."""
    with traffic.capture(lab.directory, "pe1") as at_pe1, traffic.capture(lab.directory, "pe2") as at_pe2:
        streams = traffic.Streams(lab.directory, [way.split(" to ") for pair in tunnels.items() for way in pair])
        time.sleep(1)
        network.set_link("pe1", "p", state)
        lab.wait_for_path(over)
        lab.wait_for_tables()
        time.sleep(1)
        sent, lost = streams.stop()
    without = {}
    for path, tunnel in zip((at_pe1, at_pe2), tunnels.values()):
        far = topology.address(tunnel.split(" to ")[1])
        leaving = f"sll.pkttype == 4 && udp && !mpls && ip.dst == {far}"
        without[tunnel] = len(traffic.dissected(path, leaving, "frame.number"))
    return sent, lost, without


def pseudowire_daemon_restarted(lab) -> str:
    """When ldpd on PE2 is killed, PE1 drops with a reason and says why; restarted, it is up again."""
    wait_for_pseudowire(lab)
    near, reason = lab.planes["pe1"], "Pseudowire has no label at one of its ends"
    state = "no label from the neighbour"
    lab.daemons["pe2"].kill("ldpd")
    down = wait_until("the pseudowire is down on PE1",
                      lambda: near.pseudowire()["state"] == state, 20)
    before = near.drops(reason)
    sent, received = traffic.ping(lab.directory, 20, HOSTS)
    dropped = near.drops(reason) - before
    expect(received == 0 and dropped > 0, f"{received} answers, {dropped} dropped")
    lab.daemons["pe2"].start("ldpd")
    up = wait_for_pseudowire(lab, 60)
    lab.wait_for_path("p")
    lab.wait_for_tables()
    return (f"down {down:.1f} s after ldpd was killed: {state}, {dropped} frames dropped for it; "
            f"LAN2 answers {up:.1f} s after ldpd was started")


ALL = (pseudowire, pseudowire_rerouted, pseudowire_daemon_restarted)
