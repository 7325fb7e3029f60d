"""What the lab shows. Each check gets the lab, says what it saw, and raises CheckFailed."""

import json
import time

import network
import topology
import traffic
from dataplane import SWEEP_AFTER
from lab import frr_hops
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
    frames = traffic.dissected(path, f"mpls && {traffic.requests_to('ce2')}", "mpls.label",
                               "mpls.bottom")
    expect(len(frames) == 20, f"20 pings, {len(frames)} labelled requests on the wire")
    expect(all(labels.split(",")[0] == str(label) and bottoms.split(",")[-1] == "1"
               for labels, bottoms in frames), f"FRR chose label {label}; on the wire: {frames}")
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
    wanted = [topology.answering("pe1", "ce1"), f"{topology.answering('p', 'pe1')} label {label}",
              topology.answering("pe2", "p"), topology.address("ce2")]
    expect(hops == wanted, f"expected {wanted}, seen {hops}")
    return ", ".join(hops)


def explained(lab) -> str:
    """P explains a packet from CE1 to CE2 by what FRR has for its label, and what loses its way without a link."""
    plane, label = lab.planes["p"], lab.path_labels()["ce2"]
    hops = {one: frr_hops("p", route) for one, route in lab.daemons["p"].labels().items()}
    (out, nexthop, interface), = hops[label]
    before = plane.label_packets(label)
    words = f"label {label}, ip {topology.address('ce1')} > {topology.address('ce2')} udp 7"
    walk = json.loads(plane.ctl("explain", "--port", "to-pe1", words).stdout)
    found = {step["step"]: step["values"] for step in walk["steps"]}
    expect([sent["port"] for sent in walk["verdict"]["sent"]] == [interface], f"{walk['verdict']}, FRR {hops[label]}")
    expect(found["nexthop"]["address"] == nexthop, f"next hop {found['nexthop']}, FRR {nexthop}")
    stack = "".join(f"label {one} " for one in out)
    expect(found["headers"]["headers"].startswith(stack or "IP"), f"leaves as {found['headers']}, FRR {out}")
    expect(plane.label_packets(label) == before, "explaining a packet has counted it")
    moves = json.loads(plane.ctl("what-if", f"link {interface} down").stdout)
    lost = sum({hop[2] for hop in each} == {interface} for each in hops.values())
    expect(moves["labels"]["lost"] == lost, f"{moves['labels']} without {interface}, FRR has {lost} there alone")
    return f"label {label} by {interface} to {nexthop}; {lost} labels lose their way without that link"


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


def several_neighbours(lab) -> str:
    """PE1 has another neighbour on its link to P; the packets of 6PE still go to P."""
    network.run(*network.inside("pe1", "ip", "neighbour", "add", "10.1.1.99", "lladdr",
                                "02:00:00:00:00:99", "nud", "permanent", "dev", "to-p"))
    wait_until("PE1's agent has the neighbour",
               lambda: "10.1.1.99" in lab.planes["pe1"].ctl("neighbour", "show").stdout, 5)
    expect_answers(lab, 20)
    route = lab.planes["pe1"].ctl("route", "show").stdout
    expect('"10.1.1.2"' in route, f"no IPv4 next hop in {route}")
    return "all of 20 answered"


def link_cut(lab) -> str:
    """Traffic moves to P2 when the link from PE1 to P is cut, and back when it is mended."""
    running = traffic.Ping(lab.directory, 1000)
    time.sleep(1)
    network.set_link("pe1", "p", "down")
    lost = lab.count_lost("the link from PE1 to P is cut", *running.finish(), 100)
    lab.wait_for_path("p2")
    with traffic.capture(lab.directory, "p2", "pe1") as path:
        expect_answers(lab, 20)
    labelled = len(traffic.dissected(path, f"mpls && {traffic.requests_to('ce2')}", "mpls.label"))
    expect(labelled == 20, f"{labelled} of 20 requests are labelled on the way to P2")
    tables_equal(lab)
    running = traffic.Ping(lab.directory, 100000)
    network.set_link("pe1", "p", "up")
    took = lab.wait_for_path("p")
    lab.wait_for_tables()
    time.sleep(1)
    lost_back = lab.count_lost("it is mended", *running.stop(), 100)
    return (f"{lost} by the cut; mended, the path is back after {took:.1f} s, {lost_back} "
            "meanwhile")


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
    lost = lab.count_lost("zebra is killed on P and started again", *running.stop(), 0)
    expect(meanwhile > 300, f"{meanwhile} packets in three seconds over P by what was left")
    running = traffic.Ping(lab.directory, 100000)
    daemons.restart_others()
    took = lab.wait_for_path("p2") + lab.wait_for_path("p")
    lab.wait_for_tables()
    time.sleep(SWEEP_AFTER + 1)
    lab.wait_for_tables()
    # ldpd gives its neighbours new labels while zebra is still publishing them.
    lost_then = lab.count_lost("the other daemons on P are started again", *running.stop(), 20)
    return (f"{lost}, {meanwhile} of them over P by what zebra had announced; {lost_then} while the "
            f"others were started again, the path is over P {took:.1f} s later")


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
    lost = lab.count_lost("the agent is killed on P and started again", *running.finish(), 300)
    label_counters(lab)
    return f"{lost}; it answered again after {took * 1000:.0f} ms"


