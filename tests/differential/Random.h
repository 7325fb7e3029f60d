#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

namespace Differential {

/// Random numbers, the same for the same seed everywhere (SplitMix64).
class Random {
  public:
    explicit Random(std::uint64_t seed) noexcept : state_(seed) {}

    std::uint64_t next() noexcept {
        std::uint64_t mixed = state_ += 0x9e3779b97f4a7c15U;
        mixed = (mixed ^ (mixed >> 30U)) * 0xbf58476d1ce4e5b9U;
        mixed = (mixed ^ (mixed >> 27U)) * 0x94d049bb133111ebU;
        return mixed ^ (mixed >> 31U);
    }
    /// 0 to `end` - 1; `end` must be at least 1.
    std::uint32_t below(std::size_t end) noexcept {
        return static_cast<std::uint32_t>(((next() >> 32U) * end) >> 32U);
    }
    std::uint8_t byte() noexcept { return static_cast<std::uint8_t>(next()); }
    bool chance(std::uint32_t percent) noexcept { return below(100) < percent; }

    template <typename T>
    T pick(std::initializer_list<T> values) noexcept {
        return values.begin()[below(values.size())];
    }
    template <typename T>
    const T& pick(const std::vector<T>& values) noexcept {
        return values[below(values.size())];
    }

  private:
    std::uint64_t state_;
};

} // namespace Differential
