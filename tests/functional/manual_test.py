"""Manual pages, the reference and completion are made of what the programs print."""

import os
import pathlib
import pty
import re
import select
import shlex
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

import agent

PROGRAMS = ("ovix-agent", "ovixctl", "ovix-fpm")
BIN = pathlib.Path(agent.AGENT).resolve().parent
sys.path.insert(0, str(agent.SOURCE / "tools"))
import help_text  # noqa: E402 (the chores' own)


class Printed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.out = pathlib.Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.out)
        subprocess.run([sys.executable, str(agent.SOURCE / "tools/reference.py"), str(BIN), str(cls.out)], check=True)
        cls.helps = {name: help_text.helps(BIN / name) for name in PROGRAMS}


class ManualPages(Printed):
    def page(self, name: str) -> str:
        return (self.out / "man1" / f"{name}.1").read_text(encoding="utf-8")

    def section(self, name: str, title: str) -> str:
        found = re.search(rf'^\.SH "?{title}"?\n(.*?)(?=^\.SH|\Z)', self.page(name), re.MULTILINE | re.DOTALL)
        self.assertIsNotNone(found, f"{name}: {title}")
        return found.group(1)

    def test_pages_have_the_sections_that_readers_look_for(self):
        for name in PROGRAMS:
            titles = re.findall(r'^\.SH "?(.*?)"?$', self.page(name), re.MULTILINE)
            common = ["NAME", "SYNOPSIS", "OPTIONS", "EXIT STATUS", "ENVIRONMENT", "FILES", "EXAMPLES", "SEE ALSO"]
            self.assertEqual([title for title in titles if title in common], common)
        self.assertIn("3  the frames do not add up", self.section("ovix-agent", "EXIT STATUS"))
        self.assertIn("/dev/shm/ovix/NAME", self.section("ovixctl", "FILES"))
        self.assertNotIn("ovix\\-fpm(1)", self.section("ovix-fpm", "SEE ALSO"))

    def test_pages_have_each_option_of_each_command_and_no_warnings(self):
        for name in PROGRAMS:
            path = self.out / "man1" / f"{name}.1"
            done = subprocess.run(["groff", "-man", "-Tascii", "-ww", "-P-c", "-rLL=200n", str(path)],
                                  capture_output=True, text=True, check=False)
            self.assertEqual(done.stderr, "", name)
            text = re.sub(".\x08", "", done.stdout)  # bold letters are struck twice
            for one in self.helps[name]:
                self.assertTrue(one.commands or one.usage in text)
                for entry in one.options + one.positionals:
                    if "--help" not in entry.flags():
                        self.assertIn(entry.name, text)
                        self.assertIn(entry.text[:40], text)

    def test_examples_give_options_that_the_commands_have(self):
        count = 0
        for name in PROGRAMS:
            for line in re.findall(r"^(ovix\S* .*)$", self.section(name, "EXAMPLES"), re.MULTILINE):
                words = shlex.split(line.replace("\\-", "-"))
                known = max((one for one in self.helps[words[0]] if one.words == tuple(words[:len(one.words)])),
                            key=lambda one: len(one.words))
                flags = {flag for option in known.options for flag in option.flags()}
                self.assertEqual([word for word in words if word.startswith("--") and word not in flags
                                  and words[0] != "ovixctl"], [], line)
                count += 1
        self.assertGreater(count, 8)

    @unittest.skipUnless(shutil.which("lowdown"), "needs lowdown")
    def test_the_configurations_page_has_no_links_of_the_screen(self):
        text = (self.out / "man5/ovix-agent.yaml.5").read_text(encoding="utf-8")
        self.assertIn(".SH", text)
        self.assertNotRegex(text, r"<\\?#|\.md")
        for title in ("Files", "See also"):
            self.assertIn(title, text)

    def test_the_reference_has_what_help_prints_and_what_belongs_to_it(self):
        text = (self.out / "reference.md").read_text(encoding="utf-8")
        for title in ("## ovix-fpm", "### ovix-agent replay", "#### ovixctl lfib add", "### Files"):
            self.assertIn(f"\n{title}\n", text)


