#pragma once

#include <vector>

#include "Wire/View.h"

namespace Wire {

/// The UDP port of MPLS echo requests.
inline constexpr std::uint16_t lspEchoPort = 3503;

/// The header of an MPLS echo request or reply (RFC 8029 section 3); TLVs follow:
///
///      0                   1                   2                   3
///      0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |         Version Number        |         Global Flags          |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |  Message Type |   Reply mode  |  Return Code  | Return Subcode|
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |                        Sender's Handle                        |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |                        Sequence Number                        |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |                   TimeStamp Sent (8 bytes)                    |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |                 TimeStamp Received (8 bytes)                  |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
template <typename Byte>
class BasicLspEcho : public View<32, Byte> {
  public:
    using View<32, Byte>::View;

    enum MessageType : std::uint8_t { request = 1, reply = 2 };
    enum ReplyMode : std::uint8_t { doNotReply = 1, byUdp = 2, byUdpWithRouterAlert = 3 };
    enum Flags : std::uint16_t { validateFecStack = 1, replyOnlyIfTtlExpired = 2 };

    static constexpr std::uint16_t currentVersion = 1;
    static constexpr std::size_t flagsAt = 2;
    static constexpr std::size_t typeAt = 4;
    static constexpr std::size_t replyModeAt = 5;
    static constexpr std::size_t returnCodeAt = 6;
    static constexpr std::size_t returnSubcodeAt = 7;
    /// Handle, sequence number and time sent, which a reply returns as they came.
    static constexpr std::size_t returnedAt = 8;
    static constexpr std::size_t returnedSize = 16;
    static constexpr std::size_t timeReceivedAt = 24;
    static_assert(returnedAt + returnedSize == timeReceivedAt);
    static_assert(timeReceivedAt + sizeof(std::uint64_t) == BasicLspEcho::size);

    std::uint16_t version() const noexcept { return this->u16(0); }
    std::uint16_t flags() const noexcept { return this->u16(flagsAt); }
    std::uint8_t type() const noexcept { return this->u8(typeAt); }
    std::uint8_t replyMode() const noexcept { return this->u8(replyModeAt); }
    std::span<Byte, returnedSize> returned() const noexcept {
        return std::span<Byte, returnedSize>(this->at(returnedAt, returnedSize), returnedSize);
    }

    /// Sets version, type and reply mode, and zeroes the flags.
    void messageIs(MessageType type, std::uint8_t replyMode) const noexcept {
        this->put16(0, currentVersion);
        this->put16(flagsAt, 0);
        this->put8(typeAt, type);
        this->put8(replyModeAt, replyMode);
    }
    void returnCodeIs(std::uint8_t code, std::uint8_t subcode) const noexcept {
        this->put8(returnCodeAt, code);
        this->put8(returnSubcodeAt, subcode);
    }
    /// In the format of NTP (RFC 5905).
    void timeReceivedIs(std::uint64_t time) const noexcept { this->put64(timeReceivedAt, time); }
};
using LspEcho = BasicLspEcho<const std::uint8_t>;
using LspEchoWriter = BasicLspEcho<std::uint8_t>;

/// A TLV or sub-TLV of an MPLS echo message: type, length of the value, and the value, padded to
/// whole words.
///
///     +-----------+-----------+----------------------------+---------+
///     | Type      | Length    | Value (Length bytes)       | padding |
///     +-----------+-----------+----------------------------+---------+
struct LspEchoTlv {
    static constexpr std::size_t headerSize = 4;
    static constexpr std::size_t lengthAt = 2;

    enum Type : std::uint16_t {
        targetFecStack = 1,
        downstreamMapping = 2, ///< deprecated (RFC 8029 section 3.4)
        pad = 3,
        interfaceAndLabelStack = 7,
        erroredTlvs = 9,
        replyTosByte = 10,
        downstreamDetailedMapping = 20,
        firstOptional = 0x8000, ///< types from here on may be ignored when unknown
    };
    /// Sub-TLVs of the target FEC stack (RFC 8029 section 3.2, RFC 8287 section 5).
    enum FecType : std::uint16_t {
        ldpIpv4Prefix = 1,
        ldpIpv6Prefix = 2,
        nilFec = 16,
        ipv4PrefixSid = 34,
        ipv6PrefixSid = 35,
        adjacencySid = 36,
    };
    /// Sub-TLVs of a downstream detailed mapping (RFC 8029 section 3.4.1).
    enum MappingType : std::uint16_t {
        multipathData = 1,
        downstreamLabelStack = 2,
        fecStackChange = 3,
    };

