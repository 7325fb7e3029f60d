#include "Recording.h"

#include <cstring>
#include <fmt/format.h>

#include "Hex.h"

namespace Differential {

void Recording::mix(std::span<const std::uint8_t> bytes) noexcept {
    mix(bytes.size());
    while (bytes.size() >= sizeof(std::uint64_t)) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes.data(), sizeof(word));
        mix(word);
        bytes = bytes.subspan(sizeof(word));
    }
    std::uint64_t rest = 0;
    if (!bytes.empty()) {
        std::memcpy(&rest, bytes.data(), bytes.size());
    }
    mix(rest);
}

void Recording::add(std::string_view name, std::uint64_t number) {
    mix(number);
    if (keepsLines_) {
        lines_.push_back(fmt::format("{}: {}", name, number));
    }
}

void Recording::add(std::string_view name, std::string_view text) {
    mix({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    if (keepsLines_) {
        lines_.push_back(fmt::format("{}: {}", name, text));
    }
}

void Recording::add(std::string_view name, std::span<const std::uint8_t> bytes) {
    mix(bytes);
    if (keepsLines_) {
        lines_.push_back(fmt::format("{}: {}", name, hexOf(bytes)));
    }
}

void Recording::add(std::string_view port, const OvixAgent::Frame& frame) {
    mix(static_cast<std::uint64_t>(frame.time.seconds) << 32U | frame.time.nanoseconds);
    mix(frame.originalLength);
    mix(frame.bytes);
    if (keepsLines_) {
        lines_.push_back(fmt::format("{}: time {}.{:09}, {} of {} bytes: {}", port,
                                     frame.time.seconds, frame.time.nanoseconds, frame.bytes.size(),
                                     frame.originalLength, hexOf(frame.bytes)));
    }
}

void Recording::take(Recording& other) {
    mix(other.digest_);
    lines_.insert(lines_.end(), other.lines_.begin(), other.lines_.end());
    other = Recording(keepsLines_);
}

namespace {

/// Now and then, and for the same frame always.
bool isFalsified(std::span<const std::uint8_t> bytes) noexcept {
    constexpr std::uint32_t oneIn = 61;
    std::uint32_t sum = 0;
    for (const std::uint8_t byte : bytes) {
        sum = sum * 31 + byte;
    }
    return sum % oneIn == 0;
}

} // namespace

void RecordingPort::transmit(const OvixAgent::Frame& frame) {
    ++frames_;
    if ((fault_ != Fault::byte && fault_ != Fault::time) || !isFalsified(frame.bytes)) [[likely]] {
        recording_.add(name_, frame);
        return;
    }
    OvixAgent::Frame falsified = frame;
    std::vector<std::uint8_t> bytes(frame.bytes.begin(), frame.bytes.end());
    if (fault_ == Fault::byte) {
        bytes.back() ^= 1U;
        falsified.bytes = bytes;
    } else {
        falsified.time.nanoseconds ^= 1U;
    }
    recording_.add(name_, falsified);
}

} // namespace Differential
