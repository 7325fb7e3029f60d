#pragma once

#include <map>
#include <optional>
#include <string>
#include <unordered_map>

#include "Published/IpRoutes.h"
#include "State/ForwardingTables.h"
#include "Tables/TableChanges.h"

namespace OvixAgent {

/// Keeps the routes of the VRFs as the shared tables say. Routes of the configuration, and of the
/// ports' own addresses, stay unless a shared one takes their place. A VRF that a route names is
/// there from then on.
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
    /// What a route is for in the agent: a prefix in a VRF, which has that name only.
    struct Target {
        std::string vrf;
        L3::RouteKey prefix;

        friend bool operator<(const Target& a, const Target& b) noexcept {
            return a.vrf != b.vrf ? a.vrf < b.vrf : a.prefix < b.prefix;
        }
    };

    void take(std::uint32_t place);
    void drop(std::uint32_t place);
    bool isOwnAddress(const Target& target) const;
    IpRoute routeOf(const L3::Route& route);

    ForwardingTables* forwarding_;
    L3::Routes routes_;
    Ptr<const Tessel::TableReader> tables_;
    Tessel::TableChanges changes_;
    std::uint64_t generation_;
    std::unordered_map<std::uint32_t, Target> taken_; ///< by place
    std::map<Target, std::uint32_t> placeOf_;         ///< that a route was taken from last
};

} // namespace OvixAgent
