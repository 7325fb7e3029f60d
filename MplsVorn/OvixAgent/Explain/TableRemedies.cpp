#include "Explain/TableRemedies.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>

#include "Explain/RemedyWords.h"
#include "Published/TransitRoutes.h"

namespace OvixAgent {

namespace {

using Mpls::RouteKey;

std::uint32_t numberIn(const Ovix::RoadNote& note, std::string_view name) {
    const std::string* const text = note.value(name);
    std::uint32_t value = 0;
    if (text != nullptr) {
        std::from_chars(text->data(), text->data() + text->size(), value);
    }
    return value;
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

} // namespace

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

std::vector<Remedy> tableRemedies(const Situation& situation, const GivenFrame& frame,
                                  const Walk& walk) {
    const std::optional<Asked> asked = lastAsked(walk);
    if (!asked) {
        return {};
    }
    if (asked->found == "unprogrammed") {
        return {programmed(situation, frame, *asked)};
    }
    if (asked->found == "no adjacency") {
        if (auto again = routeWrittenAgain(situation, frame, *asked)) {
            return {std::move(*again)};
        }
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

} // namespace OvixAgent
