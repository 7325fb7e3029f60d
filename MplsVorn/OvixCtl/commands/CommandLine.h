#pragma once

#include <string>
#include <variant>

#include "commands/Command.h"

namespace OvixCtl {

/// Nothing to carry out: help or version was asked for, or the command line is wrong.
struct EarlyExit {
    int code = ExitCode::success;
    std::string text; ///< for standard output on success, else for standard error
};

/// Options and commands are those of the table of commands.
std::variant<Request, EarlyExit> parseCommandLine(int argc, const char* const* argv);

} // namespace OvixCtl
