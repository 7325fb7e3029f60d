#pragma once

#include <cstdint>
#include <vector>

#include "Config/ConfigTypes.h"
#include "Lumo/EthAddr.h"
#include "Ovix/rewrite/RewriteImpl.h"

namespace OvixAgent {

/// One way of an IP route.
struct IpRouteVia {
    PortIndex port = 0;
    bool onLink = false;                ///< the destination is a neighbour itself
    const Lumo::EthAddr* mac = nullptr; ///< else the next hop's; null: not known when it was made
    Lumo::IpGenAddr nexthop;            ///< to look for then
    std::uint32_t weight = 1;
    Ptr<Ovix::RewriteImpl> push; ///< puts the route's label stack on; empty: none
};

/// What becomes of the packets that a prefix matches.
class IpRoute {
  public:
    /// They are for the device itself.
    static IpRoute local() { return IpRoute(Kind::local, {}); }
    /// So they are, and for all hosts of a subnet that it is connected to.
    static IpRoute broadcast() { return IpRoute(Kind::broadcast, {}); }
    static IpRoute drop() { return IpRoute(Kind::drop, {}); }
    /// At least one via; the weights add up to 1..4294967295.
    static IpRoute forward(std::vector<IpRouteVia> vias) {
        return IpRoute(Kind::forward, std::move(vias));
    }

    bool isLocal() const noexcept { return kind_ == Kind::local || isBroadcast(); }
    bool isBroadcast() const noexcept { return kind_ == Kind::broadcast; }
    bool drops() const noexcept { return kind_ == Kind::drop; }

    const std::vector<IpRouteVia>& vias() const noexcept { return vias_; }

    /// The via of a flow: each has its share of the hashes by its weight. The route must forward.
    const IpRouteVia& choose(std::uint32_t hash) const noexcept {
        std::uint64_t rest = hash % totalWeight_;
        for (const IpRouteVia& via : vias_) {
            if (rest < via.weight) {
                return via;
            }
            rest -= via.weight;
        }
        return vias_.back();
    }

  private:
    enum class Kind : std::uint8_t { local, broadcast, drop, forward };

    IpRoute(Kind kind, std::vector<IpRouteVia> vias) : vias_(std::move(vias)), kind_(kind) {
        for (const IpRouteVia& via : vias_) {
            totalWeight_ += via.weight;
        }
    }

    std::vector<IpRouteVia> vias_;
    std::uint64_t totalWeight_ = 0;
    Kind kind_;
};

} // namespace OvixAgent
