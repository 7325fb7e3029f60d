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

namespace {

constexpr unsigned precedenceShift = 5;

std::uint8_t withPrecedence(std::uint8_t trafficClass, std::uint8_t precedence) noexcept {
    constexpr unsigned beneath = (1U << precedenceShift) - 1;
    return static_cast<std::uint8_t>((trafficClass & beneath) | unsigned{precedence}
                                                                    << precedenceShift);
}

} // namespace

std::uint8_t trafficClassOf(PktHdrType type, std::span<const std::uint8_t> bytes) noexcept {
    switch (type) {
    case PktHdrType::ipv4:
        return static_cast<std::uint8_t>(Wire::Ipv4(bytes).trafficClass() >> precedenceShift);
    case PktHdrType::ipv6:
        return static_cast<std::uint8_t>(Wire::Ipv6(bytes).trafficClass() >> precedenceShift);
    default:
        return Lumo::MplsLabelEntry::load(bytes.data()).tc();
    }
}

void trafficClassIs(PktHdrType type, std::span<std::uint8_t> bytes, std::uint8_t tc) noexcept {
    assert(tc < 8);
    switch (type) {
    case PktHdrType::ipv4: {
        const Wire::Ipv4Writer header(bytes);
        header.trafficClassWithChecksumIs(withPrecedence(header.trafficClass(), tc));
        return;
    }
    case PktHdrType::ipv6: {
        const Wire::Ipv6Writer header(bytes);
        header.flowIs(withPrecedence(header.trafficClass(), tc), header.flowLabel());
        return;
    }
    default: {
        const auto entry = Lumo::MplsLabelEntry::load(bytes.data());
        Lumo::MplsLabelEntry(entry.label(), tc, entry.bos(), entry.ttl()).store(bytes.data());
    }
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