    std::uint16_t type = 0;
    Bytes value;
    Bytes whole; ///< with its header and padding

    /// Takes the first TLV off `bytes`. False, and both are as they were, when they do not hold a
    /// whole one.
    static bool take(Bytes& bytes, LspEchoTlv& tlv) noexcept {
        if (bytes.size() < headerSize) {
            return false;
        }
        const std::size_t length = Lumo::NetU16::load(bytes.data() + lengthAt).value();
        const std::size_t size = headerSize + (length + 3) / 4 * 4;
        if (size > bytes.size()) {
            return false;
        }
        tlv = {Lumo::NetU16::load(bytes.data()).value(), bytes.subspan(headerSize, length),
               bytes.first(size)};
        bytes = bytes.subspan(size);
        return true;
    }

    /// Appends a TLV with a value of whole words.
    static void add(std::vector<std::uint8_t>& bytes, std::uint16_t type, Bytes value) {
        assert(value.size() % 4 == 0 && value.size() <= 0xffff);
        const std::size_t at = bytes.size();
        bytes.resize(at + headerSize);
        Lumo::NetU16(type).store(bytes.data() + at);
        Lumo::NetU16(static_cast<std::uint16_t>(value.size())).store(bytes.data() + at + lengthAt);
        bytes.insert(bytes.end(), value.begin(), value.end());
    }
};

/// A downstream detailed mapping (RFC 8029 section 3.4): MTU, address type, flags; two addresses;
/// return code and subcode and the length of the sub-TLVs that follow.
///
///     0      2      3      4                4 + n      n + 6        n + 8
///     +------+------+------+----------------+----------+------------+---------------+
///     | MTU  | type | flags| addresses (n)  | code, sub| length     | sub-TLVs      |
///     +------+------+------+----------------+----------+------------+---------------+
namespace LspEchoDownstream {
enum AddressType : std::uint8_t {
    ipv4Numbered = 1,
    ipv4Unnumbered = 2,
    ipv6Numbered = 3,
    ipv6Unnumbered = 4,
    notApplicable = 5,
};
enum Flags : std::uint8_t { treatAsNonIp = 1, wantsInterface = 2 };
inline constexpr std::size_t addressTypeAt = 2;
inline constexpr std::size_t flagsAt = 3;
inline constexpr std::size_t addressesAt = 4;
/// Of the two addresses, by type.
inline constexpr std::size_t addressesSize[] = {0, 8, 8, 32, 20, 0};
/// Without addresses and sub-TLVs.
inline constexpr std::size_t fixedSize = 8;

/// The labels of a deprecated mapping, which has no return code, but a multipath type, a depth
/// limit and the length of the multipath information in its place, then that information, and the
/// labels. False when the value is damaged.
inline bool labelsOfDeprecated(Bytes value, Bytes& found) noexcept {
    const std::size_t type = value.size() > addressTypeAt ? value[addressTypeAt] : 0;
    if (type < ipv4Numbered || type > ipv6Unnumbered) {
        return false;
    }
    const std::size_t size = fixedSize + addressesSize[type];
    if (value.size() < size) {
        return false;
    }
    const std::size_t multipath = Lumo::NetU16::load(value.data() + size - 2).value();
    if (multipath > value.size() - size) {
        return false;
    }
    found = value.subspan(size + multipath);
    return true;
}

/// In its label stack: label, TC and bottom of stack as in a label stack entry, and the protocol.
inline constexpr std::size_t labelSize = 4;

/// The sub-TLVs of a mapping; false when the value is damaged.
inline bool subTlvs(Bytes value, Bytes& found) noexcept {
    const std::size_t type = value.size() > addressTypeAt ? value[addressTypeAt] : 0;
    if (type < ipv4Numbered || type > notApplicable) {
        return false;
    }
    const std::size_t size = fixedSize + addressesSize[type];
    if (value.size() < size ||
        Lumo::NetU16::load(value.data() + size - 2).value() != value.size() - size) {
        return false;
    }
    found = value.subspan(size);
    return true;
}
} // namespace LspEchoDownstream

} // namespace Wire
