#include "route/RoutePrinting.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "route/EntryTable.h"

namespace OvixCtl {

namespace {

using Json = nlohmann::ordered_json;

template <typename Enum>
std::string number(Enum value) {
    return fmt::format("{}", static_cast<unsigned>(value));
}

std::string wordOf(Mpls::LfibViaType type) {
    switch (type) {
    case Mpls::LfibViaType::ip:
        return "ip";
    case Mpls::LfibViaType::ipLookup:
        return "ip-lookup";
    case Mpls::LfibViaType::externalFec:
        return "external-fec";
    case Mpls::LfibViaType::ipLookupPerPrefix:
        return "ip-lookup-per-prefix";
    case Mpls::LfibViaType::multicastIpLookup:
        return "multicast-ip-lookup";
    default:
        return number(type);
    }
}

std::string wordOf(Lumo::MplsLabelAction action) {
    switch (action) {
    case Lumo::MplsLabelAction::push:
        return "push";
    case Lumo::MplsLabelAction::pop:
        return "pop";
    case Lumo::MplsLabelAction::swap:
        return "swap";
    default:
        return number(action);
    }
}

std::string wordOf(Mpls::PayloadType payload) {
    switch (payload) {
    case Mpls::PayloadType::undefined:
        return "undefined";
    case Mpls::PayloadType::none:
        return "none";
    case Mpls::PayloadType::ipv4:
        return "ipv4";
    case Mpls::PayloadType::ipv6:
        return "ipv6";
    case Mpls::PayloadType::ethernet:
        return "ethernet";
    case Mpls::PayloadType::automatic:
        return "auto";
    default:
        return number(payload);
    }
}

std::string wordOf(Mpls::TtlMode mode) {
    switch (mode) {
    case Mpls::TtlMode::uniform:
        return "uniform";
    case Mpls::TtlMode::pipe:
        return "pipe";
    default:
        return number(mode);
    }
}

/// The labels of a via's operation, outermost first.
std::vector<std::uint32_t> labelsOf(const Ovix::OvixMplsVia& via) {
    const auto operation = via.labelOperation();
    std::vector<std::uint32_t> labels;
    for (std::size_t i = 0; i < operation.depth(); ++i) {
        labels.push_back(operation.label(i).value());
    }
    return labels;
}
/// "200/300".
std::string labelText(const Ovix::OvixMplsVia& via) {
    return fmt::format("{}", fmt::join(labelsOf(via), "/"));
}

/// The interface of the tail of a multicast LSP.
Lumo::IntfId intfOf(const Mpls::LfibMulticastIpLookupVia& tail) noexcept {
    return Lumo::IntfId::fromValue((std::uint64_t{tail.intfIdHigh} << 32U) | tail.intfIdLow);
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
    template <typename Number>
    void addUnless(Number usual, std::string_view key, Number value) {
        addIf(value != usual, key, fmt::format("{}", value));
    }
    const std::string& text() const noexcept { return text_; }

  private:
    std::string text_;
};

/// What of a via is not as usual.
void addAttributes(Words& words, const Ovix::OvixMplsVia& via) {
    words.addIf(via.ttl() != Mpls::TtlMode::uniform, "ttl", wordOf(via.ttl()));
    words.addUnless(via.trafficClassUnset, "tc", via.trafficClass);
    words.addUnless<std::uint16_t>(0, "push-ttl", via.pushTtl);
    words.addIf(via.payload() != Mpls::PayloadType::automatic, "payload", wordOf(via.payload()));
    words.addUnless<std::uint32_t>(0, "mtu", via.nexthopMtu);
    words.addUnless<std::uint16_t>(0, "vlan", via.nexthopVlan);
    words.addUnless<std::uint64_t>(0, "fec", via.fecId());
    words.addIf(!via.vrfName.empty(), "vrf", via.vrfName.view());
    words.addIf(via.controlWord, "control-word");
}

void addLookup(Words& words, const LookupView& lookup) {
    words.addIf(true, "vrf", lookup.vrf.view());
    words.addIf(true, "payload", wordOf(lookup.payload));
}

/// What of a route's set is not as usual.
void addSetWords(Words& words, const LfibRouteView& route) {
    words.addIf(route.setType == Mpls::LfibViaSetType::multicast, "multicast");
    words.addIf(route.origin != 0, "origin", fmt::format("{}", route.origin));
    words.addIf(route.flags != 0, "flags", fmt::format("{:#04x}", route.flags));
}
void addSetWords(Words& words, const AdjacencyView& adjacency) {
    words.addIf(adjacency.setType == Mpls::LfibViaSetType::multicast, "multicast");
    words.addIf(adjacency.useBackups, "use-backups");
}

/// Writes an entry on one line.
class LineWriter {
  public:
    LineWriter(const RouteView& route, const IntfText& interfaces) : interfaces_(&interfaces) {
        words_.addIf(true, nameOf(route.table), fmt::format("{}", route.key));
        std::visit(*this, route.content);
    }

