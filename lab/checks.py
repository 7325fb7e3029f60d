"""What the lab shows. Each check gets the lab, says what it saw, and raises CheckFailed."""

import time

import network
import topology
import traffic
from dataplane import SWEEP_AFTER
from processes import wait_until


class CheckFailed(Exception):
    """What is not as it should be."""


class CheckSkipped(Exception):
    """Why there is nothing to check."""


def expect(holds: bool, what: str) -> None:
    if not holds:
        raise CheckFailed(what)


def labels_on_the_wire(lab) -> str:
    """A ping from CE1 to CE2 goes with the label that FRR chose from PE1 to P, and is answered."""
    with traffic.capture(lab.directory, "p", "pe1") as path:
        expect_answers(lab, 20)
    label = lab.path_labels()["ce2"]
    frames = traffic.dissected(path, f"mpls && icmp.type == 8 && ip.dst == "
                                     f"{topology.address('ce2')}", "mpls.label", "mpls.bottom")
    expect(len(frames) == 20, f"20 pings, {len(frames)} labelled requests on the wire")
    expect(all(frame == [str(label), "1"] for frame in frames),
           f"FRR chose label {label}; on the wire: {frames}")
    return f"all of 20 answered; tshark sees label {label} on each request"


def expect_answers(lab, count: int) -> None:
    sent, received = traffic.ping(lab.directory, count)
    expect((sent, received) == (count, count), f"{sent} pings, {received} answers")


def label_counters(lab) -> str:
    """P counts each ping under its label, once on the way there and once on the way back."""
    count, labels = 237, lab.path_labels()
    before = {host: lab.planes["p"].label_packets(label) for host, label in labels.items()}
    expect_answers(lab, count)
    seen = {host: lab.planes["p"].label_packets(label) - before[host]
            for host, label in labels.items()}
    expect(seen == {host: count for host in labels}, f"{count} pings, counted {seen}")
    return ", ".join(f"{count} under {labels[host]} toward {host.upper()}" for host in labels)


def tcp(lab) -> str:
    """A TCP connection from CE1 to CE2 runs for three seconds, with labels."""
    label = lab.path_labels()["ce2"]
    before = lab.planes["p"].label_packets(label)
    rate = traffic.throughput(lab.directory, 3)
    packets = lab.planes["p"].label_packets(label) - before
    expect(rate > 1, f"{rate:.3f} Mbit/s")
    # Packets of at most 1500 bytes.
    expect(packets * 1500 * 8 > rate * 1e6 * 2.5, f"{rate:.0f} Mbit/s, but {packets} under {label}")
    return f"{rate:.0f} Mbit/s, {packets} packets under label {label}"


def every_hop_answers(lab) -> str:
    """traceroute from CE1 to CE2 shows each router, and P with the label that came to it."""
    label = lab.path_labels()["ce2"]
    hops = traffic.hops()
    wanted = [topology.interface("pe1", "ce1").host,
              f"{topology.interface('p', 'pe1').host} label {label}",
              topology.interface("pe2", "p").host, topology.address("ce2")]
    expect(hops == wanted, f"expected {wanted}, seen {hops}")
    return ", ".join(hops)


def tables_equal(lab) -> str:
    """The LFIBs of every router hold what FRR's label table holds."""
    lab.wait_for_tables()
    counts = {router: len(lab.labels(router)) for router in topology.ROUTERS}
    expect(all(counts.values()), f"a table is empty: {counts}")
    return ", ".join(f"{router} {count} labels" for router, count in counts.items())


