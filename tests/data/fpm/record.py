#!/usr/bin/env python3
"""Records what zebra's dplane_fpm_nl module sends, into NAME.bin files beside this script.

Needs root, FRR 8.4 and a C compiler. Starts itself again in network and mount namespaces of its own,
makes two links, starts zebra and staticd toward a listener, changes routes through vtysh, and writes
the bytes of each step as they came from the connection.
"""

import os
import pathlib
import shutil
import socket
import subprocess
import sys
import tempfile
import time

FPM = ("127.0.0.1", 2620)
DAEMONS = pathlib.Path("/usr/lib/frr")
HERE = pathlib.Path(__file__).resolve().parent
SYSCTLS = pathlib.Path("/proc/sys/net")

ZEBRA_CONFIG = """
fpm address 127.0.0.1 port 2620
no fpm use-next-hop-groups
"""

# Name of the file, and what is typed for it.
STEPS = [
    ("plain_routes", [
        "ip route 203.0.113.0/24 192.0.2.2",
        "ipv6 route 2001:db8:100::/48 2001:db8::2",
        "ip route 203.0.114.0/24 west0",
    ]),
    ("discarding_routes", [
        "ip route 198.51.100.0/25 blackhole",
        "ip route 198.51.100.128/25 reject",
        "ipv6 route 2001:db8:200::/48 blackhole",
    ]),
    ("multipath_routes", [
        "ip route 203.0.115.0/24 192.0.2.2",
        "ip route 203.0.115.0/24 192.0.2.6",
        "ipv6 route 2001:db8:300::/48 2001:db8::2",
        "ipv6 route 2001:db8:300::/48 2001:db8:1::2",
    ]),
    ("labelled_routes", [
        "ip route 203.0.116.0/24 192.0.2.2 label 16/1048575",
        "ip route 203.0.117.0/24 192.0.2.2 label 100",
        "ip route 203.0.117.0/24 192.0.2.6 label 200/300/400",
        "ipv6 route 2001:db8:400::/48 2001:db8::2 label 500",
    ]),
    ("changed_route", [
        "no ip route 203.0.113.0/24 192.0.2.2",
        "ip route 203.0.113.0/24 192.0.2.6",
    ]),
    ("label_routes", [
        "mpls lsp 1000 192.0.2.2 2000",
        "mpls lsp 1001 192.0.2.2 implicit-null",
        "mpls lsp 1002 192.0.2.6 explicit-null",
        "mpls lsp 1003 192.0.2.2 2003",
        "mpls lsp 1003 192.0.2.6 2013",
        "mpls lsp 1004 2001:db8::2 2004",
        "mpls lsp 1005 2001:db8::2 explicit-null",
    ]),
    ("changed_label_route", [
        "mpls lsp 1000 192.0.2.6 2100",
        "no mpls lsp 1000 192.0.2.2 2000",
    ]),
    ("withdrawals", [
        "no ip route 203.0.116.0/24 192.0.2.2 label 16/1048575",
        "no ipv6 route 2001:db8:100::/48 2001:db8::2",
        "no mpls lsp 1001 192.0.2.2 implicit-null",
    ]),
]


def run(*command, check=True):
    return subprocess.run(command, check=check, capture_output=True, text=True)


def make_links():
    run("ip", "link", "set", "lo", "up")
    for name, v4, v6 in (("west0", "192.0.2.1/30", "2001:db8::1/64"),
                         ("east0", "192.0.2.5/30", "2001:db8:1::1/64")):
        run("ip", "link", "add", name, "type", "veth", "peer", "name", name + "p")
        run("ip", "addr", "add", v4, "dev", name)
        run("ip", "-6", "addr", "add", v6, "dev", name, "nodad")
        run("ip", "link", "set", name, "up")
        run("ip", "link", "set", name + "p", "up")


def show_platform_labels():
    """Where the kernel has no MPLS, lets zebra find its sysctl: else zebra switches MPLS off."""
    if (SYSCTLS / "mpls").exists():
        return
    kept = pathlib.Path(tempfile.mkdtemp())
    run("mount", "--rbind", SYSCTLS, kept)
    run("mount", "-t", "tmpfs", "tmpfs", SYSCTLS)
    for entry in kept.iterdir():
        place = SYSCTLS / entry.name
        place.mkdir() if entry.is_dir() else place.touch()
        run("mount", "--rbind", entry, place)
    (SYSCTLS / "mpls").mkdir()
    (SYSCTLS / "mpls" / "platform_labels").write_text("1048575\n")


def start(daemon, directory, *options):
    config = directory / f"{daemon}.conf"
    config.write_text(ZEBRA_CONFIG if daemon == "zebra" else "")
    return subprocess.Popen([DAEMONS / daemon, "-f", config, "-i", directory / f"{daemon}.pid",
                             "-z", directory / "zserv.api", "--vty_socket", directory,
                             "-u", "frr", "-g", "frr", "-P", "0",
                             "--log", f"file:{directory / daemon}.log", *options])


def typed(directory, *lines):
    command = ["vtysh", "--vty_socket", directory]
    for line in lines:
        command += ["-c", line]
    return run(*command, check=False)


def wait_for_static(directory):
    deadline = time.monotonic() + 60
    while "static" not in typed(directory, "show zebra client summary").stdout:
        if time.monotonic() > deadline:
            raise TimeoutError("staticd has not come to zebra")
        time.sleep(0.5)


def drain(connection):
    """Everything that arrives until nothing has for a second and a half."""
    connection.settimeout(1.5)
    taken = b""
    try:
        while chunk := connection.recv(65536):
            taken += chunk
    except TimeoutError:
        pass
    return taken


def accepted(listener):
    listener.settimeout(30)
    return listener.accept()[0]


def record(directory):
    module = directory / "not_for_kernel.so"
    run("cc", "-shared", "-fPIC", "-o", module, HERE / "not_for_kernel.c")
    make_links()
    show_platform_labels()
    listener = socket.create_server(FPM)
    daemons = [start("zebra", directory, "-M", "dplane_fpm_nl", "-M", module),
               start("staticd", directory)]
    try:
        connection = accepted(listener)
        wait_for_static(directory)
        drain(connection)
        for name, lines in STEPS:
            answer = typed(directory, "configure terminal", *lines)
            if answer.stdout.strip() or answer.returncode:
                print(f"{name}: {answer.stdout}{answer.stderr}", file=sys.stderr)
            write(HERE / f"{name}.bin", drain(connection))
        print(typed(directory, "show mpls table", "show ip route", "show ipv6 route").stdout)
        connection.close()
        connection = accepted(listener)
        write(HERE / "full_dump.bin", drain(connection))
        typed(directory, "configure terminal", "fpm use-next-hop-groups")
        connection.close()
        write(HERE / "next_hop_groups.bin", drain(accepted(listener)))
    finally:
        for daemon in daemons:
            daemon.kill()
            daemon.wait()


def write(path, taken):
    path.write_bytes(taken)
    print(f"{path.name}: {len(taken)} bytes")


def main():
    if len(sys.argv) < 2:
        os.execvp("unshare", ["unshare", "--net", "--mount", "--propagation", "private",
                              sys.executable, __file__, "recording"])
    directory = pathlib.Path(tempfile.mkdtemp())
    shutil.chown(directory, "frr", "frr")
    try:
        record(directory)
    finally:
        shutil.rmtree(directory, ignore_errors=True)


if __name__ == "__main__":
    main()
