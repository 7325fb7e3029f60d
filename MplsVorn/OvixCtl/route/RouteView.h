#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "Lumo/IntfId.h"
#include "Lumo/VrfName.h"
#include "Mpls/LfibRecords.h"
#include "Mpls/TableDirectory.h"
#include "Mpls/Types.h"
#include "Mpls/WeightedRecord.h"

namespace OvixCtl {

/// A pop with a look-up in a VRF.
struct LookupView {
    L3::VrfName vrf;
    Mpls::PayloadType payload = Mpls::PayloadType::undefined;

    friend bool operator==(const LookupView&, const LookupView&) noexcept = default;
};

/// A label's route in an LFIB.
struct LfibRouteView {
    Mpls::LfibViaType type = Mpls::LfibViaType::none;
    Mpls::LfibViaSetType setType = Mpls::LfibViaSetType::unicast;
    std::uint8_t origin = 0;
    std::uint8_t flags = 0;
    std::optional<LookupView> lookup;                   ///< then there are no vias
    std::optional<Mpls::LfibMulticastIpLookupVia> tail; ///< where a multicast LSP ends here
    std::vector<Mpls::WeightedRecord> vias;

    friend bool operator==(const LfibRouteView&, const LfibRouteView&) noexcept;
};

/// A label's route as the platform has programmed it.
struct HardwareRouteView {
    std::uint64_t adjacency = 0;
    bool unprogrammed = false;

    friend bool operator==(const HardwareRouteView&, const HardwareRouteView&) noexcept = default;
};

struct AdjacencyView {
    Mpls::LfibViaType type = Mpls::LfibViaType::none;
    Mpls::LfibViaSetType setType = Mpls::LfibViaSetType::unicast;
    bool useBackups = false;
    std::vector<Mpls::WeightedRecord> vias;
    std::vector<Mpls::WeightedRecord> backups;

    friend bool operator==(const AdjacencyView&, const AdjacencyView&) noexcept;
};

/// The provider-multicast interface of a multicast VPN.
struct MvpnView {
    Lumo::IntfId intf;

    friend bool operator==(const MvpnView&, const MvpnView&) noexcept = default;
};

/// An entry that cannot be right.
struct DamagedView {
    std::string what;

    friend bool operator==(const DamagedView&, const DamagedView&) noexcept = default;
};

/// An entry of a table, whole and independent of the tables' memory.
struct RouteView {
    Mpls::TableId table{};
    std::uint32_t key = 0; ///< a label, an adjacency's id or a VRF's id
    std::variant<LfibRouteView, HardwareRouteView, AdjacencyView, MvpnView, DamagedView> content;

    bool isDamaged() const noexcept { return std::holds_alternative<DamagedView>(content); }

    friend bool operator==(const RouteView&, const RouteView&) noexcept = default;
};

} // namespace OvixCtl
