#include "tables/TableDiff.h"

#include <algorithm>
#include <cassert>
#include <map>
#include <vector>

namespace OvixCtl {

namespace {

/// One side of the comparison: what an owner is concerned with.
class Side {
  public:
    Side(const TableView& view, Mpls::RouteOwner owner)
        : view_(&view), owner_(owner), derived_(view.derivedAdjacencies()) {
        for (Entry& entry : view.waiting()) {
            if (std::get<Mpls::LabelRoute>(entry.content).owner == owner) {
                entry.waitsFor.reset();
                waiting_.emplace(std::pair(entry.table, entry.key), std::move(entry));
            }
        }
    }

    TableView::Keys keys(Mpls::TableId table) const {
        TableView::Keys all = view_->keys(table);
        for (const auto& [place, entry] : waiting_) {
            if (place.first == table) {
                all.keys.push_back(place.second);
            }
        }
        std::sort(all.keys.begin(), all.keys.end());
        all.keys.erase(std::unique(all.keys.begin(), all.keys.end()), all.keys.end());
        return all;
    }
    /// Unset when it is nothing of the owner's.
    std::optional<Entry> entry(Mpls::TableId table, std::uint32_t key) const {
        if (const auto waiting = waiting_.find({table, key}); waiting != waiting_.end()) {
            return waiting->second;
        }
        Entry entry = view_->entry(table, key);
        const auto* route = std::get_if<Mpls::LabelRoute>(&entry.content);
        const auto* hardware = std::get_if<Mpls::Hardware::Route>(&entry.content);
        const bool isOthers = (route != nullptr && route->owner != owner_) ||
                              (hardware != nullptr && hardware->derived) ||
                              (table == Mpls::TableId::hardwareAdjacencies && derived_[key]);
        return isOthers ? std::nullopt : std::optional(std::move(entry));
    }

  private:
    const TableView* view_;
    Mpls::RouteOwner owner_;
    std::vector<bool> derived_; ///< adjacencies
    std::map<std::pair<Mpls::TableId, std::uint32_t>, Entry> waiting_;
};

/// Both sides of one table, key by key.
void compareTable(const Side& before, const Side& after, Mpls::TableId table, TableDiff& diff) {
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

TableDiff differences(const TableView& before, const TableView& after, Mpls::RouteOwner owner) {
    TableDiff diff;
    const Side old(before, owner);
    const Side now(after, owner);
    for (std::size_t table = 0; table < entryTables; ++table) {
        compareTable(old, now, static_cast<Mpls::TableId>(table), diff);
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
