#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tables/TableView.h"

namespace OvixCtl {

/// What is to be shown.
struct ShowFilter {
    std::string table;                ///< one of shownTableNames; empty: all
    std::optional<std::uint32_t> key; ///< a label; of table mvpn the id of a VRF

    /// "label 100", "label 100 in table transit".
    std::string text() const;
};

/// [TABLE] [LABEL]; throws UsageError.
ShowFilter parseShowFilter(const std::vector<std::string>& words);

/// The entries that a filter lets through, by table and key.
struct Selection {
    struct Entry {
        Mpls::TableId table;
        std::uint32_t key;
    };
    std::vector<Entry> entries;
    std::vector<std::string> damage; ///< what hid entries
};

/// With a hardware route comes the adjacency that it names.
Selection select(const TableView& view, const ShowFilter& filter);

} // namespace OvixCtl
