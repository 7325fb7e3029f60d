"""The operator's command asks an agent for its counters, and helps bash to complete its commands."""

import json
import os
import socket
import shutil
import subprocess
import threading
import unittest

from ovixctl import OvixCtlTest
from running_agent import CTL


class Counters(OvixCtlTest):
    ANSWER = {"ok": True, "labels": [{"label": 100, "packets": 3, "bytes": 198}],
              "counters": [{"category": "Drop", "module": "Routing::Mpls", "reason": "No via",
                            "count": 4}]}

    def serve(self, answer: dict) -> str:
        """Answers one request like an agent; what was asked goes into self.asked."""
        path = str(self.directory / f"{self.tables}.sock")
        server = socket.socket(socket.AF_UNIX)
        self.addCleanup(server.close)
        server.bind(path)
        server.listen()

        def answer_one():
            client = server.accept()[0]
            with client, client.makefile("rw") as stream:
                self.asked = json.loads(stream.readline())
                stream.write(json.dumps(answer) + "\n")

        thread = threading.Thread(target=answer_one, daemon=True)
        thread.start()
        self.addCleanup(thread.join, 1)
        return path

    def test_they_are_shown_in_tables(self):
        path = self.serve(self.ANSWER)
        self.assertEqual(self.ctl("counters", "show", "--control", path).splitlines(), [
            "Label  Packets  Bytes", "  100        3    198", "",
            "Category  Module         Reason  Count", "Drop      Routing::Mpls  No via      4"])
        self.assertEqual(self.asked, {"command": "counters"})

    def test_the_agent_is_found_by_the_tables_name(self):
        self.serve(self.ANSWER)
        shown = self.ctl("counters", "show", "--json",
                         env={**os.environ, "OVIX_RUNTIME_DIR": str(self.directory)})
        self.assertEqual(json.loads(shown),
                         {key: self.ANSWER[key] for key in ("labels", "counters")})

    def test_a_label_that_nothing_was_counted_for(self):
        path = self.serve(self.ANSWER)
        self.assertEqual(self.ctl("counters", "show", "7", "--control", path, code=1),
                         "ovixctl: nothing has been counted for label 7\n")

    def test_clearing_is_asked_of_the_agent(self):
        path = self.serve({"ok": True})
        self.assertEqual(self.ctl("counters", "clear", "--control", path), "")
        self.assertEqual(self.asked, {"command": "clear-counters"})

    def test_no_agent_and_a_refusal_are_reported(self):
        output = self.ctl("counters", "show", "--control", "/nonexistent", code=1)
        self.assertEqual(output, "ovixctl: control socket /nonexistent: there is no such socket: is "
                               "the agent running?\n")
        path = self.serve({"ok": False, "error": "not today"})
        output = self.ctl("counters", "show", "--control", path, code=1)
        self.assertEqual(output, f"ovixctl: control socket {path}: not today\n")


