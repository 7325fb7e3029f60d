#!/usr/bin/env python3
"""Records what the kernel says of VRF devices and of interfaces in a VRF, over rtnetlink.

Needs root, iproute2, util-linux and a kernel with VRF devices. Works in a network namespace of its
own. links.bin has the messages of a dump of all links, vrf_link.bin the answer to a question for one
VRF device, links.json what iproute2 reads out of the same.
"""

import argparse
import json
import os
import pathlib
import socket
import struct
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent

RTM_GETLINK, NLMSG_DONE = 18, 3
REQUEST, DUMP = 1, 0x300
HEADER = struct.Struct("=IHHII")     # nlmsghdr
LINK_INFO = struct.Struct("=BxHiII")  # ifinfomsg

LINKS = ("red type vrf table 10", "blue type vrf table 1000", "west0 type veth peer name west0p",
         "red0 master red type dummy")


def ip(*words: str) -> str:
    return subprocess.run(["ip", *words], check=True, capture_output=True, text=True).stdout


def answer(flags: int, index: int = 0) -> bytes:
    """The messages that answer RTM_GETLINK, up to the last."""
    with socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, socket.NETLINK_ROUTE) as kernel:
        kernel.bind((0, 0))
        kernel.send(HEADER.pack(HEADER.size + LINK_INFO.size, RTM_GETLINK, REQUEST | flags, 1, 0) +
                    LINK_INFO.pack(socket.AF_UNSPEC, 0, index, 0, 0))
        taken = kernel.recv(65536)
        while flags & DUMP and not ends(taken):
            taken += kernel.recv(65536)
        return taken


def ends(messages: bytes) -> bool:
    kind, at = 0, 0
    while at < len(messages):
        length, kind = HEADER.unpack_from(messages, at)[:2]
        at += (length + 3) // 4 * 4
    return kind == NLMSG_DONE


def record(output: pathlib.Path) -> None:
    for link in LINKS:
        ip("link", "add", *link.split())
    ip("link", "set", "red", "up")
    (output / "links.bin").write_bytes(answer(DUMP))
    (output / "vrf_link.bin").write_bytes(answer(0, socket.if_nametoindex("red")))
    links = json.loads(ip("-d", "-j", "link", "show"))
    (output / "links.json").write_text(json.dumps(links, indent=1) + "\n")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("output", nargs="?", type=pathlib.Path, default=HERE,
                        help="directory for the files (default: beside this script)")
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if options.inside:
        record(options.output)
        return 0
    return subprocess.run(["unshare", "--net", sys.executable, os.path.abspath(__file__),
                           "--inside", options.output], check=False).returncode


if __name__ == "__main__":
    sys.exit(main())
