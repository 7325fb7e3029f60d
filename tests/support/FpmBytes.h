#pragma once

#include <cstring>
#include <linux/lwtunnel.h>
#include <linux/mpls_iptunnel.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include "FrameBytes.h"

/// What zebra's FPM client sends, put together by hand. Netlink is in the byte order of the
/// machine, the frame around it, labels and addresses in that of the network.
namespace TestSupport::Fpm {

using Raw::Bytes;
using Raw::join;

inline Bytes host(const void* value, std::size_t size) {
    Bytes bytes(size);
    std::memcpy(bytes.data(), value, size);
    return bytes;
}

inline Bytes host16(std::uint16_t value) {
    return host(&value, sizeof value);
}

inline Bytes host32(std::uint32_t value) {
    return host(&value, sizeof value);
}

/// Up to a multiple of four, with bytes that are no part of anything.
inline Bytes padded(Bytes bytes) {
    bytes.resize((bytes.size() + 3) / 4 * 4, 0xa5);
    return bytes;
}

inline Bytes attribute(std::uint16_t type, const Bytes& value) {
    return padded(
        join({host16(static_cast<std::uint16_t>(4 + value.size())), host16(type), value}));
}

inline Bytes nested(std::uint16_t type, const Bytes& value) {
    return attribute(static_cast<std::uint16_t>(type | NLA_F_NESTED), value);
}

/// Labels as routes have them: TC and TTL zero, the last one marked as the bottom.
inline Bytes labels(const std::vector<std::uint32_t>& values) {
    std::vector<Raw::Entry> entries;
    for (const std::uint32_t value : values) {
        entries.push_back({value, 0, 0});
    }
    return Raw::stack(entries);
}

inline Bytes v4(std::uint32_t address) {
    return Raw::u32(address);
}

/// 2001:db8::LAST, 2001:db8:GROUP:: with a group.
inline Bytes v6(std::uint8_t last, std::uint8_t group = 0) {
    Bytes bytes = Raw::ipv6Address(last);
    bytes[5] = group;
    return bytes;
}

inline Bytes via(std::uint16_t family, const Bytes& address) {
    return attribute(RTA_VIA, join({host16(family), address}));
}

inline Bytes interface(std::uint32_t index) {
    return attribute(RTA_OIF, host32(index));
}

/// The encapsulation that pushes labels.
inline Bytes push(const std::vector<std::uint32_t>& values) {
    return join({attribute(RTA_ENCAP_TYPE, host16(LWTUNNEL_ENCAP_MPLS)),
                 nested(RTA_ENCAP, attribute(MPLS_IPTUNNEL_DST, labels(values)))});
}

/// One entry of RTA_MULTIPATH.
inline Bytes pathEntry(std::uint8_t hops, std::uint32_t index, const Bytes& attributes) {
    return padded(join({host16(static_cast<std::uint16_t>(8 + attributes.size())),
                        {0, hops},
                        host32(index),
                        attributes}));
}

struct RouteHead {
    std::uint8_t family = AF_INET;
    std::uint8_t length = 24;
    std::uint8_t type = RTN_UNICAST;
    std::uint8_t table = RT_TABLE_MAIN;
    std::uint8_t protocol = 196;
    std::uint8_t sourceLength = 0;
    std::uint8_t tos = 0;
};

inline Bytes route(const RouteHead& head, const Bytes& attributes) {
    return join({{head.family, head.length, head.sourceLength, head.tos, head.table, head.protocol,
                  RT_SCOPE_UNIVERSE, head.type},
                 host32(0),
                 attributes});
}

inline Bytes message(std::uint16_t type, const Bytes& body) {
    return padded(join({host32(static_cast<std::uint32_t>(16 + body.size())), host16(type),
                        host16(NLM_F_REQUEST | NLM_F_CREATE), host32(0), host32(4711), body}));
}

inline Bytes newRoute(const RouteHead& head, const Bytes& attributes) {
    return message(RTM_NEWROUTE, route(head, attributes));
}

inline Bytes deletedRoute(const RouteHead& head, const Bytes& attributes) {
    return message(RTM_DELROUTE, route(head, attributes));
}

inline Bytes frame(const Bytes& messages, std::uint8_t version = 1, std::uint8_t type = 1) {
    return join(
        {{version, type}, Raw::u16(static_cast<std::uint32_t>(4 + messages.size())), messages});
}

} // namespace TestSupport::Fpm
