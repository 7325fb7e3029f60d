#include <csignal>
#include <cstdio>
#include <linux/capability.h>
#include <string_view>
#include <variant>

#include "Command/CliOptions.h"
#include "Command/Explaining.h"
#include "Command/Replaying.h"
#include "Command/Run.h"
#include "Live/carrier/Carrier.h"
#include "Program/Ending.h"
#include "Program/Privileges.h"

namespace {

/// Of root: files of others, and giving files to groups. The rest is for interfaces; memory of
/// AF_XDP is locked.
void giveUpPrivileges(const OvixAgent::RunOptions& options) {
    if (options.live) {
        OvixLog::keepCapabilities({CAP_NET_ADMIN, CAP_NET_RAW, CAP_BPF, CAP_PERFMON, CAP_IPC_LOCK,
                                   CAP_CHOWN, CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH});
    } else {
        OvixLog::keepCapabilities({CAP_CHOWN, CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH});
    }
}

int carryOut(int argc, char** argv) {
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
    const auto& options = std::get<OvixAgent::RunOptions>(parsed);
    giveUpPrivileges(options);
    OvixLog::Log log("ovix-agent");
    return OvixAgent::run(options, log);
}

} // namespace

int main(int argc, char** argv) {
    if (argc > 0 && std::string_view(argv[0]) == OvixAgent::carrierHolder) {
        return OvixAgent::holdCarrier();
    }
    std::signal(SIGPIPE, SIG_IGN); // a closed pipe is an error of the write
    return OvixLog::endOf("ovix-agent", OvixAgent::ExitCode::badInput,
                          [&] { return carryOut(argc, argv); });
}
