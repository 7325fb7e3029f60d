#include "State/RoadSteps.h"

#include <algorithm>
#include <fmt/format.h>
#include <numeric>

#include "State/PseudowirePayload.h"
#include "Wire/ControlWord.h"
#include "Wire/Ethernet.h"
#include "Wire/Ip.h"
#include "Wire/LabelStack.h"
#include "Wire/Transport.h"

namespace OvixAgent {

using Ovix::field;
using Ovix::PktHdrType;
using Ovix::RoadNotes;

std::string macText(const Lumo::EthAddr& mac) {
    return fmt::format("{:02x}", fmt::join(mac, ":"));
}

namespace {

std::string portsText(std::uint8_t protocol, bool isFirstFragment, Wire::Bytes upper) {
    const bool hasPorts = protocol == Wire::IpProtocol::udp || protocol == Wire::IpProtocol::tcp;
    if (!hasPorts || !isFirstFragment || upper.size() < 4) {
        return fmt::format("protocol {}", protocol);
    }
    const char* const name = protocol == Wire::IpProtocol::udp ? "UDP" : "TCP";
    return fmt::format("{} {} > {}", name, Lumo::NetU16::load(upper.data()).value(),
                       Lumo::NetU16::load(upper.data() + 2).value());
}

std::string ipText(Wire::Bytes bytes) {
    if (const Wire::Ipv4 header(bytes); header) {
        const Wire::UpperLayer upper = upperLayer(header);
        const Wire::Bytes behind = bytes.subspan(std::min(upper.offset, bytes.size()));
        return fmt::format("IPv4 {} > {}, TTL {}, {}", header.source().text(),
                           header.destination().text(), header.ttl(),
                           portsText(upper.protocol, upper.isFirstFragment, behind));
    }
    if (const Wire::Ipv6 header(bytes); header) {
        const Wire::UpperLayer upper = Wire::ipv6UpperLayer(bytes);
        const Wire::Bytes behind = bytes.subspan(std::min(upper.offset, bytes.size()));
        return fmt::format(
            "IPv6 {} > {}, hop limit {}, {}", header.source().text(), header.destination().text(),
            header.hopLimit(),
            portsText(upper.protocol, upper.isFirstFragment && upper.isWhole, behind));
    }
    return fmt::format("{} bytes", bytes.size());
}

std::string ethernetText(Wire::Bytes bytes) {
    const Wire::Ethernet header(bytes);
    return header ? fmt::format("Ethernet {} > {}, type {:#06x}", macText(header.source()),
                                macText(header.destination()), header.etherType())
                  : fmt::format("{} bytes", bytes.size());
}

std::string behindControlWordText(Wire::Bytes payload) {
    return fmt::format("control word {:02x}, {}",
                       fmt::join(payload.first(Wire::ControlWord::size), ""),
                       ethernetText(payload.subspan(Wire::ControlWord::size)));
}

/// Of what a label stack is on top of.
std::string beneathLabelsText(Wire::Bytes payload) {
    const Wire::ControlWord word(payload);
    if (isIpPayload(payload)) {
        return ipText(payload);
    }
    if (word && word.isAssociatedChannel()) {
        return fmt::format("associated channel, {} bytes", payload.size());
    }
    switch (payloadSigns(payload)) {
    case PayloadSigns::controlWord:
        return behindControlWordText(payload);
    case PayloadSigns::ethernet:
        return ethernetText(payload);
    case PayloadSigns::unknown:
        break;
    }
    return fmt::format("{} bytes", payload.size());
}

} // namespace

std::string headersText(PktHdrType first, Wire::Bytes bytes) {
    if (first == PktHdrType::eth) {
        return ethernetText(bytes);
    }
    if (first != PktHdrType::mpls) {
        return ipText(bytes);
    }
    std::string text;
    Wire::LabelWalk walk(bytes);
    for (Lumo::MplsLabelEntry entry; walk.next(entry);) {
        text += fmt::format("label {} TC {} TTL {}{}, ", entry.label().value(), entry.tc(),
                            entry.ttl(), entry.bos() ? " S" : "");
    }
    return text + beneathLabelsText(walk.rest());
}

namespace RoadSteps {

void takenIn(const Port& port, std::size_t tagsRemoved) {
    RoadNotes::add("port", field("port", port.name), field("tagsRemoved", tagsRemoved),
                   field("vrf", port.vrf.view()));
}

void nexthop(const Ovix::RoutingNexthop& nexthop, const PortTable& ports) {
    const Port* const port = ports.byIntfId(nexthop.intfId());
    const std::string name = nexthop.isCpuTrapNexthop() ? "cpu"
                             : port != nullptr          ? port->name
                             : nexthop.intfId().empty()
                                 ? ""
                                 : fmt::format("{:#018x}", nexthop.intfId().value());
    RoadNotes::add("nexthop", field("interface", name), field("address", nexthop.address().text()),
                   field("vrf", nexthop.vrfName().view()), field("mtu", nexthop.mtu()),
                   field("vlan", nexthop.vlanId()));
}

void headers(std::string_view when, const Ovix::PacketContext& packet) {
    RoadNotes::add("headers", field("when", when),
                   field("headers", headersText(packet.outerType(), packet.pkt()->data())));
}

void payload(std::string_view when, Wire::Bytes payload, bool hasControlWord) {
    const Wire::ControlWord word(payload);
    RoadNotes::add("headers", field("when", when),
                   field("headers", !hasControlWord || !word ? ethernetText(payload)
                                    : word.isData()          ? behindControlWordText(payload)
                                                             : beneathLabelsText(payload)));
}

void route(std::string_view vrf, const Fib& fib, const Lumo::IpGenAddr& address) {
    const IpRoute* const found = fib.find(address);
    const auto shown = found != nullptr ? fib.shownAt(fib.numberOf(address)) : std::nullopt;
    const std::string prefix =
        shown ? fmt::format("{}/{}", shown->prefix.address().text(), shown->prefix.length()) : "";
    const std::string_view kind = found == nullptr   ? "none"
                                  : found->isLocal() ? "local"
                                  : found->drops()   ? found->dropReason()
                                                     : "forward";
    RoadNotes::add("route", field("vrf", vrf), field("address", address.text()),
                   field("prefix", prefix), field("kind", kind));
}

void choice(std::string_view of, std::size_t chosen, std::uint32_t hash,
            std::span<const std::uint64_t> weights) {
    const auto total = std::accumulate(weights.begin(), weights.end(), std::uint64_t{0});
    RoadNotes::add("choice", field("of", of), field("via", chosen + 1),
                   field("vias", weights.size()), field("hash", hash), field("total", total),
                   field("weights", fmt::format("{}", fmt::join(weights, ":"))));
}

void neighbour(const Lumo::IpGenAddr& address, const Port& port, const Lumo::EthAddr* mac) {
    RoadNotes::add("neighbour", field("address", address.text()), field("port", port.name),
                   field("mac", mac != nullptr ? macText(*mac) : ""));
}

void controlWord(Wire::Bytes payload, bool isExpected) {
    const auto etherTypeAt = [&](std::size_t start) {
        const Wire::Ethernet header(payload.subspan(std::min(start, payload.size())));
        return header ? header.etherType() : std::uint16_t{0};
    };
    RoadNotes::add("controlWord", field("expected", isExpected ? "yes" : "no"),
                   field("nibble", payload.empty() ? 0U : payload.front() >> 4U),
                   field("bytes", payload.size()), field("etherType", etherTypeAt(0)),
                   field("etherTypeBehind", etherTypeAt(Wire::ControlWord::size)));
}

void mtu(const Port& port, std::size_t length, std::uint32_t mtu) {
    RoadNotes::add("mtu", field("port", port.name), field("length", length), field("mtu", mtu),
                   field("portMtu", port.mtu), field("up", port.isUp ? "yes" : "no"));
}

void waits(const Lumo::IpGenAddr& neighbour, const Port& port, std::chrono::seconds longest) {
    RoadNotes::add("waits", field("address", neighbour.text()), field("port", port.name),
                   field("seconds", longest.count()));
}

void fate(const Fate& fate) {
    const bool isWaiting = fate.kind == FateKind::forwarded && !fate.reason.empty();
    RoadNotes::add("fate", field("fate", isWaiting ? "waiting" : Tessel::wordOf(fate.kind)),
                   field("reason", fate.reason));
}

} // namespace RoadSteps

} // namespace OvixAgent
