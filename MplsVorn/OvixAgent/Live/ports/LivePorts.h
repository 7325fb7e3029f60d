#pragma once

#include <memory>
#include <vector>

#include "Config/Config.h"
#include "Live/ports/LivePort.h"
#include "Live/ports/TapPort.h"
#include "State/PortTable.h"
#include "State/Pseudowires.h"

namespace OvixAgent {

class CardPort;

/// The ports of a live run and the CPU port. VLAN sub-interfaces take and send their frames by the
/// ports of their parents.
class LivePorts {
  public:
    /// Opens the ports, except those whose interfaces do not exist yet. The ports of the table
    /// transmit to them.
    LivePorts(const AgentConfig& config, PortTable& table);

    /// Without sub-interfaces, in the order of the configuration.
    std::vector<std::unique_ptr<LivePort>>& all() noexcept { return ports_; }
    const std::vector<std::unique_ptr<LivePort>>& all() const noexcept { return ports_; }
    /// How many threads receive beside this one, whose ports then only send; 0: none.
    std::size_t queues() const noexcept { return queues_; }
    /// What one of them receives and sends by: one object for each of `all()`, in that order. To be
    /// called once for each.
    std::vector<std::unique_ptr<LivePort>> takeQueues(std::size_t thread);
    /// The objects of those threads for a port, one for each that has taken them. Theirs alone but
    /// while the gate is closed.
    std::vector<LivePort*> queuesOf(PortIndex index) const;
    /// Events of a port and of those objects together.
    std::uint64_t count(PortIndex index, LiveEvent event) const;
    /// Likewise the bytes received.
    std::uint64_t receivedBytes(PortIndex index) const;
    /// Where that of a port, or of a sub-interface's parent, stands in `all()`.
    std::size_t numberOf(PortIndex index) const;

    /// That of the parent for a sub-interface.
    LivePort& port(PortIndex index) const { return *byIndex_[index]; }

    /// Sends labelled punted frames to the TAP device, if there is one. IP frames of a packet port
    /// have also been received by the host's own stack, which answers them.
    TransmitPort& cpu() noexcept { return *cpu_; }

    /// Which ports take in everything, or everything tagged, since they or their sub-interfaces are
    /// attachment circuits; and which have sub-interfaces with MACs of their own.
    void intakesAre(const Pseudowires& pseudowires, PortTable& table);

    /// Whether ports are to be asked without being reported by poll.
    bool arePolled() const noexcept { return isPolled_; }

    /// Tries to open the closed ports.
    void reopen();
    void flush();
    /// Throws std::runtime_error when no port is open, unless only because the interfaces do not
    /// exist yet.
    void requireUsable() const;
    /// Why ports, and the TAP device of the CPU port, are not open.
    std::vector<std::string> problems() const;
    /// Problems and warnings since the last call, and ports that are open again.
    std::vector<std::string> news();
    /// What else the next news() has.
    void tell(std::string line) { told_.push_back(std::move(line)); }

    /// Counts of events other than received and sent, as "PORT: EVENT".
    std::vector<std::pair<std::string, std::uint64_t>> events() const;

  private:
    std::vector<std::unique_ptr<LivePort>> ports_;
    std::unique_ptr<TapPort> cpuTap_; ///< null when the configuration has none
    std::unique_ptr<TransmitPort> cpu_;
    std::vector<LivePort*> byIndex_; ///< by the configuration's index
    std::vector<CardPort*> cards_;   ///< the same; null where the port is no card's
    std::size_t queues_;
    const PortTable* table_;
    std::vector<std::vector<LivePort*>> ofThreads_; ///< what has been taken
    bool isPolled_ = false;
    std::vector<std::string> reported_; ///< the problem of each port at the last news()
    std::vector<std::string> warned_;   ///< likewise its warning
    std::vector<std::string> told_;
};

} // namespace OvixAgent
