"""What is installed works from where it is installed; containerlab's topology is the lab's."""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

import agent

CLAB = agent.SOURCE / "lab" / "containerlab"
sys.path.insert(0, str(agent.SOURCE / "lab"))
import topology  # noqa: E402 (the lab's)


class Package(unittest.TestCase):
    def setUp(self):
        self.directory = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.directory)

    def run_well(self, *command) -> str:
        done = subprocess.run([str(word) for word in command], capture_output=True, text=True,
                              check=False, env={name: value for name, value in os.environ.items()
                                                 if not name.startswith("OVIX_")})
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        return done.stdout

    def test_the_installed_programs_find_what_they_need(self):
        build = pathlib.Path(agent.AGENT).resolve().parent.parent
        self.run_well("cmake", "--install", build, "--prefix", self.directory)
        programs = self.directory / "bin"
        for program in ("ovix-agent", "ovixctl", "ovix-fpm"):
            self.assertIn("0.1.0", self.run_well(programs / program, "--version"))
        self.run_well(sys.executable, agent.SOURCE / "examples" / "make_demo.py", self.directory)
        shown = self.run_well(programs / "ovix-agent", "run",
                              agent.SOURCE / "examples" / "demo.yaml",
                              "--in", f"west={self.directory / 'west.pcap'}",
                              "--out", self.directory / "out")
        self.assertIn("forwarded", shown)
        self.assertGreater((self.directory / "out" / "east.pcap").stat().st_size, 1000)

    def test_containerlab_has_the_nodes_and_links_of_the_lab(self):
        text = (CLAB / "ovix.clab.yml").read_text()
        for one, other in (link.ends for link in topology.LINKS):
            self.assertIn(f'["{one.node}:{one.name}", "{other.node}:{other.name}"]', text)
        self.assertEqual(text.count("endpoints:"), len(topology.LINKS))
        package = self.directory / "any.deb"
        package.write_text("")
        for network in ("ldp", "sr", "bgp-lu"):
            written = self.directory / network
            self.run_well(sys.executable, CLAB / "make.py", written, "--network", network,
                          "--package", package)
            for node in (*topology.ROUTERS, *topology.HOSTS):
                self.assertIn(f'{node}: {{kind: linux, binds: ["{node}:/etc/ovix-router"]', text)
                lines = (written / node / "interfaces").read_text().splitlines()
                names = {line.split()[0] for line in lines} - {"lo"}
                self.assertEqual(names, {one.name for one in topology.interfaces(node)})
            for name in ("zebra", *(("ldpd",) if network == "ldp" else ())):
                self.assertTrue((written / "pe1" / f"{name}.conf").read_text())
            self.run_well("sh", "-n", written / "router.sh")
            self.assertIn("COPY ovix.deb", (written / "Dockerfile").read_text())


if __name__ == "__main__":
    unittest.main()
