#include "Ip/IpPacket.h"

#include <algorithm>
#include <array>
#include <cassert>

#include "Ovix/packet/TtlBytes.h"
#include "State/Fate.h"
#include "State/PrefixTable.h"
#include "Wire/Ip.h"
#include "Wire/LspEcho.h"
#include "Wire/Transport.h"

namespace OvixAgent {

namespace {

std::string_view ipv4Fault(Wire::Bytes bytes, std::size_t snapped) noexcept {
    const Wire::Ipv4 header(bytes);
    if (!header) {
        return Reason::ipHeaderCutShort;
    }
    const std::size_t headerSize = header.headerSize();
    if (headerSize < Wire::Ipv4::size) {
        return Reason::ipv4HeaderLength;
    }
    if (header.totalLength() < headerSize || header.totalLength() > bytes.size() + snapped) {
        return Reason::ipv4TotalLength;
    }
    if (headerSize > bytes.size()) {
        return Reason::ipHeaderCutShort;
    }
    // The sum of a header with its checksum is all ones (RFC 1071).
    return Wire::onesSum(bytes.first(headerSize)) == 0xffff ? std::string_view()
                                                            : Reason::ipv4Checksum;
}

std::string_view ipv6Fault(Wire::Bytes bytes, std::size_t snapped) noexcept {
    const Wire::Ipv6 header(bytes);
    if (!header) {
        return Reason::ipHeaderCutShort;
    }
    return Wire::Ipv6::size + header.payloadLength() > bytes.size() + snapped
               ? Reason::ipv6PayloadLength
               : std::string_view();
}

IpScope ipv4Scope(const std::uint8_t* a) noexcept {
    if (isGlobalIpv4(Lumo::NetU32::load(a).value())) {
        return IpScope::global;
    }
    if (a[0] == 0 || a[0] == 127) {
        return IpScope::nowhere;
    }
    if (a[0] < 224) {
        return IpScope::linkLocal;
    }
    if (a[0] < 240) {
        const bool local = a[0] == 224 && a[1] == 0 && a[2] == 0; // RFC 5771 section 4
        return local ? IpScope::linkMulticast : IpScope::multicast;
    }
    const bool broadcast = a[0] == 255 && a[1] == 255 && a[2] == 255 && a[3] == 255;
    return broadcast ? IpScope::linkMulticast : IpScope::nowhere;
}

IpScope ipv6Scope(const Lumo::IpGenAddr& address) noexcept {
    constexpr std::uint8_t linkLocalScope = 2; // RFC 7346; lower scopes do not leave the node
    const std::uint8_t* a = address.bytes().data();
    if (a[0] == 0xff) {
        return (a[1] & 0x0fU) <= linkLocalScope ? IpScope::linkMulticast : IpScope::multicast;
    }
    if (a[0] == 0xfe && (a[1] & 0xc0U) == 0x80) {
        return IpScope::linkLocal;
    }
    const AddressBits bits = AddressBits::of(address);
    const bool isIpv4Mapped = bits.low >> 32U == 0xffff;
    return bits.high == 0 && (bits.low <= 1 || isIpv4Mapped) ? IpScope::nowhere : IpScope::global;
}

} // namespace

std::string_view IpPacket::fault(std::size_t snapped) const noexcept {
    assert(isIp(type));
    const bool isIpv4 = type == Ovix::PktHdrType::ipv4;
    if (bytes.empty()) {
        return Reason::ipHeaderCutShort;
    }
    if (Wire::ipVersion(bytes) != (isIpv4 ? 4 : 6)) {
        return Reason::ipVersion;
    }
    return isIpv4 ? ipv4Fault(bytes, snapped) : ipv6Fault(bytes, snapped);
}

std::size_t IpPacket::length() const noexcept {
    assert(isIp(type));
    if (type == Ovix::PktHdrType::ipv4) {
        return Wire::Ipv4(bytes).totalLength();
    }
    // The payload length of a jumbogram is 0 and its length is elsewhere (RFC 2675).
    const std::size_t payloadLength = Wire::Ipv6(bytes).payloadLength();
    return payloadLength != 0 ? Wire::Ipv6::size + payloadLength : bytes.size();
}

std::uint8_t IpPacket::ttl() const noexcept {
    return Ovix::TtlBytes::ttl(type, bytes);
}

Lumo::IpGenAddr IpPacket::source() const noexcept {
    assert(Ovix::TtlBytes::whole(type, bytes));
    return type == Ovix::PktHdrType::ipv4
               ? Lumo::IpGenAddr::ipv4(bytes.data() + Wire::Ipv4::sourceAt)
               : Lumo::IpGenAddr::ipv6(bytes.data() + Wire::Ipv6::sourceAt);
}

Lumo::IpGenAddr IpPacket::destination() const noexcept {
    assert(Ovix::TtlBytes::whole(type, bytes));
    return type == Ovix::PktHdrType::ipv4
               ? Lumo::IpGenAddr::ipv4(bytes.data() + Wire::Ipv4::destinationAt)
               : Lumo::IpGenAddr::ipv6(bytes.data() + Wire::Ipv6::destinationAt);
}

std::optional<IpUpperLayer> IpPacket::upperLayer() const noexcept {
    const Wire::Bytes packet = bytes.first(std::min(length(), bytes.size()));
    const Wire::UpperLayer upper = type == Ovix::PktHdrType::ipv4
                                       ? Wire::upperLayer(Wire::Ipv4(packet))
                                       : Wire::ipv6UpperLayer(packet);
    if (!upper.isWhole) {
        return std::nullopt;
    }
    return IpUpperLayer{upper.protocol, upper.isFirstFragment,
                        upper.isFirstFragment ? packet.subspan(upper.offset) : Wire::Bytes()};
}

bool isMplsEcho(const IpPacket& packet) noexcept {
    static constexpr std::array<std::uint8_t, 16> mapped{0, 0, 0, 0,    0,    0,  0,
                                                         0, 0, 0, 0xff, 0xff, 127};
    static const Lumo::IpGenPrefix loopback4(Lumo::IpGenAddr::ipv4(mapped.data() + 12), 8);
    static const Lumo::IpGenPrefix mapped4(Lumo::IpGenAddr::ipv6(mapped.data()), 104);
    const Lumo::IpGenAddr destination = packet.destination();
    if (!loopback4.contains(destination) && !mapped4.contains(destination)) {
        return false;
    }
    const std::optional<IpUpperLayer> upper = packet.upperLayer();
    const Wire::Udp header(upper ? upper->bytes : Wire::Bytes());
    return header && upper->protocol == Wire::IpProtocol::udp &&
           header.destinationPort() == Wire::lspEchoPort;
}

IpScope ipScope(const Lumo::IpGenAddr& address) noexcept {
    assert(address.family() != Lumo::IpFamily::none);
    return address.family() == Lumo::IpFamily::ipv4 ? ipv4Scope(address.bytes().data())
                                                    : ipv6Scope(address);
}

} // namespace OvixAgent
