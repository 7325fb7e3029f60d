#include "Published/LabelRoutes.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "Mpls/LfibLayout.h"
#include "Published/TablePublisher.h"
#include "Published/TransitRoutes.h"
#include "Published/WaitingRoutes.h"

namespace Mpls {

using Lumo::MplsLabel;
using Tessel::Result;
using Tessel::TableRef;

namespace {

constexpr auto waitingTable = static_cast<std::size_t>(TableId::waitingRoutes);

constexpr TableId lfibOf(std::size_t index) noexcept {
    return static_cast<TableId>(index);
}

/// The fixed word of a via set, and the last of its record's own words.
struct RecordEnds {
    LfibLayout::ViaSetWord set;
    std::uint64_t last;
};
RecordEnds endsOf(std::span<const std::uint64_t> record) noexcept {
    assert(record.size() > 1);
    RecordEnds ends{{}, record.back()};
    std::memcpy(&ends.set, &record[1], sizeof ends.set);
    return ends;
}

} // namespace

LabelRoutes::LabelRoutes(TablePublisher& tables) : tables_(&tables) {
    discard();
}

void LabelRoutes::discard() {
    waiting_.clear();
    freePlaces_.clear();
    nextPlace_ = 0;
    const Tessel::TableWriter& tables = tables_->tables();
    for (std::uint32_t found = 0; found < tables.entries(waitingTable); ++nextPlace_) {
        const TableRef ref = tables.entry(waitingTable, nextPlace_);
        if (!ref) {
            freePlaces_.insert(nextPlace_);
            continue;
        }
        ++found;
        const RecordEnds ends = endsOf(tables.record(ref));
        const LfibLayout::WaitingWord waits{ends.last};
        waiting_.emplace(waits.label(),
                         Waiting{nextPlace_, waits.table(),
                                 rankOf(RouteOwner{ends.set.owner}, ends.set.preference)});
    }
}

LabelRoutes::Rank LabelRoutes::rankOf(RouteOwner owner, std::uint8_t preference) noexcept {
    return {preference != 0 ? preference : usualPreference(owner), owner};
}

std::optional<LabelRoutes::Rank> LabelRoutes::publishedRank(TableId table, MplsLabel label) const {
    const Tessel::TableWriter& tables = tables_->tables();
    const TableRef ref = tables.entry(static_cast<std::size_t>(table), label.value());
    if (!ref) {
        return std::nullopt;
    }
    const RecordEnds ends = endsOf(tables.record(ref));
    return rankOf(RouteOwner{ends.set.owner}, ends.set.preference);
}

std::optional<LabelRoutes::Rank> LabelRoutes::publishedRank(MplsLabel label) const {
    std::optional<Rank> best;
    for (std::size_t i = 0; i < lfibs; ++i) {
        if (const auto rank = publishedRank(lfibOf(i), label)) {
            best = std::min(best.value_or(*rank), *rank);
        }
    }
    return best;
}

std::optional<RouteOwner> LabelRoutes::published(MplsLabel label) const {
    const auto rank = publishedRank(label);
    return rank ? std::optional(rank->owner) : std::nullopt;
}

LabelRoutes::AllWaiting::const_iterator LabelRoutes::findWaiting(TableId table, MplsLabel label,
                                                                 RouteOwner owner) const {
    const auto [first, last] = waiting_.equal_range(label);
    const auto found = std::find_if(first, last, [&](const auto& each) {
        return each.second.table == table && each.second.rank.owner == owner;
    });
    return found != last ? found : waiting_.end();
}

Result<LabelRoute> LabelRoutes::readPublished(TableId table, MplsLabel label) const {
    const auto lfib = Tessel::make<LfibStatus>(tables_->tables().working(), table);
    return readLabelRoute(*lfib, table, label);
}

Result<LabelRoute> LabelRoutes::readWaiting(AllWaiting::const_iterator waiting) const {
    const auto& [label, at] = *waiting;
    return readWaitingRoute(tables_->tables().working(), at.place, {label, at.table});
}

std::optional<LabelRoute> LabelRoutes::route(TableId table, MplsLabel label,
                                             RouteOwner owner) const {
    if (const auto rank = publishedRank(table, label); rank && rank->owner == owner) {
        auto read = readPublished(table, label);
        return read ? std::optional(std::move(read).value()) : std::nullopt;
    }
    const auto waiting = findWaiting(table, label, owner);
    if (waiting == waiting_.end()) {
        return std::nullopt;
    }
    auto read = readWaiting(waiting);
    return read ? std::optional(std::move(read).value()) : std::nullopt;
}

std::vector<RouteOwner> LabelRoutes::owners(TableId table, MplsLabel label) const {
    std::vector<RouteOwner> all;
    if (const auto rank = publishedRank(table, label)) {
        all.push_back(rank->owner);
    }
    const auto [first, last] = waiting_.equal_range(label);
    for (auto each = first; each != last; ++each) {
        if (each->second.table == table) {
            all.push_back(each->second.rank.owner);
        }
    }
    return all;
}

std::vector<LabelRoutes::Place> LabelRoutes::of(RouteOwner owner) const {
    std::vector<Place> all;
    const Ptr<Tessel::TableReader> now = tables_->tables().working();
    for (std::size_t i = 0; i < lfibs; ++i) {
        now->forEach(i, [&](std::uint32_t label, TableRef) {
            const auto rank = publishedRank(lfibOf(i), MplsLabel(label));
            if (rank && rank->owner == owner) {
                all.push_back({lfibOf(i), MplsLabel(label)});
            }
        });
    }
    for (const auto& [label, waiting] : waiting_) {
        if (waiting.rank.owner == owner) {
            all.push_back({waiting.table, label});
        }
    }
    return all;
}

Result<void> LabelRoutes::routeIs(const LabelRoute& route) {
    assert(isLfib(route.table));
    const auto now = published(route.label);
    auto done = now && *now != route.owner ? wait(route) : publish(route);
    return done ? settle(route.label) : done;
}

bool LabelRoutes::routeDel(TableId table, MplsLabel label, RouteOwner owner) {
    const auto rank = publishedRank(table, label);
    const bool isPublished = rank && rank->owner == owner;
    if (isPublished) {
        unpublish(table, label);
    }
    const auto waiting = findWaiting(table, label, owner);
    const bool hasWaited = waiting != waiting_.end();
    if (hasWaited) {
        endWaiting(waiting);
    }
    if (const auto done = settle(label); !done) {
        throw std::length_error(done.refused().what);
    }
    return isPublished || hasWaited;
}

LabelRoutes::WaitingCounts LabelRoutes::waitingFor(RouteOwner owner) const {
    WaitingCounts counts{0, 0};
    for (const auto& [label, waiting] : waiting_) {
        if (waiting.rank.owner == owner) {
            ++counts.own;
        } else if (published(label) == owner) {
            ++counts.others;
        }
    }
    return counts;
}

void LabelRoutes::settleAll() {
    std::set<MplsLabel> labels;
    for (const auto& [label, waiting] : waiting_) {
        labels.insert(label);
    }
    for (const MplsLabel label : labels) {
        static_cast<void>(settle(label)); // what there is no room for goes on waiting
    }
}

Result<void> LabelRoutes::publish(const LabelRoute& route) {
    return route.table == TableId::transitLfib ? transitRouteIs(*tables_, route)
                                               : tables_->lfib(route.table).routeIs(route);
}

void LabelRoutes::unpublish(TableId table, MplsLabel label) {
    const RouteKey key = RouteKey::fromLabel(label);
    if (table == TableId::transitLfib) {
        transitRouteDel(*tables_, key);
    } else {
        tables_->lfib(table).routeDel(key);
    }
}

Result<void> LabelRoutes::wait(const LabelRoute& route) {
    if (const auto legal = checkTable(route); !legal) {
        return legal;
    }
    const auto known = findWaiting(route.table, route.label, route.owner);
    const bool isNew = known == waiting_.end();
    const std::uint32_t place = !isNew                ? known->second.place
                                : freePlaces_.empty() ? nextPlace_
                                                      : *freePlaces_.begin();
    if (auto done = tables_->waiting().waitingRouteIs(place, route); !done) {
        return done;
    }
    if (!isNew) {
        waiting_.erase(known);
    } else if (freePlaces_.erase(place) == 0) {
        ++nextPlace_;
    }
    waiting_.emplace(route.label,
                     Waiting{place, route.table, rankOf(route.owner, route.preference)});
    return {};
}

void LabelRoutes::endWaiting(AllWaiting::const_iterator waiting) {
    const std::uint32_t place = waiting->second.place;
    tables_->waiting().waitingRouteDel(place);
    freePlaces_.insert(place);
    waiting_.erase(waiting);
}

/// Publishes the routes of whoever is preferred now.
Result<void> LabelRoutes::settle(MplsLabel label) {
    const auto [first, last] = waiting_.equal_range(label);
    if (first == last) {
        return {};
    }
    const auto now = publishedRank(label);
    const Rank best = std::min_element(first, last, [](const auto& a, const auto& b) {
                          return a.second.rank < b.second.rank;
                      })->second.rank;
    if (now && (now->owner == best.owner || *now < best)) {
        return {};
    }
    if (auto done = demote(label); !done) {
        return done;
    }
    return promote(label, best.owner);
}

// A route stays where it is until it is in its new place, too.
Result<void> LabelRoutes::demote(MplsLabel label) {
    for (std::size_t i = 0; i < lfibs; ++i) {
        const TableId table = lfibOf(i);
        if (!publishedRank(table, label)) {
            continue;
        }
        const auto route = readPublished(table, label);
        if (auto done = route ? wait(route.value()) : Result<void>(route.refused()); !done) {
            return done;
        }
        unpublish(table, label);
    }
    return {};
}

Result<void> LabelRoutes::promote(MplsLabel label, RouteOwner owner) {
    for (std::size_t i = 0; i < lfibs; ++i) {
        const auto waiting = findWaiting(lfibOf(i), label, owner);
        if (waiting == waiting_.end()) {
            continue;
        }
        const auto route = readWaiting(waiting);
        if (auto done = route ? publish(route.value()) : Result<void>(route.refused()); !done) {
            return done;
        }
        endWaiting(waiting);
    }
    return {};
}

} // namespace Mpls