    const std::string& text() const noexcept { return words_.text(); }

    void operator()(const LfibRouteView& route) {
        addSetWords(words_, route);
        if (route.lookup) {
            addLookup(words_, *route.lookup);
        }
        if (route.tail) {
            words_.addIf(true, "tail dev", interfaces_->text(intfOf(*route.tail)));
        }
        for (const Mpls::WeightedRecord& via : route.vias) {
            words_.addIf(route.vias.size() > 1 || route.tail, "nexthop");
            add(via);
        }
        const bool isUsual = route.lookup ? route.type == Mpls::LfibViaType::ipLookup
                                          : route.tail || route.type == Mpls::LfibViaType::ip;
        words_.addIf(!isUsual, "type", wordOf(route.type));
    }
    void operator()(const HardwareRouteView& route) {
        words_.addIf(true, "adjacency", fmt::format("{}", route.adjacency));
        words_.addIf(route.unprogrammed, "unprogrammed");
    }
    void operator()(const AdjacencyView& adjacency) {
        addSetWords(words_, adjacency);
        for (const Mpls::WeightedRecord& via : adjacency.vias) {
            words_.addIf(adjacency.vias.size() > 1, "nexthop");
            add(via);
        }
        for (const Mpls::WeightedRecord& via : adjacency.backups) {
            words_.add("backup");
            add(via);
        }
    }
    void operator()(const MvpnView& entry) {
        words_.addIf(true, "dev", interfaces_->text(entry.intf));
    }
    void operator()(const DamagedView& damaged) { words_.addIf(true, "corrupt:", damaged.what); }

  private:
    void add(const Mpls::WeightedRecord& member) {
        const Ovix::OvixMplsVia& via = member.via;
        if (via.action() == Lumo::MplsLabelAction::swap) {
            words_.addIf(true, "as to", labelText(via));
        } else if (via.action() != Lumo::MplsLabelAction::pop) {
            words_.addIf(true, wordOf(via.action()), labelText(via));
        }
        if (via.nexthop.family() != Lumo::IpFamily::none) {
            const bool isIpv6 = via.nexthop.family() == Lumo::IpFamily::ipv6;
            words_.addIf(true, isIpv6 ? "via inet6" : "via inet", via.nexthop.text());
        }
        words_.addIf(!via.intfId.empty(), "dev", interfaces_->text(via.intfId));
        words_.addUnless<std::uint32_t>(1, "weight", member.weight);
        addAttributes(words_, via);
    }

    Words words_;
    const IntfText* interfaces_;
};

/// Writes an entry as lines of a table, one per via.
class RowWriter {
  public:
    RowWriter(const RouteView& route, const IntfText& interfaces)
        : interfaces_(&interfaces), start_{std::string(nameOf(route.table)),
                                           fmt::format("{}", route.key)} {
        std::visit(*this, route.content);
    }

    std::vector<TextTable::Cells> take() { return std::move(rows_); }

