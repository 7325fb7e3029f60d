"""What is installed works from where it is installed; containerlab's topology is the lab's."""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

import agent

VERSION = re.search(r"project\(ovix VERSION (\S+)",
                    (agent.SOURCE / "CMakeLists.txt").read_text()).group(1)
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
        # Nothing below /, wherever the build would put the configuration.
        os.environ["DESTDIR"] = str(self.directory)
        self.addCleanup(os.environ.pop, "DESTDIR")
        self.run_well("cmake", "--install", build, "--prefix", "/usr")
        programs = self.directory / "usr/bin"
        for program in ("ovix-agent", "ovixctl", "ovix-fpm"):
            said = self.run_well(programs / program, "--version")
            self.assertRegex(said, rf"\A{program} {VERSION}\ncommit: +([0-9a-f]{{12}}|unknown)")
        self.run_well(sys.executable, agent.SOURCE / "examples" / "make_demo.py", self.directory)
        shown = self.run_well(programs / "ovix-agent", "run",
                              agent.SOURCE / "examples" / "demo.yaml",
                              "--in", f"west={self.directory / 'west.pcap'}",
                              "--out", self.directory / "out")
        self.assertIn("forwarded", shown)
        self.see_what_is_beside_them()
        self.assertGreater((self.directory / "out" / "east.pcap").stat().st_size, 1000)

    def test_the_version_names_each_library_with_its_version(self):
        for program in (agent.AGENT, os.environ["OVIX_CTL"], os.environ["OVIX_FPM"]):
            said = self.run_well(program, "--version")
            for line in self.run_well("readelf", "-d", program).splitlines():
                linked = re.search(r"\(NEEDED\).*\[lib(.*?)(-core)?\.so", line)
                # What every program of this language has, and our own.
                if linked and linked.group(1) not in ("stdc++", "m", "gcc_s", "c", "OvixHost"):
                    self.assertRegex(said, rf"(?m)(^|[ :])(lib)?{linked.group(1)}(\.1)? \d", program)

    def see_what_is_beside_them(self):
        share = self.directory / "usr/share"
        for page in ("man1/ovix-agent.1", "man1/ovixctl.1", "man1/ovix-fpm.1"):
            warnings = subprocess.run(["groff", "-man", "-Tutf8", "-ww", "-z", share / "man" / page],
                                      capture_output=True, text=True, check=False).stderr
            self.assertEqual(warnings, "", page)
        manual = (share / "man/man1/ovixctl.1").read_text()
        for command in ("LFIB ADD", "STATUS", "COMPLETION ZSH"):
            self.assertIn(f'.SH "OVIXCTL {command}"', manual)
        self.assertGreater((share / "doc/ovix/docs/reference.md").stat().st_size, 10000)
        for example in ("demo.yaml", "metrics/dashboard.json", "metrics/alerts.yml", "container/Dockerfile",
                        "container/compose.yaml"):
            self.assertTrue((share / "doc/ovix/examples" / example).exists(), example)
        for program in ("ovix-agent", "ovixctl", "ovix-fpm"):
            for completion in (f"bash-completion/completions/{program}", f"zsh/vendor-completions/_{program}"):
                self.assertGreater((share / completion).stat().st_size, 100)
        for unit in ("ovix-agent@.service", "ovix-fpm.service"):
            text = (self.directory / "usr/lib/systemd/system" / unit).read_text()
            self.assertRegex(text, r"(?m)^ExecStart=/\S+/bin/ovix-")

    @unittest.skipUnless(shutil.which("systemd-analyze"), "needs systemd-analyze")
    def test_units_are_valid_and_give_up_what_they_do_not_need(self):
        build = pathlib.Path(agent.AGENT).resolve().parent.parent
        for unit in ("ovix-agent@.service", "ovix-fpm.service"):
            done = subprocess.run(["systemd-analyze", "security", "--offline=true", "--no-pager",
                                   "--threshold=20", build / "generated/units" / unit],
                                  capture_output=True, text=True, check=False)
            self.assertEqual(done.returncode, 0, done.stdout[-300:] + done.stderr)
            self.assertEqual(done.stderr, "")

    def test_versions_are_the_same_everywhere(self):
        changes = (agent.SOURCE / "CHANGELOG.md").read_text()
        self.assertEqual(re.search(r"^## (\S+)", changes, re.MULTILINE).group(1), VERSION)
        packages = (agent.SOURCE / "debian" / "changelog").read_text()
        self.assertEqual(re.match(r"ovix \((\S+)\)", packages).group(1), VERSION)

    def test_the_packages_are_built_with_what_the_programs_are(self):
        control = (agent.SOURCE / "debian" / "control").read_text()
        declared = re.search(r"Build-Depends: debhelper-compat \(= 13\), (.*?)\n\n", control, re.DOTALL)
        chore = re.search(r"build_packages=\((.*?)\)", (agent.SOURCE / "run").read_text(), re.DOTALL)
        self.assertEqual({"libdpdk-dev", "lowdown", *chore.group(1).split()},
                         {name.strip() for name in declared.group(1).split(",")})

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
            self.assertIn("COPY packages", (written / "Dockerfile").read_text())


if __name__ == "__main__":
    unittest.main()
