#include "route/ViaWords.h"

#include <fmt/format.h>

namespace OvixCtl {

namespace {

template <typename Enum>
std::string number(Enum value) {
    return fmt::format("{}", static_cast<unsigned>(value));
}

} // namespace

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

std::vector<std::uint32_t> labelsOf(const Ovix::OvixMplsVia& via) {
    const auto operation = via.labelOperation();
    std::vector<std::uint32_t> labels;
    labels.reserve(operation.depth());
    for (std::size_t i = 0; i < operation.depth(); ++i) {
        labels.push_back(operation.label(i).value());
    }
    return labels;
}

std::string labelText(const std::vector<std::uint32_t>& labels) {
    return fmt::format("{}", fmt::join(labels, "/"));
}

Attributes attributesOf(const Ovix::OvixMplsVia& via) {
    Attributes found;
    const auto add = [&](bool told, const char* key, std::string value) {
        if (told) {
            found.emplace_back(key, std::move(value));
        }
    };
    add(via.ttl() != Mpls::TtlMode::uniform, "ttl", wordOf(via.ttl()));
    add(via.trafficClass != via.trafficClassUntold, "tc", fmt::format("{}", via.trafficClass));
    add(via.pushTtl != 0, "push-ttl", fmt::format("{}", via.pushTtl));
    add(via.payload() != Mpls::PayloadType::automatic, "payload", wordOf(via.payload()));
    add(via.nexthopMtu != 0, "mtu", fmt::format("{}", via.nexthopMtu));
    add(via.nexthopVlan != 0, "vlan", fmt::format("{}", via.nexthopVlan));
    add(via.fecId() != 0, "fec", fmt::format("{}", via.fecId()));
    add(!via.vrfName.empty(), "vrf", std::string(via.vrfName.view()));
    add(via.controlWord, "control-word", {});
    return found;
}

} // namespace OvixCtl
