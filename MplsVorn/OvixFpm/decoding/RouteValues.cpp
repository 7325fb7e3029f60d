#include "decoding/RouteValues.h"

#include <linux/lwtunnel.h>
#include <linux/rtnetlink.h>
#include <string>
#include <sys/socket.h>

#include "decoding/RouteFields.h"

namespace OvixFpm {
namespace {

using Lumo::IpFamily;
using Lumo::IpGenAddr;
using Lumo::MplsLabelEntry;

IpGenAddr viaAddress(RouteFamily family, Bytes value) {
    const auto viaFamily = readHead<rtvia>(value, Fields::via.name).rtvia_family;
    const Bytes bytes = value.subspan(sizeof(rtvia));
    if (viaFamily == AF_INET6) {
        return address(IpFamily::ipv6, bytes, Fields::via);
    }
    if (viaFamily == AF_INET && family == RouteFamily::label) {
        return address(IpFamily::ipv4, bytes, Fields::via);
    }
    throw Malformed("RTA_VIA of address family " + std::to_string(viaFamily));
}

std::vector<Lumo::MplsLabel> pushedLabels(const Attributes& attributes) {
    const auto type = attributes.u16(Fields::encapType);
    const auto encap = attributes.find(Fields::encap);
    if (!type && !encap) {
        return {};
    }
    if (!type || !encap) {
        throw Malformed(type ? "RTA_ENCAP_TYPE without RTA_ENCAP"
                             : "RTA_ENCAP without RTA_ENCAP_TYPE");
    }
    if (*type != LWTUNNEL_ENCAP_MPLS) {
        throw Malformed("encapsulation of type " + std::to_string(*type) + " is not MPLS");
    }
    const auto labels = Attributes(*encap).find(Fields::pushed);
    if (!labels) {
        throw Malformed("RTA_ENCAP without MPLS_IPTUNNEL_DST");
    }
    return labelStack(*labels, Fields::pushed);
}

} // namespace

std::vector<Lumo::MplsLabel> labelStack(Bytes value, Field field) {
    const std::string name = field.name;
    if (value.empty() || value.size() % MplsLabelEntry::size != 0) {
        throw Malformed(name + " has " + std::to_string(value.size()) +
                        " bytes, which are no label stack");
    }
    std::vector<Lumo::MplsLabel> labels;
    labels.reserve(value.size() / MplsLabelEntry::size);
    for (std::size_t at = 0; at < value.size(); at += MplsLabelEntry::size) {
        const MplsLabelEntry entry = MplsLabelEntry::load(value.data() + at);
        if (entry.bos() != (at + MplsLabelEntry::size == value.size())) {
            throw Malformed(name + " has the bottom of the stack in the wrong place");
        }
        if (entry.tc() != 0 || entry.word().value() % 256 != 0) {
            throw Malformed(name + " has a label with a traffic class or TTL");
        }
        labels.push_back(entry.label());
    }
    return labels;
}

IpGenAddr address(IpFamily family, Bytes value, Field field) {
    const bool isIpv4 = family == IpFamily::ipv4;
    sizeMustBe(isIpv4 ? IpGenAddr::ipv4Size : IpGenAddr::ipv6Size, value, field);
    return isIpv4 ? IpGenAddr::ipv4(value.data()) : IpGenAddr::ipv6(value.data());
}

IpGenAddr gatewayOf(RouteFamily family, const Attributes& attributes) {
    const auto gateway = attributes.find(Fields::gateway);
    const auto via = attributes.find(Fields::via);
    if (gateway && (via || family == RouteFamily::label)) {
        throw Malformed(via ? "next hop with both RTA_GATEWAY and RTA_VIA"
                            : "RTA_GATEWAY in a route of labels");
    }
    if (via && family == RouteFamily::ipv6) {
        throw Malformed("RTA_VIA in an IPv6 route");
    }
    if (via) {
        return viaAddress(family, *via);
    }
    if (gateway) {
        return address(family == RouteFamily::ipv4 ? IpFamily::ipv4 : IpFamily::ipv6, *gateway,
                       Fields::gateway);
    }
    return {};
}

std::vector<Lumo::MplsLabel> labelsOf(RouteFamily family, const Attributes& attributes) {
    if (family != RouteFamily::label) {
        return pushedLabels(attributes);
    }
    const auto labels = attributes.find(Fields::newDestination);
    return labels ? labelStack(*labels, Fields::newDestination) : std::vector<Lumo::MplsLabel>{};
}

} // namespace OvixFpm