    void operator()(const LfibRouteView& route) {
        const std::string type = wordOf(route.type);
        Words common;
        addSetWords(common, route);
        if (route.lookup) {
            Words words = common;
            addLookup(words, *route.lookup);
            add({type, wordOf(Lumo::MplsLabelAction::pop), "", "", "", "", words.text()});
        }
        if (route.tail) {
            Words words = common;
            words.add("tail");
            add({type, "", "", "", interfaces_->text(intfOf(*route.tail)), "", words.text()});
        }
        addVias(type, common, route.vias);
        if (rows_.empty()) {
            add({type, "", "", "", "", "", common.text()});
        }
    }
    void operator()(const HardwareRouteView& route) {
        add({"", "", "", fmt::format("adjacency {}", route.adjacency), "", "",
             route.unprogrammed ? "unprogrammed" : ""});
    }
    void operator()(const AdjacencyView& adjacency) {
        Words common;
        addSetWords(common, adjacency);
        addVias(wordOf(adjacency.type), common, adjacency.vias);
        common.add("backup");
        addVias(wordOf(adjacency.type), common, adjacency.backups);
    }
    void operator()(const MvpnView& entry) {
        add({"", "", "", "", interfaces_->text(entry.intf), "", ""});
    }
    void operator()(const DamagedView& damaged) {
        add({"corrupt", "", "", "", "", "", damaged.what});
    }

  private:
    /// The cells behind the table and the key.
    void add(TextTable::Cells cells) {
        cells.insert(cells.begin(), start_.begin(), start_.end());
        rows_.push_back(std::move(cells));
    }
    void addVias(const std::string& type, const Words& common,
                 const std::vector<Mpls::WeightedRecord>& vias) {
        for (const auto& [via, weight] : vias) {
            Words words = common;
            addAttributes(words, via);
            add({type, wordOf(via.action()), labelText(via), via.nexthop.text(),
                 interfaces_->text(via.intfId), fmt::format("{}", weight), words.text()});
        }
    }

    const IntfText* interfaces_;
    TextTable::Cells start_;
    std::vector<TextTable::Cells> rows_;
};

Json textOrNull(std::string text) {
    return text.empty() ? Json() : Json(std::move(text));
}
template <typename Number>
Json numberUnless(Number unset, Number value) {
    return value == unset ? Json() : Json(value);
}

Json keyJson(Mpls::TableId table, std::uint32_t key) {
    return {{"table", nameOf(table)}, {std::string(keyNameOf(table)), key}};
}
std::string dumped(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

class JsonWriter {
  public:
    JsonWriter(Json start, const IntfText& interfaces)
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

    Json vias(const std::vector<Mpls::WeightedRecord>& members) const {
        Json list = Json::array();
        for (const Mpls::WeightedRecord& member : members) {
            list.push_back(one(member));
        }
        return list;
    }
    Json one(const Mpls::WeightedRecord& member) const {
        const Ovix::OvixMplsVia& via = member.via;
        Json json;
        json["action"] = wordOf(via.action());
        json["labels"] = labelsOf(via);
        json["nexthop"] = textOrNull(via.nexthop.text());
        json["interface"] = intf(via.intfId);
        json["weight"] = member.weight;
        json["ttl"] = wordOf(via.ttl());
        json["tc"] = numberUnless(via.trafficClassUnset, via.trafficClass);
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

std::string routeText(const RouteView& route, const IntfText& interfaces) {
    return LineWriter(route, interfaces).text();
}

std::vector<TextTable::Column> routeColumns() {
    using enum TextTable::Align;
    return {{"Table", left},     {"Label", right},     {"Type", left},
            {"Action", left},    {"Out labels", left}, {"Next hop", left},
            {"Interface", left}, {"Weight", right},    {"Attributes", left}};
}

std::vector<TextTable::Cells> routeRows(const RouteView& route, const IntfText& interfaces) {
    return RowWriter(route, interfaces).take();
}

std::string routeJson(const RouteView& route, const IntfText& interfaces) {
    JsonWriter writer(keyJson(route.table, route.key), interfaces);
    std::visit(writer, route.content);
    return dumped(writer.take());
}

std::string routeKeyJson(Mpls::TableId table, std::uint32_t key) {
    return dumped(keyJson(table, key));
}

std::string jsonText(std::string_view text) {
    return dumped(text);
}

} // namespace OvixCtl
