#include "nexthops/RouteAnswers.h"

#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

namespace OvixFpm {

namespace {

using Json = nlohmann::json;

/// zebra shows implicit null in a stack, which it never sends.
std::vector<Lumo::MplsLabel> labelsIn(const Json& hop) {
    std::vector<Lumo::MplsLabel> labels;
    for (const Json& shown : hop.value("labels", Json::array())) {
        const auto value = shown.get<std::uint32_t>();
        if (value > Lumo::MplsLabel::max) {
            throw std::runtime_error("label " + std::to_string(value));
        }
        if (value != Lumo::implicitNull.value()) {
            labels.emplace_back(value);
        }
    }
    return labels;
}

/// A recursive next hop is shown beside those that it is resolved by.
bool isUsed(const Json& hop) {
    return hop.value("active", false) && !hop.value("recursive", false) &&
           hop.value("afi", std::string()) == "ipv4" && hop.contains("interfaceIndex");
}

NextHop nextHopOf(const Json& hop) {
    const auto& ip = hop.at("ip").get_ref<const std::string&>();
    const auto gateway = Lumo::IpGenAddr::fromText(ip);
    if (gateway.family() != Lumo::IpFamily::ipv4 || gateway.empty()) {
        throw std::runtime_error("next hop " + ip);
    }
    return {labelsIn(hop), gateway, hop.at("interfaceIndex").get<std::uint32_t>(), 1};
}

std::vector<NextHop> nextHopsIn(const Json& answer) {
    std::vector<NextHop> hops;
    for (const auto& routes : answer.items()) {
        for (const Json& route : routes.value()) {
            if (!route.value("selected", false)) {
                continue;
            }
            for (const Json& hop : route.at("nexthops")) {
                if (isUsed(hop)) {
                    hops.push_back(nextHopOf(hop));
                }
            }
        }
    }
    return hops;
}

} // namespace

std::string routeQuestion(const L3::RouteKey& key, std::string_view vrf) {
    return "show ipv6 route vrf " + std::string(vrf.empty() ? "default" : vrf) + " " +
           key.prefix.text() + "/" + std::to_string(key.length) + " json";
}

Tessel::Result<std::vector<std::vector<NextHop>>> readRouteAnswers(const std::string& text,
                                                                   std::size_t questions) {
    std::istringstream in(text);
    std::vector<std::vector<NextHop>> answers;
    try {
        while (answers.size() < questions) {
            Json answer;
            in >> answer;
            answers.push_back(nextHopsIn(answer));
        }
    } catch (const std::exception& wrong) {
        return Tessel::Refused{"zebra's answer is not about a route: " + std::string(wrong.what())};
    }
    return answers;
}

} // namespace OvixFpm
