#include "Forwarding/PseudowirePayload.h"

#include <algorithm>
#include <array>

#include "Wire/ControlWord.h"
#include "Wire/Ethernet.h"

namespace OvixAgent {

namespace {

using Wire::ControlWord;
using Wire::Ethernet;

/// EtherTypes of real frames. Those that Wire does not name: slow protocols, PPPoE, EAPOL, MACsec,
/// provider backbone, LLDP, PTP, CFM and SRP.
bool isCommon(std::uint16_t etherType) noexcept {
    namespace Type = Wire::EtherType;
    static constexpr std::array<std::uint16_t, 18> common{Type::ipv4,
                                                          Type::arp,
                                                          Type::vlan,
                                                          Type::ipv6,
                                                          Type::mpls,
                                                          Type::mplsUpstream,
                                                          Type::serviceVlan,
                                                          Type::stackedVlan,
                                                          0x8809,
                                                          0x8863,
                                                          0x8864,
                                                          0x888e,
                                                          0x88e5,
                                                          0x88e7,
                                                          0x88cc,
                                                          0x88f7,
                                                          0x8902,
                                                          0x22f0};
    return std::find(common.begin(), common.end(), etherType) != common.end();
}

/// Whether these bytes may start with an Ethernet header: it has a common EtherType, or an IEEE
/// 802.3 length that agrees with the bytes behind it, which have padding only in the shortest
/// frames.
bool looksLikeEthernet(Wire::Bytes frame) noexcept {
    constexpr std::size_t shortestLlc = 3;
    constexpr std::size_t shortestPayload = 46;
    const Ethernet header(frame);
    if (!header) {
        return false;
    }
    const std::uint16_t type = header.etherType();
    const std::size_t payload = frame.size() - Ethernet::size;
    if (type > Wire::EtherType::longestLength) {
        return isCommon(type);
    }
    return type >= shortestLlc &&
           (type == payload || (type < payload && payload <= shortestPayload));
}

/// A control word of data starts with 16 zero bits, but so do MAC addresses in use: of the first
/// manufacturers, of VRRP (00:00:5e), of many laboratories. So it counts as one only if the bytes
/// are not Ethernet from the start, but are from behind it. A frame of an uncommon EtherType
/// passes.
bool hasUnexpectedControlWord(Wire::Bytes payload) noexcept {
    return ControlWord(payload).isPlainData() && !looksLikeEthernet(payload) &&
           looksLikeEthernet(payload.subspan(ControlWord::size));
}

} // namespace

Fate removeControlWord(Ovix::PacketContext& packet, bool hasControlWord) {
    const Wire::Bytes payload = packet.pkt()->data();
    if (payload.size() < (hasControlWord ? ControlWord::size : Ethernet::size)) {
        return drop(Reason::pseudowireCutShort);
    }
    if (!hasControlWord) {
        return hasUnexpectedControlWord(payload) ? drop(Reason::unexpectedControlWord) : forwarded;
    }
    const ControlWord controlWord(payload);
    if (controlWord.isAssociatedChannel()) {
        return punt(Reason::associatedChannel);
    }
    if (!controlWord.isData()) {
        return drop(Reason::noControlWord);
    }
    if (payload.size() < ControlWord::size + Ethernet::size) {
        return drop(Reason::pseudowireCutShort);
    }
    packet.pkt()->popFront(ControlWord::size);
    packet.outerTypeIs(Ovix::PktHdrType::eth);
    return forwarded;
}

} // namespace OvixAgent
