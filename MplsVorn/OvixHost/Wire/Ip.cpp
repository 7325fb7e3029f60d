#include "Wire/Ip.h"

namespace Wire {

namespace {

constexpr std::size_t shortestExtension = 8;

bool isExtension(std::uint8_t protocol) noexcept {
    return protocol == IpProtocol::hopByHop || protocol == IpProtocol::routing ||
           protocol == IpProtocol::fragment || protocol == IpProtocol::authentication ||
           protocol == IpProtocol::destinationOptions;
}

/// The length in the second byte counts 8 bytes beyond the first 8, or 4 bytes in an authentication
/// header (RFC 4302 section 2.2). A fragment header has none.
std::size_t extensionSize(std::uint8_t protocol, Bytes header) noexcept {
    if (protocol == IpProtocol::fragment) {
        return shortestExtension;
    }
    return protocol == IpProtocol::authentication ? (header[1] + std::size_t{2}) * 4
                                                  : (header[1] + std::size_t{1}) * 8;
}

} // namespace

UpperLayer upperLayer(const Ipv4& header) noexcept {
    return {header.headerSize(), header.protocol(), header.isFirstFragment(), true};
}

UpperLayer ipv6UpperLayer(Bytes packet) noexcept {
    constexpr std::size_t fragmentOffsetAt = 2;
    constexpr std::uint16_t fragmentOffsetMask = 0xfff8;
    UpperLayer upper{Ipv6::size, Ipv6(packet).nextHeader(), true, true};
    while (isExtension(upper.protocol)) {
        const Bytes rest = packet.subspan(upper.offset);
        if (rest.size() < shortestExtension) {
            upper.isWhole = false;
            return upper;
        }
        if (upper.protocol == IpProtocol::fragment &&
            (Lumo::NetU16::load(rest.data() + fragmentOffsetAt).value() & fragmentOffsetMask) !=
                0) {
            return {upper.offset, rest[0], false, true};
        }
        const std::size_t size = extensionSize(upper.protocol, rest);
        if (size > rest.size()) {
            upper.isWhole = false;
            return upper;
        }
        upper.protocol = rest[0];
        upper.offset += size;
    }
    return upper;
}

} // namespace Wire
