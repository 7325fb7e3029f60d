#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace OvixCtl {

/// What the command exits with.
namespace ExitCode {
inline constexpr int success = 0;
inline constexpr int failure = 1; ///< of `lfib diff`: there is a difference
inline constexpr int usage = 2;   ///< of `lfib diff`: also every other trouble
} // namespace ExitCode

enum class Command : std::uint8_t {
    lfibLoad,
    lfibAdd,
    lfibReplace,
    lfibDel,
    lfibShow,
    lfibDiff,
    lfibWatch,
    countersShow,
    countersClear,
    completion,
};

struct CtlOptions {
    Command command = Command::lfibShow;
    std::string tables;  ///< the name of the shared tables
    std::string control; ///< the agent's socket; empty: where the tables' name says
    bool json = false;
    std::string file;               ///< of load and diff
    std::vector<std::string> words; ///< of add, replace, del, show and counters show
    std::uint64_t count = 0;        ///< of watch: changes to wait for; 0: no end
};

/// Nothing to do: help or version was asked for, or the command line is wrong.
struct CtlExit {
    int code = ExitCode::success;
    std::string text; ///< for standard output on success, else for standard error
};

std::variant<CtlOptions, CtlExit> parseCommandLine(int argc, const char* const* argv);

} // namespace OvixCtl
