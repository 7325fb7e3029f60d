#pragma once

#include <compare>
#include <cstdint>
#include <functional>

#include "Lumo/MplsLabel.h"

namespace Mpls {

/// The key of a label route: the stack of labels it is for, at most three, in 64 bits. The default
/// key is that of the empty stack.
///
///     63  60 59               40 39               20 19                0
///     +-----+-------------------+-------------------+-------------------+
///     |depth|    third label    |   second label    |     top label     |
///     +-----+-------------------+-------------------+-------------------+
class RouteKey {
  public:
    constexpr RouteKey() noexcept = default;

    static constexpr RouteKey fromLabel(Lumo::MplsLabel label) noexcept {
        RouteKey key;
        key.value_ = (std::uint64_t{1} << depthShift) | label.value();
        return key;
    }
    /// The key as carried in a record.
    static constexpr RouteKey fromValue(std::uint64_t value) noexcept {
        RouteKey key;
        key.value_ = value;
        return key;
    }

    constexpr std::uint64_t value() const noexcept { return value_; }
    constexpr unsigned depth() const noexcept {
        return static_cast<unsigned>(value_ >> depthShift);
    }
    constexpr Lumo::MplsLabel topLabel() const noexcept {
        return Lumo::MplsLabel(static_cast<std::uint32_t>(value_ & Lumo::MplsLabel::max));
    }

    friend constexpr auto operator<=>(RouteKey, RouteKey) noexcept = default;

  private:
    static constexpr unsigned depthShift = 60;

    std::uint64_t value_ = 0;
};

} // namespace Mpls

template <>
struct std::hash<Mpls::RouteKey> {
    std::size_t operator()(Mpls::RouteKey key) const noexcept { return key.value(); }
};
