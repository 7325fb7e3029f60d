#include "Ip/IpPacket.h"

#include "Lumo/NetInt.h"
#include "Ovix/packet/TtlBytes.h"
#include "State/Fate.h"

namespace OvixAgent {

namespace {

constexpr std::size_t ipv4Size = 20;
constexpr std::size_t ipv6Size = 40;
constexpr std::size_t ipv4SourceOffset = 12;
constexpr std::size_t ipv4DestinationOffset = 16;
constexpr std::size_t ipv6SourceOffset = 8;
constexpr std::size_t ipv6DestinationOffset = 24;

std::uint16_t field(const std::uint8_t* at) noexcept {
    return Lumo::NetU16::load(at).value();
}

std::size_t ipv4HeaderLength(std::span<const std::uint8_t> bytes) noexcept {
    return (bytes[0] & 0x0fU) * std::size_t{4};
}

/// The one's complement sum of a header with its checksum in it is all ones (RFC 1071).
bool checksumIsRight(std::span<const std::uint8_t> header) noexcept {
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < header.size(); i += 2) {
        sum += field(header.data() + i);
    }
    sum = (sum & 0xffffU) + (sum >> 16U);
    sum = (sum & 0xffffU) + (sum >> 16U);
    return sum == 0xffffU;
}

std::string_view ipv4Fault(std::span<const std::uint8_t> bytes, std::size_t snapped) noexcept {
    if (bytes.size() < ipv4Size) {
        return Reason::ipHeaderCutShort;
    }
    const std::size_t headerLength = ipv4HeaderLength(bytes);
    const std::size_t totalLength = field(bytes.data() + 2);
    if (headerLength < ipv4Size) {
        return Reason::ipv4HeaderLength;
    }
    if (totalLength < headerLength || totalLength > bytes.size() + snapped) {
        return Reason::ipv4TotalLength;
    }
    if (headerLength > bytes.size()) {
        return Reason::ipHeaderCutShort;
    }
    return checksumIsRight(bytes.first(headerLength)) ? std::string_view() : Reason::ipv4Checksum;
}

std::string_view ipv6Fault(std::span<const std::uint8_t> bytes, std::size_t snapped) noexcept {
    if (bytes.size() < ipv6Size) {
        return Reason::ipHeaderCutShort;
    }
    const std::size_t payloadLength = field(bytes.data() + 4);
    return ipv6Size + payloadLength > bytes.size() + snapped ? Reason::ipv6PayloadLength
                                                             : std::string_view();
}

} // namespace

std::string_view IpPacket::fault(std::size_t snapped) const noexcept {
    const bool isIpv4 = type == Ovix::PktHdrType::ipv4;
    if (bytes.empty()) {
        return Reason::ipHeaderCutShort;
    }
    if (bytes[0] >> 4U != (isIpv4 ? 4 : 6)) {
        return Reason::ipVersion;
    }
    return isIpv4 ? ipv4Fault(bytes, snapped) : ipv6Fault(bytes, snapped);
}

std::size_t IpPacket::length() const noexcept {
    if (type == Ovix::PktHdrType::ipv4) {
        return field(bytes.data() + 2);
    }
    // A payload length of 0 stands for a jumbogram, whose length is elsewhere (RFC 2675).
    const std::size_t payloadLength = field(bytes.data() + 4);
    return payloadLength != 0 ? ipv6Size + payloadLength : bytes.size();
}

std::uint8_t IpPacket::ttl() const noexcept {
    return Ovix::TtlBytes::ttl(type, bytes);
}

Lumo::IpGenAddr IpPacket::source() const noexcept {
    return type == Ovix::PktHdrType::ipv4 ? Lumo::IpGenAddr::ipv4(bytes.data() + ipv4SourceOffset)
                                          : Lumo::IpGenAddr::ipv6(bytes.data() + ipv6SourceOffset);
}

Lumo::IpGenAddr IpPacket::destination() const noexcept {
    return type == Ovix::PktHdrType::ipv4
               ? Lumo::IpGenAddr::ipv4(bytes.data() + ipv4DestinationOffset)
               : Lumo::IpGenAddr::ipv6(bytes.data() + ipv6DestinationOffset);
}

namespace {

constexpr std::uint8_t fragmentHeader = 44;

bool isExtension(std::uint8_t protocol) noexcept {
    constexpr std::uint8_t hopByHop = 0;
    constexpr std::uint8_t routing = 43;
    constexpr std::uint8_t authentication = 51;
    constexpr std::uint8_t destinationOptions = 60;
    return protocol == hopByHop || protocol == routing || protocol == fragmentHeader ||
           protocol == authentication || protocol == destinationOptions;
}

std::size_t extensionLength(std::uint8_t protocol, std::span<const std::uint8_t> header) noexcept {
    constexpr std::uint8_t authentication = 51;
    if (protocol == fragmentHeader) {
        return 8;
    }
    return protocol == authentication ? (header[1] + std::size_t{2}) * 4
                                      : (header[1] + std::size_t{1}) * 8;
}

IpUpperLayer ipv4UpperLayer(std::span<const std::uint8_t> packet) noexcept {
    constexpr std::size_t protocolAt = 9;
    constexpr std::size_t fragmentOffset = 6;
    if ((field(packet.data() + fragmentOffset) & 0x1fffU) != 0) {
        return {packet[protocolAt], false, {}};
    }
    return {packet[protocolAt], true, packet.subspan((packet[0] & 0x0fU) * std::size_t{4})};
}

std::optional<IpUpperLayer> ipv6UpperLayer(std::span<const std::uint8_t> packet) noexcept {
    constexpr std::size_t nextHeaderAt = 6;
    constexpr std::size_t shortestExtension = 8;
    std::uint8_t protocol = packet[nextHeaderAt];
    std::span<const std::uint8_t> rest = packet.subspan(ipv6Size);
    while (isExtension(protocol)) {
        if (rest.size() < shortestExtension) {
            return std::nullopt;
        }
        if (protocol == fragmentHeader && (field(rest.data() + 2) & 0xfff8U) != 0) {
            return IpUpperLayer{rest[0], false, {}};
        }
        const std::size_t length = extensionLength(protocol, rest);
        if (length > rest.size()) {
            return std::nullopt;
        }
        protocol = rest[0];
        rest = rest.subspan(length);
    }
    return IpUpperLayer{protocol, true, rest};
}

} // namespace

std::optional<IpUpperLayer> upperLayer(const IpPacket& packet) noexcept {
    const std::span<const std::uint8_t> bytes = packet.bytes.first(packet.length());
    return packet.type == Ovix::PktHdrType::ipv4 ? ipv4UpperLayer(bytes) : ipv6UpperLayer(bytes);
}

} // namespace OvixAgent
