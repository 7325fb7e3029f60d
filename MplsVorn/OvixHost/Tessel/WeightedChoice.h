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

} // namespace Tessel
