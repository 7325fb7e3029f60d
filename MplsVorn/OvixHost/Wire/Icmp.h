#pragma once

#include "Wire/View.h"

namespace Wire {

/// Messages of ICMP (RFC 792) and ICMPv6 (RFC 4443), which number theirs apart.
namespace IcmpType {
inline constexpr std::uint8_t unreachable = 3;
inline constexpr std::uint8_t sourceQuench = 4;
inline constexpr std::uint8_t redirect = 5;
inline constexpr std::uint8_t timeExceeded = 11;
inline constexpr std::uint8_t parameterProblem = 12;

/// True of the messages that no ICMP error may answer (RFC 1122 section 3.2.2).
constexpr bool isError(std::uint8_t type) noexcept {
    return type == unreachable || type == sourceQuench || type == redirect ||
           type == timeExceeded || type == parameterProblem;
}
} // namespace IcmpType
namespace IcmpCode {
// Of `unreachable` (RFC 792, RFC 1812 section 5.2.7.1).
inline constexpr std::uint8_t netUnreachable = 0;
inline constexpr std::uint8_t hostUnreachable = 1;
inline constexpr std::uint8_t fragmentationNeeded = 4;
inline constexpr std::uint8_t prohibited = 13;
} // namespace IcmpCode
namespace Icmpv6Type {
inline constexpr std::uint8_t unreachable = 1;
inline constexpr std::uint8_t packetTooBig = 2;
inline constexpr std::uint8_t timeExceeded = 3;
inline constexpr std::uint8_t firstInformational = 128;
inline constexpr std::uint8_t redirect = 137;

/// True of the messages that no ICMPv6 error may answer (RFC 4443 section 2.4).
constexpr bool isError(std::uint8_t type) noexcept {
    return type < firstInformational || type == redirect;
}
} // namespace Icmpv6Type

namespace Icmpv6Code {
// Of `unreachable` (RFC 4443 section 3.1).
inline constexpr std::uint8_t noRoute = 0;
inline constexpr std::uint8_t prohibited = 1;
inline constexpr std::uint8_t addressUnreachable = 3;
inline constexpr std::uint8_t rejectRoute = 6;
} // namespace Icmpv6Code

/// The header of an ICMP or ICMPv6 error. In ICMPv4 the length of the quoted packet counts 4 bytes
/// and is byte 5; in ICMPv6 it counts 8 bytes and is byte 4 (RFC 4884 section 4). The value is the
/// MTU, or zero:
///
///      0                   1                   2                   3
///      0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |     Type      |     Code      |          Checksum             |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |                 Value, or length of the quote                 |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |               The packet in error, as far as it fits ...      |
template <typename Byte>
class BasicIcmp : public View<8, Byte> {
  public:
    using View<8, Byte>::View;

    static constexpr std::size_t checksumAt = 2;
    static constexpr std::size_t valueAt = 4;
    static constexpr std::size_t quoteLengthAt = 5;
    static constexpr std::size_t quoteLengthAtInIcmpv6 = 4;
    static_assert(valueAt + sizeof(std::uint32_t) == BasicIcmp::size);

    std::uint8_t type() const noexcept { return this->u8(0); }
    std::uint8_t code() const noexcept { return this->u8(1); }
    std::uint16_t checksum() const noexcept { return this->u16(checksumAt); }
    std::uint32_t value() const noexcept { return this->u32(valueAt); }

    void typeIs(std::uint8_t type, std::uint8_t code) const noexcept {
        this->put8(0, type);
        this->put8(1, code);
    }
    void checksumIs(std::uint16_t value) const noexcept { this->put16(checksumAt, value); }
    void valueIs(std::uint32_t value) const noexcept { this->put32(valueAt, value); }
    /// `bytes` is a multiple of 4.
    void quoteLengthIs(std::size_t bytes) const noexcept {
        this->put8(quoteLengthAt, static_cast<std::uint8_t>(bytes / 4));
    }
    /// `bytes` is a multiple of 8.
    void quoteLengthInIcmpv6Is(std::size_t bytes) const noexcept {
        this->put8(quoteLengthAtInIcmpv6, static_cast<std::uint8_t>(bytes / 8));
    }
};
using Icmp = BasicIcmp<const std::uint8_t>;
using IcmpWriter = BasicIcmp<std::uint8_t>;

/// The extension behind the quoted packet (RFC 4884 sections 7 and 8) with the header of its one
/// object; the checksum covers the whole extension:
///
///      0                   1                   2                   3
///      0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |Version|      (Reserved)       |           Checksum            |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |             Length            |   Class-Num   |   C-Type      |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |                       Object payload ...                      |
template <typename Byte>
class BasicIcmpExtension : public View<8, Byte> {
  public:
    using View<8, Byte>::View;

    static constexpr std::size_t checksumAt = 2;
    static constexpr std::size_t objectAt = 4;
    static constexpr std::size_t objectHeaderSize = 4;
    static_assert(objectAt + objectHeaderSize == BasicIcmpExtension::size);
    /// The shortest quote that an extension may follow; readers look for one behind this many
    /// bytes.
    static constexpr std::size_t quoteSize = 128;

    /// An incoming label stack of that many bytes (RFC 4950); the checksum is zero.
    void labelStackIs(std::size_t bytes) const noexcept {
        constexpr std::uint32_t version2 = 0x20000000;
        constexpr std::uint16_t incomingLabelStack = 0x0101; // Class-Num 1, C-Type 1
        assert(bytes <= 0xffff - objectHeaderSize);
        this->put32(0, version2);
        this->put16(objectAt, static_cast<std::uint16_t>(objectHeaderSize + bytes));
        this->put16(objectAt + 2, incomingLabelStack);
    }
};
using IcmpExtensionWriter = BasicIcmpExtension<std::uint8_t>;

} // namespace Wire
