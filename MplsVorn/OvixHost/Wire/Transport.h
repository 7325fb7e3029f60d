#pragma once

#include "Wire/View.h"

namespace Wire {

/// A UDP header (RFC 768):
///
///      0      7 8     15 16    23 24    31
///     +--------+--------+--------+--------+
///     |   Source Port   | Destination Port|
///     +--------+--------+--------+--------+
///     |     Length      |    Checksum     |
///     +--------+--------+--------+--------+
template <typename Byte>
class BasicUdp : public View<8, Byte> {
  public:
    using View<8, Byte>::View;

    static constexpr std::size_t sourcePortAt = 0;
    static constexpr std::size_t destinationPortAt = 2;
    static constexpr std::size_t lengthAt = 4;
    static constexpr std::size_t checksumAt = 6;
    static_assert(checksumAt + sizeof(std::uint16_t) == BasicUdp::size);

    std::uint16_t sourcePort() const noexcept { return this->u16(sourcePortAt); }
    std::uint16_t destinationPort() const noexcept { return this->u16(destinationPortAt); }
    /// With the header.
    std::uint16_t length() const noexcept { return this->u16(lengthAt); }
    /// 0 means none.
    std::uint16_t checksum() const noexcept { return this->u16(checksumAt); }

    void portsAre(std::uint16_t source, std::uint16_t destination) const noexcept {
        this->put16(sourcePortAt, source);
        this->put16(destinationPortAt, destination);
    }
    void lengthIs(std::size_t bytes) const noexcept {
        assert(bytes >= BasicUdp::size && bytes <= 0xffff);
        this->put16(lengthAt, static_cast<std::uint16_t>(bytes));
    }
    void checksumIs(std::uint16_t value) const noexcept { this->put16(checksumAt, value); }
};
using Udp = BasicUdp<const std::uint8_t>;
using UdpWriter = BasicUdp<std::uint8_t>;

/// A TCP header (RFC 9293), as far as cutting segments needs it:
///
///      0                   1                   2                   3
///      0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |          Source Port          |       Destination Port        |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |                        Sequence Number                        |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |                    Acknowledgment Number                      |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |  Data |       |C|E|U|A|P|R|S|F|                               |
///     | Offset| Rsrvd |W|C|R|C|S|S|Y|I|            Window             |
///     |       |       |R|E|G|K|H|T|N|N|                               |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |           Checksum            |         Urgent Pointer        |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
template <typename Byte>
class BasicTcp : public View<20, Byte> {
  public:
    using View<20, Byte>::View;

    static constexpr std::size_t sequenceAt = 4;
    static constexpr std::size_t dataOffsetAt = 12;
    static constexpr std::size_t flagsAt = 13;
    static constexpr std::size_t checksumAt = 16;
    static_assert(checksumAt + sizeof(std::uint32_t) == BasicTcp::size);

    static constexpr std::uint8_t finFlag = 0x01;
    static constexpr std::uint8_t pushFlag = 0x08;
    static constexpr std::uint8_t cwrFlag = 0x80; ///< congestion window reduced (RFC 3168)

    std::uint32_t sequence() const noexcept { return this->u32(sequenceAt); }
    /// With options, in bytes; less than `size` in a damaged header.
    std::size_t headerSize() const noexcept {
        return (this->u8(dataOffsetAt) >> 4U) * std::size_t{4};
    }
    std::uint8_t flags() const noexcept { return this->u8(flagsAt); }
    std::uint16_t checksum() const noexcept { return this->u16(checksumAt); }

    void sequenceIs(std::uint32_t value) const noexcept { this->put32(sequenceAt, value); }
    void flagsAre(std::uint8_t value) const noexcept { this->put8(flagsAt, value); }
    void checksumIs(std::uint16_t value) const noexcept { this->put16(checksumAt, value); }
};
using Tcp = BasicTcp<const std::uint8_t>;
using TcpWriter = BasicTcp<std::uint8_t>;

} // namespace Wire
