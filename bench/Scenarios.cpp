#include "Scenarios.h"

#include <map>
#include <random>
#include <stdexcept>

#include "IpBytes.h"
#include "Lumo/MplsLabel.h"

namespace Bench {

namespace {

using OvixAgent::AgentConfig;

constexpr std::uint32_t firstLabel = 16;
constexpr std::uint32_t maxLabels = 1U << 20U;
/// Routes beyond this many share the adjacencies, as the labels of a network share its paths.
constexpr std::uint32_t maxWideAdjacencies = 16384;
constexpr std::size_t frameBytes = 64;

/// What a scenario's stack is, given a label that has a route.
using Stack = std::vector<std::uint32_t> (*)(std::uint32_t label, std::uint32_t flow);
/// The vias of every adjacency.
using Vias = std::vector<Mpls::WeightedVia> (*)();

struct Kind {
    Vias vias;
    Stack stack;
    std::uint16_t udpPort = 9;
    std::uint32_t destination = 0x0a090001;
    std::uint32_t copies = 1;
};

using Mpls::Via;
using Mpls::WeightedVia;

Mpls::ViaOptions toEast() {
    Mpls::ViaOptions options;
    options.intf = Lumo::IntfId("east");
    options.nexthop = Lumo::IpGenAddr::fromText("10.0.2.2");
    return options;
}

std::vector<WeightedVia> swapVia() {
    return {{Via::swap(std::array{Lumo::MplsLabel(300)}, toEast()).value(), 1}};
}
std::vector<WeightedVia> popVia() {
    return {{Via::pop(toEast()).value(), 1}};
}
std::vector<WeightedVia> pushVia() {
    const std::array labels{Lumo::MplsLabel(601), Lumo::MplsLabel(602), Lumo::MplsLabel(603)};
    return {{Via::push(labels, toEast()).value(), 1}};
}
std::vector<WeightedVia> manyVias(std::size_t count) {
    std::vector<WeightedVia> vias(count, swapVia().front());
    for (std::size_t i = 0; i < vias.size(); ++i) {
        vias[i].weight = static_cast<std::uint32_t>(1 + i % 3);
    }
    return vias;
}

std::vector<WeightedVia> sixteenVias() {
    return manyVias(16);
}
std::vector<WeightedVia> fourVias() {
    return manyVias(4);
}

std::vector<std::uint32_t> oneLabel(std::uint32_t label, std::uint32_t) {
    return {label};
}
std::vector<std::uint32_t> sixLabels(std::uint32_t label, std::uint32_t flow) {
    return {label, label, label, label, 7, 20000 + flow % 1000};
}
std::vector<std::uint32_t> unknownLabel(std::uint32_t, std::uint32_t) {
    return {maxLabels - 1};
}
/// The labels that are as far from the end as those with a route from the beginning.
std::vector<std::uint32_t> unknownLabels(std::uint32_t label, std::uint32_t) {
    return {maxLabels - 1 - label};
}
std::vector<std::uint32_t> explicitNull(std::uint32_t, std::uint32_t) {
    return {0};
}

const std::map<std::string, Kind>& kinds() {
    constexpr std::uint16_t lspPing = 3503;
    constexpr std::uint32_t loopback = 0x7f000001;
    constexpr std::uint32_t group = 0xe8010203;
    static const std::map<std::string, Kind> all{
        {"swap", {swapVia, oneLabel}},
        {"pop", {popVia, oneLabel}},
        {"push3", {pushVia, oneLabel}},
        {"ucmp16", {sixteenVias, oneLabel}},
        {"ucmp4", {fourVias, oneLabel}},
        {"flood", {swapVia, unknownLabels}},
        {"stack6_entropy", {sixteenVias, sixLabels}},
        {"unknown", {swapVia, unknownLabel}},
        {"oam_punt", {swapVia, explicitNull, lspPing, loopback}},
        {"replicate2", {swapVia, oneLabel, 9, group, 2}},
        {"replicate8", {swapVia, oneLabel, 9, group, 8}},
        {"replicate64", {swapVia, oneLabel, 9, group, 64}},
        {"replicate512", {swapVia, oneLabel, 9, group, 512}},
    };
    return all;
}

AgentConfig makeConfig(const Kind& kind, std::uint32_t routes) {
    AgentConfig config;
    config.ports.resize(2);
    config.ports[0].name = "west";
    config.ports[0].mac = {2, 0, 0, 0, 0, 1};
    config.ports[1].name = "east";
    config.ports[1].mac = {2, 0, 0, 0, 0, 2};
    config.neighbours.push_back({Lumo::IpGenAddr::fromText("10.0.2.2"), 1, {2, 0, 0, 0, 2, 2}});
    std::vector<WeightedVia> vias = kind.vias();
    if (kind.copies > 1) {
        vias.assign(kind.copies, WeightedVia(vias.front()));
    }
    const std::uint32_t adjacencies =
        vias.size() > 1 ? std::min(routes, maxWideAdjacencies) : routes;
    for (std::uint32_t i = 0; i < adjacencies; ++i) {
        OvixAgent::AdjacencyConfig adjacency;
        adjacency.id = i + 1;
        adjacency.content.vias = vias;
        adjacency.content.setType =
            kind.copies > 1 ? Mpls::LfibViaSetType::multicast : Mpls::LfibViaSetType::unicast;
        config.hardware.adjacencies.push_back({adjacency, 0});
    }
    for (std::uint32_t i = 0; i < routes; ++i) {
        const auto key = Mpls::RouteKey::fromLabel(Lumo::MplsLabel(firstLabel + i));
        config.hardware.routes.push_back({{key, i % adjacencies + 1, false}, 0});
    }
    return config;
}

std::vector<std::uint8_t> makeFrame(const Kind& kind, const std::vector<std::uint32_t>& stack,
                                    std::uint32_t flow) {
    std::vector<std::uint8_t> frame{2, 0, 0, 0, 0, 1, 2, 0, 0, 0, 1, 2, 0x88, 0x47};
    for (std::size_t i = 0; i < stack.size(); ++i) {
        put32(frame, (stack[i] << 12U) | (i + 1 == stack.size() ? 0x100U : 0U) | 64U);
    }
    constexpr std::uint32_t length = 46;
    putIpv4(frame, flow, kind.destination, length, kind.udpPort);
    frame.resize(std::max(frame.size(), frameBytes));
    return frame;
}

} // namespace

std::vector<std::string> scenarioNames() {
    return {"swap", "pop", "push3", "ucmp16", "stack6_entropy", "unknown", "oam_punt"};
}

std::vector<std::string> replicationNames() {
    return {"replicate2", "replicate8", "replicate64", "replicate512"};
}

Scenario makeScenario(const std::string& name, std::uint32_t routes, std::size_t frames) {
    const Kind& kind = kinds().at(name);
    Scenario scenario{name, makeConfig(kind, routes), kind.copies, {}, 0};
    std::mt19937 random(1);
    std::uniform_int_distribution<std::uint32_t> label(firstLabel, firstLabel + routes - 1);
    std::uniform_int_distribution<std::uint32_t> flow(0, 0xffff);
    for (std::size_t i = 0; i < frames; ++i) {
        const std::uint32_t one = flow(random);
        scenario.frames.push_back(makeFrame(kind, kind.stack(label(random), one), one));
    }
    return scenario;
}

} // namespace Bench
