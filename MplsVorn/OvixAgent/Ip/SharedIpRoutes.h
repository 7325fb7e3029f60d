#pragma once

#include <map>
#include <optional>
#include <string>
#include <unordered_map>

#include "Published/IpRoutes.h"
#include "State/VrfRoot.h"
#include "Tables/TableChanges.h"

namespace OvixAgent {

/// Keeps the routes of the VRFs in step with the shared tables. Routes of the configuration, and of
/// the ports' own addresses, stay unless a shared one replaces them. A route makes its VRF.
class SharedIpRoutes {
  public:
    /// The first calls of `refresh` take over the routes that exist. The ports must outlive it.
    SharedIpRoutes(Ptr<const Tessel::TableReader> tables, const PortTable& ports,
                   Ptr<VrfRoot> vrfs);

    /// There are other VRFs, without shared routes: all of them are taken over again.
    void startOver(Ptr<VrfRoot> vrfs);
    /// Goes on with another reader of the same tables.
    void readerIs(Ptr<const Tessel::TableReader> tables);

    /// To be called when the reader may hold another generation: takes over some of the changes,
    /// and returns whether those were all.
    bool refresh();
    /// Whether `refresh` has nothing to do.
    bool isUpToDate() const noexcept { return tables_->held() == held_ && changes_.done(); }

  private:
    /// What a route in the agent is for: a prefix in the VRF of that name.
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

    const PortTable* ports_;
    Ptr<VrfRoot> vrfs_;
    L3::Routes routes_;
    Ptr<const Tessel::TableReader> tables_;
    Tessel::TableChanges changes_;
    std::uint64_t held_;                              ///< by the reader, as last seen
    std::unordered_map<std::uint32_t, Target> taken_; ///< by place
    std::map<Target, std::uint32_t> placeOf_;         ///< that a route was last taken from
};

} // namespace OvixAgent
