#include <cstdio>
#include <exception>
#include <fmt/format.h>
#include <variant>

#include "commands/Commands.h"
#include "commands/CtlOptions.h"
#include "route/UsageError.h"

namespace {

using namespace OvixCtl;

int carryOut(const CtlOptions& options) {
    switch (options.command) {
    case Command::lfibLoad:
        return loadRoutes(options);
    case Command::lfibAdd:
        return addRoute(options, false);
    case Command::lfibReplace:
        return addRoute(options, true);
    case Command::lfibDel:
        return deleteRoute(options);
    case Command::lfibShow:
        return showRoutes(options);
    case Command::lfibDiff:
        return diffRoutes(options);
    case Command::lfibWatch:
        return watchRoutes(options);
    case Command::countersShow:
        return showCounters(options);
    case Command::countersClear:
        return clearCounters(options);
    case Command::completion:
        return printBashCompletion();
    }
    return ExitCode::usage;
}

} // namespace

int main(int argc, char** argv) {
    const auto parsed = parseCommandLine(argc, argv);
    if (const auto* exit = std::get_if<CtlExit>(&parsed)) {
        std::fputs(exit->text.c_str(), exit->code == ExitCode::success ? stdout : stderr);
        return exit->code;
    }
    const auto& options = std::get<CtlOptions>(parsed);
    try {
        const int code = carryOut(options);
        if (std::fflush(stdout) != 0) {
            throw std::runtime_error("standard output cannot be written");
        }
        return code;
    } catch (const UsageError& error) {
        fmt::print(stderr, "ovixctl: {}\n", error.what());
        return ExitCode::usage;
    } catch (const std::exception& error) {
        fmt::print(stderr, "ovixctl: {}\n", error.what());
        return options.command == Command::lfibDiff ? ExitCode::usage : ExitCode::failure;
    }
}
