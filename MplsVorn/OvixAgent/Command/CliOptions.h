#pragma once

#include <string>
#include <variant>
#include <vector>

#include "Capture/CaptureMerge.h"

namespace OvixAgent {

/// Exit codes of the agent.
namespace ExitCode {
inline constexpr int success = 0;
inline constexpr int badInput = 1; ///< the configuration, a capture or an output is faulty
inline constexpr int usage = 2;
inline constexpr int imbalance = 3;  ///< a frame was not accounted for exactly once
inline constexpr int bySignal = 128; ///< and the signal's number: SIGINT 130, SIGTERM 143
} // namespace ExitCode

/// The command `run`.
struct RunOptions {
    std::string config;
    bool live = false;               ///< forward on network interfaces, not captures
    std::vector<InputOption> inputs; ///< at least one unless live
    std::string outDirectory;        ///< empty when live
    std::string plugin;              ///< empty: the one installed with the agent
    std::string tables;              ///< name of shared tables; empty: those of the configuration
    bool create = false;             ///< make the shared tables when there are none
    std::string control;             ///< path of the control socket; empty: see controlPath()
    std::string metrics;             ///< where to serve metrics; empty: nowhere
    std::size_t metricsLabels = 0;   ///< labels among them, the busiest
    std::vector<std::string> metricsHosts; ///< names by which they may be asked for
    bool carrier = false;                  ///< links of live ports are up only while it forwards
    bool anyMac = false;                   ///< take frames for other stations, too
    bool json = false;
    bool trace = false;
    bool quiet = false;
    bool fastPath = true;         ///< forward by decisions made once per label where that is exact
    std::uint64_t checkEvery = 0; ///< compare the roads of every Nth frame; 0: of none
};

/// Exit codes of `explain`, beside ExitCode::usage for what is faulty.
namespace ExplainExit {
inline constexpr int settled = 0; ///< the frame is forwarded or punted
inline constexpr int lost = 1;    ///< it is dropped, or handed on
} // namespace ExplainExit

/// The command `explain`.
struct ExplainOptions {
    std::string config;
    std::string port;
    std::string frame;
    std::string tables; ///< as in RunOptions
    std::string plugin;
    std::string html; ///< the file for a page; empty: none
    bool anyMac = false;
    bool json = false;
};

/// Exit codes of `replay`, likewise.
namespace ReplayExit {
inline constexpr int same = 0;
inline constexpr int different = 1; ///< for at least one frame
} // namespace ReplayExit

/// The command `replay`.
struct ReplayOptions {
    std::string bundle;
    std::string plugin;
    bool json = false;
};

/// Nothing to run: help or version was requested, or the command line is invalid.
struct CliExit {
    int code = ExitCode::success;
    std::string text; ///< printed on standard output on success, else on standard error
};

std::variant<RunOptions, ExplainOptions, ReplayOptions, CliExit>
parseCommandLine(int argc, const char* const* argv);

} // namespace OvixAgent
