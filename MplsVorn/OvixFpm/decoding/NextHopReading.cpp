#include "decoding/NextHopReading.h"

#include <algorithm>
#include <linux/rtnetlink.h>
#include <string>
#include <utility>

#include "decoding/RouteFields.h"

namespace OvixFpm {
namespace {

NextHop nextHop(RouteFamily family, const Attributes& attributes, std::uint32_t interface,
                std::uint16_t weight) {
    return {labelsOf(family, attributes), Way(gatewayOf(family, attributes), interface), weight};
}

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
    return hops;
}

void refuseOutside(const Attributes& attributes) {
    for (const Field field : {Fields::interface, Fields::gateway, Fields::via,
                              Fields::newDestination, Fields::encapType, Fields::encap}) {
        if (attributes.find(field)) {
            throw Malformed(std::string("RTA_MULTIPATH and ") + field.name);
        }
    }
}

} // namespace

NextHops nextHopsOf(RouteFamily family, const Attributes& attributes) {
    if (const auto group = attributes.u32(Fields::nextHopGroup)) {
        throw Malformed("route through the next hop group " + std::to_string(*group) +
                        "; zebra needs \"no fpm use-next-hop-groups\"");
    }
    if (const auto entries = attributes.find(Fields::multipath)) {
        refuseOutside(attributes);
        return NextHops(multipath(family, *entries));
    }
    const std::uint32_t interface = attributes.u32(Fields::interface).value_or(0);
    return NextHops({nextHop(family, attributes, interface, 1)});
}

} // namespace OvixFpm
