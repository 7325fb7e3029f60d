#include "Ovix/packet/TtlBytes.h"

#include "Wire/Ip.h"

namespace Ovix {

bool TtlBytes::whole(PktHdrType type, std::span<const std::uint8_t> bytes) noexcept {
    switch (type) {
    case PktHdrType::mpls:
        return bytes.size() >= Lumo::MplsLabelEntry::size;
    case PktHdrType::ipv4:
        return static_cast<bool>(Wire::Ipv4(bytes));
    case PktHdrType::ipv6:
        return static_cast<bool>(Wire::Ipv6(bytes));
    default:
        return false;
    }
}

std::uint8_t TtlBytes::ttl(PktHdrType type, std::span<const std::uint8_t> bytes) noexcept {
    switch (type) {
    case PktHdrType::ipv4:
        return Wire::Ipv4(bytes).ttl();
    case PktHdrType::ipv6:
        return Wire::Ipv6(bytes).hopLimit();
    default:
        return Lumo::MplsLabelEntry::load(bytes.data()).ttl();
    }
}

void TtlBytes::ttlIs(PktHdrType type, std::span<std::uint8_t> bytes, std::uint8_t ttl) noexcept {
    switch (type) {
    case PktHdrType::ipv4:
        Wire::Ipv4Writer(bytes).ttlWithChecksumIs(ttl);
        return;
    case PktHdrType::ipv6:
        Wire::Ipv6Writer(bytes).hopLimitIs(ttl);
        return;
    default:
        bytes[Lumo::MplsLabelEntry::ttlAt] = ttl;
    }
}

std::uint8_t trafficClassOf(PktHdrType type, std::span<const std::uint8_t> bytes) noexcept {
    constexpr unsigned precedenceShift = 5;
    switch (type) {
    case PktHdrType::ipv4:
        return static_cast<std::uint8_t>(Wire::Ipv4(bytes).trafficClass() >> precedenceShift);
    case PktHdrType::ipv6:
        return static_cast<std::uint8_t>(Wire::Ipv6(bytes).trafficClass() >> precedenceShift);
    default:
        return Lumo::MplsLabelEntry::load(bytes.data()).tc();
    }
}

Lumo::IpGenAddr ipDestination(const PacketHeader& header) noexcept {
    switch (header.pktHdrType()) {
    case PktHdrType::ipv4:
        return Wire::Ipv4(header.bytes()).destination();
    case PktHdrType::ipv6:
        return Wire::Ipv6(header.bytes()).destination();
    default:
        return {};
    }
}

} // namespace Ovix
