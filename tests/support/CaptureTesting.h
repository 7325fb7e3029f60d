#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <unistd.h>

#include "Refusal.h"
#include "State/Frame.h"

namespace OvixAgent::Testing {

/// A directory of its own for each test, removed afterwards.
class CaptureTest : public ::testing::Test {
  protected:
    CaptureTest() {
        const auto* const test = ::testing::UnitTest::GetInstance()->current_test_info();
        directory_ = std::filesystem::temp_directory_path() /
                     ("capture-test-" + std::to_string(getpid()) + "-" + test->name());
        std::filesystem::create_directories(directory_);
    }
    ~CaptureTest() override { std::filesystem::remove_all(directory_); }

    std::string path(const std::string& name) const { return (directory_ / name).string(); }

    std::string file(const std::string& name, const std::string& content) const {
        std::ofstream(path(name), std::ios::binary) << content;
        return path(name);
    }
    static std::string contentOf(const std::string& path) {
        std::ifstream stream(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    std::filesystem::path directory_;
};

inline std::string field16(std::uint16_t value) {
    return {static_cast<char>(value & 0xffU), static_cast<char>(value >> 8U)};
}
inline std::string field32(std::uint32_t value) {
    return field16(static_cast<std::uint16_t>(value)) +
           field16(static_cast<std::uint16_t>(value >> 16U));
}

inline constexpr std::uint32_t microsecondMagic = 0xa1b2c3d4;
inline constexpr std::uint32_t nanosecondMagic = 0xa1b23c4d;

/// The header of a little-endian pcap file; link type 1 is Ethernet.
inline std::string pcapHeader(std::uint32_t magic, std::uint32_t linkType = 1) {
    return field32(magic) + field16(2) + field16(4) + field32(0) + field32(0) + field32(65535) +
           field32(linkType);
}
inline std::string pcapRecord(std::uint32_t seconds, std::uint32_t fraction,
                              const std::string& bytes, std::uint32_t originalLength) {
    return field32(seconds) + field32(fraction) +
           field32(static_cast<std::uint32_t>(bytes.size())) + field32(originalLength) + bytes;
}
inline std::string pcapRecord(std::uint32_t seconds, std::uint32_t fraction,
                              const std::string& bytes) {
    return pcapRecord(seconds, fraction, bytes, static_cast<std::uint32_t>(bytes.size()));
}

inline std::string pcapngBlock(std::uint32_t type, std::string body) {
    body.resize((body.size() + 3) / 4 * 4);
    const auto length = field32(static_cast<std::uint32_t>(body.size() + 12));
    return field32(type) + length + body + length;
}
inline std::string pcapngSection() {
    return pcapngBlock(0x0a0d0d0a,
                       field32(0x1a2b3c4d) + field16(1) + field16(0) + field32(~0U) + field32(~0U));
}
/// `resolution` is the negative power of ten of the time stamps' unit.
inline std::string pcapngInterface(std::uint16_t linkType, std::uint8_t resolution) {
    const std::string option = field16(9) + field16(1) +
                               std::string(1, static_cast<char>(resolution)) +
                               std::string(3, '\0') + field32(0);
    return pcapngBlock(1, field16(linkType) + field16(0) + field32(65535) + option);
}
inline std::string pcapngPacket(std::uint32_t interface, std::uint64_t time,
                                const std::string& bytes) {
    const auto length = field32(static_cast<std::uint32_t>(bytes.size()));
    return pcapngBlock(6, field32(interface) + field32(static_cast<std::uint32_t>(time >> 32U)) +
                              field32(static_cast<std::uint32_t>(time)) + length + length + bytes);
}

/// What the action fails with; "" when it does not.
inline std::string captureError(const std::function<void()>& action) {
    return TestSupport::refusal<CaptureError>(action);
}

} // namespace OvixAgent::Testing
