#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "route/RouteView.h"
#include "tables/TableView.h"

namespace OvixCtl {

/// An entry that is not the same in two generations; at least one side is there.
struct Change {
    std::optional<RouteView> before;
    std::optional<RouteView> after;
};

struct TableDiff {
    std::vector<Change> changes;     ///< by table and key
    std::vector<std::string> damage; ///< what could not be read of `before` at all
};

/// What makes `after` of `before`. An entry that cannot be right differs from every other.
TableDiff differences(const TableView& before, const TableView& after);

struct ChangeCounts {
    std::size_t added = 0;
    std::size_t changed = 0;
    std::size_t removed = 0;
};
ChangeCounts countsOf(const std::vector<Change>& changes) noexcept;

} // namespace OvixCtl
