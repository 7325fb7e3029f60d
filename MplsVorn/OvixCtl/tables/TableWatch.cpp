#include "tables/TableWatch.h"

#include <cassert>

#include "Tessel/Exceptions.h"

namespace OvixCtl {

using Mpls::TableId;
using Kind = WatchedChange::Kind;

TableWatch::TableWatch(Ptr<Tessel::TableReader> reader)
    : reader_(std::move(reader)), view_(reader_) {
    for (;;) {
        try {
            start();
            return;
        } catch (const Tessel::SnapshotLost&) {
            reader_->refresh();
        }
    }
}

void TableWatch::start() {
    changes_.clear();
    present_.clear();
    for (std::size_t table = 0; table < entryTables; ++table) {
        changes_.emplace_back(reader_, table);
        auto& present = present_.emplace_back(std::make_unique<Keys>());
        reader_->forEach(table, [&](std::uint32_t key, Tessel::TableRef) { present->set(key); });
    }
    vpns_ = vpnsNow();
}

std::vector<WatchedChange> TableWatch::look() {
    for (;;) {
        try {
            if (reader_->refresh()) {
                for (Tessel::TableChanges& changes : changes_) {
                    changes.restart();
                }
            }
            collect();
            std::vector<WatchedChange> found = read();
            remember(found);
            return found;
        } catch (const Tessel::SnapshotLost&) {
            // A newer generation has replaced this one; the places found stay in pending_.
        }
    }
}

bool TableWatch::follow() {
    if (reader_->memory()->now() != Tessel::TableMemory::Now::replaced) {
        return false;
    }
    reader_->memoryIs(Tessel::TableMemory::sharedForReading(reader_->name()));
    for (Tessel::TableChanges& changes : changes_) {
        changes.restart();
    }
    return true;
}

void TableWatch::collect() {
    for (std::size_t table = 0; table < entryTables; ++table) {
        changes_[table].look(Tessel::TableLayout::directoryPages, [&](std::uint32_t key) {
            pending_.emplace(static_cast<TableId>(table), key);
        });
    }
}

std::vector<WatchedChange> TableWatch::read() const {
    std::vector<WatchedChange> changes;
    for (const Place& place : pending_) {
        if (place.first != TableId::mvpnIntfStatus) {
            readEntry(place, changes);
        }
    }
    if (!pending_.empty() && pending_.rbegin()->first == TableId::mvpnIntfStatus) {
        readVpns(changes);
    }
    return changes;
}

void TableWatch::readEntry(const Place& place, std::vector<WatchedChange>& changes) const {
    const auto [table, key] = place;
    const bool was = present_[static_cast<std::size_t>(table)]->test(key);
    const bool is = view_.has(table, key);
    if (is) {
        changes.push_back({was ? Kind::changed : Kind::added, table, key, view_.entry(table, key)});
    } else if (was) {
        changes.push_back({Kind::removed, table, key, std::nullopt});
    }
}

void TableWatch::readVpns(std::vector<WatchedChange>& changes) const {
    const Vpns now = vpnsNow();
    for (const auto& [vrf, route] : vpns_) {
        if (!now.contains(vrf)) {
            changes.push_back({Kind::removed, TableId::mvpnIntfStatus, vrf, std::nullopt});
        }
    }
    for (const auto& [vrf, route] : now) {
        const auto before = vpns_.find(vrf);
        if (before == vpns_.end() || !(before->second == route)) {
            changes.push_back({before == vpns_.end() ? Kind::added : Kind::changed,
                               TableId::mvpnIntfStatus, vrf, route});
        }
    }
}

TableWatch::Vpns TableWatch::vpnsNow() const {
    Vpns vpns;
    for (const std::uint32_t vrf : view_.keys(TableId::mvpnIntfStatus).keys) {
        vpns.emplace(vrf, view_.entry(TableId::mvpnIntfStatus, vrf));
    }
    return vpns;
}

void TableWatch::remember(const std::vector<WatchedChange>& changes) {
    for (const WatchedChange& change : changes) {
        assert(change.now.has_value() == (change.kind != Kind::removed));
        if (change.table != TableId::mvpnIntfStatus) {
            present_[static_cast<std::size_t>(change.table)]->set(change.key,
                                                                  change.now.has_value());
        } else if (change.now) {
            vpns_.insert_or_assign(change.key, *change.now);
        } else {
            vpns_.erase(change.key);
        }
    }
    pending_.clear();
}

} // namespace OvixCtl
