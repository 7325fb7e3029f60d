"""A program's manual page: of what `--help` prints, and of docs/manual/PROGRAM.md for what it does not say."""

import pathlib
import re
import subprocess

from help_text import Entry, Help, exit_codes

DOCS = pathlib.Path(__file__).resolve().parent.parent / "docs"
ALL_PAGES = ("ovix-agent(1)", "ovixctl(1)", "ovix-fpm(1)", "ovix-agent.yaml(5)")


def roff(text: str) -> str:
    escaped = text.replace("\\", "\\e").replace("-", "\\-")
    return "\n".join("\\&" + line if line[:1] in (".", "'") else line
                     for line in escaped.splitlines())


def as_printed(text: str) -> list[str]:
    return [".nf", roff(text), ".fi"]


def entry_lines(entries: list[Entry]) -> list[str]:
    lines = []
    for entry in entries:
        lines += [".TP", f"\\fB{roff(entry.name)}\\fR", roff(entry.text)]
    return lines


def command_lines(one: Help, footer_of_all: str) -> list[str]:
    lines = [f'.SH "{roff(" ".join(one.words).upper())}"', roff(one.summary), ".PP",
             f"\\fB{roff(one.usage)}\\fR", *entry_lines(one.positionals),
             *entry_lines([option for option in one.options if "--help" not in option.flags()])]
    # Exit codes have a section of their own.
    footer = re.sub(r"Exit codes:\n(  .*\n?)+", "", "" if one.footer == footer_of_all else one.footer).strip()
    if footer:
        lines += [".PP", *as_printed(footer)]
    return lines


def exit_status(all_of_it: list[Help]) -> list[str]:
    lines, said = [".SH EXIT STATUS"], set()
    for one in all_of_it:
        codes = exit_codes(one)
        if codes and codes not in said:
            lines += [".PP", f"\\fB{roff(' '.join(one.words))}\\fR:", *as_printed(codes)]
            said.add(codes)
    return lines


def notes(name: str) -> str:
    return (DOCS / "manual" / f"{name}.md").read_text(encoding="utf-8")


def note_lines(text: str) -> list[str]:
    """Headings, lists of `word`: text, paragraphs, and code as it is."""
    lines = []
    for block in re.split(r"\n{2,}", text.strip()):
        if block.startswith("## "):
            lines.append(f".SH {block[3:].upper()}")
        elif block.startswith("```"):
            lines += [".PP", *as_printed("\n".join(block.splitlines()[1:-1]))]
        elif block.startswith("- "):
            for item in re.split(r"^- ", block, flags=re.MULTILINE)[1:]:
                word, _, rest = item.partition(": ")
                lines += [".TP", f"\\fB{roff(word.replace('`', ''))}\\fR", roff(" ".join(rest.replace("`", "").split()))]
        else:
            lines += [".PP", roff(" ".join(block.replace("`", "").split()))]
    return lines


def program_page(version: str, all_of_it: list[Help]) -> str:
    first, *commands = all_of_it
    (name,) = first.words
    lines = [f'.TH {name.upper()} 1 "" "ovix {version}" "Ovix"', ".SH NAME",
             f"{name} \\- {roff(first.summary.rstrip('.'))}", ".SH SYNOPSIS",
             *as_printed("\n".join(one.usage for one in all_of_it if not one.commands))]
    description, _, _ = first.footer.partition("Exit codes:")
    if description.strip():
        lines += [".SH DESCRIPTION", *as_printed(description.strip())]
    lines += [".SH OPTIONS", *entry_lines(first.options)]
    for one in commands:
        lines += command_lines(one, first.footer)
    lines += [*exit_status(all_of_it), *note_lines(notes(name)), ".SH SEE ALSO",
              ", ".join(roff(page) for page in ALL_PAGES if page != f"{name}(1)")]
    return "\n".join(line for line in lines if line) + "\n"


def configuration_page() -> str:
    """Of docs/configuration.md, whose links lead nowhere on paper."""
    text = (DOCS / "configuration.md").read_text(encoding="utf-8")
    text = re.sub(r"\[([^]]+)\]\((?!https?:)[^)]*\)", r"\1", text)
    more = "\n## Files\n\n`/etc/ovix/NAME.yaml` is the configuration of the service `ovix-agent@NAME`.\n\n" \
           f"## See also\n\n{', '.join(ALL_PAGES[:-1])}\n"
    page = subprocess.run(["lowdown", "-s", "-Tman", "-mtitle=OVIX-AGENT.YAML", "-msection=5", "-msource=Ovix"],
                          input=f"# NAME\n\novix-agent.yaml - configuration of ovix-agent\n\n{text}{more}",
                          check=True, capture_output=True, text=True).stdout
    return re.sub(r"(?m)^\.SH\n(.*)$", r'.SH "\1"', page)  # as man's index has it
