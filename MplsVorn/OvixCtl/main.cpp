#include <cstdio>
#include <exception>
#include <stdexcept>
#include <variant>

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
        complain(request, error.what());
        return request.command->failureCode;
    }
}

} // namespace

int main(int argc, char** argv) {
    const auto parsed = parseCommandLine(argc, argv);
    if (const auto* exit = std::get_if<EarlyExit>(&parsed)) {
        std::fputs(exit->text.c_str(), exit->code == ExitCode::success ? stdout : stderr);
        return exit->code;
    }
    return carryOut(std::get<Request>(parsed));
}
