"""What the lab shows of a router that gets more than it can forward."""

import contextlib
import pathlib
import time

import network
import topology
from checks import expect
from processes import Process, wait_until
from processor_share import share_of

FULL = "Queue to the packet thread full"
FLOOD = pathlib.Path(__file__).resolve().parent / "flood.py"
PORT = "to-ce1"
ENOUGH = 10  # times what is forwarded
SHARES = (None, 0.25, 0.06, 0.03)  # of a processor, until that is reached
HOLD = 8  # seconds; hellos of OSPF and LDP are lost after four


def flooded(lab) -> str:
    """CE1 sends PE1 ten times what that forwards, half of it with spent TTLs; PE1 keeps its neighbours."""
    wait_until("BGP is up between the edges", lambda: "BGP pe2" in sessions(lab), 30)
    plane, before = lab.planes["pe1"], sessions(lab)
    expect(len(before) == 5, f"PE1's neighbours: {sorted(before)}")
    flood = Process("ce1", lab.directory, "flood", "python3", FLOOD, topology.address("ce2"), 120, 1, 64)
    try:
        with contextlib.ExitStack() as limited:
            share = press(plane, limited)
            began, counts = time.monotonic(), counted(plane)
            time.sleep(HOLD)
            flood.expect_alive()
            offered, done = (now - then for now, then in zip(counted(plane), counts))
            seconds = time.monotonic() - began
    finally:
        flood.stop()
    after = sessions(lab)
    expect(after.keys() == before.keys(), f"neighbours before: {sorted(before)}, after: {sorted(after)}")
    broken = [name for name, up in after.items() if up < before[name] + HOLD - 1]  # some are whole seconds
    expect(not broken, f"up for seconds, before and after: {[(name, before[name], after[name]) for name in broken]}")
    others = {one.name: plane.fates_at(one.name).get(FULL, 0) for one in topology.core_interfaces("pe1")}
    expect(not any(others.values()), f"turned away from other ports: {others}")
    expect(offered >= ENOUGH * done, f"offered {offered}, done {done}: {offered / done:.1f} times")
    limit = f", with {100 * share:g} % of a processor" if share else ""
    return (f"offered {offered / seconds:.0f} frames/s, forwarded or answered for {done / seconds:.0f}{limit}: "
            f"{offered / done:.1f} times; for {seconds:.0f} s and more, {', '.join(sorted(after))} stayed up")


def press(plane, limited: contextlib.ExitStack):
    """Gives the router less of the processor until ten times what it does comes in; the share that it has then."""
    for share in SHARES:
        with contextlib.ExitStack() as trial:
            if share:
                trial.enter_context(share_of(agent_of(plane), share))
            before = counted(plane)
            time.sleep(1.5)
            offered, done = (now - then for now, then in zip(counted(plane), before))
            if offered >= 1.3 * ENOUGH * done:
                limited.enter_context(trial.pop_all())
                return share
    raise RuntimeError(f"no more than {offered / done:.1f} times what PE1 does can be sent")


def agent_of(plane) -> int:
    """The process that forwards."""
    return plane.agent.process.pid  # ip netns exec becomes the program


def counted(plane) -> tuple[int, int]:
    """The frames that CE1 has sent, and what PE1 has forwarded or answered for of them."""
    statistics = network.run("ip", "netns", "exec", "ce1", "cat", "/sys/class/net/to-pe1/statistics/tx_packets")
    fates = plane.fates_at(PORT)
    turned_away = fates.get(FULL, 0)
    return int(statistics.stdout), plane.received(PORT) - turned_away


def sessions(lab) -> dict[str, float]:
    """The routing sessions of PE1 that are up, and for how many seconds each has been."""
    daemons = lab.daemons["pe1"]
    return ospf(daemons) | ldp(daemons) | bgp(daemons)


def ospf(daemons) -> dict[str, float]:
    shown = daemons.show("ip ospf neighbor detail").get("neighbors", {})
    return {f"OSPF {named(router)}": one["lastPrgrsvChangeMsec"] / 1000
            for router, neighbours in shown.items() for one in neighbours if one["nbrState"].startswith("Full")}


def ldp(daemons) -> dict[str, float]:
    up = {}
    for router, one in daemons.show("mpls ldp neighbor detail").items():
        hours, minutes, seconds = map(int, one.get("upTime", "0:0:0").split(":"))
        if one["state"] == "OPERATIONAL":
            up[f"LDP {named(router)}"] = hours * 3600 + minutes * 60 + seconds
    return up


def bgp(daemons) -> dict[str, float]:
    peers = daemons.show("bgp summary").get("ipv4Unicast", {}).get("peers", {})
    return {f"BGP {named(router)}": one["peerUptimeMsec"] / 1000
            for router, one in peers.items() if one["state"] == "Established"}


def named(loopback: str) -> str:
    return next(router for router, address in topology.LOOPBACKS.items() if address == loopback)
