#include <nlohmann/json.hpp>
#include <utility>

#include "Listing/Listings.h"
#include "Summary/JsonText.h"

namespace OvixAgent {

namespace {

using Json = nlohmann::ordered_json;

const char* kindOf(const IpRoute& route) {
    return route.isBroadcast() ? "broadcast"
           : route.isLocal()   ? "local"
           : route.drops()     ? "drop"
                               : "forward";
}

Json labelsOf(const IpRouteVia& via) {
    Json labels = Json::array();
    if (via.push) {
        const Lumo::UnboundedMplsLabelOperation pushed = pushedLabels(*via.push);
        for (std::size_t i = 0; i < pushed.depth(); ++i) {
            labels.push_back(pushed.value(i));
        }
    }
    return labels;
}

Json viasOf(const IpRoute& route, const PortTable& ports) {
    Json list = Json::array();
    for (const IpRouteVia& via : route.vias()) {
        const bool isNamed = via.nexthop.family() != Lumo::IpFamily::none;
        list.push_back(Json{{"nexthop", isNamed ? Json(via.nexthop.text()) : Json(nullptr)},
                            {"port", ports.ports()[via.port].name},
                            {"weight", via.weight},
                            {"labels", labelsOf(via)}});
    }
    return list;
}

std::string routeText(const std::string& vrf, const Fib::Shown& shown, const PortTable& ports) {
    const IpRoute& route = *shown.route;
    const Json json{
        {"vrf", vrf},
        {"prefix", shown.prefix.address().text() + "/" + std::to_string(shown.prefix.length())},
        {"kind", kindOf(route)},
        {"reason", route.drops() ? Json(std::string(route.dropReason())) : Json(nullptr)},
        {"configured", shown.isConfigured},
        {"vias", viasOf(route, ports)}};
    return dumped(json);
}

/// Goes through the numbers of one VRF after the other's.
struct Routes {
    const ForwardingTables* tables;
    std::uint32_t vrf;
    std::uint32_t lastVrf;
    std::uint32_t number = 0;

    bool operator()(std::string& entry) {
        constexpr int mostNumbers = 256;
        for (int i = 0; i < mostNumbers && entry.empty(); ++i) {
            if (vrf > lastVrf || vrf >= tables->vrfs->size()) {
                return false;
            }
            const Fib& fib = tables->vrfs->fibAt(vrf);
            if (number >= fib.numbers()) {
                ++vrf;
                number = 0;
            } else if (const auto shown = fib.shownAt(number++)) {
                entry = routeText(tables->vrfs->nameAt(vrf), *shown, tables->ports);
            }
        }
        return true;
    }
};

} // namespace

Listing routeListing(const ForwardingTables& tables, const std::string& vrf) {
    if (vrf.empty()) {
        return Routes{&tables, 0, ~std::uint32_t{0}};
    }
    const auto number = tables.vrfs->number(vrf);
    return number ? Listing(Routes{&tables, *number, *number})
                  : Listing([](std::string&) { return false; });
}

} // namespace OvixAgent
