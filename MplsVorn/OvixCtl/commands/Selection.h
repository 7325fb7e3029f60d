#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Tessel/Result.h"
#include "tables/TableView.h"

namespace OvixCtl {

/// What to show.
struct ShowFilter {
    std::optional<Mpls::TableId> table;    ///< unset: all; hardwareRoutes: also their adjacencies
    std::optional<std::uint32_t> key;      ///< a label; of table mvpn the id of a VRF
    std::optional<Mpls::RouteOwner> owner; ///< set: only label routes, and only this owner's

    /// Whether a label route of that table, label and owner is to be shown.
    bool takes(const Entry& entry) const noexcept;

    /// "label 100", "label 100 in table transit".
    std::string text() const;
};

/// [TABLE] [KEY] [owner OWNER]; refuses other words.
Tessel::Result<ShowFilter> parseShowFilter(const std::vector<std::string>& words);

/// The entries that a filter selects, by key.
struct Selection {
    struct Place {
        Mpls::TableId table;
        std::uint32_t key;
    };
    std::vector<Place> entries;
    std::vector<std::string> damage; ///< what hides entries
};

/// Of one table; with a hardware route that is asked for by its label its adjacency, too.
Selection select(const TableView& view, const ShowFilter& filter, Mpls::TableId table);

} // namespace OvixCtl
