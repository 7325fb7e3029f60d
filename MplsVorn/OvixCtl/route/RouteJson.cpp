#include "route/RouteJson.h"

#include <nlohmann/json.hpp>

#include "route/EntryTable.h"
#include "route/ViaWords.h"

namespace OvixCtl {

namespace {

using Json = nlohmann::ordered_json;

Json textOrNull(std::string text) {
    return text.empty() ? Json() : Json(std::move(text));
}
template <typename Number>
Json numberUnless(Number untold, Number value) {
    return value == untold ? Json() : Json(value);
}

class Writer {
  public:
    Writer(Json start, const IntfText& interfaces)
        : json_(std::move(start)), interfaces_(&interfaces) {}

    Json take() { return std::move(json_); }

    void operator()(const LfibRouteView& route) {
        json_["type"] = wordOf(route.type);
        json_["multicast"] = route.setType == Mpls::LfibViaSetType::multicast;
        json_["lookup"] = nullptr;
        if (route.lookup) {
            json_["lookup"] = {{"vrf", route.lookup->vrf.view()},
                               {"payload", wordOf(route.lookup->payload)}};
        }
        json_["tail"] = nullptr;
        if (route.tail) {
            json_["tail"] = {{"interface", intf(intfOf(*route.tail))}};
        }
        json_["vias"] = vias(route.vias);
    }
    void operator()(const HardwareRouteView& route) {
        json_["adjacency"] = route.adjacency;
        json_["unprogrammed"] = route.unprogrammed;
    }
    void operator()(const AdjacencyView& adjacency) {
        json_["type"] = wordOf(adjacency.type);
        json_["multicast"] = adjacency.setType == Mpls::LfibViaSetType::multicast;
        json_["useBackups"] = adjacency.useBackups;
        json_["vias"] = vias(adjacency.vias);
        json_["backups"] = vias(adjacency.backups);
    }
    void operator()(const MvpnView& entry) { json_["interface"] = intf(entry.intf); }
    void operator()(const DamagedView& damaged) { json_["corrupt"] = damaged.what; }

  private:
    Json intf(Lumo::IntfId id) const { return textOrNull(interfaces_->text(id)); }

    Json vias(const std::vector<Mpls::WeightedVia>& members) const {
        Json list = Json::array();
        for (const Mpls::WeightedVia& member : members) {
            list.push_back(one(member));
        }
        return list;
    }
    Json one(const Mpls::WeightedVia& member) const {
        const Ovix::OvixMplsVia& via = member.via;
        Json json;
        json["action"] = wordOf(via.action());
        json["labels"] = labelsOf(via);
        json["nexthop"] = textOrNull(via.nexthop.text());
        json["interface"] = intf(via.intfId);
        json["weight"] = member.weight;
        json["ttl"] = wordOf(via.ttl());
        json["tc"] = numberUnless(via.trafficClassUntold, via.trafficClass);
        json["pushTtl"] = numberUnless<std::uint16_t>(0, via.pushTtl);
        json["payload"] = wordOf(via.payload());
        json["mtu"] = numberUnless<std::uint32_t>(0, via.nexthopMtu);
        json["vlan"] = numberUnless<std::uint16_t>(0, via.nexthopVlan);
        json["fec"] = numberUnless<std::uint64_t>(0, via.fecId());
        json["vrf"] = textOrNull(std::string(via.vrfName.view()));
        return json;
    }

    Json json_;
    const IntfText* interfaces_;
};

} // namespace

Json routeKeyJson(Mpls::TableId table, std::uint32_t key) {
    return {{"table", nameOf(table)}, {std::string(keyNameOf(table)), key}};
}

Json routeJson(const RouteView& route, const IntfText& interfaces) {
    Writer writer(routeKeyJson(route.table, route.key), interfaces);
    std::visit(writer, route.content);
    return writer.take();
}

} // namespace OvixCtl
