#include "route/RoutePrinting.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "route/RouteWords.h"

namespace OvixCtl {

using Mpls::Hardware::AdjacencyVias;
using Routing::Multicast::MvpnVrfIntfId;
using Tessel::textOf;
using Tessel::wordOf;

namespace {

using Json = nlohmann::ordered_json;

std::vector<std::uint32_t> labelsOf(const Mpls::Via& via) {
    std::vector<std::uint32_t> labels;
    for (const Lumo::MplsLabel label : via.labels()) {
        labels.push_back(label.value());
    }
    return labels;
}
/// "200/300".
std::string labelText(const Mpls::Via& via) {
    return fmt::format("{}", fmt::join(labelsOf(via), "/"));
}

/// Words with a space between them.
class Words {
  public:
    void add(std::string_view word) {
        text_ += text_.empty() || word.empty() ? "" : " ";
        text_ += word;
    }
    void addIf(bool isSet, std::string_view key, std::string_view value = {}) {
        if (isSet) {
            add(key);
            add(value);
        }
    }
    const std::string& text() const noexcept { return text_; }

  private:
    std::string text_;
};

/// What of a via is not as usual. A look-up always says what is beneath.
void addAttributes(Words& words, const Mpls::Via& via) {
    const Mpls::ViaOptions options = via.options();
    if (via.isLookUp()) {
        words.addIf(true, "vrf", options.vrf.view());
        words.addIf(true, "payload", textOf(options.payload));
        return;
    }
    for (const ViaAttribute& attribute : viaAttributes()) {
        const auto value = attribute.text(options);
        words.addIf(value.has_value(), attribute.word, value.value_or(""));
    }
}

/// What of a set of vias is not as usual.
void addSetWords(Words& words, const Mpls::LabelRoute& route) {
    words.addIf(route.isMulticast(), wordOf(route.setType));
    words.addIf(route.owner != 0, "owner", fmt::format("{}", route.owner));
    words.addIf(route.flags != 0, "flags", fmt::format("{:#04x}", route.flags));
}
void addSetWords(Words& words, const AdjacencyVias& adjacency) {
    words.addIf(adjacency.setType == Mpls::LfibViaSetType::multicast, wordOf(adjacency.setType));
    words.addIf(adjacency.useBackups, "use-backups");
}

/// Writes an entry on one line.
class LineWriter {
  public:
    LineWriter(const Entry& entry, const IntfText& interfaces) : interfaces_(&interfaces) {
        words_.addIf(true, wordOf(entry.table), fmt::format("{}", entry.key));
        std::visit(*this, entry.content);
    }

    const std::string& text() const noexcept { return words_.text(); }

    void operator()(const Mpls::LabelRoute& route) {
        addSetWords(words_, route);
        if (route.tail) {
            addTail(route.tail->intf());
        }
        for (const Mpls::WeightedVia& via : route.vias) {
            words_.addIf(route.vias.size() > 1 || route.tail, "nexthop");
            add(via);
        }
        words_.addIf(route.viaType != route.usualViaType(), "type", textOf(route.viaType));
    }
    void operator()(const Mpls::Hardware::Route& route) {
        words_.addIf(true, "adjacency", fmt::format("{}", route.adjacencyKey));
        words_.addIf(route.unprogrammed, "unprogrammed");
    }
    void operator()(const AdjacencyVias& adjacency) {
        addSetWords(words_, adjacency);
        for (const Mpls::WeightedVia& via : adjacency.vias) {
            words_.addIf(adjacency.vias.size() > 1, "nexthop");
            add(via);
        }
        for (const Mpls::WeightedVia& via : adjacency.backups) {
            words_.add("backup");
            add(via);
        }
    }
    void operator()(const MvpnVrfIntfId& vpn) {
        words_.addIf(true, "dev", interfaces_->text(vpn.intfId));
    }
    void operator()(const Damage& damage) { words_.addIf(true, "corrupt:", damage.what); }

  private:
    void addTail(Lumo::IntfId intf) {
        words_.add("tail");
        if (Lumo::VlanIntfId::isVlanIntfId(intf)) {
            words_.addIf(true, "vlan", fmt::format("{}", Lumo::VlanIntfId::vlanId(intf)));
        } else {
            words_.addIf(!intf.empty(), "dev", interfaces_->text(intf));
        }
    }
    void add(const Mpls::WeightedVia& member) {
        const Mpls::Via& via = member.via;
        if (via.action() == Lumo::MplsLabelAction::swap) {
            words_.addIf(true, "as to", labelText(via));
        } else if (via.action() != Lumo::MplsLabelAction::pop) {
            words_.addIf(true, textOf(via.action()), labelText(via));
        }
        if (via.nexthop().family() != Lumo::IpFamily::none) {
            const bool isIpv6 = via.nexthop().family() == Lumo::IpFamily::ipv6;
            words_.addIf(true, isIpv6 ? "via inet6" : "via inet", via.nexthop().text());
        }
        words_.addIf(!via.intf().empty(), "dev", interfaces_->text(via.intf()));
        words_.addIf(via.fec() != 0, "fec", fmt::format("{}", via.fec()));
        words_.addIf(member.weight != 1, "weight", fmt::format("{}", member.weight));
        addAttributes(words_, via);
    }

    Words words_;
    const IntfText* interfaces_;
};

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
std::string dumped(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

class JsonWriter {
  public:
    JsonWriter(const Entry& entry, const IntfText& interfaces) : interfaces_(&interfaces) {
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
        json_["lookup"] = route.isLookUp() ? lookUp(route.vias.front().via.options()) : Json();
        json_["tail"] = route.tail ? Json{{"interface", intf(route.tail->intf())}} : Json();
        json_["vias"] = route.isLookUp() ? Json::array() : vias(route.vias);
    }
    void operator()(const Mpls::Hardware::Route& route) {
        json_["adjacency"] = route.adjacencyKey;
        json_["unprogrammed"] = route.unprogrammed;
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
        json["labels"] = labelsOf(member.via);
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
        return json;
    }

    Json json_;
    const IntfText* interfaces_;
};

} // namespace

std::string IntfText::text(Lumo::IntfId intf) const {
    if (intf.empty()) {
        return {};
    }
    for (const Interface::Names& names : names_) {
        if (const std::string_view name = names.name(intf); !name.empty()) {
            return std::string(name);
        }
    }
    switch (intf.kind()) {
    case Lumo::IntfId::Kind::vlan:
        return fmt::format("vlan{}", intf.id());
    case Lumo::IntfId::Kind::cpu:
        return fmt::format("cpu{}", intf.id());
    default:
        return fmt::format("{:#018x}", intf.value());
    }
}

std::string routeText(const Entry& entry, const IntfText& interfaces) {
    return LineWriter(entry, interfaces).text();
}

std::string routeJson(const Entry& entry, const IntfText& interfaces) {
    return JsonWriter(entry, interfaces).text();
}

std::string routeKeyJson(Mpls::TableId table, std::uint32_t key) {
    return dumped(JsonWriter::keyJson(table, key));
}

std::string jsonText(std::string_view text) {
    return dumped(text);
}

} // namespace OvixCtl
