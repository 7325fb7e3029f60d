#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tables/TableView.h"

namespace OvixCtl {

/// An entry that differs between two generations; at least one side is set.
struct Change {
    std::optional<Entry> before;
    std::optional<Entry> after;
};

struct TableDiff {
    std::vector<Change> changes;     ///< by table and key
    std::vector<std::string> damage; ///< what could not be read of `before` at all
};

/// The changes that turn `before` into `after`, as far as an owner is concerned: its label routes,
/// those that wait among them, what the platform has programmed, and multicast VPNs.
TableDiff differences(const TableView& before, const TableView& after, Mpls::RouteOwner owner);

struct ChangeCounts {
    std::size_t added = 0;
    std::size_t changed = 0;
    std::size_t removed = 0;
};
ChangeCounts countsOf(const std::vector<Change>& changes) noexcept;

} // namespace OvixCtl
