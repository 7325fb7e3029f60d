#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "Tables/TableWriter.h"
#include "Tessel/Words.h"

namespace Mpls {

/// The tables of a system, in the order in which they stand in its table set.
enum class TableId : std::size_t {
    decapLfib,
    evpnEthernetSegmentFilterLfib,
    evpnEtreeLeafLabelLfib,
    pseudowireLfib,
    transitLfib,
    hardwareRoutes,
    hardwareAdjacencies,
    mvpnIntfStatus,
    interfaceNames,
    ipRoutes,
    pseudowires,
    waitingRoutes, ///< of labels that another owner's routes are published for, by place
};

inline constexpr std::size_t lfibs = 5; ///< the first ones

constexpr bool isLfib(TableId table) noexcept {
    return static_cast<std::size_t>(table) < lfibs;
}

inline constexpr std::array<Tessel::TableDescription, 12> tableDirectory{{
    {"mpls/decapLfib", "Mpls::LfibStatus", Tessel::RecordKind::viaSet},
    {"mpls/evpnEthernetSegmentFilterLfib", "Mpls::LfibStatus", Tessel::RecordKind::viaSet},
    {"mpls/evpnEtreeLeafLabelLfib", "Mpls::LfibStatus", Tessel::RecordKind::viaSet},
    {"mpls/pseudowireLfib", "Mpls::LfibStatus", Tessel::RecordKind::viaSet},
    {"mpls/transitLfib", "Mpls::LfibStatus", Tessel::RecordKind::viaSet},
    {"routing/hardware/mpls/status/routes", "Mpls::Hardware::Status", {}},
    {"routing/hardware/mpls/status/adjacencies", "Mpls::Hardware::Status",
     Tessel::RecordKind::adjacency},
    {"routing/multicast/mvpn/intfStatus", "Routing::Multicast::MvpnIntfStatus",
     Tessel::RecordKind::mvpnIntf},
    {"interface/names", "Interface::Names", Tessel::RecordKind::interfaceName},
    {"l3/routes", "L3::Routes", Tessel::RecordKind::ipRoute},
    {"l2/pseudowires", "L2::Pseudowires", Tessel::RecordKind::pseudowire},
    {"mpls/waitingRoutes", "Mpls::LfibStatus", Tessel::RecordKind::viaSet},
}};

constexpr const Tessel::TableDescription& describe(TableId table) noexcept {
    return tableDirectory[static_cast<std::size_t>(table)];
}

} // namespace Mpls

/// The tables whose entries are read and written by name; LFIBs first, as in the directory.
template <>
inline constexpr auto Tessel::words<Mpls::TableId> = std::to_array<Tessel::Word<Mpls::TableId>>({
    {"decap", Mpls::TableId::decapLfib},
    {"evpn-ethernet-segment-filter", Mpls::TableId::evpnEthernetSegmentFilterLfib},
    {"evpn-etree-leaf-label", Mpls::TableId::evpnEtreeLeafLabelLfib},
    {"pseudowire", Mpls::TableId::pseudowireLfib},
    {"transit", Mpls::TableId::transitLfib},
    {"hardware", Mpls::TableId::hardwareRoutes},
    {"adjacency", Mpls::TableId::hardwareAdjacencies},
    {"mvpn", Mpls::TableId::mvpnIntfStatus},
});
