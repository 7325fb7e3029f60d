#!/usr/bin/env python3
"""Writes the manual pages of the programs and one reference page of all, from what `--help` prints.

reference.py PROGRAMS OUT: PROGRAMS is the directory of the programs; OUT gets man1/*.1 and reference.md, and
man5/ovix-agent.yaml.5 of docs/configuration.md where lowdown is installed.
"""

import pathlib
import re
import shutil
import subprocess
import sys
import textwrap

WIDTH = 78


def help_of(program: pathlib.Path, words: tuple[str, ...]) -> str:
    text = subprocess.run([str(program), *words, "--help"], check=True, capture_output=True,
                          text=True, env={"HOME": "/", "PATH": "/usr/bin:/bin"}).stdout
    return "\n".join(wrapped(line) for line in text.rstrip().splitlines())


def wrapped(line: str) -> str:
    """A long line, with what follows under the beginning of its last column."""
    if len(line) <= WIDTH:
        return line
    columns = re.match(r"\s+\S.*?\s{2,}(?=\S)", line)
    indent = " " * (min(columns.end(), WIDTH // 2) if columns else len(line) - len(line.lstrip()))
    return "\n".join(textwrap.wrap(line, WIDTH, subsequent_indent=indent,
                                   break_long_words=False, break_on_hyphens=False))


def subcommands(text: str) -> list[str]:
    found = re.search(r"^Subcommands:\n((?:  .*\n?)+)", text, re.MULTILINE)
    return re.findall(r"^  (\S+)", found.group(1), re.MULTILINE) if found else []


def sections(program: pathlib.Path, words: tuple[str, ...] = ()):
    """(words, help) of a program and of each of its commands."""
    text = help_of(program, words)
    yield (program.name, *words), text
    for word in subcommands(text):
        yield from sections(program, (*words, word))


def roff(text: str) -> str:
    escaped = text.replace("\\", "\\e").replace("-", "\\-")
    return "\n".join("\\&" + line if line[:1] in (".", "'") else line
                     for line in escaped.splitlines())


def man_page(version: str, all_of_it) -> str:
    (name,), first = all_of_it[0]
    summary, *rest = first.split("\n")
    while rest and not rest[0].startswith("Usage:"):
        summary += " " + rest.pop(0)
    lines = [f'.TH {name.upper()} 1 "" "ovix {version}" "Ovix"', ".SH NAME",
             f"{name} \\- {roff(summary.rstrip('.'))}", ".SH SYNOPSIS", ".nf",
             roff(rest[0].removeprefix("Usage: ")), ".fi", ".SH DESCRIPTION", ".nf",
             roff("\n".join(rest[1:]).strip()), ".fi"]
    for words, text in all_of_it[1:]:
        lines += [f'.SH "{roff(" ".join(words).upper())}"', ".nf", roff(text), ".fi"]
    lines += [".SH SEE ALSO", "ovix\\-agent(1), ovixctl(1), ovix\\-fpm(1), ovix\\-agent.yaml(5)"]
    return "\n".join(lines) + "\n"


def configuration_page() -> str:
    text = (pathlib.Path(__file__).parent.parent / "docs/configuration.md").read_text(encoding="utf-8")
    page = subprocess.run(["lowdown", "-s", "-Tman", "-mtitle=OVIX-AGENT.YAML", "-msection=5", "-msource=Ovix"],
                          input=f"# NAME\n\novix-agent.yaml - configuration of ovix-agent\n\n{text}",
                          check=True, capture_output=True, text=True).stdout
    return re.sub(r"(?m)^\.SH\n(.*)$", r'.SH "\1"', page)  # as man's index has it


def main() -> None:
    programs, out = map(pathlib.Path, sys.argv[1:3])
    for section in ("man1", "man5"):
        (out / section).mkdir(parents=True, exist_ok=True)
    if shutil.which("lowdown"):
        (out / "man5" / "ovix-agent.yaml.5").write_text(configuration_page(), encoding="utf-8")
    reference = ["# Reference", "", "What `--help` of each program and command prints.", ""]
    for name in ("ovix-agent", "ovixctl", "ovix-fpm"):
        printed = subprocess.run([str(programs / name), "--version"], check=True,
                                 capture_output=True, text=True).stdout
        version = printed.splitlines()[0].split()[1]
        all_of_it = list(sections(programs / name))
        (out / "man1" / f"{name}.1").write_text(man_page(version, all_of_it), encoding="utf-8")
        for words, text in all_of_it:
            reference += [f"{'#' * min(len(words) + 1, 4)} {' '.join(words)}", "", "```",
                          text, "```", ""]
    (out / "reference.md").write_text("\n".join(reference), encoding="utf-8")


if __name__ == "__main__":
    main()