def backups_of_frr(lab) -> str:
    """What FRR has computed as backups (TI-LFA) does not come by FPM: the LFIBs have none."""
    known = {router: sum(len(route.get("backupNexthops", []))
                         for route in lab.daemons[router].labels().values())
             for router in topology.ROUTERS}
    expect(any(known.values()), f"FRR has no backups: {known}")
    told = {router: sum(len(one.get("backups", [])) for one in lab.planes[router].routes())
            for router in topology.ROUTERS}
    expect(not any(told.values()), f"FPM tells of backups now: {told}; FRR has {known}")
    return "; ".join(f"{router}: FRR has {known[router]}, the LFIB 0" for router in known)


def static_labels(lab) -> str:
    """On P, labels of the operator stand beside zebra's, in front of one of them, and are not swept."""
    plane, label = lab.planes["p"], lab.path_labels()["ce2"]
    toward_pe2 = ("via", "inet", topology.interface("pe2", "p").host, "dev", "to-pe2")
    unknown, gone = 900000, 900001  # PE2 drops both
    plane.ctl("lfib", "add", unknown, *toward_pe2)
    plane.ctl("lfib", "add", gone, "owner", "fpm", *toward_pe2)  # as if zebra had had it
    plane.ctl("lfib", "add", label, "as", unknown, *toward_pe2)
    waiting = [route["owner"] for route in plane.routes() if route.get("waitsFor") == "operator"]
    expect(waiting == ["fpm"], f"waiting for the operator's route for label {label}: {waiting}")
    sent, received = traffic.ping(lab.directory, 5)
    expect(received == 0, f"{received} of {sent} pings answered, though the label leads elsewhere")
    plane.fpm.kill()
    plane.start_fpm()
    wait_until("zebra has told ovix-fpm everything again, and what is stale is swept",
               lambda: gone not in plane.lfib(), 20)
    owners = {route["label"]: route["owner"] for route in plane.lfib().values()}
    expect(owners[label] == owners[unknown] == "operator", f"owners after the sweep: {owners}")
    plane.ctl("lfib", "del", label)
    plane.ctl("lfib", "del", unknown)
    expect_answers(lab, 20)
    lab.wait_for_tables()
    return f"label {label} led elsewhere and back, {unknown} stood; neither was swept"


def killed_and_restarted(lab) -> str:
    """P's agent is killed and restarted after a second, three times as it is and twenty with --carrier."""
    without = [kill_once(lab) for _ in range(3)]
    print_kills("without", without)
    lab.planes["p"].stop_agent()
    lab.planes["p"].options = ("--carrier",)
    start_agent(lab)
    rows = [kill_once(lab) for _ in range(20)]
    print_kills("--carrier", rows)
    lab.count_lost("killed twenty times, --carrier", sum(row[2] for row in rows),
                   sum(row[2] - row[3] for row in rows), 20 * 100)
    expect(all(row[0] < 1 for row in rows), "an adjacency took more than a second to fall")
    lost = [row[3] for row in rows]
    return (f"{sum(lost)} pings lost by twenty kills, {max(lost)} at the most; without --carrier "
            f"{max(row[3] for row in without)} by one; adjacencies gone after "
            f"{max(row[0] for row in rows) * 1000:.0f} ms at the most")


def start_agent(lab) -> float:
    """On P; seconds until the path is over P."""
    start = time.monotonic()
    lab.planes["p"].start_agent()
    lab.planes["p"].wait_for_agent()
    lab.wait_for_path("p")
    return time.monotonic() - start


def kill_once(lab) -> tuple[float, float, int, int]:
    """Seconds until both neighbours had lost their adjacency and until the path was back, and pings
    sent and lost meanwhile."""
    plane = lab.planes["p"]
    running = traffic.Ping(lab.directory, 100000)
    time.sleep(0.5)
    plane.agent.kill()
    fell = 0.0
    if plane.options:
        fell = wait_until("P's neighbours lose their adjacencies",
                          lambda: not lab.has_neighbour("pe1", "p") and
                          not lab.has_neighbour("pe2", "p"), 10)
    time.sleep(1 - fell)
    took = start_agent(lab)
    time.sleep(0.5)
    sent, received = running.stop()
    return fell, took, sent, sent - received


def print_kills(what: str, rows: list) -> None:
    print(f"      {what:12} adjacencies gone   path back     sent     lost")
    for number, (fell, took, sent, lost) in enumerate(rows, 1):
        gone = f"{fell * 1000:.0f} ms" if fell else "never"
        print(f"      {number:12} {gone:>16} {took:9.1f} s {sent:8} {lost:8}", flush=True)


def balances(lab) -> str:
    """Every agent accounts for each frame when it is asked to end."""
    text = []
    for router, plane in lab.planes.items():
        balance = plane.stop_agent()
        expect(balance["balanced"], f"{router}: {balance}")
        text.append(f"{router} {balance['forwarded']['frames']} of {balance['in']['frames']}")
    return "forwarded: " + ", ".join(text)


LABELLED = (labels_on_the_wire, tables_equal, label_counters, every_hop_answers)
ALL = (labels_on_the_wire, tables_equal, label_counters, tcp, every_hop_answers, explained, vpn, link_cut,
       agent_restarted, zebra_restarted, balances)
