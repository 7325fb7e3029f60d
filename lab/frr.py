"""FRR's daemons on one node."""

import json
import pathlib
import shutil
import subprocess

import network
from processes import Process, wait_until

HERE = pathlib.Path(__file__).resolve().parent
DAEMONS = pathlib.Path("/usr/lib/frr")
FPM_PORT = 2620

# No next hop groups in the kernel: labels_past_kernel.c takes the labels out of routes alone.
FPM = f"""
no zebra nexthop kernel enable
fpm address 127.0.0.1 port {FPM_PORT}
no fpm use-next-hop-groups
"""


def compile_module(directory: pathlib.Path) -> pathlib.Path:
    """The module that zebra needs where the kernel has no MPLS."""
    module = directory / "labels_past_kernel.so"
    network.run("cc", "-shared", "-fPIC", "-o", module, HERE / "labels_past_kernel.c")
    return module


class Frr:
    """Daemons with their configuration, zebra first, started one by one."""

    def __init__(self, node: str, directory: pathlib.Path, module: pathlib.Path | None,
                 configs: dict[str, str]):
        self.node, self.module, self.names = node, module, tuple(configs)
        self.directory = directory / node / "frr"
        self.directory.mkdir(parents=True)
        self.socket = self.directory / "zserv.api"
        for name, text in configs.items():
            (self.directory / f"{name}.conf").write_text(text)
        shutil.chown(self.directory, "frr", "frr")
        self.processes = {}

    def start_all(self) -> None:
        """One that does not find zebra tries again only after ten seconds."""
        self.start_zebra()
        for name in self.names[1:]:
            self.start(name)

    def start_zebra(self) -> None:
        self.start("zebra")
        wait_until(f"zebra listens on {self.node}", self.socket.exists, 10)

    def start(self, name: str) -> None:
        command = [DAEMONS / name, "-f", self.directory / f"{name}.conf",
                   "-i", self.directory / f"{name}.pid", "-z", self.socket,
                   "--vty_socket", self.directory, "-u", "frr", "-g", "frr", "-P", "0",
                   "--log", f"file:{self.directory / name}.log"]
        if name == "zebra":
            # Its predecessor's routes stay in the kernel until they are told again.
            command += ["-K", "15", "-M", "dplane_fpm_nl"]
            if not network.kernel_has_mpls():
                command += ["-M", self.module]  # behind dplane_fpm_nl, as the module says
            command = [HERE / "with_mpls_sysctls.sh", self.directory / "sysctls", *command]
        if name == "ldpd":
            command += ["--ctl_socket", self.directory]
        self.processes[name] = Process(self.node, self.directory, name, *command)

    def kill(self, name: str) -> None:
        self.processes[name].kill()
        if name == "zebra":
            self.socket.unlink()

    def vtysh(self, *lines: str) -> subprocess.CompletedProcess:
        words = [word for line in lines for word in ("-c", line)]
        return network.run("vtysh", "--vty_socket", self.directory, *words, check=False)

    def show(self, words: str) -> dict:
        """The answer to `show WORDS json`."""
        done = self.vtysh(f"show {words} json")
        return json.loads(done.stdout) if done.returncode == 0 and done.stdout.strip() else {}
