"""Processes of the lab that keep running."""

import os
import pathlib
import signal
import subprocess
import time

import network


# How much slower this machine is than most.
PATIENCE = float(os.environ.get("OVIX_LAB_PATIENCE", "1"))


class Process:
    """A program inside a node; what it says goes to NAME.out and NAME.err in its directory."""

    def __init__(self, node: str, directory: pathlib.Path, name: str, *command):
        self.node, self.name = node, name
        self.out, self.err = directory / f"{name}.out", directory / f"{name}.err"
        with open(self.out, "ab") as out, open(self.err, "ab") as err:
            self.process = subprocess.Popen(network.inside(node, *command), stdout=out, stderr=err,
                                            stdin=subprocess.DEVNULL, start_new_session=True)

    def expect_alive(self) -> None:
        code = self.process.poll()
        if code is not None:
            raise RuntimeError(f"{self.name} on {self.node} ended with {code}:\n"
                               f"{self.err.read_text(errors='replace')[-2000:]}")

    def stop(self, timeout=10) -> int:
        """Asks it to end and gives its exit code."""
        self.process.terminate()
        try:
            return self.process.wait(timeout)
        except subprocess.TimeoutExpired:
            self.kill()
            raise RuntimeError(f"{self.name} on {self.node} does not end when asked to") from None

    def interrupt(self) -> int:
        self.process.send_signal(signal.SIGINT)
        return self.process.wait(10)

    def kill(self) -> None:
        self.process.kill()
        self.process.wait()


def wait_until(what: str, met, timeout: float) -> float:
    """Waits for a condition and gives the seconds it took."""
    start = time.monotonic()
    timeout *= PATIENCE
    while not met():
        if time.monotonic() - start > timeout:
            raise TimeoutError(f"not within {timeout:g} s: {what}")
        time.sleep(0.05)
    return time.monotonic() - start