def vpn(lab) -> str:
    """The hosts of a VPN, whose addresses are those of CE1 and CE2, reach each other and not them."""
    if not topology.has_vpn():
        raise CheckSkipped("this kernel has no VRF devices")
    hosts = ("vpn1", "vpn2")
    took = wait_until("VPN2 answers VPN1", lambda: traffic.reaches(lab.directory, hosts), 60)
    with (traffic.capture(lab.directory, "p", "pe1") as on_p,
          traffic.capture(lab.directory, "ce2", "pe2") as at_ce2):
        sent, received = traffic.ping(lab.directory, 20, hosts)
    expect((sent, received) == (20, 20), f"{sent} pings, {received} answers")
    labels = lab.vpn_stack("pe1", "vpn2")
    stack = ",".join(map(str, labels))
    pings = f"icmp.type == 8 && ip.dst == {topology.address('vpn2')}"
    frames = traffic.dissected(on_p, f"mpls && {pings}", "mpls.label")
    expect(frames == [[stack]] * 20, f"FRR chose labels {stack}; on the wire: {frames}")
    strayed = traffic.dissected(at_ce2, pings, "ip.src")
    expect(not strayed, f"{len(strayed)} of 20 came to CE2")
    hops = traffic.hops(hosts)
    wanted = [topology.interface("pe1", "vpn1").host,
              f"{topology.interface('p', 'pe1').host} label {labels[0]}",
              f"{topology.interface('pe2', 'p').host} label {labels[-1]}",
              topology.address("vpn2")]
    expect(hops == wanted, f"hops: expected {wanted}, seen {hops}")
    return (f"VPN2 answers after {took:.1f} s; all of 20 pings answered, labels {stack} on each "
            "request, and none came to CE2, which has the same address; the way is "
            + ", ".join(hops))


def link_cut(lab) -> str:
    """Traffic moves to P2 when the link from PE1 to P is cut, and back when it is mended."""
    running = traffic.Ping(lab.directory, 1000)
    time.sleep(1)
    network.set_link("pe1", "p", "down")
    sent, received = running.finish()
    expect(received > sent / 2, f"{sent} pings, {received} answers")
    lab.wait_for_path("p2")
    with traffic.capture(lab.directory, "p2", "pe1") as path:
        expect_answers(lab, 20)
    labelled = len(traffic.dissected(path, "mpls && icmp.type == 8", "mpls.label"))
    expect(labelled == 20, f"{labelled} of 20 requests are labelled on the way to P2")
    tables_equal(lab)
    running = traffic.Ping(lab.directory, 100000)
    network.set_link("pe1", "p", "up")
    took = lab.wait_for_path("p")
    lab.wait_for_tables()
    time.sleep(1)
    sent_back, received_back = running.stop()
    expect(received_back > sent_back / 2, f"{sent_back} pings, {received_back} answers")
    return (f"{sent - received} of {sent} pings lost by the cut; mended, the path is back after "
            f"{took:.1f} s, {sent_back - received_back} of {sent_back} pings lost meanwhile")


def zebra_restarted(lab) -> str:
    """On P, zebra is killed and started again, and then, as FRR's watchdog does, the others."""
    daemons, plane, label = lab.daemons["p"], lab.planes["p"], lab.path_labels()["ce2"]
    running = traffic.Ping(lab.directory, 100000)
    time.sleep(0.5)
    daemons.kill("zebra")
    before = plane.label_packets(label)
    time.sleep(1)
    daemons.start_zebra()
    time.sleep(2)
    meanwhile = plane.label_packets(label) - before
    daemons.restart_others()
    took = lab.wait_for_path("p2") + lab.wait_for_path("p")
    lab.wait_for_tables()
    time.sleep(SWEEP_AFTER + 1)
    lab.wait_for_tables()
    sent, received = running.stop()
    expect(meanwhile > 300, f"{meanwhile} packets in three seconds over P by what was left")
    expect(sent == received, f"{sent - received} of {sent} pings lost")
    return (f"none of {sent} pings lost, {meanwhile} of them over P by what zebra had told; the "
            f"path is over P again {took:.1f} s after the daemons were started")


def agent_restarted(lab) -> str:
    """On P, the agent is killed; started again, it goes on with the tables as they are."""
    plane = lab.planes["p"]
    running = traffic.Ping(lab.directory, 1000)
    time.sleep(1)
    plane.agent.kill()
    start = time.monotonic()
    plane.start_agent()
    plane.wait_for_agent()
    took = time.monotonic() - start
    sent, received = running.finish()
    expect(received > sent / 2, f"{sent} pings, {received} answers")
    label_counters(lab)
    return f"{sent - received} of {sent} pings lost; it answered again after {took * 1000:.0f} ms"


def balances(lab) -> str:
    """Every agent accounts for each frame when it is asked to end."""
    text = []
    for router, plane in lab.planes.items():
        balance = plane.stop_agent()
        expect(balance["balanced"], f"{router}: {balance}")
        text.append(f"{router} {balance['forwarded']['frames']} of {balance['in']['frames']}")
    return "forwarded: " + ", ".join(text)


ALL = (labels_on_the_wire, tables_equal, label_counters, tcp, every_hop_answers, vpn, link_cut,
       agent_restarted, zebra_restarted, balances)
