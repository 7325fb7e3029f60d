#include "Forwarding/GroupMac.h"

#include "Ovix/packet/IpHeaderAccess.h"

namespace OvixAgent {

namespace {

constexpr std::uint8_t low(std::uint32_t value, unsigned shift) noexcept {
    return static_cast<std::uint8_t>(value >> shift);
}

Lumo::EthAddr macOfLabel(std::uint32_t label) noexcept {
    return {0x01, 0x00, 0x5e, low(0x80U | (label >> 16U), 0), low(label, 8), low(label, 0)};
}

std::optional<Lumo::EthAddr> macOfIpv4(const std::uint8_t* group) noexcept {
    constexpr std::uint8_t classD = 0xe;
    if (group[0] >> 4U != classD) {
        return std::nullopt;
    }
    return Lumo::EthAddr{0x01,     0x00,    0x5e, static_cast<std::uint8_t>(group[1] & 0x7fU),
                         group[2], group[3]};
}

std::optional<Lumo::EthAddr> macOfIpv6(const std::uint8_t* group) noexcept {
    constexpr std::uint8_t multicast = 0xff;
    if (group[0] != multicast) {
        return std::nullopt;
    }
    return Lumo::EthAddr{0x33, 0x33, group[12], group[13], group[14], group[15]};
}

} // namespace

std::optional<Lumo::EthAddr> groupMac(Ovix::PacketContext& packet) {
    const Ptr<Ovix::PacketHeader> header = packet.parsedPkt().header(0);
    if (!header) {
        return std::nullopt;
    }
    switch (header->pktHdrType()) {
    case Ovix::PktHdrType::mpls: {
        const Ovix::MplsHeaderData* labels = Ovix::mplsHeaderData(*header);
        return labels != nullptr ? std::optional(macOfLabel((*labels->begin()).label().value()))
                                 : std::nullopt;
    }
    case Ovix::PktHdrType::ipv4:
        return macOfIpv4(Ovix::ipv4Destination(*header).bytes().data());
    case Ovix::PktHdrType::ipv6:
        return macOfIpv6(Ovix::ipv6Destination(*header).bytes().data());
    default:
        return std::nullopt;
    }
}

} // namespace OvixAgent
