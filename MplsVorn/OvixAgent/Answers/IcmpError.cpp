#include "Answers/IcmpError.h"

#include <algorithm>
#include <array>
#include <cassert>

#include "Wire/Icmp.h"
#include "Wire/Ip.h"

namespace OvixAgent {

namespace {

namespace IpProtocol = Wire::IpProtocol;
using Ovix::PktHdrType;

struct IcmpError {
    std::uint8_t type = 0;
    std::uint8_t code = 0;
    std::uint32_t value = 0;
    bool mayAnswerGroups = false; ///< also packets to multicast addresses (RFC 4443 section 2.4)
    Wire::Bytes labels{};         ///< the label stack to report, if any
};

bool isErrorMessage(const IpUpperLayer& upper, std::uint8_t icmpProtocol) noexcept {
    if (upper.protocol != icmpProtocol) {
        return false;
    }
    // A message that ends before its type may be an error.
    return upper.bytes.empty() ||
           (icmpProtocol == IpProtocol::icmp ? Wire::IcmpType::isError(upper.bytes[0])
                                             : Wire::Icmpv6Type::isError(upper.bytes[0]));
}

bool isToGroup(const LabelledPacket& packet) noexcept {
    const IpScope scope = ipScope(packet.ip.destination());
    return packet.isToGroup || scope == IpScope::linkMulticast || scope == IpScope::multicast;
}

bool isSingleHost(const Lumo::IpGenAddr& address) noexcept {
    const IpScope scope = ipScope(address);
    const bool isIpv6 = address.family() == Lumo::IpFamily::ipv6;
    return scope == IpScope::global || (scope == IpScope::linkLocal && isIpv6);
}

bool mayBeAnswered(const IcmpError& error, const LabelledPacket& packet,
                   std::uint8_t icmpProtocol) {
    const std::optional<IpUpperLayer> upper = packet.ip.upperLayer();
    return upper && upper->isFirstFragment && !isErrorMessage(*upper, icmpProtocol) &&
           (error.mayAnswerGroups || !isToGroup(packet)) && isSingleHost(packet.ip.source());
}

/// The extension structure of RFC 4884 with one object, the label stack of RFC 4950.
std::vector<std::uint8_t> labelStackExtension(Wire::Bytes labels) {
    assert(labels.size() % Lumo::MplsLabelEntry::size == 0);
    using Extension = Wire::IcmpExtensionWriter;
    std::vector<std::uint8_t> bytes(Extension::size);
    Extension(std::span(bytes)).labelStackIs(labels.size());
    bytes.insert(bytes.end(), labels.begin(), labels.end());
    Wire::completeChecksum(bytes, 0, Extension::checksumAt);
    return bytes;
}

/// Quotes a packet in at most `room` bytes. The label stack, if there is one and it has room,
/// follows as an extension.
void quote(std::vector<std::uint8_t>& message, const IpPacket& packet, Wire::Bytes labels,
           std::size_t room) {
    constexpr std::size_t shortQuote = Wire::IcmpExtensionWriter::quoteSize;
    const std::size_t extended = shortQuote + Wire::IcmpExtensionWriter::size + labels.size();
    const bool isExtended = !labels.empty() && extended <= room;
    const Wire::Bytes quoted =
        packet.bytes.first(std::min(packet.bytes.size(), isExtended ? shortQuote : room));
    message.insert(message.end(), quoted.begin(), quoted.end());
    if (!isExtended) {
        return;
    }
    message.resize(Wire::Icmp::size + shortQuote);
    const Wire::IcmpWriter header{std::span(message)};
    if (packet.type == PktHdrType::ipv4) {
        header.quoteLengthIs(shortQuote);
    } else {
        header.quoteLengthInIcmpv6Is(shortQuote);
    }
    const std::vector<std::uint8_t> extension = labelStackExtension(labels);
    message.insert(message.end(), extension.begin(), extension.end());
}

std::vector<std::uint8_t> errorPacket(const IcmpError& error, const LabelledPacket& packet,
                                      const OwnAddresses& own) {
    constexpr std::size_t largest4 = 576;
    constexpr std::size_t largest6 = 1280;
    const Lumo::IpGenAddr& source = own.of(packet.ip.type);
    const bool isIpv4 = packet.ip.type == PktHdrType::ipv4;
    const std::uint8_t protocol = isIpv4 ? IpProtocol::icmp : IpProtocol::icmpv6;
    if (source.empty() || !mayBeAnswered(error, packet, protocol)) {
        return {};
    }
    std::vector<std::uint8_t> message(Wire::Icmp::size);
    const Wire::IcmpWriter header{std::span(message)};
    header.typeIs(error.type, error.code);
    header.valueIs(error.value);
    const std::size_t room = isIpv4 ? largest4 - Wire::Ipv4::size : largest6 - Wire::Ipv6::size;
    quote(message, packet.ip, error.labels, room - Wire::Icmp::size);
    constexpr std::uint8_t internetworkControl = 6U << 5U; // RFC 1812 section 4.3.2.5
    return ipPacketBytes({source, packet.ip.source(), protocol, internetworkControl}, message,
                         Wire::Icmp::checksumAt);
}

bool mayBeFragmented(const IpPacket& packet) noexcept {
    return packet.type == PktHdrType::ipv4 && !Wire::Ipv4(packet.bytes).dontFragment();
}

std::uint32_t mtuBeneath(Wire::Bytes labels, std::uint32_t egressMtu, PktHdrType type) noexcept {
    const std::uint32_t least = type == PktHdrType::ipv4 ? 68 : 1280;
    const auto size = static_cast<std::uint32_t>(std::min<std::size_t>(labels.size(), egressMtu));
    return std::max(egressMtu - size, least);
}

} // namespace

std::vector<std::uint8_t> icmpTimeExceeded(const LabelledPacket& received,
                                           const OwnAddresses& own) {
    IcmpError error;
    error.type = received.ip.type == PktHdrType::ipv4 ? Wire::IcmpType::timeExceeded
                                                      : Wire::Icmpv6Type::timeExceeded;
    error.labels = received.labels;
    return errorPacket(error, received, own);
}

std::vector<std::uint8_t> icmpUnreachable(const LabelledPacket& received, Unreachable why,
                                          const OwnAddresses& own) {
    static constexpr std::array<std::uint8_t, 4> codes4{
        Wire::IcmpCode::netUnreachable, Wire::IcmpCode::hostUnreachable,
        Wire::IcmpCode::hostUnreachable, Wire::IcmpCode::prohibited};
    static constexpr std::array<std::uint8_t, 4> codes6{
        Wire::Icmpv6Code::noRoute, Wire::Icmpv6Code::addressUnreachable,
        Wire::Icmpv6Code::rejectRoute, Wire::Icmpv6Code::prohibited};
    const bool isIpv4 = received.ip.type == PktHdrType::ipv4;
    IcmpError error;
    error.type = isIpv4 ? Wire::IcmpType::unreachable : Wire::Icmpv6Type::unreachable;
    error.code = (isIpv4 ? codes4 : codes6).at(static_cast<std::size_t>(why));
    error.labels = received.labels;
    return errorPacket(error, received, own);
}

std::vector<std::uint8_t> icmpTooBig(const LabelledPacket& leaving, std::uint32_t egressMtu,
                                     const OwnAddresses& own) {
    const std::uint32_t mtu = mtuBeneath(leaving.labels, egressMtu, leaving.ip.type);
    if (leaving.ip.bytes.size() <= mtu || mayBeFragmented(leaving.ip)) {
        return {};
    }
    IcmpError error;
    if (leaving.ip.type == PktHdrType::ipv4) {
        error.type = Wire::IcmpType::unreachable;
        error.code = Wire::IcmpCode::fragmentationNeeded;
    } else {
        error.type = Wire::Icmpv6Type::packetTooBig;
        error.mayAnswerGroups = true;
    }
    error.value = mtu;
    return errorPacket(error, leaving, own);
}

} // namespace OvixAgent
