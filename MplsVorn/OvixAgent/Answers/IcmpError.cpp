#include "Answers/IcmpError.h"

#include <algorithm>

#include "Answers/Answer.h"
#include "Ip/InternetChecksum.h"
#include "Ip/IpPacket.h"
#include "Ip/IpScope.h"
#include "Lumo/NetInt.h"
#include "State/PrefixTable.h"

namespace OvixAgent {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t headerSize = 8;
constexpr std::size_t checksumAt = 2;
constexpr std::size_t valueAt = 4;
constexpr std::size_t extendedQuote = 128; // the least that RFC 4884 allows

/// What the two families do differently.
struct Family {
    std::uint8_t protocol;
    std::size_t room;     ///< for the whole ICMP message
    std::size_t unit;     ///< that the length of what is quoted is told in, in bytes
    std::size_t lengthAt; ///< where it is told (RFC 4884 section 4)
};
constexpr Family ipv4{IpProtocol::icmp, 576 - 20, 4, 5};
constexpr Family ipv6{IpProtocol::icmpv6, 1280 - 40, 8, 4};

bool isIcmpError(std::uint8_t protocol, std::uint8_t type) noexcept {
    constexpr std::uint8_t firstInformational = 128;
    constexpr std::uint8_t ipv6Redirect = 137;
    if (protocol == IpProtocol::icmpv6) {
        return type < firstInformational || type == ipv6Redirect;
    }
    // Unreachable, source quench, redirect, time exceeded and parameter problem.
    return type == 3 || type == 4 || type == 5 || type == 11 || type == 12;
}

/// An ICMP message that ends before its type may be an error.
bool carriesIcmpError(const IpUpperLayer& upper, const Family& family) noexcept {
    return upper.protocol == family.protocol &&
           (upper.bytes.empty() || isIcmpError(upper.protocol, upper.bytes[0]));
}

bool isGroup(const LabelledPacket& packet) noexcept {
    const IpScope scope = ipScope(packet.ip.destination());
    return packet.isToGroup || scope == IpScope::linkMulticast || scope == IpScope::multicast;
}

/// RFC 4291 section 2.5.5.2.
bool isIpv4Mapped(const Lumo::IpGenAddr& address) noexcept {
    const AddressBits bits = AddressBits::of(address);
    return address.family() == Lumo::IpFamily::ipv6 && bits.high == 0 && bits.low >> 32U == 0xffff;
}

bool isOneHost(const Lumo::IpGenAddr& address) noexcept {
    const IpScope scope = ipScope(address);
    const bool isIpv6 = address.family() == Lumo::IpFamily::ipv6;
    return (scope == IpScope::global && !isIpv4Mapped(address)) ||
           (scope == IpScope::linkLocal && isIpv6);
}

bool mayBeAnswered(const IcmpError& error, const LabelledPacket& packet, const Family& family) {
    const std::optional<IpUpperLayer> upper = upperLayer(packet.ip);
    return upper && upper->isFirstFragment && !carriesIcmpError(*upper, family) &&
           (error.mayAnswerGroups || !isGroup(packet)) && isOneHost(packet.ip.source());
}

/// The extension structure of RFC 4884 with one object, the label stack of RFC 4950.
Bytes labelStackExtension(std::span<const std::uint8_t> labels) {
    constexpr std::uint8_t version = 2U << 4U;
    constexpr std::uint8_t labelStackClass = 1;
    constexpr std::uint8_t incomingStack = 1;
    const std::size_t objectSize = 4 + labels.size();
    Bytes bytes{version,
                0,
                0,
                0,
                static_cast<std::uint8_t>(objectSize >> 8U),
                static_cast<std::uint8_t>(objectSize),
                labelStackClass,
                incomingStack};
    bytes.insert(bytes.end(), labels.begin(), labels.end());
    completeChecksum(bytes, 0, checksumAt);
    return bytes;
}

/// Quotes a packet, with the extension behind it unless that is empty or has no room. Many readers
/// look for an extension behind 128 bytes, whatever length is told.
void quote(Bytes& message, std::span<const std::uint8_t> packet, const Bytes& extension,
           const Family& family) {
    const std::size_t room = family.room - headerSize;
    const bool isExtended = !extension.empty() && extension.size() + extendedQuote <= room;
    const auto quoted = packet.first(std::min(packet.size(), isExtended ? extendedQuote : room));
    message.insert(message.end(), quoted.begin(), quoted.end());
    if (isExtended) {
        message.resize(headerSize + extendedQuote);
        message[family.lengthAt] = static_cast<std::uint8_t>(extendedQuote / family.unit);
        message.insert(message.end(), extension.begin(), extension.end());
    }
}

} // namespace

std::vector<std::uint8_t> icmpErrorPacket(const IcmpError& error, const LabelledPacket& received,
                                          const OwnAddresses& own) {
    const Lumo::IpGenAddr& source = own.of(received.ip.type);
    const Family& family = received.ip.type == Ovix::PktHdrType::ipv4 ? ipv4 : ipv6;
    if (source.empty() || !mayBeAnswered(error, received, family)) {
        return {};
    }
    Bytes message{error.type, error.code, 0, 0, 0, 0, 0, 0};
    Lumo::NetU32(error.value).store(message.data() + valueAt);
    const bool hasStack = error.tellsLabelStack && !received.labels.empty();
    quote(message, received.ip.bytes, hasStack ? labelStackExtension(received.labels) : Bytes{},
          family);
    constexpr std::uint8_t internetworkControl = 6U << 5U; // RFC 1812 section 4.3.2.5
    return ipPacketBytes({source, received.ip.source(), family.protocol, internetworkControl},
                         message, checksumAt);
}

std::vector<std::uint8_t> icmpTimeExceeded(const LabelledPacket& received,
                                           const OwnAddresses& own) {
    IcmpError error;
    error.type = received.ip.type == Ovix::PktHdrType::ipv4 ? 11 : 3;
    error.tellsLabelStack = true;
    return icmpErrorPacket(error, received, own);
}

namespace {

bool mayBeFragmented(const IpPacket& packet) noexcept {
    constexpr std::size_t flagsAt = 6;
    constexpr std::uint8_t dontFragment = 0x40;
    return packet.type == Ovix::PktHdrType::ipv4 && (packet.bytes[flagsAt] & dontFragment) == 0;
}

std::uint32_t mtuBeneath(std::span<const std::uint8_t> labels, std::uint32_t egressMtu,
                         Ovix::PktHdrType type) noexcept {
    const std::uint32_t least = type == Ovix::PktHdrType::ipv4 ? 68 : 1280;
    const std::uint32_t left =
        egressMtu - static_cast<std::uint32_t>(std::min<std::size_t>(labels.size(), egressMtu));
    return std::max(left, least);
}

} // namespace

std::vector<std::uint8_t> icmpTooBig(const LabelledPacket& leaving, std::uint32_t egressMtu,
                                     const OwnAddresses& own) {
    const std::uint32_t mtu = mtuBeneath(leaving.labels, egressMtu, leaving.ip.type);
    if (leaving.ip.bytes.size() <= mtu || mayBeFragmented(leaving.ip)) {
        return {};
    }
    IcmpError error;
    if (leaving.ip.type == Ovix::PktHdrType::ipv4) {
        error.type = 3;
        error.code = 4;
    } else {
        error.type = 2;
        error.mayAnswerGroups = true;
    }
    error.value = mtu;
    return icmpErrorPacket(error, leaving, own);
}

} // namespace OvixAgent
