#include "State/PseudowirePayload.h"

#include <algorithm>
#include <array>

#include "Wire/Checksum.h"
#include "Wire/ControlWord.h"
#include "Wire/Ethernet.h"
#include "Wire/Ip.h"

namespace OvixAgent {

namespace {

/// IPv4, ARP, IPv6, VLAN tags, MPLS, PPPoE, EAPOL, slow protocols, LLDP, MACsec and CFM.
constexpr std::array<std::uint16_t, 14> wellKnown{0x0800, 0x0806, 0x86dd, 0x8100, 0x88a8,
                                                  0x8847, 0x8848, 0x8863, 0x8864, 0x888e,
                                                  0x8809, 0x88cc, 0x88e5, 0x8902};

bool isFrameAt(Wire::Bytes payload, std::size_t start) noexcept {
    const Wire::Ethernet header(payload.subspan(std::min(start, payload.size())));
    return header && isWellKnownEtherType(header.etherType());
}

} // namespace

bool isWellKnownEtherType(std::uint32_t etherType) noexcept {
    return std::find(wellKnown.begin(), wellKnown.end(), etherType) != wellKnown.end();
}

bool isIpPayload(Wire::Bytes payload) noexcept {
    const unsigned version = Wire::ipVersion(payload);
    if (version != 4 && version != 6) {
        return false;
    }
    if (payloadSigns(payload) != PayloadSigns::ethernet) {
        return true;
    }
    if (version == 6) {
        constexpr std::size_t shortest = 46; // of an Ethernet frame, which may be padded to that
        const Wire::Ipv6 header(payload);
        return header && (Wire::Ipv6::size + header.payloadLength() == payload.size() ||
                          payload.size() <= shortest);
    }
    const Wire::Ipv4 header(payload);
    return header && header.headerSize() >= Wire::Ipv4::size &&
           header.headerSize() <= payload.size() && header.totalLength() <= payload.size() &&
           Wire::onesSum(payload.first(header.headerSize())) == 0xffff;
}

PayloadSigns payloadSigns(Wire::Bytes payload) noexcept {
    const Wire::ControlWord word(payload);
    const bool isEthernet = isFrameAt(payload, 0);
    const bool isBehind = word && word.isData() && isFrameAt(payload, Wire::ControlWord::size);
    return isEthernet == isBehind ? PayloadSigns::unknown
           : isBehind             ? PayloadSigns::controlWord
                                  : PayloadSigns::ethernet;
}

} // namespace OvixAgent
