#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/types.h>

namespace Bench {

/// What an agent says about a run that has ended.
struct AgentBalance {
    bool balanced = false;
    std::uint64_t in = 0;
    std::uint64_t forwarded = 0;
};

/// The agent that stands beside this program, forwarding on live ports.
class AgentProcess {
  public:
    /// `tables` names the shared tables that it forwards by; empty: those of the configuration.
    /// Throws std::runtime_error.
    explicit AgentProcess(const std::string& config, const std::string& tables = {});
    AgentProcess(const AgentProcess&) = delete;
    AgentProcess& operator=(const AgentProcess&) = delete;
    ~AgentProcess();

    /// Processor time that it has used. Throws std::runtime_error when it has ended.
    double cpuSeconds() const;

    /// Ends it as its operator does. Throws std::runtime_error when that is not as it should be.
    AgentBalance stop();

    /// What it has written to standard error.
    std::string complaints() const;

  private:
    [[noreturn]] void run(const std::string& tables) const;

    std::filesystem::path directory_;
    pid_t process_ = 0; ///< 0 once it has ended
};

} // namespace Bench
