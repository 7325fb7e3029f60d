"""What scrapes of a live agent with many labels take, and whether they hold up its frames. Needs root.

    python3 bench/scrape.py [LABELS]

Frames go from west to east through the agent, one each 200 µs or so, in turn with nobody asking, with metrics being
asked for all the time, and with the page. A frame's latency is from before it is sent until the kernel of the other host
has received it, so that the sender's and the kernel's own pauses are in it, too: compare the lines. How much of the
forwarding thread's processor time an answer takes is printed apart: no frame waits longer for it than that.
"""

import pathlib
import subprocess
import sys
import tempfile
import time
import unittest

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parent.parent / part) for part in ("tests/support", "examples")]
import faults  # noqa: E402
from live import LiveTest, ip  # noqa: E402

PORT = 9475
SECONDS = 5
LABELS = int(sys.argv.pop(1)) if len(sys.argv) > 1 else 1_000_000

RECEIVER = """
import socket, struct
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM); s.bind(("10.0.2.2", 7000))
s.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 24); s.setsockopt(socket.SOL_SOCKET, 35, 1)  # SO_TIMESTAMPNS
print("ready", flush=True); took = []
while True:
    data, extra, _, _ = s.recvmsg(64, 64)
    if data == b"end": break
    seconds, nanoseconds = struct.unpack("qq", extra[0][2])
    took.append(seconds * 10**9 + nanoseconds - struct.unpack("q", data)[0])
took.sort(); n = len(took)
print(n, *(round(took[int(n * part)] / 1000) for part in (.5, .99, .999)), round(took[-1] / 1000))"""
SENDER = f"""
import socket, struct, time
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM); end = time.monotonic() + {SECONDS}
while time.monotonic() < end:
    s.sendto(struct.pack("q", time.clock_gettime_ns(time.CLOCK_REALTIME)), ("10.0.2.2", 7000)); time.sleep(0.00015)
time.sleep(0.2); s.sendto(b"end", ("10.0.2.2", 7000))"""
ASKER = """
import http.client, time
end = time.monotonic() + {seconds}; took = []; size = 0
while time.monotonic() < end:
    began = time.monotonic(); client = http.client.HTTPConnection("127.0.0.1", {port}, timeout=30)
    client.request("GET", {path!r}); size = len(client.getresponse().read()); took.append(time.monotonic() - began)
    time.sleep({pause})
took.sort(); print(len(took), size, *(round(1000 * each, 1) for each in (took[len(took) // 2], took[-1])))"""


class Scrape(LiveTest):
    options = ("--metrics", str(PORT), "--metrics-labels", "20")

    def frames(self, what: str, *paths: str) -> None:
        receiver = self.host(self.east, RECEIVER)
        receiver.stdout.readline()
        # Older answers than 200 ms are not given again: each of these is made anew.
        askers = [self.host(self.router, ASKER.format(seconds=SECONDS, port=PORT, path=path, pause=0.21))
                  for path in paths]
        self.host(self.west, SENDER).communicate()
        frames, *took = receiver.communicate()[0].split()
        print(f"{what:12} {frames:>6} frames, latency in µs: median {took[0]}, 99 % {took[1]}, 99.9 % {took[2]}, longest {took[3]}")
        for path, asker in zip(paths, askers):
            count, size, median, longest = asker.communicate()[0].split()
            print(f"{path:>16} {count} answers of {size} bytes, ms: median {median}, longest {longest}")

    def spent(self, path: str = "") -> tuple[float, int]:
        """Processor time of the thread that forwards, in ns, while nothing but answers is to be done; and the answers.
        Unlike latencies it does not depend on what else the machine does."""
        clock = pathlib.Path(f"/proc/{self.pid}/task/{self.pid}/schedstat")
        before = int(clock.read_text(encoding="ascii").split()[0])
        count = 0
        if path:
            asker = self.host(self.router, ASKER.format(seconds=SECONDS, port=PORT, path=path, pause=0.21))
            count = int(asker.communicate()[0].split()[0])
        else:
            time.sleep(SECONDS)
        return int(clock.read_text(encoding="ascii").split()[0]) - before, count

    def show_spent(self) -> None:
        idle, _ = self.spent()
        for path in ("/metrics", "/data", "/frames", "/sets"):
            busy, count = self.spent(path)
            print(f"{path:>16} takes {(busy - idle) / count / 1000:.0f} µs of the forwarding thread, in several pieces")

    def test(self):
        ip("-n", self.router, "link", "set", "lo", "up")
        with tempfile.NamedTemporaryFile("w", suffix=".routes") as file:
            file.writelines(f"transit {label} as {label} via inet 10.0.2.2 dev east\n" for label in range(16, 16 + LABELS))
            file.flush()
            began = time.monotonic()
            self.ctl("lfib", "load", file.name)
            print(f"{LABELS} labels loaded in {time.monotonic() - began:.1f} s")
        process = self.start()
        self.pid = faults.program_of(process.pid) or process.pid
        self.learn_neighbours()
        began = time.monotonic()
        self.until(lambda: "ovix_label_routes" in subprocess.run(
            ["ip", "netns", "exec", self.router, "python3", "-c",
             f"import urllib.request as u; print(u.urlopen('http://127.0.0.1:{PORT}/metrics').read().decode())"],
            capture_output=True, text=True, check=False).stdout)
        print(f"routes counted by owner within {time.monotonic() - began:.1f} s")
        self.show_spent()
        for _ in range(2):
            self.frames("nobody asks")
            self.frames("metrics", "/metrics")
            self.frames("page", "/data", "/frames", "/sets")
        self.stop(process)


if __name__ == "__main__":
    unittest.main()
