#pragma once

#include <cstddef>
#include <cstdint>

namespace Tessel {

/// Which of `members` a flow takes: each owns as many residues, in order, as its `weight(index)`
/// says. `residue` is the flow's hash modulo the sum of the weights. The first one when no member
/// owns it, since the weights have changed meanwhile.
template <typename Weight>
constexpr std::size_t weightedChoice(std::uint64_t residue, std::size_t members, Weight&& weight) {
    for (std::size_t i = 0; i < members; ++i) {
        const std::uint64_t share = weight(i);
        if (residue < share) {
            return i;
        }
        residue -= share;
    }
    return 0;
}

/// Which of the members that are usable a flow takes, by its hash; `total` is the sum of all
/// weights. A flow whose own member is usable keeps it, whatever becomes of others; those of the
/// rest are shared among the usable ones by weight. As if all were usable when none has a weight.
template <typename Weight, typename IsUsable>
constexpr std::size_t usableChoice(std::uint32_t hash, std::uint64_t total, std::size_t members,
                                   Weight&& weight, IsUsable&& isUsable) {
    const std::size_t own = weightedChoice(hash % total, members, weight);
    if (isUsable(own)) [[likely]] {
        return own;
    }
    const auto left = [&](std::size_t i) { return isUsable(i) ? std::uint64_t{weight(i)} : 0; };
    std::uint64_t usable = 0;
    for (std::size_t i = 0; i < members; ++i) {
        usable += left(i);
    }
    // The residue says no more than which member these flows had.
    const std::uint64_t mixed = (hash * std::uint64_t{0x9e3779b97f4a7c15}) >> 32U;
    return usable > 0 ? weightedChoice(mixed % usable, members, left) : own;
}

} // namespace Tessel
