#pragma once

#include <cstdint>

#include "Tessel/Words.h"

namespace Mpls {

/// What lies under a label once it is popped.
enum class PayloadType : std::uint8_t {
    undefined = 0,
    none = 1, ///< no inner IP handling: more labels, or left as it is
    ipv4 = 2,
    ipv6 = 3,
    ethernet = 4,
    automatic = 5, ///< decided by the payload's first nibble
};

/// How a label's TTL relates to what it carries (RFC 3443).
enum class TtlMode : std::uint8_t { uniform = 0, pipe = 1 };

/// The kind of a via: the key of the via-type handler registry.
enum class LfibViaType : std::uint8_t {
    none = 0,
    ip = 1,
    ipLookup = 3,
    externalFec = 10,
    ipLookupPerPrefix = 11,
    multicastIpLookup = 12,
};

/// Whether the vias of the type pop and look up in a VRF.
constexpr bool looksUp(LfibViaType type) noexcept {
    return type == LfibViaType::ipLookup || type == LfibViaType::ipLookupPerPrefix;
}

/// How a via set is used: every via of a multicast set, one via of any other.
enum class LfibViaSetType : std::uint8_t { unicast = 0, multicast = 1 };

} // namespace Mpls

template <>
inline constexpr auto
    Tessel::words<Mpls::PayloadType> = std::to_array<Tessel::Word<Mpls::PayloadType>>({
        {"undefined", Mpls::PayloadType::undefined},
        {"none", Mpls::PayloadType::none},
        {"ipv4", Mpls::PayloadType::ipv4},
        {"ipv6", Mpls::PayloadType::ipv6},
        {"ethernet", Mpls::PayloadType::ethernet},
        {"auto", Mpls::PayloadType::automatic},
    });

template <>
inline constexpr auto Tessel::words<Mpls::TtlMode> = std::to_array<Tessel::Word<Mpls::TtlMode>>({
    {"uniform", Mpls::TtlMode::uniform},
    {"pipe", Mpls::TtlMode::pipe},
});

template <>
inline constexpr auto
    Tessel::words<Mpls::LfibViaType> = std::to_array<Tessel::Word<Mpls::LfibViaType>>({
        {"ip", Mpls::LfibViaType::ip},
        {"ip-lookup", Mpls::LfibViaType::ipLookup},
        {"external-fec", Mpls::LfibViaType::externalFec},
        {"ip-lookup-per-prefix", Mpls::LfibViaType::ipLookupPerPrefix},
        {"multicast-ip-lookup", Mpls::LfibViaType::multicastIpLookup},
    });

template <>
inline constexpr auto
    Tessel::words<Mpls::LfibViaSetType> = std::to_array<Tessel::Word<Mpls::LfibViaSetType>>({
        {"unicast", Mpls::LfibViaSetType::unicast},
        {"multicast", Mpls::LfibViaSetType::multicast},
    });
