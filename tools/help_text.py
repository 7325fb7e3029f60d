"""What `--help` of a program and of its commands prints, in its parts."""

import dataclasses
import pathlib
import re
import subprocess


@dataclasses.dataclass
class Entry:
    """An option, a positional or a command: `--out DIR`, what it is for."""
    name: str
    text: str

    def flags(self) -> list[str]:
        return [word for word in re.split(r"[ ,]", self.name) if word.startswith("-")]

    def value(self) -> str:
        """DIR of `--out DIR`; of `--tables NAME=ovix (Env:OVIX_TABLES)` NAME."""
        words = self.name.split(" ")
        return re.split(r":FLOAT|=(?!CAPTURE)", words[1])[0] if len(words) > 1 and words[1] != "REQUIRED" else ""


@dataclasses.dataclass
class Help:
    words: tuple[str, ...]  # the program and its command
    summary: str
    usage: str
    positionals: list[Entry]
    options: list[Entry]
    commands: list[Entry]
    footer: str
    printed: str

    def own_commands(self) -> list[str]:
        return [command.name for command in self.commands]


def entries(block: str) -> list[Entry]:
    """Lines of a name and a text in a second column, which is on the next line where the name is long."""
    found = []
    for line in block.splitlines():
        columns = re.fullmatch(r"  (\S.*?)(?: {2,}(.*))?", line)
        if columns:
            found.append(Entry(columns.group(1), columns.group(2) or ""))
        elif found and not found[-1].text and line.startswith("   "):
            found[-1].text = line.strip()
    # A name may reach to the text.
    return [one if one.text else Entry(*split_once(one.name)) for one in found]


def split_once(name: str) -> tuple[str, str]:
    words = re.fullmatch(r"(--\S+ \S+) (.*)", name)
    return (words.group(1), words.group(2)) if words else (name, "")


def parsed(words: tuple[str, ...], printed: str) -> Help:
    head, _, rest = printed.partition("Usage: ")
    usage, _, rest = rest.partition("\n")
    blocks, footer = {}, []
    for block in rest.strip("\n").split("\n\n"):
        title, _, body = block.partition("\n")
        if title in ("Positionals:", "Options:", "Subcommands:") and not footer:
            blocks[title] = entries(body)
        else:
            footer.append(block)
    return Help(words, " ".join(head.split()), usage, blocks.get("Positionals:", []), blocks.get("Options:", []),
                blocks.get("Subcommands:", []), "\n\n".join(footer), printed.rstrip())


def helps(program: pathlib.Path, words: tuple[str, ...] = ()) -> list[Help]:
    """Of a program and of each of its commands, in the order of its own list."""
    printed = subprocess.run([str(program), *words, "--help"], check=True, capture_output=True, text=True,
                             env={"HOME": "/", "PATH": "/usr/bin:/bin"}).stdout
    first = parsed((program.name, *words), printed)
    return [first, *(one for word in first.own_commands() for one in helps(program, (*words, word)))]


def exit_codes(one: Help) -> str:
    """As lines, or as what stands behind "Exit codes:"."""
    found = re.search(r"Exit codes:(?:\n((?:  .*\n?)+)| +([^\n]+))", one.footer)
    return (found.group(1) or found.group(2)).rstrip() if found else ""
