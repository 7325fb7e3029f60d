#pragma once

#include <algorithm>

#include "Lumo/IpGenAddr.h"
#include "Wire/Checksum.h"
#include "Wire/View.h"

namespace Wire {

/// What an IP packet carries, and IPv6 extension headers (IANA protocol numbers).
namespace IpProtocol {
inline constexpr std::uint8_t hopByHop = 0;
inline constexpr std::uint8_t icmp = 1;
inline constexpr std::uint8_t tcp = 6;
inline constexpr std::uint8_t udp = 17;
inline constexpr std::uint8_t routing = 43;
inline constexpr std::uint8_t fragment = 44;
inline constexpr std::uint8_t authentication = 51;
inline constexpr std::uint8_t icmpv6 = 58;
inline constexpr std::uint8_t destinationOptions = 60;
inline constexpr std::uint8_t sctp = 132;
} // namespace IpProtocol

/// The version that an IP packet starts with: 4, 6, or whatever else its first four bits say; 0
/// without a byte.
constexpr unsigned ipVersion(Bytes packet) noexcept {
    return packet.empty() ? 0U : packet[0] >> 4U;
}

/// An IPv4 header (RFC 791):
///
///      0                   1                   2                   3
///      0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |Version|  IHL  |Type of Service|          Total Length         |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |         Identification        |Flags|      Fragment Offset    |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |  Time to Live |    Protocol   |         Header Checksum       |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |                       Source Address                          |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |                    Destination Address                        |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |                    Options                    |    Padding    |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///
/// A reading view is empty of another version, too. The view ends before the options.
template <typename Byte>
class BasicIpv4 : public View<20, Byte> {
  public:
    static constexpr std::size_t maxSize = 60; ///< with all options
    static constexpr std::size_t trafficClassAt = 1;
    static constexpr std::size_t totalLengthAt = 2;
    static constexpr std::size_t identificationAt = 4;
    static constexpr std::size_t fragmentAt = 6;
    static constexpr std::size_t ttlAt = 8;
    static constexpr std::size_t protocolAt = 9;
    static constexpr std::size_t checksumAt = 10;
    static constexpr std::size_t sourceAt = 12;
    static constexpr std::size_t destinationAt = 16;
    static_assert(destinationAt + Lumo::IpGenAddr::ipv4Size == BasicIpv4::size);

    static constexpr std::uint16_t dontFragmentFlag = 0x4000;
    static constexpr std::uint16_t moreFragmentsFlag = 0x2000;
    static constexpr std::uint16_t fragmentOffsetMask = 0x1fff;
    static constexpr std::size_t fragmentUnit = 8; ///< bytes per step of the offset

    constexpr BasicIpv4() noexcept = default;
    constexpr explicit BasicIpv4(std::span<Byte> bytes) noexcept
        : View<20, Byte>(std::is_const_v<Byte> && ipVersion(bytes) != 4 ? std::span<Byte>()
                                                                        : bytes) {}

    /// With options, in bytes; less than `size` in a damaged header.
    std::size_t headerSize() const noexcept { return (this->u8(0) & 0x0fU) * std::size_t{4}; }
    std::uint8_t trafficClass() const noexcept { return this->u8(1); }
    std::uint16_t totalLength() const noexcept { return this->u16(totalLengthAt); }
    std::uint16_t identification() const noexcept { return this->u16(identificationAt); }
    /// Flags and offset.
    std::uint16_t fragment() const noexcept { return this->u16(fragmentAt); }
    bool dontFragment() const noexcept { return (fragment() & dontFragmentFlag) != 0; }
    bool isFirstFragment() const noexcept { return (fragment() & fragmentOffsetMask) == 0; }
    bool isFragment() const noexcept {
        return (fragment() & (moreFragmentsFlag | fragmentOffsetMask)) != 0;
    }
    std::uint8_t ttl() const noexcept { return this->u8(ttlAt); }
    std::uint8_t protocol() const noexcept { return this->u8(protocolAt); }
    std::uint16_t checksum() const noexcept { return this->u16(checksumAt); }
    Lumo::IpGenAddr source() const noexcept {
        return Lumo::IpGenAddr::ipv4(this->at(sourceAt, Lumo::IpGenAddr::ipv4Size));
    }
    Lumo::IpGenAddr destination() const noexcept {
        return Lumo::IpGenAddr::ipv4(this->at(destinationAt, Lumo::IpGenAddr::ipv4Size));
    }

