// Changes of the vias that a label has.

#include <algorithm>
#include <fmt/format.h>

#include "Explain/RemedyWords.h"
#include "Explain/TableRemedies.h"
#include "Published/InterfaceNames.h"
#include "Published/TransitRoutes.h"

namespace OvixAgent {

namespace {

Tessel::Result<void> liftMtus(std::vector<Mpls::WeightedVia>& vias) {
    for (Mpls::WeightedVia& via : vias) {
        Ovix::OvixMplsVia record = via.via.record();
        record.nexthopMtu = 0;
        const auto lifted = Mpls::Via::fromRecord(record);
        if (!lifted) {
            return lifted.refused();
        }
        via.via = lifted.value();
    }
    return {};
}

/// Whether the label's hardware route is made from its route in the transit LFIB: a change of the
/// latter changes both.
bool isDerived(const Situation& situation, Lumo::MplsLabel label) {
    if (situation.tables) {
        const Mpls::PublishedTables now(situation.tables->reader());
        return now.hardware()->route(Mpls::RouteKey::fromLabel(label)).derived;
    }
    const auto& routes = situation.config.hardware.routes;
    return std::none_of(routes.begin(), routes.end(), [&](const auto& route) {
        return route.value.routeKey.topLabel() == label;
    });
}

/// Whether a name means nothing else than itself to a shell and to sed. Names in the tables are
/// whatever their writer likes.
bool isPlainName(std::string_view name) noexcept {
    return !name.empty() &&
           name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                                  "_-.") == std::string_view::npos;
}

/// Puts an entry into its place again, changed by sed. Several owners may have a route; one is
/// forwarded by, and the others are shown as comments.
std::string replacing(const Situation& situation, const std::string& entry,
                      std::string_view change) {
    return ctlCommand(situation, fmt::format("lfib replace $({} | sed -n '/^#/!{}')",
                                             ctlCommand(situation, "lfib show " + entry), change));
}

std::string withoutMtuCommand(const Situation& situation, const Asked& asked, bool isAdjacency,
                              std::uint32_t length) {
    if (!situation.tables) {
        const std::string place =
            isAdjacency ? fmt::format("adjacency {} in hardware", asked.adjacency)
                        : fmt::format("label {} in lfib.{}", asked.label.value(), asked.table);
        return fmt::format("# in {}, of the via of {}\nmtu: {}", yamlWord(situation.file), place,
                           length);
    }
    const std::string entry = isAdjacency ? fmt::format("adjacency {}", asked.adjacency)
                                          : fmt::format("{} {}", asked.table, asked.label.value());
    return replacing(situation, entry, "s/ mtu [0-9]*//gp");
}

/// The up port that the address is on the link of; noPort when there is none.
PortIndex portToward(const Situation& situation, const Lumo::IpGenAddr& address) {
    const std::vector<PortConfig>& ports = situation.config.ports;
    const auto found = std::find_if(ports.begin(), ports.end(), [&](const PortConfig& port) {
        return port.isUp && std::any_of(port.addresses.begin(), port.addresses.end(),
                                        [&](const InterfaceAddress& own) {
                                            return own.subnet().contains(address);
                                        });
    });
    return found == ports.end() ? noPort : static_cast<PortIndex>(found - ports.begin());
}

/// Leads the route's vias by the interface to the port.
Tessel::Result<void> changeInterface(Mpls::TablePublisher& tables, const Asked& asked,
                                     Lumo::IntfId from, Lumo::IntfId to) {
    const auto table = *Tessel::valueOf<Mpls::TableId>(asked.table);
    const Mpls::PublishedTables now(tables.tables().working());
    auto route = Mpls::readLabelRoute(*now.lfib(table), table, asked.label);
    if (!route) {
        return route.refused();
    }
    for (Mpls::WeightedVia& each : route.value().vias) {
        Ovix::OvixMplsVia record = each.via.record();
        record.intfId = record.intfId == from ? to : record.intfId;
        const auto changed = Mpls::Via::fromRecord(record);
        if (!changed) {
            return changed.refused();
        }
        each.via = changed.value();
    }
    return tables.labelRoutes().routeIs(route.value());
}

/// The label's route with vias that have no MTU of their own.
Tessel::Result<void> liftRouteMtus(Mpls::TablePublisher& tables, const Asked& asked) {
    const auto table = *Tessel::valueOf<Mpls::TableId>(asked.table);
    const Mpls::PublishedTables now(tables.tables().working());
    auto route = Mpls::readLabelRoute(*now.lfib(table), table, asked.label);
    if (!route) {
        return route.refused();
    }
    const auto lifted = liftMtus(route.value().vias);
    return lifted ? tables.labelRoutes().routeIs(route.value()) : lifted;
}

/// The same of an adjacency.
Tessel::Result<void> liftAdjacencyMtus(Mpls::TablePublisher& tables, std::uint32_t id) {
    const Mpls::PublishedTables now(tables.tables().working());
    const auto before = now.hardware()->adjacency(id);
    if (!before) {
        return Tessel::Refused{"there is no such adjacency"};
    }
    auto content = before->content();
    if (!content) {
        return content.refused();
    }
    if (const auto lifted = liftMtus(content.value().vias); !lifted) {
        return lifted;
    }
    Mpls::platformAdjacencyIs(tables, id, *Mpls::Hardware::Adjacency::create(content.value()));
    return {};
}

} // namespace

