#pragma once

#include <cassert>
#include <string>
#include <vector>

#include "Config/Config.h"
#include "Ovix/routing/RoutingNexthop.h"
#include "State/Frame.h"

namespace OvixAgent {

/// An Ethernet pseudowire as forwarding sees it.
struct Pseudowire {
    std::string name;
    Ptr<Ovix::RoutingNexthop> remote; ///< the next hop toward the other end, with its rewrites
    bool controlWord = true;          ///< whether frames carry one, in both directions
    bool flowLabel = false;           ///< likewise, at the bottom of the stack (RFC 6391)
    Traffic sent;      ///< frames of the attachment circuit that left for the other end
    Traffic delivered; ///< frames of the other end that left by the attachment circuit
};

/// The pseudowires by attachment circuit.
class Pseudowires {
  public:
    explicit Pseudowires(const AgentConfig& config);

    /// The pseudowire of a port; null when the port is not an attachment circuit.
    Pseudowire* ofPort(PortIndex port) noexcept {
        assert(port < byPort_.size());
        const std::size_t index = byPort_[port];
        return index != none ? &pseudowires_[index] : nullptr;
    }

    /// Whether the port is an attachment circuit.
    bool isCircuit(PortIndex port) const noexcept { return byPort_[port] != none; }

    /// Whether labelled frames are sent at all.
    bool mplsRouting() const noexcept { return mplsRouting_; }

    /// In the order of the configuration.
    std::vector<Pseudowire>& all() noexcept { return pseudowires_; }
    const std::vector<Pseudowire>& all() const noexcept { return pseudowires_; }

  private:
    static constexpr std::size_t none = ~std::size_t{0};

    std::vector<Pseudowire> pseudowires_;
    std::vector<std::size_t> byPort_;
    bool mplsRouting_;
};

} // namespace OvixAgent
