#include "route/RouteJson.h"

#include <nlohmann/json.hpp>

#include "Summary/JsonText.h"

namespace OvixCtl {

using OvixAgent::dumped;

using Mpls::Hardware::AdjacencyVias;
using Routing::Multicast::MvpnVrfIntfId;
using Tessel::textOf;
using Tessel::wordOf;

namespace {

using Json = nlohmann::ordered_json;

Json textOrNull(std::string_view text) {
    return text.empty() ? Json() : Json(text);
}
template <typename Number>
Json numberOrNull(Number value) {
    return value == 0 ? Json() : Json(value);
}
Json numberOrNull(std::optional<std::uint8_t> value) {
    return value ? Json(*value) : Json();
}
class JsonWriter {
  public:
    JsonWriter(const Entry& entry, const IntfText& interfaces)
        : interfaces_(&interfaces), waitsFor_(entry.waitsFor) {
        json_ = keyJson(entry.table, entry.key);
        std::visit(*this, entry.content);
    }

    static Json keyJson(Mpls::TableId table, std::uint32_t key) {
        return {{"table", wordOf(table)}, {std::string(keyNameOf(table)), key}};
    }
    std::string text() const { return dumped(json_); }

    void operator()(const Mpls::LabelRoute& route) {
        json_["type"] = textOf(route.viaType);
        json_["multicast"] = route.isMulticast();
        json_["owner"] = textOf(route.owner);
        json_["preference"] = numberOrNull(route.preference);
        json_["waitsFor"] = waitsFor_ ? Json(textOf(*waitsFor_)) : Json();
        json_["flags"] = route.flags;
        json_["lookup"] = route.isLookUp() ? lookUp(route.vias.front().via.options()) : Json();
        json_["tail"] = route.tail ? Json{{"interface", intf(route.tail->intf())}} : Json();
        json_["vias"] = route.isLookUp() ? Json::array() : vias(route.vias);
    }
    void operator()(const Mpls::Hardware::Route& route) {
        json_["adjacency"] = route.adjacencyKey;
        json_["unprogrammed"] = route.unprogrammed;
        json_["derived"] = route.derived;
    }
    void operator()(const AdjacencyVias& adjacency) {
        json_["type"] = textOf(adjacency.viaType);
        json_["multicast"] = adjacency.setType == Mpls::LfibViaSetType::multicast;
        json_["useBackups"] = adjacency.useBackups;
        json_["vias"] = vias(adjacency.vias);
        json_["backups"] = vias(adjacency.backups);
    }
    void operator()(const MvpnVrfIntfId& vpn) { json_["interface"] = intf(vpn.intfId); }
    void operator()(const Damage& damage) { json_["corrupt"] = damage.what; }

  private:
    static Json lookUp(const Mpls::ViaOptions& options) {
        return {{"vrf", options.vrf.view()}, {"payload", textOf(options.payload)}};
    }
    Json intf(Lumo::IntfId id) const { return textOrNull(interfaces_->text(id)); }
    Json vias(const std::vector<Mpls::WeightedVia>& members) const {
        Json list = Json::array();
        for (const Mpls::WeightedVia& member : members) {
            list.push_back(one(member));
        }
        return list;
    }
    Json one(const Mpls::WeightedVia& member) const {
        const Mpls::ViaOptions options = member.via.options();
        Json json;
        json["action"] = textOf(member.via.action());
        json["labels"] = Json::array();
        for (const Lumo::MplsLabel label : member.via.labels()) {
            json["labels"].push_back(label.value());
        }
        json["nexthop"] = textOrNull(options.nexthop.text());
        json["interface"] = intf(options.intf);
        json["weight"] = member.weight;
        json["ttl"] = textOf(options.ttl);
        json["tc"] = options.tcUniform ? Json("uniform") : numberOrNull(options.tc);
        json["pushTc"] = numberOrNull(options.pushTc);
        json["pushTtl"] = numberOrNull(options.pushTtl);
        json["payload"] = textOf(options.payload);
        json["mtu"] = numberOrNull(options.mtu);
        json["vlan"] = numberOrNull(options.vlan);
        json["fec"] = numberOrNull(member.via.fec());
        json["vrf"] = textOrNull(options.vrf.view());
        json["entropy"] = options.entropy;
        return json;
    }

    Json json_;
    const IntfText* interfaces_;
    std::optional<Mpls::RouteOwner> waitsFor_;
};

} // namespace

std::string routeJson(const Entry& entry, const IntfText& interfaces) {
    return JsonWriter(entry, interfaces).text();
}

std::string routeKeyJson(Mpls::TableId table, std::uint32_t key) {
    return dumped(JsonWriter::keyJson(table, key));
}

std::string jsonText(std::string_view text) {
    return dumped(Json(text));
}

} // namespace OvixCtl
