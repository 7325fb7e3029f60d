#pragma once

#include <memory>
#include <vector>

#include "Config/ConfigTypes.h"
#include "Live/ports/LivePort.h"
#include "Live/ports/TapPort.h"
#include "State/PortTable.h"

namespace OvixAgent {

/// The ports of a live run, in the order of the configuration, and the way to the CPU.
class LivePorts {
  public:
    /// Opens what is there; a port whose interface comes later is opened then. Connects the ports
    /// of the table with them.
    LivePorts(const AgentConfig& config, PortTable& table);

    std::vector<std::unique_ptr<LivePort>>& all() noexcept { return ports_; }
    LivePort& port(PortIndex index) const { return *ports_[index]; }
    /// Null when no port has the interface.
    LivePort* find(const std::string& interface) const;

    /// Takes punted frames: labelled ones go to the TAP device, if there is one. An IP frame that
    /// came in at a packet port has been received by the host's own stack, too, which answers it.
    TransmitPort& cpu() noexcept { return *cpu_; }

    /// Tries again to open what is not open.
    void reopen();
    void flush();
    /// Throws std::runtime_error when none is open, and that is not only because there is no such
    /// interface yet.
    void requireUsable() const;
    /// Why ports, and the TAP device toward the CPU, are not open.
    std::vector<std::string> problems() const;
    /// Problems that there were not at the last call, and ports that are open again.
    std::vector<std::string> news();

    /// What has happened beside receiving and sending, as "PORT: WHAT" and how often.
    std::vector<std::pair<std::string, std::uint64_t>> events() const;

  private:
    std::vector<std::unique_ptr<LivePort>> ports_;
    std::unique_ptr<TapPort> cpuTap_; ///< null: the configuration names none
    std::unique_ptr<TransmitPort> cpu_;
    std::vector<std::string> told_; ///< the problem of each port, when news were last asked for
};

} // namespace OvixAgent