std::optional<Remedy> routeWrittenAgain(const Situation& situation, const GivenFrame& frame,
                                        const Asked& asked) {
    if (!situation.tables || !isDerived(situation, asked.label)) {
        return std::nullopt;
    }
    Remedy remedy{{},
                  "the label's adjacency is made from its route, which is written again",
                  situation,
                  frame};
    remedy.situation.changes.emplace_back(
        [label = asked.label](Mpls::TablePublisher& tables) -> Tessel::Result<void> {
            constexpr auto table = Mpls::TableId::transitLfib;
            const Mpls::PublishedTables now(tables.tables().working());
            const auto route = Mpls::readLabelRoute(*now.lfib(table), table, label);
            return route ? tables.labelRoutes().routeIs(route.value()) : route.refused();
        });
    remedy.command = replacing(situation, fmt::format("transit {}", asked.label.value()), "p");
    return remedy;
}

std::vector<Remedy> ontoPort(const Situation& situation, const GivenFrame& frame,
                             const Walk& walk) {
    std::optional<Asked> asked = lastAsked(walk);
    if (!asked || !situation.tables || !isDerived(situation, asked->label)) {
        return {};
    }
    asked->table = Tessel::wordOf(Mpls::TableId::transitLfib);
    const Mpls::PublishedTables now(situation.tables->reader());
    const auto route = Mpls::readLabelRoute(*now.lfib(Mpls::TableId::transitLfib),
                                            Mpls::TableId::transitLfib, asked->label);
    const auto names = Interface::Names::read(*situation.tables->reader());
    std::vector<Remedy> all;
    for (const Mpls::WeightedVia& each :
         route ? route.value().vias : decltype(route.value().vias){}) {
        const Lumo::IntfId intf = each.via.intf();
        const std::string name(names.name(intf));
        const PortIndex port = portToward(situation, each.via.nexthop());
        const std::string known = port != noPort ? situation.config.ports[port].name : "";
        if (!isPlainName(name) || !isPlainName(known) ||
            portNamed(situation.config, name) != noPort) {
            continue;
        }
        Remedy& remedy = all.emplace_back(
            Remedy{{},
                   fmt::format("this router has no port {}, and the next hop is on the link of {}",
                               name, known),
                   situation,
                   frame});
        remedy.situation.changes.emplace_back(
            [asked = *asked, intf, to = Lumo::IntfId(known)](Mpls::TablePublisher& tables) {
                return changeInterface(tables, asked, intf, to);
            });
        remedy.command =
            replacing(situation, fmt::format("{} {}", asked->table, asked->label.value()),
                      fmt::format("s/ dev {}\\b/ dev {}/gp", name, known));
    }
    return all;
}

std::vector<Remedy> withoutViaMtu(const Situation& situation, const GivenFrame& frame,
                                  const Walk& walk, std::uint32_t length) {
    std::optional<Asked> asked = lastAsked(walk);
    if (!asked || (asked->found != "yes" && asked->found != "backups")) {
        return {};
    }
    const bool isHardware = asked->table == Tessel::wordOf(Mpls::TableId::hardwareRoutes);
    if (isHardware && isDerived(situation, asked->label)) {
        asked->table = Tessel::wordOf(Mpls::TableId::transitLfib);
    }
    const bool isAdjacency =
        isHardware && asked->table == Tessel::wordOf(Mpls::TableId::hardwareRoutes);
    Remedy remedy{
        {}, "the path takes no larger packets: see its other links first", situation, frame};
    remedy.situation.changes.emplace_back(
        [asked = *asked, isAdjacency](Mpls::TablePublisher& tables) {
            return isAdjacency ? liftAdjacencyMtus(tables, asked.adjacency)
                               : liftRouteMtus(tables, asked);
        });
    remedy.command = withoutMtuCommand(situation, *asked, isAdjacency, length);
    return {remedy};
}

} // namespace OvixAgent
