#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "Config/Config.h"

struct nlmsghdr;

namespace OvixAgent {

/// A network interface of this host, as the kernel describes it.
struct LinkState {
    std::uint32_t index = 0; ///< never reused for another interface of the same name
    std::string name;
    Lumo::EthAddr mac{}; ///< zeros when its address is not six bytes
    std::uint32_t mtu = 0;
    bool isEnabled = false;  ///< administratively up
    bool hasCarrier = false; ///< and operational

    bool isUp() const noexcept { return isEnabled && hasCarrier; }

    friend bool operator==(const LinkState&, const LinkState&) = default;
};

/// A neighbour as the kernel reports it.
struct NeighbourState {
    enum class Reach : std::uint8_t {
        unknown,   ///< not solicited
        asked,     ///< solicited, no answer yet
        confirmed, ///< reachable
        stale,     ///< its MAC is valid, but has not been confirmed lately
        failed,    ///< does not answer
    };

    std::uint32_t link = 0; ///< index of the interface
    Lumo::IpGenAddr address;
    std::optional<Lumo::EthAddr> mac; ///< set when usable
    Reach reach = Reach::unknown;

    friend bool operator==(const NeighbourState&, const NeighbourState&) = default;
};

/// Visits the messages of a datagram, which is aligned as they are. The rest is left out when a
/// message claims to be longer than that.
void visitMessages(std::span<const std::uint8_t> datagram,
                   const std::function<void(const nlmsghdr&)>& visitor);

/// The interface of an RTM_NEWLINK or RTM_DELLINK message. Empty when the message is malformed or
/// about an interface's membership in a bridge, where "deleted" means removed from the bridge.
std::optional<LinkState> readLinkMessage(const nlmsghdr& message);

/// The neighbour of an RTM_NEWNEIGH or RTM_DELNEIGH message. Empty when the message is malformed or
/// not about an IPv4 or IPv6 neighbour.
std::optional<NeighbourState> readNeighbourMessage(const nlmsghdr& message);

} // namespace OvixAgent
