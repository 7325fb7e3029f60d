#pragma once

#include <algorithm>
#include <string>

#include "FrameBytes.h"
#include "Lumo/Pkt.h"
#include "Ovix/packet/PacketContext.h"

namespace TestSupport {

/// A packet that ends where its buffer ends, so that the address sanitizer sees a read beyond it.
inline Ptr<Lumo::Pkt> packetAtBufferEnd(const Raw::Bytes& bytes) {
    constexpr std::size_t toTheEnd = 2304 - Lumo::Pkt::defaultHeadroom;
    Ptr<Lumo::Pkt> packet = Lumo::globalPktManager()->newPkt();
    packet->newSharedHeadData(std::max(toTheEnd, bytes.size()));
    packet->popFront(packet->bytes() - bytes.size());
    std::copy(bytes.begin(), bytes.end(), packet->writableData().begin());
    return packet;
}

inline Ptr<Ovix::PacketContext> contextOf(const Raw::Bytes& bytes,
                                          Ovix::PktHdrType first = Ovix::PktHdrType::eth) {
    return Tessel::make<Ovix::PacketContext>(packetAtBufferEnd(bytes), first);
}

/// The header types of a packet, parsed to the end, as "Eth Mpls Ipv4".
inline std::string headerNames(Ovix::ParsedPacket& parsed) {
    parsed.maybeDoFullParse();
    std::string names;
    for (std::int32_t i = 0; i < parsed.headers(); ++i) {
        names += i == 0 ? "" : " ";
        names += pktHdrName(parsed.header(i)->pktHdrType());
    }
    return names;
}

} // namespace TestSupport
