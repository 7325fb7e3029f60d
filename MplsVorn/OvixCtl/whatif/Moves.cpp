#include "whatif/Moves.h"

#include <fmt/format.h>
#include <set>
#include <utility>

#include "Tessel/Exceptions.h"

namespace OvixCtl {

using Mpls::RouteKey;
using Mpls::TableId;

namespace {

constexpr std::size_t mostExamples = 8;

} // namespace

/// Null when nothing moves.
Move* Moves::moveOf(const Way& before, const Way& after, bool isOfPrefixes, Counts& counts) {
    if (before == after) {
        return nullptr;
    }
    ++counts.changed;
    counts.lost += after.isLost() && !before.isLost() ? 1 : 0;
    counts.gained += before.isLost() && !after.isLost() ? 1 : 0;
    const std::uint64_t hash = before.hash() * 3 + after.hash() + (isOfPrefixes ? 1 : 0);
    const auto [found, isNew] = byHash_.try_emplace(hash, moves_.size());
    if (isNew) {
        moves_.push_back({before, after, isOfPrefixes, 0, {}});
        ranges_.emplace_back();
    }
    Move& move = moves_[found->second];
    ++move.count;
    return &move;
}

// Labels come in order, so that those of a move make ranges.
void Moves::addLabel(std::uint32_t label, const Way& before, const Way& after) {
    Move* const move = moveOf(before, after, false, labels_);
    if (move == nullptr) {
        return;
    }
    auto& ranges = ranges_[static_cast<std::size_t>(move - moves_.data())];
    if (!ranges.empty() && ranges.back().last + 1 == label) {
        ranges.back().last = label;
    } else if (ranges.size() < mostExamples) {
        ranges.push_back({label, label});
    }
}

void Moves::addPrefix(const L3::Route& route, const Way& before, const Way& after) {
    Move* const move = moveOf(before, after, true, prefixes_);
    if (move != nullptr && move->examples.size() < mostExamples) {
        move->examples.push_back(
            fmt::format("{}/{}{}", route.key.prefix.text(), route.key.length,
                        route.vrf.view().empty() ? "" : fmt::format(" in {}", route.vrf.view())));
    }
}

const std::vector<Move>& Moves::all() {
    for (std::size_t i = 0; i < moves_.size(); ++i) {
        for (const Range& range : ranges_[i]) {
            moves_[i].examples.push_back(range.first == range.last
                                             ? std::to_string(range.first)
                                             : fmt::format("{}-{}", range.first, range.last));
        }
        ranges_[i].clear();
    }
    return moves_;
}

namespace {

/// By adjacency id, whether it is concerned.
std::vector<bool> concernedAdjacencies(const Mpls::PublishedTables& tables, const Ways& ways) {
    std::vector<bool> concerned(Tessel::TableLayout::maxKey + std::size_t{1});
    tables.hardware()->forEachAdjacency([&](std::uint32_t key) {
        try {
            const auto adjacency = tables.hardware()->adjacency(key);
            concerned[key] = adjacency && ways.concerns(*adjacency);
        } catch (const Tessel::CorruptionDetected&) {
            // Leads nowhere before and after.
        }
    });
    return concerned;
}

/// The labels whose ways may change, by label.
std::vector<bool> concernedLabels(const Mpls::PublishedTables& tables, const Ways& ways) {
    std::vector<bool> concerned(Lumo::MplsLabel::max + std::size_t{1});
    for (const TableId table : {TableId::decapLfib, TableId::evpnEthernetSegmentFilterLfib,
                                TableId::pseudowireLfib, TableId::evpnEtreeLeafLabelLfib}) {
        tables.lfib(table)->forEachRoute([&](const Mpls::LfibRoute& route) {
            const std::uint32_t label = route.routeKey.topLabel().value();
            concerned[label] = concerned[label] || ways.concerns(table, route);
        });
    }
    const std::vector<bool> adjacencies = concernedAdjacencies(tables, ways);
    tables.hardware()->forEachLabel([&](std::uint32_t label) {
        const auto route = tables.hardware()->route(RouteKey::fromLabel(Lumo::MplsLabel(label)));
        concerned[label] = concerned[label] || adjacencies.at(route.adjacencyKey);
    });
    return concerned;
}

using PrefixOfVrf = std::pair<std::string, L3::RouteKey>;

/// Without the number of the kernel's table, which routes of a configuration do not have.
PrefixOfVrf prefixOf(const L3::Route& route) {
    return {std::string(route.vrf.view()),
            {L3::RouteKey::mainTable, route.key.prefix, route.key.length}};
}

void addRoute(Moves& moves, const L3::Route& route, const Ways& now, const Ways& then) {
    if (then.concerns(route)) {
        moves.isAboutOne();
        moves.addPrefix(route, now.ofPrefix(route), then.ofPrefix(route));
    }
}

/// Those of the tables, which take the place of others for the same prefix.
std::set<PrefixOfVrf> addPrefixes(Moves& moves, const Ptr<Tessel::TableReader>& reader,
                                  const Ways& now, const Ways& then) {
    std::set<PrefixOfVrf> added;
    const L3::Routes routes(reader);
    reader->forEach(routes.table(), [&](std::uint32_t place, Tessel::TableRef) {
        try {
            const auto route = routes.at(place);
            if (route && then.concerns(*route)) {
                added.insert(prefixOf(*route));
                addRoute(moves, *route, now, then);
            }
        } catch (const Tessel::CorruptionDetected&) {
            // Leads nowhere before and after.
        }
    });
    return added;
}

} // namespace

Moves movesUnder(const Ptr<Tessel::TableReader>& reader, const Assumptions& assumed,
                 const std::vector<L3::Route>& further) {
    const Mpls::PublishedTables tables(reader);
    const Ways now(tables, {});
    const Ways then(tables, assumed);
    Moves moves;
    const std::vector<bool> labels = concernedLabels(tables, then);
    for (std::uint32_t label = 0; label < labels.size(); ++label) {
        if (labels[label]) {
            moves.isAboutOne();
            moves.addLabel(label, now.ofLabel(label), then.ofLabel(label));
        }
    }
    const std::set<PrefixOfVrf> published = addPrefixes(moves, reader, now, then);
    for (const L3::Route& route : further) {
        if (!published.contains(prefixOf(route))) {
            addRoute(moves, route, now, then);
        }
    }
    return moves;
}

Moves movesBetween(const Ptr<Tessel::TableReader>& before, const Ptr<Tessel::TableReader>& after,
                   const std::vector<std::uint32_t>& labels) {
    const Mpls::PublishedTables nowTables(before);
    const Mpls::PublishedTables thenTables(after);
    Assumptions assumed;
    assumed.comparesLabels = true;
    const Ways now(nowTables, assumed);
    const Ways then(thenTables, assumed);
    Moves moves;
    for (const std::uint32_t label : labels) {
        moves.addLabel(label, now.ofLabel(label), then.ofLabel(label));
    }
    return moves;
}

} // namespace OvixCtl
