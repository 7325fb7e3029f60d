#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <string>

namespace Fuzz {

using Bytes = std::span<const std::uint8_t>;

/// Takes an input apart from its start; behind its end there are zeros.
class Input {
  public:
    Input(const std::uint8_t* data, std::size_t size) noexcept : left_(data, size) {}

    bool isEmpty() const noexcept { return left_.empty(); }
    /// At most that many.
    Bytes bytes(std::size_t most) noexcept {
        const Bytes taken = left_.first(std::min(most, left_.size()));
        left_ = left_.subspan(taken.size());
        return taken;
    }
    Bytes rest() noexcept { return bytes(left_.size()); }

    /// A number as it lies in memory.
    template <typename Number>
    Number number() noexcept {
        Number value{};
        const Bytes taken = bytes(sizeof value);
        if (!taken.empty()) {
            std::memcpy(&value, taken.data(), taken.size());
        }
        return value;
    }
    std::uint8_t byte() noexcept { return number<std::uint8_t>(); }

  private:
    Bytes left_;
};

/// A copy in memory of exactly its size, so that the address sanitizer sees every access beyond
/// it; with room in front of it, for those who may use that.
class ExactCopy {
  public:
    explicit ExactCopy(Bytes bytes, std::size_t room = 0)
        : memory_(std::make_unique<std::uint8_t[]>(room + bytes.size())),
          bytes_(memory_.get() + room, bytes.size()) {
        std::copy(bytes.begin(), bytes.end(), bytes_.begin());
    }
    std::span<std::uint8_t> bytes() const noexcept { return bytes_; }

  private:
    std::unique_ptr<std::uint8_t[]> memory_;
    std::span<std::uint8_t> bytes_;
};

/// Ends the process when something is not as it must be, for the fuzzer to keep the input.
inline void check(bool isRight, const char* what, const std::string& more = {}) {
    if (!isRight) {
        std::fprintf(stderr, "fuzz: %s%s%s\n", what, more.empty() ? "" : ": ", more.c_str());
        std::abort();
    }
}

} // namespace Fuzz
