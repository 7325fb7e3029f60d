#include "whatif/Moves.h"

#include <algorithm>
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
Move* Moves::moveOf(const Way& before, const Way& after, Moved of) {
    if (before == after) {
        return nullptr;
    }
    Counts& counts = counts_[static_cast<std::size_t>(of)];
    ++counts.changed;
    counts.lost += after.isLost() && !before.isLost() ? 1 : 0;
    counts.gained += before.isLost() && !after.isLost() ? 1 : 0;
    const std::uint64_t hash =
        (before.hash() * 3 + after.hash()) * 5 + static_cast<std::uint64_t>(of);
    const auto [found, isNew] = byHash_.try_emplace(hash, moves_.size());
    if (isNew) {
        moves_.push_back({before, after, of, 0, {}});
        ranges_.emplace_back();
    }
    Move& move = moves_[found->second];
    ++move.count;
    return &move;
}

// Labels come in order, so that those of a move make ranges.
void Moves::addLabel(std::uint32_t label, const Way& before, const Way& after) {
    Move* const move = moveOf(before, after, Moved::labels);
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
    Move* const move = moveOf(before, after, Moved::prefixes);
    if (move != nullptr && move->examples.size() < mostExamples) {
        move->examples.push_back(
            fmt::format("{}/{}{}", route.key.prefix.text(), route.key.length,
                        route.vrf.view().empty() ? "" : fmt::format(" in {}", route.vrf.view())));
    }
}

void Moves::addPseudowire(const std::string& name, Moved of, const Way& before, const Way& after) {
    Move* const move = moveOf(before, after, of);
    if (move != nullptr && move->examples.size() < mostExamples) {
        move->examples.push_back(name);
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
                                  const Ways& now, const Ways& then, Wires& wires) {
    std::set<PrefixOfVrf> added;
    const L3::Routes routes(reader);
    reader->forEach(routes.table(), [&](std::uint32_t place, Tessel::TableRef) {
        try {
            const auto route = routes.at(place);
            if (route) {
                wires.take(*route);
            }
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

Way toCircuit(const Wires::Wire& wire) {
    Share share;
    share.intf = wire.circuit;
    return {{share}, false};
}

void addWires(Moves& moves, const Wires& wires, const Ways& now, const Ways& then) {
    for (const Wires::Wire& wire : wires.all()) {
        if (wires.concerns(wire, then)) {
            moves.isAboutOne();
            moves.addPseudowire(wire.name, Moved::pseudowires, wires.toOtherEnd(wire, now),
                                wires.toOtherEnd(wire, then));
        }
        if (!then.isUp(wire.circuit)) {
            moves.addPseudowire(wire.name, Moved::circuits, toCircuit(wire), Way());
        }
    }
}

bool leadsTo(const Way& way, Lumo::IntfId intf) {
    return std::any_of(way.shares.begin(), way.shares.end(),
                       [intf](const Share& share) { return share.intf == intf; });
}

/// Frames come from the other end with the label that leads to the circuit.
void addCircuits(Moves& moves, const Wires& wires, std::uint32_t label, const Way& before,
                 const Way& after) {
    for (const Wires::Wire& wire : wires.all()) {
        const bool did = leadsTo(before, wire.circuit);
        if (did != leadsTo(after, wire.circuit)) {
            moves.addPseudowire(fmt::format("{} by label {}", wire.name, label), Moved::circuits,
                                did ? toCircuit(wire) : Way(), did ? Way() : toCircuit(wire));
        }
    }
}

} // namespace

Moves movesUnder(const Ptr<Tessel::TableReader>& reader, const Assumptions& assumed,
                 const std::vector<L3::Route>& further,
                 const std::vector<Wires::Configured>& configured) {
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
    Wires wires(*reader, configured);
    const std::set<PrefixOfVrf> published = addPrefixes(moves, reader, now, then, wires);
    for (const L3::Route& route : further) {
        wires.take(route);
        if (!published.contains(prefixOf(route))) {
            addRoute(moves, route, now, then);
        }
    }
    addWires(moves, wires, now, then);
    return moves;
}

Moves movesBetween(const Ptr<Tessel::TableReader>& before, const Ptr<Tessel::TableReader>& after,
                   const std::vector<std::uint32_t>& labels,
                   const std::vector<Wires::Configured>& configured) {
    const Mpls::PublishedTables nowTables(before);
    const Mpls::PublishedTables thenTables(after);
    Assumptions assumed;
    assumed.comparesLabels = true;
    const Ways now(nowTables, assumed);
    const Ways then(thenTables, assumed);
    Moves moves;
    const Wires wires(*before, configured);
    for (const std::uint32_t label : labels) {
        const Way from = now.ofLabel(label);
        const Way to = then.ofLabel(label);
        moves.addLabel(label, from, to);
        addCircuits(moves, wires, label, from, to);
    }
    return moves;
}

} // namespace OvixCtl
