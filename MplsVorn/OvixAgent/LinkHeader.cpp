#include "LinkHeader.h"

#include <algorithm>

#include "Lumo/NetInt.h"

namespace OvixAgent {

namespace {

constexpr std::size_t macSize = 6;
constexpr std::size_t tagSize = 4;
constexpr std::size_t etherTypeSize = 2;

std::uint16_t etherTypeOf(Ovix::PktHdrType type) noexcept {
    switch (type) {
    case Ovix::PktHdrType::ipv4:
        return Lumo::EtherType::ipv4;
    case Ovix::PktHdrType::ipv6:
        return Lumo::EtherType::ipv6;
    default:
        return Lumo::EtherType::mpls;
    }
}

} // namespace

ReceivedLink readLink(Ovix::ParsedPacket& parsed) {
    ReceivedLink link;
    link.routed = parsed.header(1);
    if (!link.routed || link.routed->pktHdrType() != Ovix::PktHdrType::vlanTags) {
        return link;
    }
    const auto* data = static_cast<const Ovix::VlanTagHeaderData*>(link.routed->headerData().get());
    link.tags.count = data->vlanTags().size();
    std::copy(data->vlanTags().begin(), data->vlanTags().end(), link.tags.tags.begin());
    link.routed = parsed.header(2);
    return link;
}

VlanTags tagsToSend(const VlanTags& received, const Tagging& tagging, std::uint16_t nexthopVlan) {
    if (nexthopVlan == 0 && tagging.kind == Tagging::Kind::keep) {
        return received;
    }
    VlanTags tags;
    if (nexthopVlan == 0 && tagging.kind == Tagging::Kind::none) {
        return tags;
    }
    const std::uint16_t vlan = nexthopVlan != 0 ? nexthopVlan : tagging.vlan;
    tags.tags[0] = {Lumo::NetU16(Lumo::EtherType::vlan), Lumo::NetU16(vlan)};
    tags.count = 1;
    return tags;
}

bool pushLink(Ovix::PacketContext& packet, const Lumo::EthAddr& source,
              const Lumo::EthAddr& destination, const VlanTags& tags) {
    if (packet.outerType() == Ovix::PktHdrType::eth) {
        return true;
    }
    const std::uint16_t etherType = etherTypeOf(packet.outerType());
    const std::size_t size = 2 * macSize + tags.count * tagSize + etherTypeSize;
    const std::span<std::uint8_t> room = packet.pkt()->pushFront(size);
    if (room.empty()) {
        return false;
    }
    std::uint8_t* at = std::copy(destination.begin(), destination.end(), room.data());
    at = std::copy(source.begin(), source.end(), at);
    for (std::size_t i = 0; i < tags.count; ++i) {
        tags.tags[i].tpid.store(at);
        tags.tags[i].tci.store(at + etherTypeSize);
        at += tagSize;
    }
    Lumo::NetU16(etherType).store(at);
    packet.outerTypeIs(Ovix::PktHdrType::eth);
    return true;
}

} // namespace OvixAgent
