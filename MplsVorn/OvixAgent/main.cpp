#include <csignal>
#include <cstdio>
#include <exception>
#include <string_view>
#include <variant>

#include "Command/CliOptions.h"
#include "Command/Explaining.h"
#include "Command/Replaying.h"
#include "Command/Run.h"
#include "Live/carrier/Carrier.h"

int main(int argc, char** argv) {
    if (argc > 0 && std::string_view(argv[0]) == OvixAgent::carrierHolder) {
        return OvixAgent::holdCarrier();
    }
    std::signal(SIGPIPE, SIG_IGN); // a closed pipe is an error of the write
    const auto parsed = OvixAgent::parseCommandLine(argc, argv);
    if (const auto* exit = std::get_if<OvixAgent::CliExit>(&parsed)) {
        std::fputs(exit->text.c_str(),
                   exit->code == OvixAgent::ExitCode::success ? stdout : stderr);
        return exit->code;
    }
    if (const auto* options = std::get_if<OvixAgent::ExplainOptions>(&parsed)) {
        return OvixAgent::runExplain(*options);
    }
    if (const auto* options = std::get_if<OvixAgent::ReplayOptions>(&parsed)) {
        return OvixAgent::runReplay(*options);
    }
    try {
        OvixLog::Log log("ovix-agent");
        return OvixAgent::run(std::get<OvixAgent::RunOptions>(parsed), log);
    } catch (const std::exception& error) { // there is no thread for the log
        std::fprintf(stderr, "ovix-agent: %s\n", error.what());
        return OvixAgent::ExitCode::badInput;
    }
}
