#pragma once

#include <gtest/gtest.h>
#include <string>

#include "Answers/Answer.h"
#include "FrameBytes.h"

namespace OvixAgent::Testing {

using TestSupport::Raw::Bytes;

inline const OwnAddresses own{Lumo::IpGenAddr::fromText("10.255.0.1"),
                              Lumo::IpGenAddr::fromText("2001:db8::ff")};

/// A labelled frame with two VLAN tags.
inline Bytes tagged(const std::vector<TestSupport::Raw::Entry>& labels, const Bytes& packet) {
    using namespace TestSupport::Raw;
    return join(
        {eth(ethServiceVlan), tag(5, ethVlan), tag(0xe00a, ethMpls), stack(labels), packet});
}

inline Bytes labelled(const std::vector<TestSupport::Raw::Entry>& labels, const Bytes& packet) {
    using namespace TestSupport::Raw;
    return join({eth(ethMpls), stack(labels), packet});
}

/// The frame must hold a labelled packet, and outlive it.
inline LabelledPacket read(const Bytes& frame) {
    const auto packet = readLabelledPacket(frame);
    EXPECT_TRUE(packet.has_value());
    return packet.value_or(LabelledPacket{});
}
LabelledPacket read(Bytes&&) = delete;

inline std::string hex(std::span<const std::uint8_t> bytes) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += {digits[byte >> 4U], digits[byte & 0xfU]};
    }
    return text;
}

inline Bytes cut(const Bytes& bytes, std::size_t size) {
    return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
}
inline Bytes from(const Bytes& bytes, std::size_t at, std::size_t size) {
    return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                 bytes.begin() + static_cast<std::ptrdiff_t>(at + size));
}

/// Bytes that count up, to tell a shift by.
inline Bytes counting(std::size_t size) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<std::uint8_t>(i);
    }
    return bytes;
}

/// The checksum of UDP or ICMPv6 in an IP packet without options, by its pseudo header; 0xffff when
/// it is right.
inline std::uint16_t transportSum(const Bytes& packet) {
    using namespace TestSupport::Raw;
    const bool isIpv4 = packet[0] >> 4U == 4;
    const std::size_t start = isIpv4 ? 20 : 40;
    const Bytes segment = from(packet, start, packet.size() - start);
    const Bytes addresses = isIpv4 ? from(packet, 12, 8) : from(packet, 8, 32);
    const std::uint8_t protocol = isIpv4 ? packet[9] : packet[6];
    return onesSum(
        join({addresses, u32(static_cast<std::uint32_t>(segment.size())), u32(protocol), segment}));
}

} // namespace OvixAgent::Testing
