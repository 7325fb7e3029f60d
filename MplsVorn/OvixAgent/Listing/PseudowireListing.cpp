#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "Listing/Listings.h"
#include "Ovix/rewrite/MplsPushRewriteImpl.h"
#include "Summary/JsonText.h"

namespace OvixAgent {

namespace {

using Json = nlohmann::ordered_json;

Json labelsIn(const Lumo::UnboundedMplsLabelOperation& operation, std::size_t count) {
    Json labels = Json::array();
    for (std::size_t i = 0; i < count; ++i) {
        labels.push_back(operation.value(i));
    }
    return labels;
}

/// The labels that a configured pseudowire imposes; its own is the last.
Lumo::UnboundedMplsLabelOperation imposedBy(const Pseudowire& pseudowire) {
    const Ptr<Ovix::RewriteInfo>& first = pseudowire.remote->rewriteInfos().rewrites().front();
    return static_cast<const Ovix::EthOverMplsRewriteInfo&>(*first).labels.operation();
}

Json tunnelJson(const std::string& port, const Lumo::IpGenAddr& nexthop, Json labels) {
    return {{"port", port}, {"nexthop", nexthop.text()}, {"labels", std::move(labels)}};
}

/// The ways to the other end, by the routes of the moment.
Json tunnelOf(const ForwardingTables& tables, const L2::Pseudowire& signalled) {
    Json ways = Json::array();
    const Fib* const fib = tables.vrfs->fib({});
    const IpRoute* const route = fib != nullptr ? fib->find(signalled.neighbour) : nullptr;
    if (route == nullptr || route->isLocal() || route->drops()) {
        return ways;
    }
    for (const IpRouteVia& via : route->vias()) {
        if (isTunnel(signalled, via)) {
            const auto pushed =
                via.push ? pushedLabels(*via.push) : Lumo::UnboundedMplsLabelOperation();
            ways.push_back(tunnelJson(tables.ports.ports()[via.port].name,
                                      via.onLink ? signalled.neighbour : via.nexthop,
                                      labelsIn(pushed, via.push ? pushed.depth() : 0)));
        }
    }
    return ways;
}

Json countsOf(const Traffic& traffic) {
    return {{"frames", traffic.frames}, {"bytes", traffic.bytes}};
}

Json orAbsent(std::uint32_t number) {
    return number != 0 ? Json(number) : Json(nullptr);
}

Json orAbsent(const std::string& text) {
    return text.empty() ? Json(nullptr) : Json(text);
}

Json signalledJson(const L2::Pseudowire& signalled, std::string_view state, Json tunnel) {
    return {{"name", signalled.name},
            {"circuit", orAbsent(signalled.circuit)},
            {"state", state},
            {"why", orAbsent(signalled.why)},
            {"signalled", true},
            {"neighbour", signalled.neighbour.text()},
            {"id", signalled.id},
            {"localLabel", orAbsent(signalled.localLabel)},
            {"remoteLabel", orAbsent(signalled.remoteLabel)},
            {"controlWord", signalled.controlWord},
            {"localMtu", orAbsent(signalled.localMtu)},
            {"remoteMtu", orAbsent(signalled.remoteMtu)},
            {"tunnel", std::move(tunnel)}};
}

/// What keeps a configured pseudowire from carrying anything.
std::string downBecause(const Port& circuit, const Port* egress) {
    const Port* const down = !circuit.isUp                        ? &circuit
                             : egress != nullptr && !egress->isUp ? egress
                                                                  : nullptr;
    return down != nullptr ? "port " + down->name + " is down" : std::string();
}

Json configuredJson(const ForwardingTables& tables, const Pseudowire& pseudowire) {
    const Lumo::UnboundedMplsLabelOperation imposed = imposedBy(pseudowire);
    const Ovix::RoutingNexthop& remote = *pseudowire.remote;
    const Port* const egress = tables.ports.byIntfId(remote.intfId());
    const std::size_t own = imposed.depth() - 1;
    const Port& circuit = tables.ports.ports()[pseudowire.circuit];
    const std::string why = downBecause(circuit, egress);
    return {{"name", pseudowire.name},
            {"circuit", circuit.name},
            {"state", why.empty() ? "up" : "down"},
            {"why", orAbsent(why)},
            {"signalled", false},
            {"neighbour", nullptr},
            {"id", nullptr},
            {"localLabel", nullptr},
            {"remoteLabel", imposed.value(own)},
            {"controlWord", pseudowire.controlWord},
            {"localMtu", nullptr},
            {"remoteMtu", nullptr},
            {"tunnel", Json::array({tunnelJson(egress != nullptr ? egress->name : "",
                                               remote.address(), labelsIn(imposed, own))})}};
}

Json pseudowireJson(const ForwardingTables& tables, const Pseudowire& pseudowire) {
    Json json;
    if (pseudowire.signalled) {
        const L2::Pseudowire& signalled = *pseudowire.signalled;
        Json tunnel = tunnelOf(tables, signalled);
        const bool isCarried = !signalled.isUp() || !tunnel.empty();
        json = signalledJson(
            signalled, isCarried ? Tessel::wordOf(signalled.state) : "no tunnel to the other end",
            std::move(tunnel));
    } else {
        json = configuredJson(tables, pseudowire);
    }
    json["sent"] = countsOf(pseudowire.sent);
    json["delivered"] = countsOf(pseudowire.delivered);
    return json;
}

/// One that nothing is sent through: unset when it has its circuit.
std::optional<Json> withoutCircuit(const ForwardingTables& tables,
                                   const L2::Pseudowire& signalled) {
    const Port* const port = tables.ports.byIntfId(Lumo::IntfId(signalled.circuit));
    const Pseudowire* const holder =
        port != nullptr ? tables.pseudowires.ofPort(tables.ports.indexOf(*port)) : nullptr;
    if (holder != nullptr && holder->signalled && holder->name == signalled.name) {
        return std::nullopt;
    }
    const std::string_view state = !signalled.isUp() ? Tessel::wordOf(signalled.state)
                                   : port == nullptr ? "no port for the circuit"
                                                     : "the circuit is another pseudowire's";
    Json json = signalledJson(signalled, state, Json::array());
    json["sent"] = json["delivered"] = countsOf({});
    return json;
}

} // namespace

Listing pseudowireListing(const ForwardingTables& tables) {
    return [&tables, next = std::size_t{0}](std::string& entry) mutable {
        const auto& active = tables.pseudowires.all();
        const auto& signalled = tables.pseudowires.signalled();
        std::optional<Json> json;
        for (; !json && next < active.size() + signalled.size(); ++next) {
            json = next < active.size() ? pseudowireJson(tables, active[next])
                                        : withoutCircuit(tables, signalled[next - active.size()]);
        }
        if (json) {
            entry = dumped(*json);
        }
        return json.has_value();
    };
}

} // namespace OvixAgent
