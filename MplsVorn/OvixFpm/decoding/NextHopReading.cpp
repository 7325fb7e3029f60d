#include <algorithm>
#include <cassert>
#include <limits>
#include <linux/lwtunnel.h>
#include <linux/mpls_iptunnel.h>
#include <linux/rtnetlink.h>
#include <string>
#include <sys/socket.h>

#include "decoding/RouteReading.h"

namespace OvixFpm {

using Lumo::IpFamily;
using Lumo::IpGenAddr;
using Lumo::MplsLabel;
using Lumo::MplsLabelEntry;

namespace {

namespace Fields {
constexpr Field nextHopGroup{RTA_NH_ID, "RTA_NH_ID"};
constexpr Field multipath{RTA_MULTIPATH, "RTA_MULTIPATH"};
// Of one next hop, in the message itself or in an entry of RTA_MULTIPATH.
constexpr Field interface { RTA_OIF, "RTA_OIF" };
constexpr Field gateway{RTA_GATEWAY, "RTA_GATEWAY"};
constexpr Field via{RTA_VIA, "RTA_VIA"};
constexpr Field newDestination{RTA_NEWDST, "RTA_NEWDST"};
constexpr Field encapType{RTA_ENCAP_TYPE, "RTA_ENCAP_TYPE"};
constexpr Field encap{RTA_ENCAP, "RTA_ENCAP"};
// Within RTA_ENCAP.
constexpr Field pushed{MPLS_IPTUNNEL_DST, "MPLS_IPTUNNEL_DST"};
} // namespace Fields

// All of the following throw Malformed.

IpGenAddr viaAddress(RouteFamily family, Bytes value) {
    const auto viaFamily = readHead<rtvia>(value, Fields::via.name).rtvia_family;
    const Bytes bytes = value.subspan(sizeof(rtvia));
    if (viaFamily == AF_INET6 && family != RouteFamily::ipv6) {
        return address(IpFamily::ipv6, bytes, Fields::via);
    }
    if (viaFamily == AF_INET && family != RouteFamily::ipv4) {
        return address(IpFamily::ipv4, bytes, Fields::via);
    }
    throw Malformed("RTA_VIA of address family " + std::to_string(viaFamily));
}

/// Of no family when there is none. Label routes have it in RTA_VIA; IP routes, too, when it is an
/// address of the other family (RFC 8950, RFC 4798), otherwise in RTA_GATEWAY.
IpGenAddr gatewayOf(RouteFamily family, const Attributes& attributes) {
    const auto gateway = attributes.find(Fields::gateway);
    const auto via = attributes.find(Fields::via);
    if (gateway && (via || family == RouteFamily::label)) {
        throw Malformed(via ? "next hop with both RTA_GATEWAY and RTA_VIA"
                            : "RTA_GATEWAY in a label route");
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

std::vector<MplsLabel> pushedLabels(const Attributes& attributes) {
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

std::vector<MplsLabel> labelsOf(RouteFamily family, const Attributes& attributes) {
    if (family != RouteFamily::label) {
        return pushedLabels(attributes);
    }
    const auto labels = attributes.find(Fields::newDestination);
    return labels ? labelStack(*labels, Fields::newDestination) : std::vector<MplsLabel>{};
}

NextHop nextHop(RouteFamily family, const Attributes& attributes, std::uint32_t interface,
                std::uint16_t weight) {
    assert(weight >= 1 && weight <= 256);
    NextHop hop{labelsOf(family, attributes), gatewayOf(family, attributes), interface, weight};
    if (hop.hasGateway() && hop.gateway.empty()) {
        throw Malformed("gateway is the unspecified address");
    }
    if (interface > std::numeric_limits<std::int32_t>::max()) {
        throw Malformed("interface index " + std::to_string(interface) +
                        " is more than 2147483647");
    }
    if (!hop.hasGateway() && interface == 0) {
        throw Malformed("next hop has neither gateway nor interface");
    }
    if (std::find(hop.labels.begin(), hop.labels.end(), Lumo::implicitNull) != hop.labels.end()) {
        throw Malformed("implicit null in a label stack");
    }
    return hop;
}

/// The weight of an entry is one more than rtnh_hops.
std::vector<NextHop> multipath(RouteFamily family, Bytes entries) {
    std::vector<NextHop> hops;
    while (!entries.empty()) {
        const auto header = readHead<rtnexthop>(entries, "next hop header");
        const std::size_t length = header.rtnh_len;
        if (length < sizeof(rtnexthop) || length > entries.size()) {
            throw Malformed("next hop " + std::to_string(hops.size() + 1) + " is " +
                            std::to_string(length) + " bytes long, of " +
                            std::to_string(entries.size()) + " that are left");
        }
        hops.push_back(nextHop(family, Attributes(entries.first(length).subspan(sizeof(rtnexthop))),
                               static_cast<std::uint32_t>(header.rtnh_ifindex),
                               static_cast<std::uint16_t>(header.rtnh_hops + 1)));
        entries = entries.subspan(std::min(entries.size(), std::size_t{RTNH_ALIGN(length)}));
    }
    if (hops.empty()) {
        throw Malformed("route without a next hop");
    }
    return hops;
}

} // namespace

std::vector<MplsLabel> labelStack(Bytes value, Field field) {
    const std::string name = field.name;
    if (value.empty() || value.size() % MplsLabelEntry::size != 0) {
        throw Malformed(name + " has " + std::to_string(value.size()) +
                        " bytes, which are not a label stack");
    }
    std::vector<MplsLabel> labels;
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
    assert(family != IpFamily::none);
    const bool isIpv4 = family == IpFamily::ipv4;
    checkSize(isIpv4 ? IpGenAddr::ipv4Size : IpGenAddr::ipv6Size, value, field);
    return isIpv4 ? IpGenAddr::ipv4(value.data()) : IpGenAddr::ipv6(value.data());
}

std::vector<NextHop> nextHopsOf(RouteFamily family, const Attributes& attributes) {
    if (const auto group = attributes.u32(Fields::nextHopGroup)) {
        throw Malformed("route through the next hop group " + std::to_string(*group) +
                        "; zebra needs \"no fpm use-next-hop-groups\"");
    }
    const auto entries = attributes.find(Fields::multipath);
    if (!entries) {
        const std::uint32_t interface = attributes.u32(Fields::interface).value_or(0);
        return {nextHop(family, attributes, interface, 1)};
    }
    for (const Field field : {Fields::interface, Fields::gateway, Fields::via,
                              Fields::newDestination, Fields::encapType, Fields::encap}) {
        if (attributes.find(field)) {
            throw Malformed(std::string("RTA_MULTIPATH and ") + field.name);
        }
    }
    return multipath(family, *entries);
}

} // namespace OvixFpm
