"""Completion for bash and zsh of a program's commands and options, from what `--help` prints."""

import re

from help_text import Entry, Help

FILES = {"FILE", "PATH", "CAPTURE", "DIR", "DIRECTORY", "CONFIG", "BUNDLE", "FRAME", "PORT=CAPTURE", "[ADDRESS:]PORT|/PATH"}
# Those of the system, and of the user.
TABLES = r"""$(cd "${OVIX_TABLES_DIR:-/dev/shm/ovix}" 2> /dev/null && compgen -G '*' | grep -v :)"""


def offered(option: Entry) -> str:
    """The bash command that offers an option's values."""
    value = option.value()
    if value in FILES:
        return "files"
    if "--tables" in option.flags():
        return f'words "{TABLES}"'
    return f'words "{value.replace("|", " ")}"' if "|" in value else ":"


def by_command(all_of_it: list[Help]) -> dict[str, Help]:
    return {" ".join(one.words[1:]): one for one in all_of_it}


def flags(one: Help) -> str:
    return " ".join(flag for option in one.options for flag in option.flags())


def bash(all_of_it: list[Help]) -> str:
    name = all_of_it[0].words[0]
    function = "_" + name.replace("-", "_")
    commands = by_command(all_of_it)
    arms = [f'        "{command} {flag}") {function}_{offered(option)}; return ;;'.replace(f"{function}_:", ":")
            for command, one in commands.items() for option in one.options for flag in option.flags() if option.value()]
    options = [f'            "{command}") {function}_words "{flags(one)}" ;;' for command, one in commands.items()]
    names = [command for command in commands if command]
    rest = f'    [[ $command ]] || {{ {function}_words "{" ".join(names)}"; return; }}\n    {function}_files\n' if names else ""
    finds = f"        case $word in {'|'.join(names)}) command=$word; break ;; esac\n" if names else ""
    find = f'    for word in "${{COMP_WORDS[@]:1:COMP_CWORD-1}}"; do\n{finds}    done\n' if names else ""
    return f"""# bash completion for {name}
{function}_words() {{
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "${{COMP_WORDS[COMP_CWORD]#=}}")
}}

{function}_files() {{
    mapfile -t COMPREPLY < <(compgen -f -- "${{COMP_WORDS[COMP_CWORD]#=}}")
}}

{function}() {{
    local before=${{COMP_WORDS[COMP_CWORD - 1]}} command= word
    COMPREPLY=()
{find}    if [[ $before == = || ${{COMP_WORDS[COMP_CWORD]}} == =* ]]; then # PORT=CAPTURE
        {function}_files
        return
    fi
    case "$command $before" in
{chr(10).join(arms)}
    esac
    if [[ ${{COMP_WORDS[COMP_CWORD]}} == -* ]]; then
        case $command in
{chr(10).join(options)}
        esac
        return
    fi
{rest}}}
complete -o filenames -F {function} {name}
"""


def quoted(text: str) -> str:
    """For an argument of zsh's _arguments, in single quotes."""
    return re.sub(r"([\[\]:\\])", r"\\\1", text).replace("'", "'\\''")


def zsh_action(option: Entry) -> str:
    value = option.value()
    if not value:
        return ""
    if value in FILES:
        action = "_files"
    elif "--tables" in option.flags():
        action = "_files -W ${OVIX_TABLES_DIR\\:-/dev/shm/ovix}"
    else:
        action = f"({value.replace('|', ' ')})" if "|" in value else ""
    return f":{quoted(value)}:{action}"


def zsh_arguments(one: Help) -> str:
    lines = []
    for option in one.options:
        repeated = "*" if option.name.endswith("...") else ""
        lines += [f"'{repeated}{flag}[{quoted(option.text)}]{zsh_action(option)}'" for flag in option.flags()]
    lines += ["'*:file:_files'"] if one.positionals else []
    return " \\\n            ".join(lines)


def zsh(all_of_it: list[Help]) -> str:
    first, *commands = all_of_it
    name = first.words[0]
    if not commands:
        return f"#compdef {name}\n_arguments {zsh_arguments(first)}\n"
    described = " ".join(f"{quoted(one.words[1])}\\:\"{quoted(quoted(one.summary))}\"" for one in commands)
    arms = "\n".join(f"        {one.words[1]}) _arguments {zsh_arguments(one)} ;;" for one in commands)
    return f"""#compdef {name}
local curcontext=$curcontext state line
_arguments -C {zsh_arguments(first)} \\
            '1:command:(({described}))' '*::argument:->rest'
if [[ $state == rest ]]; then
    case $line[1] in
{arms}
    esac
fi
"""
