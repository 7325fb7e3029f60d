#include "route/RouteText.h"

#include <fmt/format.h>

#include "route/EntryTable.h"
#include "route/ViaWords.h"

namespace OvixCtl {

namespace {

/// Writes an entry's content behind its table and key, each word after a space.
class Writer {
  public:
    Writer(std::string start, const IntfText& interfaces)
        : text_(std::move(start)), interfaces_(&interfaces) {}

    const std::string& text() const noexcept { return text_; }

    void operator()(const LfibRouteView& route) {
        word(route.setType == Mpls::LfibViaSetType::multicast, "multicast");
        if (route.lookup) {
            word(true, "vrf", route.lookup->vrf.view());
            word(true, "payload", wordOf(route.lookup->payload));
        }
        if (route.tail) {
            word(true, "tail dev", interfaces_->text(intfOf(*route.tail)));
        }
        const bool several = route.vias.size() > 1 || route.tail;
        for (const Mpls::WeightedVia& via : route.vias) {
            word(several, "nexthop");
            add(via);
        }
        const bool usual = route.lookup ? route.type == Mpls::LfibViaType::ipLookup
                                        : route.tail || route.type == Mpls::LfibViaType::ip;
        if (!usual) {
            word(true, "type", wordOf(route.type));
        }
        word(route.origin != 0, "origin", fmt::format("{}", route.origin));
        word(route.flags != 0, "flags", fmt::format("{:#04x}", route.flags));
    }
    void operator()(const HardwareRouteView& route) {
        word(true, "adjacency", fmt::format("{}", route.adjacency));
        word(route.unprogrammed, "unprogrammed");
    }
    void operator()(const AdjacencyView& adjacency) {
        word(adjacency.setType == Mpls::LfibViaSetType::multicast, "multicast");
        word(adjacency.useBackups, "use-backups");
        for (const Mpls::WeightedVia& via : adjacency.vias) {
            word(adjacency.vias.size() > 1, "nexthop");
            add(via);
        }
        for (const Mpls::WeightedVia& via : adjacency.backups) {
            word(true, "backup");
            add(via);
        }
    }
    void operator()(const MvpnView& entry) { word(true, "dev", interfaces_->text(entry.intf)); }
    void operator()(const DamagedView& damaged) { word(true, "corrupt:", damaged.what); }

  private:
    void word(bool told, std::string_view key, std::string_view value = {}) {
        if (told) {
            (text_ += ' ') += key;
        }
        if (told && !value.empty()) {
            (text_ += ' ') += value;
        }
    }
    void add(const Mpls::WeightedVia& member) {
        const Ovix::OvixMplsVia& via = member.via;
        const auto labels = labelText(labelsOf(via));
        if (via.action() == Lumo::MplsLabelAction::swap) {
            word(true, "as to", labels);
        } else if (via.action() != Lumo::MplsLabelAction::pop) {
            word(true, wordOf(via.action()), labels);
        }
        if (via.nexthop.family() != Lumo::IpFamily::none) {
            const bool inet6 = via.nexthop.family() == Lumo::IpFamily::ipv6;
            word(true, inet6 ? "via inet6" : "via inet", via.nexthop.text());
        }
        word(!via.intfId.empty(), "dev", interfaces_->text(via.intfId));
        word(member.weight != 1, "weight", fmt::format("{}", member.weight));
        for (const auto& [key, value] : attributesOf(via)) {
            word(true, key, value);
        }
    }

    std::string text_;
    const IntfText* interfaces_;
};

} // namespace

std::string routeText(const RouteView& route, const IntfText& interfaces) {
    Writer writer(fmt::format("{} {}", nameOf(route.table), route.key), interfaces);
    std::visit(writer, route.content);
    return writer.text();
}

} // namespace OvixCtl