    /// Sets the version, too. A multiple of 4 from 20 to 60.
    void headerSizeIs(std::size_t bytes) const noexcept {
        assert(bytes >= BasicIpv4::size && bytes <= maxSize && bytes % 4 == 0);
        this->put8(0, static_cast<std::uint8_t>(0x40U | bytes / 4));
    }
    void trafficClassIs(std::uint8_t value) const noexcept { this->put8(1, value); }
    void totalLengthIs(std::size_t bytes) const noexcept {
        assert(bytes <= 0xffff);
        this->put16(totalLengthAt, static_cast<std::uint16_t>(bytes));
    }
    void identificationIs(std::uint16_t value) const noexcept {
        this->put16(identificationAt, value);
    }
    void fragmentIs(std::uint16_t value) const noexcept { this->put16(fragmentAt, value); }
    void ttlIs(std::uint8_t value) const noexcept { this->put8(ttlAt, value); }
    void protocolIs(std::uint8_t value) const noexcept { this->put8(protocolAt, value); }
    void checksumIs(std::uint16_t value) const noexcept { this->put16(checksumAt, value); }
    void sourceIs(const Lumo::IpGenAddr& address) const noexcept { addressIs(sourceAt, address); }
    void destinationIs(const Lumo::IpGenAddr& address) const noexcept {
        addressIs(destinationAt, address);
    }

    /// The TTL of a packet being forwarded: the checksum follows.
    void ttlWithChecksumIs(std::uint8_t value) const noexcept {
        // What has been stored is not loaded again at once, in another size: that would take long.
        constexpr unsigned protocol = 0xff;
        const std::uint16_t before = this->u16(ttlAt);
        const auto after = static_cast<std::uint16_t>(unsigned{value} << 8U | (before & protocol));
        ttlIs(value);
        checksumIs(updatedChecksum(checksum(), before, after));
    }

    /// The same for the traffic class.
    void trafficClassWithChecksumIs(std::uint8_t value) const noexcept {
        const std::uint16_t before = this->u16(0);
        trafficClassIs(value);
        checksumIs(updatedChecksum(checksum(), before, this->u16(0)));
    }

  private:
    void addressIs(std::size_t offset, const Lumo::IpGenAddr& address) const noexcept {
        assert(address.family() == Lumo::IpFamily::ipv4);
        std::memcpy(this->at(offset, Lumo::IpGenAddr::ipv4Size), address.bytes().data(),
                    Lumo::IpGenAddr::ipv4Size);
    }
};
using Ipv4 = BasicIpv4<const std::uint8_t>;
using Ipv4Writer = BasicIpv4<std::uint8_t>;

/// An IPv6 header (RFC 8200):
///
///      0                   1                   2                   3
///      0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |Version| Traffic Class |           Flow Label                  |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |         Payload Length        |  Next Header  |   Hop Limit   |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |                  Source Address (16 bytes)                    |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |                Destination Address (16 bytes)                 |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///
/// A reading view is empty of another version, too.
template <typename Byte>
class BasicIpv6 : public View<40, Byte> {
  public:
    static constexpr std::size_t payloadLengthAt = 4;
    static constexpr std::size_t nextHeaderAt = 6;
    static constexpr std::size_t hopLimitAt = 7;
    static constexpr std::size_t sourceAt = 8;
    static constexpr std::size_t destinationAt = 24;
    static_assert(destinationAt + Lumo::IpGenAddr::ipv6Size == BasicIpv6::size);
    static constexpr std::uint32_t maxFlowLabel = 0xfffff;

