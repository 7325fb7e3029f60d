#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "Tessel/Exceptions.h"

namespace Tessel {

/// A string of at most `capacity` bytes held in place. A longer text throws RangeError; copies
/// touch only the bytes in use.
template <std::size_t capacity>
class BoundedString {
    static_assert(capacity <= 255);

  public:
    static constexpr std::size_t maxSize = capacity;

    constexpr BoundedString() noexcept = default;
    constexpr BoundedString(std::string_view text) { assign(text); }
    constexpr BoundedString(const char* text) : BoundedString(std::string_view(text)) {}
    constexpr BoundedString(const BoundedString& other) noexcept { copy(other); }
    constexpr BoundedString& operator=(const BoundedString& other) noexcept {
        copy(other);
        return *this;
    }
    constexpr BoundedString& operator=(std::string_view text) {
        assign(text);
        return *this;
    }
    constexpr BoundedString& operator=(const char* text) { return *this = std::string_view(text); }
    ~BoundedString() = default;

    constexpr std::string_view view() const noexcept { return {bytes_.data(), size_}; }
    constexpr operator std::string_view() const noexcept { return view(); }
    constexpr std::size_t size() const noexcept { return size_; }
    constexpr bool empty() const noexcept { return size_ == 0; }

    friend constexpr bool operator==(const BoundedString& a, const BoundedString& b) noexcept {
        return a.view() == b.view();
    }

  private:
    constexpr void assign(std::string_view text) {
        if (text.size() > capacity) {
            throw RangeError("text of more than " + std::to_string(capacity) + " bytes");
        }
        size_ = static_cast<std::uint8_t>(text.size());
        std::copy(text.begin(), text.end(), bytes_.begin());
    }
    constexpr void copy(const BoundedString& other) noexcept {
        size_ = other.size_;
        std::copy_n(other.bytes_.begin(), other.size_, bytes_.begin());
    }

    std::uint8_t size_ = 0;
    std::array<char, capacity> bytes_;
};

} // namespace Tessel
