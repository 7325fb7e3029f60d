#include "Listing/Listings.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <utility>

#include "State/RoadSteps.h"
#include "Summary/JsonText.h"
#include "Tessel/Words.h"

namespace OvixAgent {

namespace {

using Json = nlohmann::ordered_json;

Json orNull(const std::string& text) {
    return text.empty() ? Json(nullptr) : Json(text);
}

Json addressesOf(const Port& port) {
    Json list = Json::array();
    for (const InterfaceAddress& own : port.addresses) {
        list.push_back(own.address.text() + "/" + std::to_string(own.prefixLength));
    }
    return list;
}

Json vlansOf(const Port& port) {
    Json list = Json::array();
    if (port.tagging.kind == Tagging::Kind::subInterface) {
        list.push_back(port.tagging.vlan);
        if (port.tagging.innerVlan != 0) {
            list.push_back(port.tagging.innerVlan);
        }
    }
    return list;
}

Json queuesJson(const LiveState& state) {
    Json all = Json::array();
    for (const LiveState::Queue& queue : state.queues) {
        all.push_back({{"received", queue.received},
                       {"perSecond", inTenths(queue.perSecond)},
                       {"drops", queue.ringDrops}});
    }
    return all;
}

Json portJson(const PortTable& ports, PortIndex index, const LiveStateOf& live) {
    const Port& port = ports.ports()[index];
    const LiveState state = live ? live(index) : LiveState();
    const char* const word = !state.isOpen ? "waiting" : port.isUp ? "up" : "down";
    const PortIndex parent = ports.parentOf(index);
    const bool isOwn = parent == index; // a parent's has those of all
    const bool isCounted = live && isOwn;
    return Json{{"name", port.name},
                {"kind", live ? Json(std::string(Tessel::wordOf(port.kind))) : Json(nullptr)},
                {"state", word},
                {"problem", orNull(state.problem)},
                {"mac", macText(port.mac)},
                {"mtu", port.mtu},
                {"vrf", std::string(port.vrf.view())},
                {"addresses", addressesOf(port)},
                {"parent", orNull(isOwn ? std::string() : ports.ports()[parent].name)},
                {"vlans", vlansOf(port)},
                {"mpls", port.mpls},
                {"received", isCounted ? Json(state.received.frames) : Json(nullptr)},
                {"receivedBytes", isCounted ? Json(state.received.bytes) : Json(nullptr)},
                {"perSecond", isCounted ? Json(inTenths(state.perSecond)) : Json(nullptr)},
                {"ring", isCounted ? Json{{"frames", state.ringFrames}, {"drops", state.ringDrops}}
                                   : Json(nullptr)},
                {"queues", isCounted ? queuesJson(state) : Json::array()},
                {"sent", {{"frames", port.sent.frames}, {"bytes", port.sent.bytes}}}};
}

} // namespace

Listing portListing(const ForwardingTables& tables, LiveStateOf live) {
    return [&tables, live = std::move(live), next = PortIndex{0}](std::string& entry) mutable {
        if (next >= tables.ports.ports().size()) {
            return false;
        }
        entry = dumped(portJson(tables.ports, next++, live));
        return true;
    };
}

// A part has few neighbours, and mostly one.
Listing neighbourListing(const ForwardingTables& tables) {
    return [&tables, next = std::size_t{0},
            parts = tables.neighbours.parts()](std::string& entry) mutable {
        if (std::exchange(parts, tables.neighbours.parts()) != tables.neighbours.parts()) {
            next = 0;
        }
        constexpr int mostParts = 64;
        for (int i = 0; i < mostParts && next < parts && entry.empty(); ++i) {
            tables.neighbours.visitPart(next++, [&](const auto& address, PortIndex port,
                                                    const auto& mac, bool isConfigured) {
                entry += (entry.empty() ? "" : ",") +
                         dumped(Json{{"address", address.text()},
                                     {"port", tables.ports.ports()[port].name},
                                     {"mac", macText(mac)},
                                     {"configured", isConfigured}});
            });
        }
        return next < parts || !entry.empty();
    };
}

Listing fecListing(const ForwardingTables& tables) {
    return [&tables, next = std::size_t{0}](std::string& entry) mutable {
        if (next >= tables.fecs.size()) {
            return false;
        }
        Json hops = Json::array();
        for (const WeightedNextHop& hop : tables.fecs.nextHopsAt(next)) {
            hops.push_back(Json{{"nexthop", hop.address.text()},
                                {"port", tables.ports.ports()[hop.port].name},
                                {"weight", hop.weight}});
        }
        entry = dumped(Json{{"id", tables.fecs.idAt(next++)}, {"nexthops", std::move(hops)}});
        return true;
    };
}

Listing vrfListing(const ForwardingTables& tables) {
    return [&tables, next = std::uint32_t{0}](std::string& entry) mutable {
        if (next >= tables.vrfs->size()) {
            return false;
        }
        const std::string& name = tables.vrfs->nameAt(next);
        Json ports = Json::array();
        for (const Port& port : tables.ports.ports()) {
            if (tables.vrfs->number(port.vrf.view()) == next) {
                ports.push_back(port.name);
            }
        }
        entry = dumped(Json{{"name", name},
                            {"routes", tables.vrfs->fibAt(next).size()},
                            {"ports", std::move(ports)}});
        ++next;
        return true;
    };
}

Listing firstOf(Listing all, std::size_t most) {
    return [all = std::move(all), left = most](std::string& entry) mutable {
        if (left == 0 || !all(entry)) {
            return false;
        }
        left -= entry.empty() ? 0 : 1;
        return true;
    };
}

} // namespace OvixAgent
