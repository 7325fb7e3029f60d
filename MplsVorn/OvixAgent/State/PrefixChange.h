#pragma once

#include <algorithm>
#include <array>
#include <cassert>
#include <cstdint>
#include <vector>

#include "Lumo/IpGenAddr.h"

namespace OvixAgent {

/// The number of a prefix's value in a lookup table.
using PrefixValue = std::uint32_t;
/// Of an address without a prefix; other values are less.
inline constexpr PrefixValue noPrefix = 0x3fff'ffff;

/// The bytes of a prefix in network byte order, of IPv4 in the first four.
using PrefixBytes = std::array<std::uint8_t, Lumo::IpGenAddr::ipv6Size>;

/// The prefix length of each value in a lookup table.
using PrefixLengths = std::vector<std::uint8_t>;

/// A change of a table in which every address leads to the value of its longest prefix: every
/// address of one prefix gets a value, except those that have a longer prefix. Adding a prefix
/// gives them its own value, removing it the value of the next shorter prefix; while it is there,
/// none of its addresses has the value of a shorter one.
struct PrefixChange {
    const PrefixBytes& prefix;
    unsigned length;
    PrefixValue value;
    const PrefixLengths& lengths;

    static PrefixChange adding(const PrefixBytes& prefix, unsigned length, PrefixValue value,
                               PrefixLengths& lengths) {
        assert(value < noPrefix);
        lengths.resize(std::max<std::size_t>(lengths.size(), value + 1));
        lengths[value] = static_cast<std::uint8_t>(length);
        return {prefix, length, value, lengths};
    }
    static PrefixChange removing(const PrefixBytes& prefix, unsigned length, PrefixValue covering,
                                 const PrefixLengths& lengths) {
        assert(covering == noPrefix || lengths[covering] < length);
        return {prefix, length, covering, lengths};
    }

    bool concerns(PrefixValue present) const noexcept {
        return present == noPrefix || lengths[present] <= length;
    }

    /// Of the 256 slots for the byte that starts at bit `depth`: the first that the prefix covers
    /// or leads to, and how many.
    std::size_t first(unsigned depth) const noexcept {
        return length <= depth ? 0 : prefix[depth / 8] & ~(count(depth) - 1);
    }
    std::size_t count(unsigned depth) const noexcept {
        return std::size_t{256} >> (length <= depth ? 0 : std::min(length - depth, 8U));
    }
};

} // namespace OvixAgent
