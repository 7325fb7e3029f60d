#pragma once

#include <cassert>
#include <cstdint>
#include <vector>

#include "Lumo/IpGenAddr.h"
#include "Lumo/MplsLabelOperation.h"
#include "Ovix/rewrite/RewriteImpl.h"
#include "Published/IpRoutes.h"
#include "State/Fate.h"
#include "State/Neighbours.h"
#include "State/PortTable.h"
#include "Tessel/WeightedChoice.h"

namespace OvixAgent {

/// A via of an IP route, resolved as far as possible.
struct IpRouteVia {
    PortIndex port = 0;
    bool onLink = false;                ///< the destination is a neighbour itself
    const Lumo::EthAddr* mac = nullptr; ///< the next hop's; null: looked up for each packet
    Lumo::IpGenAddr nexthop;
    std::uint32_t weight = 1;
    Ptr<Ovix::RewriteImpl> push; ///< pushes the via's label stack; empty: no labels
};

/// What becomes of the packets that a prefix matches.
class IpRoute {
  public:
    /// For the device itself.
    static IpRoute local() { return IpRoute(Kind::local, {}); }
    /// For the device and for all hosts of a connected subnet.
    static IpRoute broadcast() { return IpRoute(Kind::broadcast, {}); }
    /// Packets are dropped for a reason in State/Fate.h.
    static IpRoute drop(std::string_view reason = Reason::droppingRoute) {
        IpRoute route(Kind::drop, {});
        route.dropReason_ = reason;
        return route;
    }
    /// At least one via, with weights that add up to at least 1.
    static IpRoute forward(std::vector<IpRouteVia> vias) {
        return IpRoute(Kind::forward, std::move(vias));
    }

    bool isLocal() const noexcept { return kind_ == Kind::local || isBroadcast(); }
    bool isBroadcast() const noexcept { return kind_ == Kind::broadcast; }
    bool drops() const noexcept { return kind_ == Kind::drop; }
    std::string_view dropReason() const noexcept { return dropReason_; }

    const std::vector<IpRouteVia>& vias() const noexcept { return vias_; }

    /// The index of the via of a flow: each has its share of the hashes by its weight. What vias
    /// of ports that are down would have is shared among the others, and no other flow moves; if
    /// all are down, nothing changes. The route must forward, by these ports.
    std::size_t choose(std::uint32_t hash, const std::vector<Port>& ports) const noexcept {
        assert(totalWeight_ > 0);
        return Tessel::usableChoice(
            hash, totalWeight_, vias_.size(), [&](std::size_t i) { return vias_[i].weight; },
            [&](std::size_t i) { return ports[vias_[i].port].isUp; });
    }

  private:
    enum class Kind : std::uint8_t { local, broadcast, drop, forward };

    IpRoute(Kind kind, std::vector<IpRouteVia> vias) : vias_(std::move(vias)), kind_(kind) {
        for (const IpRouteVia& via : vias_) {
            totalWeight_ += via.weight;
        }
        assert(kind != Kind::forward || totalWeight_ > 0);
    }

    std::vector<IpRouteVia> vias_;
    std::uint64_t totalWeight_ = 0;
    std::string_view dropReason_; ///< of a route that drops
    Kind kind_;
};

/// Resolves a route. Vias through interfaces that are not ports are left out; a route with no other
/// is for the device itself. MACs are taken from `configured`, when there is one, which must
/// outlive the route.
IpRoute resolve(const L3::Route& route, const PortTable& ports, const Neighbours* configured);

/// Pushes the operation's labels on an IP packet.
Ptr<Ovix::RewriteImpl> pushRewrite(const Lumo::UnboundedMplsLabelOperation& operation,
                                   Mpls::TtlMode ttl);

/// The operation that pushRewrite() was given; a view that lives no longer than the rewrite.
Lumo::UnboundedMplsLabelOperation pushedLabels(const Ovix::RewriteImpl& push);

} // namespace OvixAgent
