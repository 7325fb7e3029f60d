#pragma once

#include <chrono>
#include <unordered_map>

#include "Live/links/LinkMonitor.h"
#include "Live/ports/LivePorts.h"
#include "State/EthIntfStatusDir.h"
#include "State/ForwardingTables.h"

namespace OvixAgent {

/// Keeps the ports, the interface status that plugins read, and the neighbours as the kernel says
/// they are; and has the kernel look for neighbours that frames wanted.
class LinkSync {
  public:
    using Clock = std::chrono::steady_clock;

    /// Everything must outlive it. Throws std::system_error.
    LinkSync(const AgentConfig& config, ForwardingTables& forwarding,
             Ptr<Interface::EthIntfStatusDir> interfaces, LivePorts& ports);

    /// What to poll for input of `receive`.
    int descriptor() const noexcept { return monitor_.descriptor(); }
    void receive() { monitor_.receive(); }
    /// Whether the kernel has told of everything once.
    bool isComplete() const noexcept { return monitor_.isComplete(); }

    /// Asks for the neighbours that have been wanted, each at most once a second.
    void solicit(Clock::time_point now);
    /// Takes over which ports the configuration, whose ports are the same, says are down.
    void configure(const AgentConfig& config);

  private:
    struct OfPort {
        std::uint32_t link = 0; ///< index of the interface; 0: not there
        bool ownMac = false;    ///< the configuration says which
        bool ownMtu = false;
        bool isEnabled = true; ///< by the configuration
        bool isLinkUp = false; ///< as the kernel says
    };

    LinkEvents events();
    void linkIs(const LinkState& link);
    void linkDel(const LinkState& link);
    void neighbourIs(const NeighbourState& neighbour);
    void neighbourDel(const NeighbourState& neighbour);
    std::optional<PortIndex> portOf(std::uint32_t link) const;
    void upIs(PortIndex port, bool up);

    ForwardingTables* forwarding_;
    Ptr<Interface::EthIntfStatusDir> interfaces_;
    LivePorts* ports_;
    std::vector<OfPort> ofPort_;
    std::unordered_map<std::string, Clock::time_point> asked_;
    LinkMonitor monitor_;
};

} // namespace OvixAgent
