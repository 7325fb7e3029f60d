#include "Answers/IcmpTooBig.h"

#include <algorithm>

#include "Answers/IcmpError.h"

namespace OvixAgent {

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
