#pragma once

#include <cstdint>
#include <optional>
#include <utility>
#include <variant>

#include "decoding/Destination.h"
#include "decoding/NextHop.h"

namespace OvixFpm {

/// What becomes of frames with a label. It takes the place of an earlier route for the same label.
class LabelRoute {
  public:
    /// `protocol` is the kernel's number for who made the route (RTPROT_…). `ttlPropagated` is
    /// whether the TTL of a popped label goes into what it uncovers (RFC 3443), if the route says
    /// so.
    LabelRoute(IncomingLabel label, std::uint8_t protocol, NextHops nextHops,
               std::optional<bool> ttlPropagated = std::nullopt) noexcept
        : label_(label), protocol_(protocol), ttlPropagated_(ttlPropagated),
          nextHops_(std::move(nextHops)) {}

    IncomingLabel label() const noexcept { return label_; }
    std::uint8_t protocol() const noexcept { return protocol_; }
    std::optional<bool> ttlPropagated() const noexcept { return ttlPropagated_; }
    const NextHops& nextHops() const noexcept { return nextHops_; }

    friend bool operator==(const LabelRoute&, const LabelRoute&) = default;

  private:
    IncomingLabel label_;
    std::uint8_t protocol_;
    std::optional<bool> ttlPropagated_;
    NextHops nextHops_;
};

/// Why packets of a prefix are not sent on: silently dropped, refused with an ICMP error (host
/// unreachable, administratively prohibited), or because they are for this router itself.
enum class RouteEnd : std::uint8_t { blackhole, unreachable, prohibit, local };

/// What becomes of packets of a prefix: next hops, or an end. It takes the place of an earlier
/// route for the same destination.
class PrefixRoute {
  public:
    PrefixRoute(const Destination& destination, std::uint8_t protocol, NextHops nextHops) noexcept
        : destination_(destination), protocol_(protocol), fate_(std::move(nextHops)) {}
    PrefixRoute(const Destination& destination, std::uint8_t protocol, RouteEnd end) noexcept
        : destination_(destination), protocol_(protocol), fate_(end) {}

    const Destination& destination() const noexcept { return destination_; }
    std::uint8_t protocol() const noexcept { return protocol_; }
    /// The next hops of a unicast route; null for any other.
    const NextHops* nextHops() const noexcept { return std::get_if<NextHops>(&fate_); }
    /// The end of a route that is not unicast; nothing for one that is.
    std::optional<RouteEnd> end() const noexcept {
        const RouteEnd* end = std::get_if<RouteEnd>(&fate_);
        return end != nullptr ? std::optional(*end) : std::nullopt;
    }

    friend bool operator==(const PrefixRoute&, const PrefixRoute&) = default;

  private:
    Destination destination_;
    std::uint8_t protocol_;
    std::variant<NextHops, RouteEnd> fate_;
};

struct LabelWithdrawal {
    IncomingLabel label;
    friend bool operator==(const LabelWithdrawal&, const LabelWithdrawal&) = default;
};

struct PrefixWithdrawal {
    Destination destination;
    friend bool operator==(const PrefixWithdrawal&, const PrefixWithdrawal&) = default;
};

/// One change of the routes.
using RouteChange = std::variant<LabelRoute, LabelWithdrawal, PrefixRoute, PrefixWithdrawal>;

} // namespace OvixFpm
