#pragma once

#include <cassert>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Config/Config.h"
#include "Ovix/routing/RoutingNexthop.h"
#include "Published/Pseudowires.h"
#include "State/Frame.h"
#include "State/IpRoute.h"
#include "State/PortTable.h"

namespace OvixAgent {

/// An Ethernet pseudowire as forwarding sees it.
struct Pseudowire {
    std::string name;
    PortIndex circuit = noPort; ///< the attachment circuit
    /// The next hop toward the other end, with its rewrites: a neighbour on a link, or, of a
    /// signalled pseudowire, the other end, to which a route leads. Null when nothing is sent.
    Ptr<Ovix::RoutingNexthop> remote;
    std::string_view dropReason; ///< of the circuit's frames when nothing is sent; else empty
    bool controlWord = true;     ///< whether frames carry one, in both directions
    bool flowLabel = false;      ///< likewise, at the bottom of the stack (RFC 6391)
    Traffic sent;                ///< frames of the attachment circuit that left for the other end
    Traffic delivered;           ///< frames of the other end that left by the attachment circuit
    /// What a control plane has published; unset for one of the configuration.
    std::optional<L2::Pseudowire> signalled;
};

/// Whether a via of the route to the other end is a tunnel: it pushes labels, or leads to the other
/// end itself. Anybody else would take the pseudowire's label for one of its own.
bool isTunnel(const L2::Pseudowire& signalled, const IpRouteVia& via) noexcept;

/// The pseudowires by attachment circuit: those of the configuration, and for other ports those
/// that a control plane signals.
class Pseudowires {
  public:
    explicit Pseudowires(const AgentConfig& config);

    /// Replaces those that are signalled; what has been counted for one of the same name and
    /// circuit stays. Pointers to any of them become invalid.
    void signalledAre(std::vector<L2::Pseudowire> all, const PortTable& ports);
    /// All that are signalled, also those that no port is the circuit of.
    const std::vector<L2::Pseudowire>& signalled() const noexcept { return signalled_; }

    /// The pseudowire of a port; null when the port is not an attachment circuit.
    Pseudowire* ofPort(PortIndex port) noexcept {
        assert(port < byPort_.size());
        const std::size_t index = byPort_[port];
        return index != none ? &pseudowires_[index] : nullptr;
    }
    const Pseudowire* ofPort(PortIndex port) const noexcept {
        return isCircuit(port) ? &pseudowires_[byPort_[port]] : nullptr;
    }

    /// Whether the port is an attachment circuit.
    bool isCircuit(PortIndex port) const noexcept { return byPort_[port] != none; }

    /// Whether labelled frames are sent at all.
    bool mplsRouting() const noexcept { return mplsRouting_; }

    /// In the order of the configuration, and then as published.
    std::vector<Pseudowire>& all() noexcept { return pseudowires_; }
    const std::vector<Pseudowire>& all() const noexcept { return pseudowires_; }

  private:
    static constexpr std::size_t none = ~std::size_t{0};

    void add(const L2::Pseudowire& signalled, PortIndex circuit,
             const std::vector<Pseudowire>& before);

    std::vector<Pseudowire> pseudowires_;
    std::vector<std::size_t> byPort_;
    std::vector<L2::Pseudowire> signalled_;
    std::size_t configured_ = 0; ///< the first ones
    bool mplsRouting_;
};

} // namespace OvixAgent
