#pragma once

#include <algorithm>
#include <optional>

#include "Lumo/Pkt.h"
#include "Wire/Ethernet.h"

namespace Ovix {

/// A packet that holds an Ethernet frame with these two MAC addresses, as they stand in a header,
/// and with an 802.1Q tag of priority 0 when a VLAN is given.
inline Ptr<Lumo::Pkt> ethernetFrame(Wire::Bytes macs, std::optional<std::uint16_t> vlan,
                                    std::uint16_t etherType, Wire::Bytes payload) {
    assert(macs.size() == Wire::Ethernet::macsSize);
    const std::size_t header = Wire::Ethernet::size + (vlan ? Wire::Tag::size : 0);
    Ptr<Lumo::Pkt> packet = Lumo::globalPktManager()->newPkt();
    const Wire::WritableBytes bytes = packet->newSharedHeadData(header + payload.size());
    std::copy(macs.begin(), macs.end(), bytes.begin());
    if (vlan) {
        Wire::Tag{Lumo::NetU16(Wire::EtherType::vlan), Lumo::NetU16(*vlan)}.store(
            bytes.data() + Wire::Ethernet::etherTypeAt);
    }
    Lumo::NetU16(etherType).store(bytes.data() + header - Wire::Ethernet::etherTypeSize);
    std::copy(payload.begin(), payload.end(), bytes.subspan(header).begin());
    return packet;
}

} // namespace Ovix
