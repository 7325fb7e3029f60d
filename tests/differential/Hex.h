#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace Differential {

/// Two digits a byte, without spaces.
inline std::string hexOf(std::span<const std::uint8_t> bytes) {
    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += digits[byte >> 4U];
        text += digits[byte & 15U];
    }
    return text;
}

} // namespace Differential
