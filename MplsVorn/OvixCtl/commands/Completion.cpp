#include <cassert>
#include <cstdio>
#include <fmt/format.h>
#include <string_view>

#include "commands/Command.h"

namespace OvixCtl {

namespace {

constexpr const char* script = R"bash(# bash completion for ovixctl
_ovixctl_words() {
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "${COMP_WORDS[COMP_CWORD]}")
}

_ovixctl_files() {
    mapfile -t COMPREPLY < <(compgen -f -- "${COMP_WORDS[COMP_CWORD]}")
}

# The words of the command before the cursor, without the options and their values.
_ovixctl_command() {
    local i
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            @valued-options@) ((i++)) ;;
            -?*) ;;
            *) printf '%s\n' "${COMP_WORDS[i]}" ;;
        esac
    done
}

_ovixctl() {
    local current=${COMP_WORDS[COMP_CWORD]} options="@options@ --help --version"
    local -a command
    mapfile -t command < <(_ovixctl_command)
    COMPREPLY=()
    case ${COMP_WORDS[COMP_CWORD - 1]} in
@option-values@    esac
    if [[ $current == -* ]]; then
        case "${command[*]:0:2}" in
@command-options@        esac
        _ovixctl_words "$options"
        return
    fi
    case "${command[*]:0:2}" in
        "") _ovixctl_words "@groups@" ;;
@commands@    esac
    return 0
}
complete -o filenames -F _ovixctl ovixctl
)bash";

/// The command that offers the words at the cursor.
std::string offer(std::string_view words) {
    return words.empty()        ? ":"
           : words == "@files@" ? "_ovixctl_files"
                                : fmt::format("_ovixctl_words \"{}\"", words);
}

template <typename Range, typename Name>
std::string joined(const Range& rows, Name&& name, std::string_view separator) {
    std::vector<std::string> names;
    for (const auto& row : rows) {
        if (const std::string text = name(row); !text.empty()) {
            names.push_back(text);
        }
    }
    return fmt::format("{}", fmt::join(names, separator));
}

/// Of a command, a group or an option.
const auto nameOfRow = [](const auto& row) { return std::string(row.name); };

std::vector<Option> optionsWithOwn() {
    std::vector<Option> all(globalOptions().begin(), globalOptions().end());
    for (const Command& command : allCommands()) {
        all.insert(all.end(), command.options.begin(), command.options.end());
    }
    return all;
}

std::string optionValues() {
    std::string arms;
    for (const Option& option : optionsWithOwn()) {
        if (option.value != nullptr) {
            arms += fmt::format("        {})\n            {}\n            return ;;\n", option.name,
                                offer(option.completion == nullptr ? "" : option.completion));
        }
    }
    return arms;
}

/// A bash pattern for the first two words of a command line with the command; one without a name is
/// its group, and any word may follow.
std::string patternOf(const Command& command) {
    return *command.name != '\0' ? fmt::format("\"{} {}\"", command.group, command.name)
                                 : fmt::format("{0} | \"{0} \"*", command.group);
}

std::string commandOptions() {
    std::string arms;
    for (const Command& command : allCommands()) {
        if (!command.options.empty()) {
            arms += fmt::format("            {}) options+=\" {}\" ;;\n", patternOf(command),
                                joined(command.options, nameOfRow, " "));
        }
    }
    return arms;
}

/// Chooses by the number of words given to the command so far, and the last of them.
std::string commandArm(const Command& command) {
    std::string arm = fmt::format("        {})\n            case "
                                  "\"$((${{#command[@]}} - {})):${{command[-1]}}\" in\n",
                                  patternOf(command), *command.name != '\0' ? 2 : 1);
    const std::string lines = expanded(command.completion);
    for (std::string_view rest = lines; !rest.empty();) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        const std::size_t space = line.find(' ');
        const std::string_view words =
            space == line.npos ? std::string_view() : line.substr(space + 1);
        arm += fmt::format("                {}) {} ;;\n", line.substr(0, space), offer(words));
        rest.remove_prefix(line.size() + 1);
    }
    return arm + "            esac ;;\n";
}

std::string commandArms() {
    std::string arms;
    for (const CommandGroup& group : commandGroups()) {
        std::string names;
        for (const Command& command : allCommands()) {
            if (std::string_view(command.group) == group.name) {
                names += (names.empty() ? "" : " ") + std::string(command.name); // perhaps none
                arms += *command.completion != '\0' ? commandArm(command) : "";
            }
        }
        arms += fmt::format("        {}) {} ;;\n", group.name, offer(names));
    }
    return arms;
}

} // namespace

Tessel::Result<int> printBashCompletion(const Request&) {
    const auto valued = [](const Option& option) {
        return std::string(option.value != nullptr ? option.name : "");
    };
    std::string text = script;
    const auto insert = [&](std::string_view mark, const std::string& with) {
        const std::size_t at = text.find(mark);
        assert(at != std::string::npos);
        text.replace(at, mark.size(), with);
    };
    insert("@valued-options@", joined(optionsWithOwn(), valued, " | "));
    insert("@options@", joined(globalOptions(), nameOfRow, " "));
    insert("@option-values@", optionValues());
    insert("@command-options@", commandOptions());
    insert("@groups@", joined(commandGroups(), nameOfRow, " "));
    insert("@commands@", commandArms());
    std::fputs(expanded(text).c_str(), stdout);
    return ExitCode::success;
}

// The words are those that bash is offered, so that there is one script to keep right.
Tessel::Result<int> printZshCompletion(const Request&) {
    std::fputs(R"zsh(#compdef ovixctl
_ovixctl() {
    local -a offered
    offered=("${(@f)$(bash -c 'source <("$2" completion bash)
COMP_CWORD=$1 COMP_WORDS=("${@:2}")
_ovixctl
printf "%s\n" "${COMPREPLY[@]}"' bash $((CURRENT - 1)) "${words[@]}" 2> /dev/null)}")
    compadd -- ${offered:#}
}
if [[ $funcstack[1] == _ovixctl ]]; then # loaded at the first completion
    _ovixctl "$@"
else
    compdef _ovixctl ovixctl
fi
)zsh",
               stdout);
    return ExitCode::success;
}

} // namespace OvixCtl
