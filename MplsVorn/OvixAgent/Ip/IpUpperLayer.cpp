#include "Ip/IpUpperLayer.h"

#include "Lumo/NetInt.h"

namespace OvixAgent {

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t ipv6Size = 40;
constexpr std::uint8_t fragmentHeader = 44;

std::uint16_t u16(Bytes bytes, std::size_t at) noexcept {
    return Lumo::NetU16::load(bytes.data() + at).value();
}

bool isExtension(std::uint8_t protocol) noexcept {
    constexpr std::uint8_t hopByHop = 0;
    constexpr std::uint8_t routing = 43;
    constexpr std::uint8_t authentication = 51;
    constexpr std::uint8_t destinationOptions = 60;
    return protocol == hopByHop || protocol == routing || protocol == fragmentHeader ||
           protocol == authentication || protocol == destinationOptions;
}

std::size_t extensionLength(std::uint8_t protocol, Bytes header) noexcept {
    constexpr std::uint8_t authentication = 51;
    if (protocol == fragmentHeader) {
        return 8;
    }
    return protocol == authentication ? (header[1] + std::size_t{2}) * 4
                                      : (header[1] + std::size_t{1}) * 8;
}

IpUpperLayer ipv4UpperLayer(Bytes packet) noexcept {
    constexpr std::size_t protocolAt = 9;
    constexpr std::size_t fragmentAt = 6;
    if ((u16(packet, fragmentAt) & 0x1fffU) != 0) {
        return {packet[protocolAt], false, {}};
    }
    return {packet[protocolAt], true, packet.subspan((packet[0] & 0x0fU) * std::size_t{4})};
}

std::optional<IpUpperLayer> ipv6UpperLayer(Bytes packet) noexcept {
    constexpr std::size_t nextHeaderAt = 6;
    constexpr std::size_t shortestExtension = 8;
    std::uint8_t protocol = packet[nextHeaderAt];
    Bytes rest = packet.subspan(ipv6Size);
    while (isExtension(protocol)) {
        if (rest.size() < shortestExtension) {
            return std::nullopt;
        }
        if (protocol == fragmentHeader && (u16(rest, 2) & 0xfff8U) != 0) {
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
    const Bytes bytes = packet.bytes.first(packet.length());
    return packet.type == Ovix::PktHdrType::ipv4 ? ipv4UpperLayer(bytes) : ipv6UpperLayer(bytes);
}

} // namespace OvixAgent
