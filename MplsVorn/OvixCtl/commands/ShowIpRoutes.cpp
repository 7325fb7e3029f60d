#include <algorithm>
#include <tuple>
#include <utility>

#include "Lumo/IpGenAddr.h"
#include "commands/AgentAnswer.h"

namespace OvixCtl {

namespace {

struct PlacedRoute {
    std::string vrf;
    Lumo::IpGenAddr address;
    unsigned long length;
    Json entry;

    auto place() const { return std::tuple(vrf, address.family(), address.bytes(), length); }
};

/// By VRF and prefix.
Json routesInOrder(Json list) {
    std::vector<PlacedRoute> all;
    for (Json& entry : list) {
        const auto prefix = entry.at("prefix").get<std::string>();
        const std::size_t slash = prefix.find('/');
        all.push_back({entry.at("vrf").get<std::string>(),
                       Lumo::IpGenAddr::fromText(prefix.substr(0, slash)),
                       std::stoul(prefix.substr(slash + 1)), std::move(entry)});
    }
    std::sort(all.begin(), all.end(),
              [](const auto& a, const auto& b) { return a.place() < b.place(); });
    Json ordered = Json::array();
    for (PlacedRoute& each : all) {
        ordered.push_back(std::move(each.entry));
    }
    return ordered;
}

/// A line for each via.
void addRoute(Rows& rows, const Json& route) {
    const std::string vrf = cellOf(route.at("vrf"));
    const std::string prefix = cellOf(route.at("prefix"));
    const std::string kind = cellOf(route.at("kind"));
    const std::string from = route.at("configured") == true ? "configured" : "published";
    for (const Json& via : route.at("vias")) {
        std::string labels;
        for (const Json& label : via.at("labels")) {
            labels += (labels.empty() ? "" : "/") + cellOf(label);
        }
        rows.push_back({vrf, prefix, kind, cellOf(via.at("nexthop")), cellOf(via.at("port")),
                        labels, cellOf(via.at("weight")), from});
    }
    if (route.at("vias").empty()) {
        rows.push_back({vrf, prefix, kind, "", "", "", "", from});
    }
}

} // namespace

Tessel::Result<int> showIpRoutes(const Request& request) {
    Tessel::Result<Json> answer =
        listOf(request, "routes",
               request.words.empty() ? Json::object() : Json{{"vrf", request.words.front()}});
    if (!answer) {
        return answer.refused();
    }
    Json& list = answer.value()["routes"];
    list = routesInOrder(std::move(list));
    Rows rows;
    for (const Json& route : list) {
        addRoute(rows, route);
    }
    using enum TextTable::Align;
    return printAnswer(request, answer.value(),
                       {{"VRF", left},
                        {"Prefix", left},
                        {"Kind", left},
                        {"Next hop", left},
                        {"Port", left},
                        {"Push", left},
                        {"Weight", right},
                        {"From", left}},
                       rows);
}

} // namespace OvixCtl
