#include "decoding/RouteReading.h"

#include <array>
#include <linux/rtnetlink.h>
#include <string>
#include <sys/socket.h>

#include "decoding/NextHopReading.h"
#include "decoding/RouteFields.h"

namespace OvixFpm {
namespace {

using Lumo::IpFamily;
using Lumo::IpGenAddr;

constexpr unsigned labelBits = 20;

struct RouteMessage {
    explicit RouteMessage(Bytes body)
        : header(readHead<rtmsg>(body, "route header")), attributes(body.subspan(sizeof(rtmsg))) {}

    rtmsg header;
    Attributes attributes;
};

RouteFamily familyOf(const RouteMessage& message) {
    switch (message.header.rtm_family) {
    case AF_MPLS:
        return RouteFamily::label;
    case AF_INET:
        return RouteFamily::ipv4;
    case AF_INET6:
        return RouteFamily::ipv6;
    default:
        throw Malformed("route of address family " + std::to_string(message.header.rtm_family));
    }
}

IncomingLabel labelOf(const RouteMessage& message) {
    const auto value = message.attributes.find(Fields::destination);
    if (!value) {
        throw Malformed("route of labels without RTA_DST");
    }
    sizeMustBe(Lumo::MplsLabelEntry::size, *value, Fields::destination);
    if (message.header.rtm_dst_len != labelBits) {
        throw Malformed("label of " + std::to_string(message.header.rtm_dst_len) +
                        " bits instead of 20");
    }
    return IncomingLabel(labelStack(*value, Fields::destination).front());
}

IpGenAddr prefixOf(const RouteMessage& message, IpFamily family) {
    if (const auto value = message.attributes.find(Fields::destination)) {
        return address(family, *value, Fields::destination);
    }
    if (message.header.rtm_dst_len != 0) {
        throw Malformed("prefix of length " + std::to_string(message.header.rtm_dst_len) +
                        " without RTA_DST");
    }
    return IpGenAddr(family); // the default route
}

std::uint32_t tableOf(const RouteMessage& message) {
    const std::uint32_t table =
        message.attributes.u32(Fields::table).value_or(message.header.rtm_table);
    return table == RT_TABLE_UNSPEC ? std::uint32_t{RT_TABLE_MAIN} : table;
}

/// A route that is not for all packets to its prefix must not be taken for one that is.
Destination destinationOf(const RouteMessage& message, RouteFamily family) {
    if (message.header.rtm_src_len != 0 || message.attributes.find(Fields::source)) {
        throw Malformed("route by source address");
    }
    if (message.header.rtm_tos != 0) {
        throw Malformed("route by type of service");
    }
    const auto ipFamily = family == RouteFamily::ipv4 ? IpFamily::ipv4 : IpFamily::ipv6;
    return {tableOf(message), prefixOf(message, ipFamily), message.header.rtm_dst_len};
}

std::optional<bool> ttlPropagationOf(const RouteMessage& message) {
    const auto value = message.attributes.u8(Fields::ttlPropagate);
    if (!value) {
        return std::nullopt;
    }
    if (*value > 1) {
        throw Malformed("RTA_TTL_PROPAGATE is " + std::to_string(*value));
    }
    return *value == 1;
}

LabelRoute labelRoute(const RouteMessage& message) {
    if (message.header.rtm_type != RTN_UNICAST) {
        throw Malformed("route of labels of type " + std::to_string(message.header.rtm_type));
    }
    return {labelOf(message), message.header.rtm_protocol,
            nextHopsOf(RouteFamily::label, message.attributes), ttlPropagationOf(message)};
}

RouteEnd endOf(const RouteMessage& message) {
    switch (message.header.rtm_type) {
    case RTN_BLACKHOLE:
        return RouteEnd::blackhole;
    case RTN_UNREACHABLE:
        return RouteEnd::unreachable;
    case RTN_PROHIBIT:
        return RouteEnd::prohibit;
    case RTN_LOCAL:
        return RouteEnd::local;
    default:
        throw Malformed("route of type " + std::to_string(message.header.rtm_type));
    }
}

PrefixRoute prefixRoute(const RouteMessage& message, RouteFamily family) {
    const Destination destination = destinationOf(message, family);
    if (message.header.rtm_type != RTN_UNICAST) {
        return {destination, message.header.rtm_protocol, endOf(message)};
    }
    return {destination, message.header.rtm_protocol, nextHopsOf(family, message.attributes)};
}

} // namespace

RouteChange newRoute(Bytes body) {
    const RouteMessage message(body);
    const RouteFamily family = familyOf(message);
    if (family == RouteFamily::label) {
        return labelRoute(message);
    }
    return prefixRoute(message, family);
}

RouteChange deletedRoute(Bytes body) {
    const RouteMessage message(body);
    const RouteFamily family = familyOf(message);
    if (family == RouteFamily::label) {
        return LabelWithdrawal{labelOf(message)};
    }
    return PrefixWithdrawal{destinationOf(message, family)};
}

} // namespace OvixFpm
