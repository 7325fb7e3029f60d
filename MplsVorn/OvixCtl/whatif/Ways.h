#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Lumo/IntfId.h"
#include "Mpls/Hardware/Adjacency.h"
#include "Ovix/viaset/ViaSets.h"
#include "Published/IpRoutes.h"
#include "Published/PublishedTables.h"
#include "route/RoutePrinting.h"

namespace OvixCtl {

/// Where one share of the flows goes.
struct Share {
    enum class Kind : std::uint8_t { link, lookUp, fec, cpu, lost };

    Kind kind = Kind::link;
    Lumo::IntfId intf;
    Lumo::IpGenAddr nexthop;
    std::uint64_t id = 0; ///< of a FEC
    std::string vrf;      ///< of a lookup
    std::uint64_t weight = 1;
    std::string labels{}; ///< as they leave, in words; empty where they are not compared

    friend bool operator==(const Share&, const Share&) = default;
};

/// Where the flows of a label or a prefix go: by their shares, or in a multicast set to all.
struct Way {
    std::vector<Share> shares; ///< none: nowhere
    bool isMulticast = false;

    bool isLost() const noexcept;
    std::uint64_t hash() const noexcept;
    friend bool operator==(const Way&, const Way&) = default;
};

/// "dev east via 10.0.2.2 25.0 %", with commas between several; "nowhere".
std::string wayText(const Way& way, const IntfText& interfaces);
/// A share in percent.
double percentOf(const Share& share, const Way& way) noexcept;

/// What is assumed beside the tables.
struct Assumptions {
    std::vector<Lumo::IntfId> downLinks;     ///< all others are up
    std::optional<Lumo::IpGenAddr> weighted; ///< the next hop whose vias have `weight`
    std::uint32_t weight = 1;
    /// Flows that leave with other labels have another way. Of many labels, each with an outgoing
    /// label of its own, no two would then move alike.
    bool comparesLabels = false;

    bool isDown(Lumo::IntfId intf) const noexcept {
        return std::find(downLinks.begin(), downLinks.end(), intf) != downLinks.end();
    }
};

/// The ways that tables lead, under assumptions. A record that cannot be read leads nowhere.
class Ways {
  public:
    /// The tables must outlive it.
    Ways(const Mpls::PublishedTables& tables, const Assumptions& assumed);

    /// Of a label as it is looked up: in the LFIBs, then in the hardware status.
    Way ofLabel(std::uint32_t label) const;
    Way ofPrefix(const L3::Route& route) const {
        return ofPrefix(route, [](const Mpls::Via&) { return true; });
    }
    /// The flows of vias that do not lead there are lost.
    Way ofPrefix(const L3::Route& route,
                 const std::function<bool(const Mpls::Via& via)>& leads) const;

    /// Whether the assumptions can change the way of what uses these vias.
    bool concerns(const Mpls::Hardware::Adjacency& adjacency) const;
    bool concerns(const L3::Route& route) const;
    bool concerns(Mpls::TableId lfib, const Mpls::LfibRoute& route) const;

    bool isUp(Lumo::IntfId intf) const noexcept { return !assumed_.isDown(intf); }

  private:
    std::optional<Way> ofLfib(Mpls::TableId table, std::uint32_t label) const;
    Way ofViaSet(const Ovix::OvixMplsViaSet& viaSet, bool sharesStay) const;
    Share shareOf(const Ovix::OvixMplsVia& via, std::uint64_t weight) const;
    bool concerns(Lumo::IntfId intf, const Lumo::IpGenAddr& nexthop) const noexcept {
        return assumed_.isDown(intf) || assumed_.weighted == nexthop;
    }

    const Mpls::PublishedTables* tables_;
    Assumptions assumed_;
    Ptr<Ovix::HwStatusViaHelper> links_;
    std::vector<Mpls::TableId> lfibs_; ///< that have routes, in the order in which they are asked
};

} // namespace OvixCtl
