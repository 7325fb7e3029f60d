#include "framing/Refused.h"

#include <algorithm>
#include <utility>

namespace OvixFpm {

Refused::Refused(std::uint64_t offset, Bytes bytes, std::string reason)
    : offset_(offset),
      bytes_(bytes.begin(),
             bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), maxBytes))),
      reason_(std::move(reason)) {}

std::string Refused::text() const {
    static constexpr char digits[] = "0123456789abcdef";
    std::string line = "at byte " + std::to_string(offset_) + ": " + reason_ + ":";
    for (const std::uint8_t byte : bytes_) {
        line += ' ';
        line += digits[byte >> 4U];
        line += digits[byte & 15U];
    }
    return line;
}

} // namespace OvixFpm
