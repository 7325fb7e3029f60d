#include "Explain/StepTexts.h"

#include <array>
#include <charconv>
#include <fmt/format.h>

#include "Ovix/trace/NamedCounters.h"
#include "Published/InterfaceNames.h"
#include "Tessel/Exceptions.h"
#include "Tessel/Fib/FecId.h"

namespace OvixAgent {

namespace {

using Step = Explanation::Step;
using Ovix::RoadNote;

const std::string& text(const RoadNote& note, std::string_view name) {
    static const std::string none;
    const std::string* const value = note.value(name);
    return value != nullptr ? *value : none;
}

std::uint64_t number(std::string_view digits) {
    std::uint64_t value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return value;
}
std::uint64_t number(const RoadNote& note, std::string_view name) {
    return number(std::string_view(text(note, name)));
}

/// " dev east", and what is wrong with that port.
std::pair<std::string, const char*> portText(Lumo::IntfId intf, const TrialRouter& router) {
    if (intf.empty() || Tessel::Fib::FecId::isHierarchicalIntfId(intf)) {
        return {"", ""};
    }
    if (const Port* const port = router.tables().ports.byIntfId(intf)) {
        return {" dev " + port->name, port->isUp ? "" : ", whose port is down"};
    }
    const auto names = Interface::Names::read(*router.published().reader());
    const std::string name(names.name(intf));
    return {" dev " + (name.empty() ? fmt::format("{:#018x}", intf.value()) : name),
            ", which is no port of this router"};
}

/// "swap 200/300 via 10.0.2.2 dev east weight 3".
std::string viaText(const Mpls::WeightedVia& weighted, const TrialRouter& router) {
    const Mpls::Via& via = weighted.via;
    if (via.isLookUp()) {
        const auto vrf = via.options().vrf;
        return fmt::format("pop, and look up in VRF {}",
                           vrf.view().empty() ? L3::defaultVrf : vrf.view());
    }
    std::string labels;
    for (const Lumo::MplsLabel label : via.labels()) {
        labels += (labels.empty() ? " " : "/") + label.prettyString();
    }
    const auto [dev, wrong] = portText(via.intf(), router);
    const bool hasAddress = via.nexthop().family() != Lumo::IpFamily::none;
    return fmt::format("{}{}{}{}{}{}{}", Tessel::textOf(via.action()), labels,
                       hasAddress ? " via " + via.nexthop().text() : "", dev,
                       via.fec() != 0 ? fmt::format(" toward FEC {}", via.fec()) : "",
                       weighted.weight != 1 ? fmt::format(" weight {}", weighted.weight) : "",
                       wrong);
}

std::vector<std::string> viaTexts(const std::vector<Mpls::WeightedVia>& vias,
                                  const TrialRouter& router, const char* what) {
    std::vector<std::string> all;
    for (const Mpls::WeightedVia& via : vias) {
        all.push_back(what + viaText(via, router));
    }
    return all;
}

/// What the table has for the label; or why that cannot be read.
std::vector<std::string> recordTexts(const RoadNote& note, const TrialRouter& router) {
    const auto table = *Tessel::valueOf<Mpls::TableId>(text(note, "table"));
    if (Mpls::isLfib(table)) {
        const auto route = Mpls::readLabelRoute(
            *router.published().lfib(table), table,
            Lumo::MplsLabel(static_cast<std::uint32_t>(number(note, "label"))));
        return route ? viaTexts(route.value().vias, router, "") : std::vector{route.refused().what};
    }
    const auto adjacency = router.published().hardware()->adjacency(number(note, "adjacency"));
    if (!adjacency) {
        return {};
    }
    const auto content = adjacency->content();
    if (!content) {
        return {content.refused().what};
    }
    std::vector<std::string> all = viaTexts(content.value().vias, router, "");
    for (std::string& backup : viaTexts(content.value().backups, router, "backup: ")) {
        all.push_back(std::move(backup));
    }
    return all;
}

void describePort(const RoadNote& note, const TrialRouter&, Step& step) {
    const std::uint64_t tags = number(note, "tagsRemoved");
    step.text = fmt::format("comes in at {}, VRF {}{}", text(note, "port"), text(note, "vrf"),
                            tags > 0 ? fmt::format(", without {} of its tags", tags) : "");
}

void describeTable(const RoadNote& note, const TrialRouter& router, Step& step) {
    const std::string& found = text(note, "found");
    const std::string adjacency = fmt::format(", adjacency {}", text(note, "adjacency"));
    step.text = fmt::format("label {} in table {}: {}", text(note, "label"), text(note, "table"),
                            found == "no"        ? "no route"
                            : found == "yes"     ? "found"
                            : found == "backups" ? "found, forwarded by the backups"
                                                 : found);
    if (found != "no") {
        step.text += text(note, "table") == "hardware" ? adjacency : "";
        try {
            step.details = recordTexts(note, router);
        } catch (const Tessel::CorruptionDetected& damage) {
            step.details = {damage.what()};
        }
    }
}

void describeChoice(const RoadNote& note, const TrialRouter&, Step& step) {
    const std::uint64_t total = number(note, "total");
    const std::string label = text(note, "label");
    step.text = fmt::format("{}: via {} of {}, since hash {} modulo {} is {}",
                            label.empty() ? text(note, "of") : "label " + label, text(note, "via"),
                            text(note, "vias"), text(note, "hash"), total,
                            total > 0 ? number(note, "hash") % total : 0);
    std::string_view weights = text(note, "weights");
    for (std::size_t i = 0; total > 0 && !weights.empty(); ++i) {
        const std::string_view weight = weights.substr(0, weights.find(':'));
        step.details.push_back(
            fmt::format("via {}: weight {}, {:.1f} % of the flows", i + 1, weight,
                        100.0 * static_cast<double>(number(weight)) / static_cast<double>(total)));
        weights.remove_prefix(std::min(weight.size() + 1, weights.size()));
    }
}

std::string egressText(const std::string& interface) {
    std::uint64_t value = 0;
    if (interface.starts_with("0x")) {
        std::from_chars(interface.data() + 2, interface.data() + interface.size(), value, 16);
    }
    const Lumo::IntfId intf = Lumo::IntfId::fromValue(value);
    return Tessel::Fib::FecId::isHierarchicalIntfId(intf) ? fmt::format("toward FEC {}", intf.id())
           : interface.empty()                            ? "by routing"
                                                          : "dev " + interface;
}

void describeNexthop(const RoadNote& note, const TrialRouter&, Step& step) {
    const auto part = [&](const char* name, const char* word) {
        const std::string& value = text(note, name);
        return value.empty() || value == "0" ? "" : fmt::format(", {} {}", word, value);
    };
    if (text(note, "interface") == "cpu") {
        step.text = "goes to the CPU as it was received";
        return;
    }
    step.text = fmt::format("next hop: {}{}{}{}{}", egressText(text(note, "interface")),
                            part("address", "address"), part("vrf", "VRF"), part("mtu", "MTU"),
                            part("vlan", "VLAN"));
}

void describeHeaders(const RoadNote& note, const TrialRouter&, Step& step) {
    const std::string& when = text(note, "when");
    step.text = fmt::format("{}: {}",
                            when == "received"    ? "before"
                            : when == "rewritten" ? "rewritten"
                                                  : "leaves as",
                            text(note, "headers"));
}

void describeRoute(const RoadNote& note, const TrialRouter&, Step& step) {
    const std::string& kind = text(note, "kind");
    step.text = kind == "none" ? fmt::format("VRF {}: no route to {}", text(note, "vrf"),
                                             text(note, "address"))
                               : fmt::format("VRF {}: {} is reached by {}{}", text(note, "vrf"),
                                             text(note, "address"), text(note, "prefix"),
                                             kind == "forward" ? ""
                                             : kind == "local" ? ", this router itself"
                                                               : ": " + kind);
}

void describeNeighbour(const RoadNote& note, const TrialRouter&, Step& step) {
    const std::string& mac = text(note, "mac");
    const std::string& address = text(note, "address");
    step.text = fmt::format("neighbour {} on {}: {}", address.empty() ? "(the only one)" : address,
                            text(note, "port"), mac.empty() ? "not known" : mac);
}

void describeWait(const RoadNote& note, const TrialRouter&, Step& step) {
    step.text = fmt::format("waits for neighbour {} on {}, {} s at the most", text(note, "address"),
                            text(note, "port"), text(note, "seconds"));
}

void describeControlWord(const RoadNote& note, const TrialRouter&, Step& step) {
    step.text = text(note, "expected") == "yes"
                    ? fmt::format("control word: the first nibble is {}", text(note, "nibble"))
                    : "no control word";
}

void describeMtu(const RoadNote& note, const TrialRouter&, Step& step) {
    const bool isTooLong = number(note, "length") > number(note, "mtu");
    step.text = fmt::format("{}: {} bytes {} MTU {}, the port is {}", text(note, "port"),
                            text(note, "length"), isTooLong ? "exceed" : "fit", text(note, "mtu"),
                            text(note, "up") == "yes" ? "up" : "down");
}

void describeAnswer(const RoadNote& note, const TrialRouter&, Step& step) {
    const std::string& code = text(note, "code");
    const std::string& depth = text(note, "depth");
    const std::string& fec = text(note, "fec");
    step.text = "answer: " + text(note, "answer");
    if (!code.empty()) {
        step.details = {fmt::format("return code {}: {}{}{}", code, text(note, "meaning"),
                                    depth == "0" ? "" : ", depth " + depth,
                                    fec.empty() ? "" : ", FEC " + fec)};
    }
}

void describeReply(const RoadNote& note, const TrialRouter&, Step& step) {
    const std::string& fate = text(note, "fate");
    const std::string& port = text(note, "port");
    step.text =
        port.empty()
            ? fmt::format("the answer goes nowhere: {}, {}", fate, text(note, "reason"))
            : fmt::format("the answer is {} by {}, {} bytes", fate, port, text(note, "length"));
    if (fate == "waiting") {
        step.text = "the answer waits for its neighbour";
    }
}

using Describe = void (*)(const RoadNote& note, const TrialRouter& router, Step& step);
constexpr std::array<std::pair<std::string_view, Describe>, 12> descriptions{{
    {"port", describePort},
    {"table", describeTable},
    {"choice", describeChoice},
    {"nexthop", describeNexthop},
    {"headers", describeHeaders},
    {"route", describeRoute},
    {"neighbour", describeNeighbour},
    {"waits", describeWait},
    {"controlWord", describeControlWord},
    {"mtu", describeMtu},
    {"answer", describeAnswer},
    {"reply", describeReply},
}};

} // namespace

std::vector<Step> stepsOf(const Walk& walk, const TrialRouter& router) {
    std::vector<Step> steps;
    for (const RoadNote& note : walk.notes) {
        for (const auto& [kind, describe] : descriptions) {
            if (note.step == kind) {
                Step& step = steps.emplace_back();
                step.kind = std::string(kind);
                step.note = note;
                describe(note, router, step);
            }
        }
    }
    return steps;
}

} // namespace OvixAgent