class Completion(OvixCtlTest):
    def complete(self, line: str) -> list[str]:
        """What bash offers at the end of a line."""
        script = r"""
source <("$1" completion bash)
read -ra COMP_WORDS <<< "$2"
[[ $2 == *" " ]] && COMP_WORDS+=("")
COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
_ovixctl
printf '%s\n' "${COMPREPLY[@]}"
"""
        done = subprocess.run(["bash", "-c", script, "bash", CTL, line], capture_output=True,
                              text=True, check=True, cwd=self.directory)
        self.assertEqual(done.stderr, "")
        return done.stdout.split()

    def test_commands_options_and_tables_are_offered(self):
        lfibs = ["decap", "evpn-ethernet-segment-filter", "evpn-etree-leaf-label", "pseudowire",
                 "transit"]
        for line, offered in (
                ("ovixctl ", ["lfib", "counters", "status", "drops", "explain", "what-if", "bundle",
                              "trace", "port", "neighbour",
                              "route", "pseudowire", "fec", "vrf", "tables", "completion"]),
                ("ovixctl lf", ["lfib"]),
                ("ovixctl neighbour ", ["show"]),
                ("ovixctl status ", []),
                ("ovixctl lfib ", ["add", "del", "diff", "load", "replace", "show", "watch"]),
                ("ovixctl --tables x --json counters ", ["clear", "show"]),
                ("ovixctl lfib show ", [*lfibs, "hardware", "adjacency", "mvpn"]),
                ("ovixctl lfib show tr", ["transit"]),
                ("ovixctl lfib show transit ", ["owner"]),
                ("ovixctl lfib show owner f", ["file", "fpm"]),
                ("ovixctl lfib add 100 table ", lfibs),
                ("ovixctl lfib add ps", ["pseudowire"]),
                ("ovixctl lfib add pseudowire ", []),
                ("ovixctl lfib add 100 ", ["table", "multicast", "type", "owner",
                                           "preference", "flags", "tail", "nexthop", "as", "push", "via", "dev",
                                           "weight", "fec", "ttl", "tc", "push-tc", "push-ttl",
                                           "payload", "mtu", "vlan", "vrf",
                                            "entropy"]),
                ("ovixctl lfib replace 100 dev a ttl ", ["uniform", "pipe"]),
                ("ovixctl lfib add 100 dev a payload e", ["ethernet"]),
                ("ovixctl lfib add 100 dev a mtu ", []),
                ("ovixctl lfib add 100 dev a tc u", ["uniform"]),
                ("ovixctl lfib add 100 as 200 fec ", []),
                ("ovixctl lfib add 100 dev a multicast v", ["via", "vlan", "vrf"]),
                ("ovixctl lfib add 100 --json t", ["table", "type", "tail", "ttl", "tc"]),
                ("ovixctl lfib del 100 ", ["table", "owner"]),
                ("ovixctl lfib del 100 owner ", ["operator", "file", "fpm", "pseudowires"]),
                ("ovixctl lfib add 100 via ", ["inet", "inet6"]),
                ("ovixctl lfib del 100 table p", ["pseudowire"]),
                ("ovixctl explain --", ["--tables", "--control", "--create", "--json", "--help", "--version", "--port",
                                        "--html"]),
                ("ovixctl explain label --h", ["--help", "--html"]),
                ("ovixctl what-if ", ["link", "via", "lfib"]),
                ("ovixctl what-if lfib ", ["add", "replace", "del"]),
                ("ovixctl lfib watch --c", ["--control", "--create", "--count"]),
                ("ovixctl --t", ["--tables"]),
                ("ovixctl completion ", ["bash", "zsh"])):
            with self.subTest(line):
                self.assertEqual(self.complete(line), offered)

    def test_tables_and_files_that_are_there_are_offered(self):
        self.load("")
        self.assertEqual(self.complete(f"ovixctl --tables {self.tables[:-2]}"), [self.tables])
        self.assertEqual(self.complete("ovixctl lfib load tab"), ["tables.yaml"])

    @unittest.skipUnless(shutil.which("zsh"), "needs zsh")
    def test_zsh_completes_at_the_first_tab(self):
        """As when the shell loads the shipped file: its text is the function's, and is called at once."""
        functions = self.directory / "functions"
        functions.mkdir()
        (functions / "_ovixctl").write_text(self.ctl("completion", "zsh"))
        script = """fpath=("$1"); autoload -Uz _ovixctl
compadd() { shift; print -l -- "$@" }
words=("$2" lf) CURRENT=2
_ovixctl; _ovixctl"""
        done = subprocess.run(["zsh", "-f", "-c", script, "zsh", str(functions), CTL], capture_output=True, text=True,
                              check=True)
        self.assertEqual((done.stdout, done.stderr), ("lfib\nlfib\n", ""))

    def test_tables_are_looked_for_where_the_shell_says(self):
        (self.directory / "mine").touch()
        script = """source <("$1" completion bash)
export OVIX_TABLES_DIR=$2; COMP_WORDS=(ovixctl --tables ""); COMP_CWORD=2; _ovixctl; echo "${COMPREPLY[@]}" """
        done = subprocess.run(["bash", "-c", script, "bash", CTL, str(self.directory)], capture_output=True, text=True,
                              check=True)
        self.assertIn("mine", done.stdout.split())

    def test_every_command_that_is_offered_is_one(self):
        for group in ("lfib", "counters", "tables"):
            for command in self.complete(f"ovixctl {group} "):
                self.ctl(group, command, "--help")


if __name__ == "__main__":
    unittest.main()
