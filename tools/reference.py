#!/usr/bin/env python3
"""Writes the manual pages of the programs, one reference page of all, and completion, from what `--help` prints.

reference.py PROGRAMS OUT: PROGRAMS is the directory of the programs; OUT gets man1/*.1, reference.md, bash/ and zsh/,
and man5/ovix-agent.yaml.5 of docs/configuration.md where lowdown is installed.
"""

import pathlib
import re
import shutil
import subprocess
import sys
import textwrap

import completion
from help_text import Help, helps
from manual_page import configuration_page, notes, program_page

WIDTH = 78


def wrapped(line: str) -> str:
    """A long line, with what follows under the beginning of its last column."""
    if len(line) <= WIDTH:
        return line
    columns = re.match(r"\s+\S.*?\s{2,}(?=\S)", line)
    indent = " " * (min(columns.end(), WIDTH // 2) if columns else len(line) - len(line.lstrip()))
    return "\n".join(textwrap.wrap(line, WIDTH, subsequent_indent=indent,
                                   break_long_words=False, break_on_hyphens=False))


def reference_of(all_of_it: list[Help]) -> list[str]:
    lines = []
    for one in all_of_it:
        lines += [f"{'#' * min(len(one.words) + 1, 4)} {' '.join(one.words)}", "", "```",
                  *map(wrapped, one.printed.splitlines()), "```", ""]
    return lines + [notes(all_of_it[0].words[0]).strip().replace("## ", "### "), ""]


def printed(*command) -> str:
    return subprocess.run([str(word) for word in command], check=True, capture_output=True, text=True).stdout


def main() -> None:
    programs, out = map(pathlib.Path, sys.argv[1:3])
    for directory in ("man1", "man5", "bash", "zsh"):
        (out / directory).mkdir(parents=True, exist_ok=True)
    if shutil.which("lowdown"):
        (out / "man5" / "ovix-agent.yaml.5").write_text(configuration_page(), encoding="utf-8")
    reference = ["# Reference", "", "What `--help` of each program and command prints, and what belongs to it.", ""]
    for name in ("ovix-agent", "ovixctl", "ovix-fpm"):
        version = printed(programs / name, "--version").splitlines()[0].split()[1]
        all_of_it = helps(programs / name)
        (out / "man1" / f"{name}.1").write_text(program_page(version, all_of_it), encoding="utf-8")
        reference += reference_of(all_of_it)
        if name != "ovixctl":  # which prints its own: it knows the words of routes
            (out / "bash" / name).write_text(completion.bash(all_of_it), encoding="utf-8")
            (out / "zsh" / f"_{name}").write_text(completion.zsh(all_of_it), encoding="utf-8")
    for shell, file in (("bash", "ovixctl"), ("zsh", "_ovixctl")):
        (out / shell / file).write_text(printed(programs / "ovixctl", "completion", shell), encoding="utf-8")
    (out / "reference.md").write_text("\n".join(reference), encoding="utf-8")


if __name__ == "__main__":
    main()
