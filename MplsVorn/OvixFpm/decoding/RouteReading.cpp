#include "decoding/RouteReading.h"

#include <linux/rtnetlink.h>
#include <string>
#include <sys/socket.h>

#include "Mpls/LabelRoute.h"

namespace OvixFpm {

namespace {

using Lumo::IpFamily;
using Lumo::IpGenAddr;
using Lumo::MplsLabel;
using Lumo::MplsLabelEntry;

/// The attributes of a route message that are read, beside those of its next hops; all others have
/// no effect.
constexpr Field source{RTA_SRC, "RTA_SRC"};
constexpr Field tableField{RTA_TABLE, "RTA_TABLE"};
constexpr Field ttlPropagate{RTA_TTL_PROPAGATE, "RTA_TTL_PROPAGATE"};
constexpr Field destinationField{RTA_DST, "RTA_DST"};

// All of the following throw Malformed.

struct RouteMessage {
    explicit RouteMessage(Bytes body)
        : header(readHead<rtmsg>(body, "route header")), attributes(body.subspan(sizeof(rtmsg))) {}

    RouteFamily family() const {
        switch (header.rtm_family) {
        case AF_MPLS:
            return RouteFamily::label;
        case AF_INET:
            return RouteFamily::ipv4;
        case AF_INET6:
            return RouteFamily::ipv6;
        default:
            throw Malformed("route of address family " + std::to_string(header.rtm_family));
        }
    }

    rtmsg header;
    Attributes attributes;
};

MplsLabel labelOf(const RouteMessage& message) {
    constexpr unsigned labelBits = 20;
    const auto value = message.attributes.find(destinationField);
    if (!value) {
        throw Malformed("label route without RTA_DST");
    }
    checkSize(MplsLabelEntry::size, *value, destinationField);
    if (message.header.rtm_dst_len != labelBits) {
        throw Malformed("label of " + std::to_string(message.header.rtm_dst_len) +
                        " bits instead of 20");
    }
    const MplsLabel label = labelStack(*value, destinationField).front();
    if (const auto legal = Mpls::checkRouteLabel(label); !legal) {
        throw Malformed(legal.refused().what);
    }
    return label;
}

/// The default route has no RTA_DST.
IpGenAddr prefixOf(const RouteMessage& message, IpFamily family) {
    if (const auto value = message.attributes.find(destinationField)) {
        return address(family, *value, destinationField);
    }
    if (message.header.rtm_dst_len != 0) {
        throw Malformed("prefix of length " + std::to_string(message.header.rtm_dst_len) +
                        " without RTA_DST");
    }
    return IpGenAddr(family);
}

void checkPrefix(const IpGenAddr& prefix, std::uint8_t length) {
    const auto& bytes = prefix.bytes();
    const std::size_t bits = prefix.family() == IpFamily::ipv4 ? 32 : 128;
    if (length > bits) {
        throw Malformed("prefix length " + std::to_string(length) + " is more than " +
                        std::to_string(bits));
    }
    for (std::size_t bit = length; bit < bits; ++bit) {
        if ((bytes[bit / 8] & (0x80U >> (bit % 8))) != 0) {
            throw Malformed("prefix " + prefix.text() + "/" + std::to_string(length) +
                            " has bits beyond its length");
        }
    }
}

std::uint32_t tableOf(const RouteMessage& message) {
    const std::uint32_t table =
        message.attributes.u32(tableField).value_or(message.header.rtm_table);
    return table == RT_TABLE_UNSPEC ? std::uint32_t{RT_TABLE_MAIN} : table;
}

L3::RouteKey prefixKeyOf(const RouteMessage& message, RouteFamily family) {
    // A route that is not for all packets to its prefix must not be taken for one that is.
    if (message.header.rtm_src_len != 0 || message.attributes.find(source)) {
        throw Malformed("route by source address");
    }
    if (message.header.rtm_tos != 0) {
        throw Malformed("route by type of service");
    }
    const auto ipFamily = family == RouteFamily::ipv4 ? IpFamily::ipv4 : IpFamily::ipv6;
    const L3::RouteKey key{tableOf(message), prefixOf(message, ipFamily),
                           message.header.rtm_dst_len};
    checkPrefix(key.prefix, key.length);
    return key;
}

Destination destinationOf(const RouteMessage& message, RouteFamily family) {
    return family == RouteFamily::label ? Destination(labelOf(message))
                                        : prefixKeyOf(message, family);
}

std::optional<bool> ttlPropagationOf(const RouteMessage& message) {
    const auto value = message.attributes.u8(ttlPropagate);
    if (value && *value > 1) {
        throw Malformed("RTA_TTL_PROPAGATE is " + std::to_string(*value));
    }
    return value ? std::optional(*value == 1) : std::nullopt;
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

RouteChange newRoute(const RouteMessage& message) {
    const RouteFamily family = message.family();
    const bool isLabel = family == RouteFamily::label;
    const bool isUnicast = message.header.rtm_type == RTN_UNICAST;
    if (isLabel && !isUnicast) {
        throw Malformed("label route of type " + std::to_string(message.header.rtm_type));
    }
    RouteChange change{destinationOf(message, family), Route{}};
    change.route->protocol = message.header.rtm_protocol;
    if (isUnicast) {
        change.route->nextHops = nextHopsOf(family, message.attributes);
    } else {
        change.route->end = endOf(message);
    }
    if (isLabel) {
        change.route->ttlPropagated = ttlPropagationOf(message);
    }
    return change;
}

template <class Read>
Tessel::Result<RouteChange> readRoute(Bytes body, Read&& read) {
    try {
        return read(RouteMessage(body));
    } catch (const Malformed& malformed) {
        return Tessel::Refused{malformed.what()};
    }
}

} // namespace

Tessel::Result<RouteChange> readNewRoute(Bytes body) {
    return readRoute(body, newRoute);
}

Tessel::Result<RouteChange> readDeletedRoute(Bytes body) {
    return readRoute(body, [](const RouteMessage& message) {
        return RouteChange{destinationOf(message, message.family()), std::nullopt};
    });
}

} // namespace OvixFpm
