#include "route/RoutePrinting.h"

#include <fmt/format.h>

#include "route/ViaWords.h"

namespace OvixCtl {

using Mpls::Hardware::AdjacencyVias;
using Routing::Multicast::MvpnVrfIntfId;
using Tessel::textOf;
using Tessel::wordOf;

namespace {

/// "200/300".
std::string labelText(const Mpls::Via& via) {
    std::string text;
    for (const Lumo::MplsLabel label : via.labels()) {
        text += (text.empty() ? "" : "/") + label.prettyString();
    }
    return text;
}

/// Words with a space between them.
class Line {
  public:
    void add(std::string_view word) {
        text_ += text_.empty() || word.empty() ? "" : " ";
        text_ += word;
    }
    void add(std::string_view key, std::string_view value) {
        add(key);
        add(value);
    }
    template <class Number>
    void addNumber(std::string_view key, Number value) {
        add(key, fmt::format("{}", value));
    }
    const std::string& text() const noexcept { return text_; }

  private:
    std::string text_;
};

/// Writes an entry on one line.
class LineWriter {
  public:
    LineWriter(const Entry& entry, const IntfText& interfaces) : interfaces_(&interfaces) {
        line_.addNumber(wordOf(entry.table), entry.key);
        std::visit(*this, entry.content);
    }

    const std::string& text() const noexcept { return line_.text(); }

    void operator()(const Mpls::LabelRoute& route) {
        addSet(route.setType, route.viaType, Mpls::impliedType(route.vias, route.tail.has_value()));
        if (route.owner != Mpls::RouteOwner::byHand) {
            line_.add("owner", textOf(route.owner));
        }
        if (route.preference != 0) {
            line_.addNumber("preference", route.preference);
        }
        if (route.flags != 0) {
            line_.addNumber("flags", route.flags);
        }
        if (route.tail) {
            line_.add("tail");
            addInterface(route.tail->intf());
        }
        addVias(route.vias, route.vias.size() > 1 || route.tail ? "nexthop" : "");
    }
    void operator()(const Mpls::Hardware::Route& route) {
        line_.addNumber("adjacency", route.adjacencyKey);
        line_.add(route.unprogrammed ? "unprogrammed" : "");
        line_.add(route.derived ? "derived" : "");
    }
    void operator()(const AdjacencyVias& adjacency) {
        addSet(adjacency.setType, adjacency.viaType, Mpls::impliedType(adjacency.vias, false));
        line_.add(adjacency.useBackups ? "use-backups" : "");
        addVias(adjacency.vias, adjacency.vias.size() > 1 ? "nexthop" : "");
        addVias(adjacency.backups, "backup");
    }
    void operator()(const MvpnVrfIntfId& vpn) { addInterface(vpn.intfId); }
    void operator()(const Damage& damage) { line_.add("corrupt:", damage.what); }

  private:
    /// What of a set of vias is not as usual.
    void addSet(Mpls::LfibViaSetType setType, Mpls::LfibViaType type, Mpls::LfibViaType implied) {
        line_.add(setType == Mpls::LfibViaSetType::multicast ? wordOf(setType) : "");
        if (type != implied) {
            line_.add("type", textOf(type));
        }
    }
    void addInterface(Lumo::IntfId intf) {
        if (Lumo::VlanIntfId::isVlanIntfId(intf)) {
            line_.addNumber("vlan", Lumo::VlanIntfId::vlanId(intf));
        } else if (!intf.empty()) {
            line_.add("dev", interfaces_->word(intf));
        }
    }
    void addVias(const std::vector<Mpls::WeightedVia>& vias, std::string_view start) {
        for (const Mpls::WeightedVia& via : vias) {
            line_.add(start);
            add(via);
        }
    }
    void add(const Mpls::WeightedVia& member) {
        const Mpls::Via& via = member.via;
        if (via.action() == Lumo::MplsLabelAction::swap) {
            line_.add("as to", labelText(via));
        } else if (via.action() != Lumo::MplsLabelAction::pop) {
            line_.add(textOf(via.action()), labelText(via));
        }
        if (via.nexthop().family() != Lumo::IpFamily::none) {
            const bool isIpv6 = via.nexthop().family() == Lumo::IpFamily::ipv6;
            line_.add(isIpv6 ? "via inet6" : "via inet", via.nexthop().text());
        }
        if (!via.intf().empty()) {
            line_.add("dev", interfaces_->word(via.intf()));
        }
        if (via.fec() != 0) {
            line_.addNumber("fec", via.fec());
        }
        if (member.weight != 1) {
            line_.addNumber("weight", member.weight);
        }
        addAttributes(via);
    }
    /// What of a via is not as usual. A lookup always says what is beneath.
    void addAttributes(const Mpls::Via& via) {
        const Mpls::ViaOptions options = via.options();
        if (via.isLookUp()) {
            line_.add("vrf", options.vrf.view());
            line_.add("payload", textOf(options.payload));
            return;
        }
        for (const ViaAttribute& attribute : viaAttributes()) {
            if (const auto value = attribute.text(options)) {
                line_.add(attribute.word, *value);
            }
        }
    }

    Line line_;
    const IntfText* interfaces_;
};

} // namespace

std::string_view IntfText::name(Lumo::IntfId intf) const noexcept {
    for (const Interface::Names& names : names_) {
        if (const std::string_view name = names.name(intf); !name.empty()) {
            return name;
        }
    }
    return {};
}

std::string IntfText::text(Lumo::IntfId intf) const {
    if (intf.empty()) {
        return {};
    }
    if (const std::string_view known = name(intf); !known.empty()) {
        return std::string(known);
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

std::string IntfText::word(Lumo::IntfId intf) const {
    const std::string_view known = name(intf);
    return !known.empty() && isPlain(known) ? std::string(known)
                                            : fmt::format("{:#018x}", intf.value());
}

std::string routeText(const Entry& entry, const IntfText& interfaces) {
    return LineWriter(entry, interfaces).text();
}

} // namespace OvixCtl
