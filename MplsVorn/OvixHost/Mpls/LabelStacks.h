#pragma once

#include <cstdint>
#include <span>

namespace Mpls {

/// Label stacks that are too deep for a via record, kept once each for the life of the process.
/// A stack is three bytes per label, outermost first.
class LabelStacks {
  public:
    static constexpr std::uint32_t max = 65536;

    /// The number of the stack, from 1; 0 when `max` different stacks are kept already.
    static std::uint32_t intern(std::span<const std::uint8_t> packed);

    /// Empty for a number that was never given out.
    static std::span<const std::uint8_t> find(std::uint32_t number) noexcept;
};

} // namespace Mpls
