#pragma once

#include <cstdint>

#include "Tessel/Words.h"

namespace Mpls {

/// On whose behalf a label route is published; others than these have numbers alone.
enum class RouteOwner : std::uint8_t {
    byHand = 0, ///< an operator adds and removes it
    file = 1,   ///< a configuration file has it
    fpm = 2,    ///< zebra announces it
    pseudowires = 3,
};

/// How much a route is preferred to those of other owners for the same label; the least is the most
/// preferred, as with the administrative distances of routing daemons. 0 of a route means this.
constexpr std::uint8_t usualPreference(RouteOwner owner) noexcept {
    switch (owner) {
    case RouteOwner::byHand:
        return 1;
    case RouteOwner::file:
        return 5;
    case RouteOwner::pseudowires:
        return 15;
    case RouteOwner::fpm:
        return 20;
    }
    return 100;
}

} // namespace Mpls

template <>
inline constexpr auto
    Tessel::words<Mpls::RouteOwner> = std::to_array<Tessel::Word<Mpls::RouteOwner>>({
        {"operator", Mpls::RouteOwner::byHand},
        {"file", Mpls::RouteOwner::file},
        {"fpm", Mpls::RouteOwner::fpm},
        {"pseudowires", Mpls::RouteOwner::pseudowires},
    });
