#include <cstdio>
#include <exception>
#include <stdexcept>
#include <variant>

#include "Program/Ending.h"
#include "commands/Command.h"

namespace {

using namespace OvixCtl;

int carryOut(const Request& request) {
    try {
        const Tessel::Result<int> code = request.command->run(request);
        if (!code) {
            complain(request, code.refused().what);
            return request.command->failureCode;
        }
        if (std::fflush(stdout) != 0) {
            throw std::runtime_error("standard output cannot be written");
        }
        return code.value();
    } catch (const std::exception& error) {
        complain(request, OvixLog::reasonOf(error));
        return request.command->failureCode;
    }
}

int carryOut(int argc, char** argv) {
    const auto parsed = parseCommandLine(argc, argv);
    if (const auto* exit = std::get_if<EarlyExit>(&parsed)) {
        std::fputs(exit->text.c_str(), exit->code == ExitCode::success ? stdout : stderr);
        return exit->code;
    }
    return carryOut(std::get<Request>(parsed));
}

} // namespace

int main(int argc, char** argv) {
    return OvixLog::endOf("ovixctl", ExitCode::failure, [&] { return carryOut(argc, argv); });
}
