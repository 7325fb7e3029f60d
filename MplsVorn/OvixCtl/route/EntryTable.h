#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "Mpls/TableDirectory.h"

namespace OvixCtl {

/// The tables that have entries to show, all but the interface names, by their id.
inline constexpr std::size_t entryTables = 8;

/// Their names, in the order of Mpls::TableId. The LFIBs have those of a configuration file.
inline constexpr std::array<std::string_view, entryTables> entryTableNames{
    "decap",
    "evpn-ethernet-segment-filter",
    "evpn-etree-leaf-label",
    "pseudowire",
    "transit",
    "hardware",
    "adjacency",
    "mvpn"};

constexpr std::string_view nameOf(Mpls::TableId table) noexcept {
    return entryTableNames[static_cast<std::size_t>(table)];
}
/// What the key of an entry is called: a label, an adjacency's id or a VRF's id.
constexpr std::string_view keyNameOf(Mpls::TableId table) noexcept {
    return table == Mpls::TableId::hardwareAdjacencies ? "id"
           : table == Mpls::TableId::mvpnIntfStatus    ? "vrfId"
                                                       : "label";
}

/// What may be named to be shown. "hardware" stands for its routes and its adjacencies.
inline constexpr std::array<std::string_view, 7> shownTableNames{"decap",
                                                                 "evpn-ethernet-segment-filter",
                                                                 "evpn-etree-leaf-label",
                                                                 "pseudowire",
                                                                 "transit",
                                                                 "hardware",
                                                                 "mvpn"};

/// Unset when there is no such LFIB.
std::optional<Mpls::TableId> lfibNamed(std::string_view name) noexcept;

} // namespace OvixCtl
