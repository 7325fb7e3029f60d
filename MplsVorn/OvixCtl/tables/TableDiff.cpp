#include "tables/TableDiff.h"

#include <cassert>

namespace OvixCtl {

namespace {

/// Both sides of one table, key by key.
void compareTable(const TableView& before, const TableView& after, Mpls::TableId table,
                  TableDiff& diff) {
    const TableView::Keys old = before.keys(table);
    const TableView::Keys now = after.keys(table);
    diff.damage.insert(diff.damage.end(), old.damage.begin(), old.damage.end());
    auto left = old.keys.begin();
    auto right = now.keys.begin();
    while (left != old.keys.end() || right != now.keys.end()) {
        const bool inOld = right == now.keys.end() || (left != old.keys.end() && *left <= *right);
        const bool inNow = left == old.keys.end() || (right != now.keys.end() && *right <= *left);
        Change change;
        if (inOld) {
            change.before = before.entry(table, *left++);
        }
        if (inNow) {
            change.after = after.entry(table, *right++);
        }
        if (change.before != change.after) {
            diff.changes.push_back(std::move(change));
        }
    }
}

} // namespace

TableDiff differences(const TableView& before, const TableView& after) {
    TableDiff diff;
    for (std::size_t table = 0; table < entryTables; ++table) {
        compareTable(before, after, static_cast<Mpls::TableId>(table), diff);
    }
    return diff;
}

ChangeCounts countsOf(const std::vector<Change>& changes) noexcept {
    ChangeCounts counts;
    for (const Change& change : changes) {
        assert(change.before || change.after);
        ++(!change.before ? counts.added : !change.after ? counts.removed : counts.changed);
    }
    return counts;
}

} // namespace OvixCtl
