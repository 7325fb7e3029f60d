#include "Explain/TableRemedies.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>

#include "Explain/RemedyWords.h"
#include "Published/TransitRoutes.h"

namespace OvixAgent {

namespace {

using Mpls::RouteKey;

/// What the label that was looked up last was found as.
struct Asked {
    Lumo::MplsLabel label;
    std::string table;
    std::string found;
    std::uint32_t adjacency = 0;
};

std::uint32_t numberIn(const Ovix::RoadNote& note, std::string_view name) {
    const std::string* const text = note.value(name);
    std::uint32_t value = 0;
    if (text != nullptr) {
        std::from_chars(text->data(), text->data() + text->size(), value);
    }
    return value;
}

std::optional<Asked> lastAsked(const Walk& walk) {
    std::optional<Asked> asked;
    for (const Ovix::RoadNote& note : walk.notes) {
        if (note.step == "table") {
            asked = Asked{Lumo::MplsLabel(numberIn(note, "label")), *note.value("table"),
                          *note.value("found"), numberIn(note, "adjacency")};
        }
    }
    return asked;
}

Tessel::Result<Mpls::Via> swapTo(const Asked& asked, const NeighbourConfig& neighbour,
                                 const std::string& port) {
    Mpls::ViaOptions options;
    options.intf = Lumo::IntfId(port);
    options.nexthop = neighbour.address;
    return Mpls::Via::swap(std::span(&asked.label, 1), options);
}

constexpr const char* assumedLabel =
    "the next hop is a neighbour that is known, and the label stays: take the one that it expects";

std::string viaEntry(const Asked& asked, const NeighbourConfig& neighbour,
                     const std::string& port) {
    return fmt::format("{{interface: {}, nexthop: \"{}\", action: swap, labels: [{}]}}", port,
                       neighbour.address.text(), asked.label.value());
}

/// Routes the label to the neighbour.
std::optional<Remedy> routeAdded(const Situation& situation, const GivenFrame& frame,
                                 const Asked& asked, const NeighbourConfig& neighbour) {
    const std::string& port = situation.config.ports[neighbour.port].name;
    const auto via = swapTo(asked, neighbour, port);
    if (!via || !Mpls::checkRouteLabel(asked.label)) {
        return std::nullopt;
    }
    Mpls::LabelRoute route;
    route.label = asked.label;
    route.vias = {{via.value(), 1}};
    Remedy remedy{{}, assumedLabel, situation, frame};
    remedy.situation.changes.emplace_back(
        [route](Mpls::TablePublisher& tables) { return tables.labelRoutes().routeIs(route); });
    remedy.command =
        situation.tables
            ? ctlCommand(situation,
                         fmt::format("lfib add {0} as {0} via {1} dev {2}", asked.label.value(),
                                     addressWords(neighbour.address), shellWord(port)))
            : configEntry(situation, "lfib",
                          fmt::format("  transit:\n    - {{label: {}, via: {}}}",
                                      asked.label.value(), viaEntry(asked, neighbour, port)));
    return remedy;
}

std::optional<Remedy> adjacencyAdded(const Situation& situation, const GivenFrame& frame,
                                     const Asked& asked, const NeighbourConfig& neighbour) {
    const std::string& port = situation.config.ports[neighbour.port].name;
    const auto via = swapTo(asked, neighbour, port);
    if (!via) {
        return std::nullopt;
    }
    Mpls::Hardware::AdjacencyVias content;
    content.vias = {{via.value(), 1}};
    Remedy remedy{{}, assumedLabel, situation, frame};
    remedy.situation.changes.emplace_back(
        [id = asked.adjacency, content](Mpls::TablePublisher& tables) -> Tessel::Result<void> {
            Mpls::platformAdjacencyIs(tables, id, *Mpls::Hardware::Adjacency::create(content));
            return {};
        });
    remedy.command =
        situation.tables
            ? ctlCommand(situation, fmt::format("lfib add adjacency {} as {} via {} dev {}",
                                                asked.adjacency, asked.label.value(),
                                                addressWords(neighbour.address), shellWord(port)))
            : configEntry(situation, "hardware",
                          fmt::format("  adjacencies:\n    - {{id: {}, vias: [{}]}}",
                                      asked.adjacency, viaEntry(asked, neighbour, port)));
    return remedy;
}

Remedy programmed(const Situation& situation, const GivenFrame& frame, const Asked& asked) {
    Remedy remedy{{}, "the platform could not install the route: see why first", situation, frame};
    remedy.situation.changes.emplace_back(
        [asked](Mpls::TablePublisher& tables) -> Tessel::Result<void> {
            Mpls::platformRouteIs(tables, {RouteKey::fromLabel(asked.label), asked.adjacency});
            return {};
        });
    remedy.command =
        situation.tables
            ? ctlCommand(situation, fmt::format("lfib replace hardware {} adjacency {}",
                                                asked.label.value(), asked.adjacency))
            : configEntry(situation, "hardware",
                          fmt::format("  routes:\n    - {{label: {}, adjacency: {}}}",
                                      asked.label.value(), asked.adjacency));
    return remedy;
}

Tessel::Result<void> liftMtus(std::vector<Mpls::WeightedVia>& vias) {
    for (Mpls::WeightedVia& via : vias) {
        Ovix::OvixMplsVia record = via.via.record();
        record.nexthopMtu = 0;
        const auto lifted = Mpls::Via::fromRecord(record);
        if (!lifted) {
            return lifted.refused();
        }
        via.via = lifted.value();
    }
    return {};
}

/// Whether the label's hardware route is made from its route in the transit LFIB: a change of the
/// latter changes both.
bool isDerived(const Situation& situation, Lumo::MplsLabel label) {
    if (situation.tables) {
        const Mpls::PublishedTables now(situation.tables->reader());
        return now.hardware()->route(Mpls::RouteKey::fromLabel(label)).derived;
    }
    const auto& routes = situation.config.hardware.routes;
    return std::none_of(routes.begin(), routes.end(), [&](const auto& route) {
        return route.value.routeKey.topLabel() == label;
    });
}

/// Puts an entry into its place again without the MTUs. Several owners may have a route; one is
/// forwarded by, and the others are shown as comments.
std::string withoutMtuCommand(const Situation& situation, const Asked& asked, bool isAdjacency,
                              std::uint32_t length) {
    if (!situation.tables) {
        const std::string place =
            isAdjacency ? fmt::format("adjacency {} in hardware", asked.adjacency)
                        : fmt::format("label {} in lfib.{}", asked.label.value(), asked.table);
        return fmt::format("# in {}, of the via of {}\nmtu: {}", yamlWord(situation.file), place,
                           length);
    }
    const std::string entry = isAdjacency ? fmt::format("adjacency {}", asked.adjacency)
                                          : fmt::format("{} {}", asked.table, asked.label.value());
    return ctlCommand(situation, fmt::format("lfib replace $({} | sed -n '/^#/!s/ mtu [0-9]*//gp')",
                                             ctlCommand(situation, "lfib show " + entry)));
}

/// The label's route with vias that have no MTU of their own.
Tessel::Result<void> liftRouteMtus(Mpls::TablePublisher& tables, const Asked& asked) {
    const auto table = *Tessel::valueOf<Mpls::TableId>(asked.table);
    const Mpls::PublishedTables now(tables.tables().working());
    auto route = Mpls::readLabelRoute(*now.lfib(table), table, asked.label);
    if (!route) {
        return route.refused();
    }
    const auto lifted = liftMtus(route.value().vias);
    return lifted ? tables.labelRoutes().routeIs(route.value()) : lifted;
}

/// The same of an adjacency.
Tessel::Result<void> liftAdjacencyMtus(Mpls::TablePublisher& tables, std::uint32_t id) {
    const Mpls::PublishedTables now(tables.tables().working());
    const auto before = now.hardware()->adjacency(id);
    if (!before) {
        return Tessel::Refused{"there is no such adjacency"};
    }
    auto content = before->content();
    if (!content) {
        return content.refused();
    }
    if (const auto lifted = liftMtus(content.value().vias); !lifted) {
        return lifted;
    }
    Mpls::platformAdjacencyIs(tables, id, *Mpls::Hardware::Adjacency::create(content.value()));
    return {};
}

} // namespace

std::vector<Remedy> tableRemedies(const Situation& situation, const GivenFrame& frame,
                                  const Walk& walk) {
    const std::optional<Asked> asked = lastAsked(walk);
    if (!asked) {
        return {};
    }
    if (asked->found == "unprogrammed") {
        return {programmed(situation, frame, *asked)};
    }
    std::vector<Remedy> all;
    for (const NeighbourConfig& neighbour : likelyNeighbours(situation, frame.port)) {
        auto remedy = asked->found == "no adjacency"
                          ? adjacencyAdded(situation, frame, *asked, neighbour)
                          : routeAdded(situation, frame, *asked, neighbour);
        if (remedy) {
            all.push_back(std::move(*remedy));
        }
    }
    return all;
}

std::vector<Remedy> withoutViaMtu(const Situation& situation, const GivenFrame& frame,
                                  const Walk& walk, std::uint32_t length) {
    std::optional<Asked> asked = lastAsked(walk);
    if (!asked || (asked->found != "yes" && asked->found != "backups")) {
        return {};
    }
    const bool isHardware = asked->table == Tessel::wordOf(Mpls::TableId::hardwareRoutes);
    if (isHardware && isDerived(situation, asked->label)) {
        asked->table = Tessel::wordOf(Mpls::TableId::transitLfib);
    }
    const bool isAdjacency =
        isHardware && asked->table == Tessel::wordOf(Mpls::TableId::hardwareRoutes);
    Remedy remedy{
        {}, "the path takes no larger packets: see its other links first", situation, frame};
    remedy.situation.changes.emplace_back(
        [asked = *asked, isAdjacency](Mpls::TablePublisher& tables) {
            return isAdjacency ? liftAdjacencyMtus(tables, asked.adjacency)
                               : liftRouteMtus(tables, asked);
        });
    remedy.command = withoutMtuCommand(situation, *asked, isAdjacency, length);
    return {remedy};
}

} // namespace OvixAgent