class Completion(Printed):
    def bash(self, name: str, *words: str) -> list[str]:
        """What bash offers for the last word."""
        script = f"""source "$1"; COMP_WORDS=("${{@:2}}"); COMP_CWORD=$(($# - 2))
_{name.replace("-", "_")}; printf '%s\\n' "${{COMPREPLY[@]}}" """
        done = subprocess.run(["bash", "-c", script, "bash", str(self.out / "bash" / name), name, *words],
                              capture_output=True, text=True, check=True, cwd=self.directory,
                              env={**os.environ, "OVIX_TABLES_DIR": str(self.directory)})
        self.assertEqual(done.stderr, "")
        return done.stdout.split()

    def setUp(self):
        self.directory = pathlib.Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.directory)
        for name in ("some.bundle", "some.pcap"):
            (self.directory / name).touch()

    def test_bash_offers_commands_options_values_and_files(self):
        for words, offered in ((("",), ["run", "explain", "replay"]), (("re",), ["replay"]),
                               (("--v",), ["--version"]), (("replay", "some.b"), ["some.bundle"]),
                               (("replay", "--j"), ["--json"]), (("explain", "--ht"), ["--html"]),
                               (("run", "--fast-path", ""), ["on", "off"]),
                               (("run", "--in", "west", "=", "some.p"), ["some.pcap"]),
                               (("run", "--in", "west", "="), ["some.bundle", "some.pcap"]),
                               (("run", "--metrics-labels", ""), []),
                               (("run", "--tables", "some.p"), ["some.pcap"])):
            with self.subTest(words):
                self.assertEqual(sorted(self.bash("ovix-agent", *words)), sorted(offered))
        self.assertEqual(self.bash("ovix-fpm", "--pseudowires-"), ["--pseudowires-every"])
        self.assertEqual(self.bash("ovix-fpm", "--vtysh", "some.p"), ["some.pcap"])

    def test_every_option_is_offered(self):
        for name in ("ovix-agent", "ovix-fpm"):
            for one in self.helps[name]:
                self.assertEqual(self.bash(name, *one.words[1:], "-"),
                                 [flag for option in one.options for flag in option.flags()])

    def zsh(self, typed: str, awaited: str) -> str:
        """What a shell at a terminal shows when this is typed, and Tab, until the awaited comes."""
        setup = (f"PS1='> '; fpath=({self.out}/zsh $fpath); autoload -Uz compinit; compinit -u -D; "
                 f"cd {self.directory}; stty -echo; echo rea''dy\n")
        process, terminal = pty.fork()
        if process == 0:
            os.execvpe("zsh", ["zsh", "-f", "-i"], {**os.environ, "TERM": "dumb", "COLUMNS": "200"})
        try:
            os.write(terminal, setup.encode())
            self.shown(terminal, "ready")
            os.write(terminal, typed.encode() + b"\t")
            return self.shown(terminal, awaited)
        finally:
            os.close(terminal)
            os.waitpid(process, 0)

    def shown(self, terminal: int, awaited: str) -> str:
        text, end = "", time.monotonic() + 20
        while not re.search(awaited, text) and select.select([terminal], [], [], max(0, end - time.monotonic()))[0]:
            text += os.read(terminal, 4096).decode(errors="replace")
        return text

    @unittest.skipUnless(shutil.which("zsh"), "needs zsh")
    def test_zsh_completes_commands_options_and_files(self):
        for typed, expected in (("ovix-agent rep", "replay "), ("ovix-agent replay some.b", "some.bundle"),
                                ("ovix-agent run --fast-path o", r"off\s+on"), ("ovix-agent run --che", "--check-every"),
                                ("ovix-fpm --sweep", "--sweep-after")):
            with self.subTest(typed):
                self.assertRegex(self.zsh(typed, expected), expected)


if __name__ == "__main__":
    unittest.main()
