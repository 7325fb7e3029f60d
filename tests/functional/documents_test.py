"""What the documents show works: configurations, commands, chores and links."""

import os
import pathlib
import re
import shlex
import subprocess
import unittest

import frames as f
from agent import SOURCE
from running_agent import SharedTablesTest

DOCUMENTS = [*sorted(SOURCE.glob("*.md")), *sorted(SOURCE.glob("docs/**/*.md"))]
FENCE = re.compile(r"^```(\w*)\n(.*?)^```", re.MULTILINE | re.DOTALL)
LINK = re.compile(r"\]\(([^)#:]+)(?:#[^)]*)?\)")


def blocks(language: str):
    """(place, text) of each fenced block of a language."""
    for document in DOCUMENTS:
        text = document.read_text(encoding="utf-8")
        for match in FENCE.finditer(text):
            if match.group(1) == language:
                line = text[:match.start()].count("\n") + 1
                yield f"{document.relative_to(SOURCE)}:{line}", match.group(2)


class Documents(SharedTablesTest):
    def forwards(self, config: pathlib.Path):
        port = re.search(r"name: (\S+?)[,\n]", config.read_text(encoding="utf-8")).group(1)
        empty = self.directory / "empty.pcap"
        f.write_pcap(empty, [])
        return subprocess.run(
            [os.environ["OVIX_AGENT"], "run", str(config), "--in", f"{port}={empty}", "--out",
             str(self.directory / "out"), "--plugin", os.environ["OVIX_PLUGIN"]],
            capture_output=True, text=True)

    def test_every_configuration_in_the_documents_is_taken(self):
        found = list(blocks("yaml"))
        self.assertGreater(len(found), 8)
        for place, text in found:
            with self.subTest(place):
                config = self.directory / "example.yaml"
                config.write_text(text, encoding="utf-8")
                done = self.forwards(config)
                self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_every_example_file_is_taken(self):
        for config in sorted(SOURCE.glob("examples/*.yaml")):
            with self.subTest(config.name):
                done = self.forwards(config)
                self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_an_example_with_an_unknown_key_is_refused(self):
        config = self.directory / "example.yaml"
        config.write_text("ports:\n  - {name: west, colour: red}\n", encoding="utf-8")
        done = self.forwards(config)
        self.assertEqual(done.returncode, 1)
        self.assertIn("example.yaml:2", done.stderr)

    def test_every_key_of_the_configuration_is_in_the_reference(self):
        reference = (SOURCE / "docs/configuration.md").read_text(encoding="utf-8")
        known = set()
        for source in (SOURCE / "MplsVorn/OvixAgent/Config").glob("*.cpp"):
            text = source.read_text(encoding="utf-8")
            known.update(re.findall(
                r"\b(?:map|keys|route)\.\w+(?:<[^>]*>)?\(\s*\"([a-z-]+)\"", text))
        self.assertGreater(len(known), 30)
        missing = {key for key in known if f"`{key}`" not in reference}
        self.assertEqual(missing, set())

    def test_every_change_of_label_routes_in_the_documents_is_taken(self):
        count = 0
        for place, text in blocks("sh"):
            for line in text.splitlines():
                words = shlex.split(line, comments=True)
                if words[:1] != ["ovixctl"] or "lfib" not in words or "CONFIG" in words:
                    continue
                at = words.index("lfib")
                if words[at + 1] not in ("add", "replace", "del", "show"):
                    continue
                count += 1
                with self.subTest(place=place, line=line):
                    self.ctl(*words[at:])
        self.assertGreater(count, 1)

    def test_every_chore_in_the_documents_exists(self):
        usage = subprocess.run([str(SOURCE / "run"), "--help"], capture_output=True, text=True,
                               check=True).stdout
        chores = set(re.findall(r"^  (\w+) ", usage, re.MULTILINE))
        for document in DOCUMENTS:
            for chore in re.findall(r"\./run (\w+)", document.read_text(encoding="utf-8")):
                with self.subTest(document.name):
                    self.assertIn(chore, chores)

    def test_every_link_leads_to_a_file(self):
        count = 0
        for document in DOCUMENTS:
            for target in LINK.findall(document.read_text(encoding="utf-8")):
                count += 1
                with self.subTest(document=document.name, target=target):
                    self.assertTrue((document.parent / target).exists())
        self.assertGreater(count, 5)

    def test_every_source_named_in_the_architecture_exists(self):
        """Names in backticks that look like a unit's: Folder/Unit, or one of several in a row."""
        text = (SOURCE / "ARCHITECTURE.md").read_text(encoding="utf-8")
        units = {path.stem for path in (SOURCE / "MplsVorn").rglob("*")}
        folders = {path.name for path in (SOURCE / "MplsVorn").rglob("*") if path.is_dir()}
        for name in re.findall(r"`([A-Z]\w+(?:/[\w.…]+)+)`", text):
            with self.subTest(name):
                self.assertIn(pathlib.PurePath(name).name.split(".")[0], units | folders)


if __name__ == "__main__":
    unittest.main()
