#include "Forwarding/PseudowirePayload.h"

#include <algorithm>
#include <array>

#include "Lumo/NetInt.h"

namespace OvixAgent {

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t controlWordSize = 4;
constexpr std::size_t ethSize = 14;

/// EtherTypes that real frames have: IPv4, ARP, the VLAN tags, IPv6, slow protocols, MPLS, PPPoE,
/// EAPOL, MACsec, provider backbone, LLDP, PTP, CFM.
bool isFamiliar(std::uint16_t etherType) noexcept {
    static constexpr std::array<std::uint16_t, 18> familiar{
        0x0800, 0x0806, 0x8100, 0x86dd, 0x8809, 0x8847, 0x8848, 0x8863, 0x8864,
        0x888e, 0x88a8, 0x88e5, 0x88e7, 0x88cc, 0x88f7, 0x8902, 0x9100, 0x22f0};
    return std::find(familiar.begin(), familiar.end(), etherType) != familiar.end();
}

/// Whether an Ethernet header stands here: a familiar EtherType, or an IEEE 802.3 length that
/// agrees with the bytes behind it, of which only the shortest frames have padding.
bool looksLikeEthernet(Bytes frame) noexcept {
    constexpr std::size_t shortestLlc = 3;
    constexpr std::size_t longestLength = 1500;
    constexpr std::size_t shortestPayload = 46;
    if (frame.size() < ethSize) {
        return false;
    }
    const std::uint16_t type = Lumo::NetU16::load(frame.data() + ethSize - 2).value();
    const std::size_t behind = frame.size() - ethSize;
    if (type > longestLength) {
        return isFamiliar(type);
    }
    return type >= shortestLlc && (type == behind || (type < behind && behind <= shortestPayload));
}

/// A control word of data starts with 16 zero bits, but so do addresses that are in use: those of
/// the first manufacturers, of VRRP (00:00:5e), of many laboratories. So it counts as one only when
/// the bytes make no sense as Ethernet where they stand and do make sense four bytes on. A frame of
/// an EtherType known to nobody goes through either way.
bool hasControlWord(Bytes payload) noexcept {
    return payload[0] == 0 && payload[1] == 0 && !looksLikeEthernet(payload) &&
           looksLikeEthernet(payload.subspan(controlWordSize));
}

Fate takeOffControlWord(Ovix::PacketContext& packet, Bytes payload) {
    switch (payload[0] >> 4U) {
    case 0:
        break;
    case 1:
        return punt(Reason::associatedChannel);
    default:
        return drop(Reason::noControlWord);
    }
    if (payload.size() < controlWordSize + ethSize) {
        return drop(Reason::pseudowireCutShort);
    }
    packet.pkt()->popFront(controlWordSize);
    packet.outerTypeIs(Ovix::PktHdrType::eth);
    return forwarded;
}

} // namespace

Fate uncoverEthernet(Ovix::PacketContext& packet, bool controlWord) {
    const Bytes payload = packet.pkt()->data();
    if (payload.size() < (controlWord ? controlWordSize : ethSize)) {
        return drop(Reason::pseudowireCutShort);
    }
    if (controlWord) {
        return takeOffControlWord(packet, payload);
    }
    return hasControlWord(payload) ? drop(Reason::unexpectedControlWord) : forwarded;
}

} // namespace OvixAgent
