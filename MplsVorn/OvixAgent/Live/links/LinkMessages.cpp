#include "Live/links/LinkMessages.h"

#include <algorithm>
#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <span>

namespace OvixAgent {

namespace {

using Reach = NeighbourState::Reach;

std::span<const std::uint8_t> payload(const nlattr& attribute) {
    return {static_cast<const std::uint8_t*>(mnl_attr_get_payload(&attribute)),
            mnl_attr_get_payload_len(&attribute)};
}

std::optional<Lumo::EthAddr> readMac(const nlattr& attribute) {
    Lumo::EthAddr mac{};
    const std::span<const std::uint8_t> bytes = payload(attribute);
    if (bytes.size() != mac.size()) {
        return std::nullopt;
    }
    std::copy(bytes.begin(), bytes.end(), mac.begin());
    return mac;
}

std::string readName(const nlattr& attribute) {
    const std::span<const std::uint8_t> bytes = payload(attribute);
    return {bytes.begin(), std::find(bytes.begin(), bytes.end(), std::uint8_t{0})};
}

int takeLinkAttribute(const nlattr* attribute, void* to) {
    LinkState& link = *static_cast<LinkState*>(to);
    switch (mnl_attr_get_type(attribute)) {
    case IFLA_IFNAME:
        link.name = readName(*attribute);
        break;
    case IFLA_ADDRESS:
        link.mac = readMac(*attribute).value_or(Lumo::EthAddr{});
        break;
    case IFLA_MTU:
        if (mnl_attr_get_payload_len(attribute) == sizeof link.mtu) {
            link.mtu = mnl_attr_get_u32(attribute);
        }
        break;
    default:
        break;
    }
    return MNL_CB_OK;
}

struct NeighbourAttributes {
    std::span<const std::uint8_t> address;
    std::optional<Lumo::EthAddr> mac;
};

int takeNeighbourAttribute(const nlattr* attribute, void* to) {
    NeighbourAttributes& found = *static_cast<NeighbourAttributes*>(to);
    switch (mnl_attr_get_type(attribute)) {
    case NDA_DST:
        found.address = payload(*attribute);
        break;
    case NDA_LLADDR:
        found.mac = readMac(*attribute);
        break;
    default:
        break;
    }
    return MNL_CB_OK;
}

/// What the kernel maps without asking, groups above all (224.0.0.0/4, ff00::/8, broadcasts), is no
/// neighbour: nobody is there to send a frame to.
Reach readReach(std::uint16_t state) {
    if ((state & (NUD_PERMANENT | NUD_REACHABLE | NUD_DELAY | NUD_PROBE)) != 0) {
        return Reach::confirmed;
    }
    if ((state & NUD_STALE) != 0) {
        return Reach::stale;
    }
    if ((state & NUD_FAILED) != 0) {
        return Reach::failed;
    }
    return (state & NUD_INCOMPLETE) != 0 ? Reach::asked : Reach::unknown;
}

/// Null when the message is too short for its fixed part.
template <typename Fixed>
const Fixed* fixedPart(const nlmsghdr& message) {
    return mnl_nlmsg_get_payload_len(&message) >= sizeof(Fixed)
               ? static_cast<const Fixed*>(mnl_nlmsg_get_payload(&message))
               : nullptr;
}

} // namespace

// The library's own walk takes a length of 2^31 and more for a negative one.
void visitMessages(std::span<const std::uint8_t> datagram,
                   const std::function<void(const nlmsghdr&)>& visitor) {
    while (datagram.size() >= sizeof(nlmsghdr)) {
        const auto& message = *reinterpret_cast<const nlmsghdr*>(datagram.data());
        if (message.nlmsg_len < sizeof(nlmsghdr) || message.nlmsg_len > datagram.size()) {
            return;
        }
        visitor(message);
        datagram = datagram.subspan(
            std::min<std::size_t>(MNL_ALIGN(std::size_t{message.nlmsg_len}), datagram.size()));
    }
}

std::optional<LinkState> readLinkMessage(const nlmsghdr& message) {
    const auto* fixed = fixedPart<ifinfomsg>(message);
    if (fixed == nullptr || fixed->ifi_family != AF_UNSPEC || fixed->ifi_index <= 0) {
        return std::nullopt;
    }
    LinkState link;
    link.index = static_cast<std::uint32_t>(fixed->ifi_index);
    link.isEnabled = (fixed->ifi_flags & IFF_UP) != 0;
    link.hasCarrier = (fixed->ifi_flags & IFF_RUNNING) != 0 && (fixed->ifi_flags & IFF_LOWER_UP);
    mnl_attr_parse(&message, sizeof *fixed, takeLinkAttribute, &link);
    return link;
}

std::optional<NeighbourState> readNeighbourMessage(const nlmsghdr& message) {
    const auto* fixed = fixedPart<ndmsg>(message);
    if (fixed == nullptr || fixed->ndm_ifindex <= 0 ||
        (fixed->ndm_family != AF_INET && fixed->ndm_family != AF_INET6)) {
        return std::nullopt;
    }
    NeighbourAttributes found;
    mnl_attr_parse(&message, sizeof *fixed, takeNeighbourAttribute, &found);
    const bool isIpv4 = fixed->ndm_family == AF_INET;
    if (found.address.size() != (isIpv4 ? 4U : 16U)) {
        return std::nullopt;
    }
    NeighbourState neighbour;
    neighbour.link = static_cast<std::uint32_t>(fixed->ndm_ifindex);
    neighbour.address = isIpv4 ? Lumo::IpGenAddr::ipv4(found.address.data())
                               : Lumo::IpGenAddr::ipv6(found.address.data());
    neighbour.reach = readReach(fixed->ndm_state);
    const bool isUsable = neighbour.reach == Reach::confirmed || neighbour.reach == Reach::stale;
    neighbour.mac = isUsable ? found.mac : std::nullopt;
    return neighbour;
}

} // namespace OvixAgent
