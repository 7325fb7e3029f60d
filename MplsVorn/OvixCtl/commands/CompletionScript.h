#pragma once

namespace OvixCtl {

/// For bash; @lfibs@ and @shown@ stand for the names of tables.
inline constexpr const char* completionScript = R"bash(# bash completion for ovixctl
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
            --tables | --control | --count) ((i++)) ;;
            -?*) ;;
            *) printf '%s\n' "${COMP_WORDS[i]}" ;;
        esac
    done
}

# What may follow the word before the cursor in a route.
_ovixctl_route() {
    case $1 in
        table) _ovixctl_words "@lfibs@" ;;
        dev) _ovixctl_words "$(cd /sys/class/net 2> /dev/null && compgen -G '*')" ;;
        via) _ovixctl_words "inet inet6" ;;
        payload) _ovixctl_words "ipv4 ipv6 auto" ;;
        as | to | push | inet | inet6 | weight | vrf) ;;
        *) _ovixctl_words "table as push via dev weight nexthop vrf payload" ;;
    esac
}

_ovixctl() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local options="--tables --control --json --help --version"
    local -a command
    mapfile -t command < <(_ovixctl_command)
    COMPREPLY=()
    case $previous in
        --tables)
            _ovixctl_words "$(cd /dev/shm 2> /dev/null && compgen -G 'ovix-*' | sed 's/^ovix-//')"
            return ;;
        --control)
            _ovixctl_files
            return ;;
        --count)
            return ;;
    esac
    if [[ $current == -* ]]; then
        [[ ${command[1]} == watch ]] && options+=" --count"
        _ovixctl_words "$options"
        return
    fi
    case "${command[*]:0:2}" in
        "") _ovixctl_words "lfib counters completion" ;;
        lfib) _ovixctl_words "add del diff load replace show watch" ;;
        counters) _ovixctl_words "clear show" ;;
        completion) _ovixctl_words "bash" ;;
        "lfib load" | "lfib diff")
            [[ ${#command[@]} == 2 ]] && _ovixctl_files ;;
        "lfib show")
            [[ ${#command[@]} == 2 ]] && _ovixctl_words "@shown@" ;;
        "lfib del")
            case ${#command[@]} in
                3) _ovixctl_words "table" ;;
                4) _ovixctl_words "@lfibs@" ;;
            esac ;;
        "lfib add" | "lfib replace")
            [[ ${#command[@]} != 2 ]] && _ovixctl_route "$previous" ;;
    esac
    return 0
}
complete -o filenames -F _ovixctl ovixctl
)bash";

} // namespace OvixCtl