    constexpr BasicIpv6() noexcept = default;
    constexpr explicit BasicIpv6(std::span<Byte> bytes) noexcept
        : View<40, Byte>(std::is_const_v<Byte> && ipVersion(bytes) != 6 ? std::span<Byte>()
                                                                        : bytes) {}

    std::uint8_t trafficClass() const noexcept {
        return static_cast<std::uint8_t>(this->u16(0) >> 4U);
    }
    std::uint32_t flowLabel() const noexcept { return this->u32(0) & maxFlowLabel; }
    /// 0 in a jumbogram (RFC 2675).
    std::uint16_t payloadLength() const noexcept { return this->u16(payloadLengthAt); }
    std::uint8_t nextHeader() const noexcept { return this->u8(nextHeaderAt); }
    std::uint8_t hopLimit() const noexcept { return this->u8(hopLimitAt); }
    Lumo::IpGenAddr source() const noexcept {
        return Lumo::IpGenAddr::ipv6(this->at(sourceAt, Lumo::IpGenAddr::ipv6Size));
    }
    Lumo::IpGenAddr destination() const noexcept {
        return Lumo::IpGenAddr::ipv6(this->at(destinationAt, Lumo::IpGenAddr::ipv6Size));
    }

    /// Sets version, traffic class and flow label.
    void flowIs(std::uint8_t trafficClass, std::uint32_t flowLabel) const noexcept {
        assert(flowLabel <= maxFlowLabel);
        this->put32(0, 0x60000000U | std::uint32_t{trafficClass} << 20U | flowLabel);
    }
    void payloadLengthIs(std::size_t bytes) const noexcept {
        assert(bytes <= 0xffff);
        this->put16(payloadLengthAt, static_cast<std::uint16_t>(bytes));
    }
    void nextHeaderIs(std::uint8_t value) const noexcept { this->put8(nextHeaderAt, value); }
    void hopLimitIs(std::uint8_t value) const noexcept { this->put8(hopLimitAt, value); }
    void sourceIs(const Lumo::IpGenAddr& address) const noexcept { addressIs(sourceAt, address); }
    void destinationIs(const Lumo::IpGenAddr& address) const noexcept {
        addressIs(destinationAt, address);
    }

  private:
    void addressIs(std::size_t offset, const Lumo::IpGenAddr& address) const noexcept {
        assert(address.family() == Lumo::IpFamily::ipv6);
        std::memcpy(this->at(offset, Lumo::IpGenAddr::ipv6Size), address.bytes().data(),
                    Lumo::IpGenAddr::ipv6Size);
    }
};
using Ipv6 = BasicIpv6<const std::uint8_t>;
using Ipv6Writer = BasicIpv6<std::uint8_t>;

/// The length of the IPv4 header that starts the bytes, with its options as far as they are there;
/// 0 when it is none: the fixed header must be whole, and the total length must have room for it
/// and its options (RFC 1812 section 5.2.2). The total length, and so the options, may exceed what
/// was captured; it is 0 in a capture of a packet that was segmented later.
inline std::size_t ipv4HeaderLength(Bytes bytes) noexcept {
    const Ipv4 header(bytes);
    if (!header) {
        return 0;
    }
    const std::size_t size = header.headerSize();
    const std::size_t totalLength = header.totalLength() != 0 ? header.totalLength() : bytes.size();
    return size < Ipv4::size || size > totalLength ? 0 : std::min(size, bytes.size());
}

/// What follows an IP header and, in IPv6, its extension headers (RFC 8200 section 4).
struct UpperLayer {
    std::size_t offset = 0; ///< from the start of the packet: the headers passed
    std::uint8_t protocol = 0;
    bool isFirstFragment = true; ///< when false, the upper layer's header is in another packet
    bool isWhole = true;         ///< when false, a header runs beyond the packet's bytes
};

/// Of the packet that starts with this header. An IPv4 header's size is not checked.
UpperLayer upperLayer(const Ipv4& header) noexcept;
/// `packet` starts with a whole IPv6 header.
UpperLayer ipv6UpperLayer(Bytes packet) noexcept;

} // namespace Wire
