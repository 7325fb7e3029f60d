#pragma once

#include <string>
#include <variant>
#include <vector>

namespace OvixAgent {

inline constexpr const char* agentVersion = "0.1.0";

/// What the agent exits with.
namespace ExitCode {
inline constexpr int success = 0;
inline constexpr int badInput = 1; ///< configuration, capture or output at fault
inline constexpr int usage = 2;
inline constexpr int imbalance = 3; ///< a frame was not accounted for exactly once
} // namespace ExitCode

/// `--in PORT=CAPTURE`.
struct InputOption {
    std::string port;
    std::string path;
};

/// The command `run`.
struct RunOptions {
    std::string config;
    bool live = false;               ///< on the ports' interfaces and not on captures
    std::vector<InputOption> inputs; ///< at least one, unless live
    std::string outDirectory;        ///< empty when live
    std::string plugin;              ///< empty: the one that comes with the agent
    std::string tables;  ///< shared label tables to take; empty: those of the configuration
    std::string control; ///< where to answer requests; empty: where the tables' name says
    bool json = false;
    bool trace = false;
    bool quiet = false;
};

/// Nothing to run: help or version was asked for, or the command line is wrong.
struct CliExit {
    int code = ExitCode::success;
    std::string text; ///< for standard output on success, else for standard error
};

std::variant<RunOptions, CliExit> parseCommandLine(int argc, const char* const* argv);

} // namespace OvixAgent
