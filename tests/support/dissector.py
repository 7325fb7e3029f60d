"""Wireshark's dissectors as one process that stays, since each start of tshark costs half a second."""

import atexit
import functools
import itertools
import json
import pathlib
import subprocess


class Dissector:
    """sharkd, asked by lines of JSON."""

    def __init__(self):
        self.unlike = itertools.count(1_000_000_000)
        self.process = subprocess.Popen(["sharkd", "-"], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        atexit.register(self.close)

    def close(self):
        self.process.stdin.close()
        self.process.stdout.close()
        self.process.wait()

    def ask(self, method: str, **parameters):
        request = {"jsonrpc": "2.0", "id": 1, "method": method, "params": parameters}
        self.process.stdin.write(json.dumps(request) + "\n")
        self.process.stdin.flush()
        line = self.process.stdout.readline()
        answer = json.loads(line) if line else {"error": f"ended with {self.process.wait()}"}
        if "error" in answer:
            raise RuntimeError(f"sharkd: {method} {parameters}: {answer['error']}")
        return answer["result"]

    def complaints(self, path: pathlib.Path, checksums: bool) -> list[str]:
        for protocol in ("ip", "udp", "tcp"):
            self.ask("setconf", name=f"{protocol}.check_checksum", value=str(checksums).upper())
        self.ask("load", file=str(path))
        # What a filter has found in one file is kept for the next, unless it is another filter.
        frames = self.ask("frames", filter="(_ws.malformed || _ws.expert.severity == error) && "
                                           f"frame.number < {next(self.unlike)}")
        return [" ".join(frame["c"]) for frame in frames]


@functools.cache
def dissector() -> Dissector:
    return Dissector()


def complaints(path: pathlib.Path, checksums: bool = True) -> list[str]:
    """The frames that are malformed or have an expert error, a line of tshark's for each."""
    return dissector().complaints(path, checksums)
