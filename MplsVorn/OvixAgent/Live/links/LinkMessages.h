#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Config/ConfigTypes.h"

struct nlmsghdr;

namespace OvixAgent {

/// A network interface of this host, as the kernel describes it.
struct LinkState {
    std::uint32_t index = 0; ///< never used again by another interface of the same name
    std::string name;
    MacAddress mac{}; ///< zeros when its address is not of six bytes
    std::uint32_t mtu = 0;
    bool isEnabled = false;  ///< brought up by the administrator
    bool hasCarrier = false; ///< the other end is there, and the interface is operational

    bool isUp() const noexcept { return isEnabled && hasCarrier; }

    friend bool operator==(const LinkState&, const LinkState&) = default;
};

/// What the kernel knows about a neighbour on one of its links.
struct NeighbourState {
    enum class Reach : std::uint8_t {
        unknown,   ///< nobody has asked for it
        asked,     ///< no answer yet
        confirmed, ///< answers, or is taken to be there
        stale,     ///< its MAC is good to use, but has not been confirmed for a while
        failed,    ///< does not answer
    };

    std::uint32_t link = 0; ///< index of the interface
    IpAddress address;
    std::optional<MacAddress> mac; ///< set when frames can be sent to it
    Reach reach = Reach::unknown;

    friend bool operator==(const NeighbourState&, const NeighbourState&) = default;
};

/// The interface that an RTM_NEWLINK or RTM_DELLINK message is about. Nothing when the message is
/// malformed, or tells of an interface's part in a bridge, where "deleted" means taken out of it.
std::optional<LinkState> readLinkMessage(const nlmsghdr& message);

/// The neighbour that an RTM_NEWNEIGH or RTM_DELNEIGH message is about. Nothing when the message is
/// malformed, or about anything but an IPv4 or IPv6 neighbour.
std::optional<NeighbourState> readNeighbourMessage(const nlmsghdr& message);

} // namespace OvixAgent
