#pragma once

#include <map>
#include <optional>
#include <unordered_map>

#include "ForwardingTables.h"
#include "L3/Routes.h"
#include "Tessel/TableChanges.h"

namespace OvixAgent {

/// Keeps the routes of the VRFs as the shared tables say. Routes of the configuration, and of the
/// ports' own addresses, stay unless a shared one takes their place. The main routing table is the
/// default VRF; no VRF is known for others, whose routes are left alone.
class SharedIpRoutes {
  public:
    /// Takes over what there is with the first calls of `refresh`.
    SharedIpRoutes(Ptr<const Tessel::TableReader> tables, ForwardingTables& forwarding);

    /// The VRFs have been made anew, without shared routes: takes over all of them again.
    void startOver();

    /// To be called when the reader may have gone over to another generation: takes over some of
    /// what has changed, and returns whether that was all.
    bool refresh();

  private:
    void take(std::uint32_t place);
    void drop(std::uint32_t place);
    bool isOwnAddress(const L3::RouteKey& key) const;
    IpRoute routeOf(const L3::Route& route);

    ForwardingTables* forwarding_;
    L3::Routes routes_;
    Ptr<const Tessel::TableReader> tables_;
    Tessel::TableChanges changes_;
    std::uint64_t generation_;
    std::unordered_map<std::uint32_t, L3::RouteKey> taken_; ///< by place
    std::map<L3::RouteKey, std::uint32_t> placeOf_;         ///< that a route was taken from last
};

} // namespace OvixAgent
