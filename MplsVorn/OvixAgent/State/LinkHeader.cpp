#include "State/LinkHeader.h"

#include <algorithm>
#include <cassert>

#include "Wire/Ethernet.h"

namespace OvixAgent {

namespace {

Ovix::PktHdrType announcedBy(std::uint16_t etherType) noexcept {
    switch (etherType) {
    case Wire::EtherType::ipv4:
        return Ovix::PktHdrType::ipv4;
    case Wire::EtherType::ipv6:
        return Ovix::PktHdrType::ipv6;
    default:
        return Wire::EtherType::isMpls(etherType) ? Ovix::PktHdrType::mpls : Ovix::PktHdrType::none;
    }
}

/// `last` is an Ethernet header or tags, which end with the EtherType of what follows.
void noteEnd(ReceivedLink& link, const Ovix::PacketHeader& last) noexcept {
    link.size = last.offset() + last.length();
    const std::uint16_t etherType =
        Lumo::NetU16::load(last.bytes().last(Wire::Ethernet::etherTypeSize).data()).value();
    link.announced = announcedBy(etherType);
    link.isUpstreamAssigned = etherType == Wire::EtherType::mplsUpstream;
    link.hasUnreadTag = Wire::EtherType::isTag(etherType);
}

} // namespace

ReceivedLink readLink(Ovix::ParsedPacket& parsed) {
    ReceivedLink link;
    if (const Ptr<Ovix::PacketHeader> first = parsed.header(0)) {
        noteEnd(link, *first);
    }
    link.routed = parsed.header(1);
    if (!link.routed || link.routed->pktHdrType() != Ovix::PktHdrType::vlanTags) {
        return link;
    }
    noteEnd(link, *link.routed);
    const auto* data = static_cast<const Ovix::VlanTagHeaderData*>(link.routed->headerData().get());
    link.tags.count = data->vlanTags().size();
    std::copy(data->vlanTags().begin(), data->vlanTags().end(), link.tags.tags.begin());
    link.routed = parsed.header(2);
    return link;
}

bool hasForeignVlan(Wire::Bytes frame, const Tagging& tagging) noexcept {
    const Wire::Ethernet header(frame);
    if (!header) {
        return false;
    }
    Wire::TagWalk walk(header.etherType(), frame.subspan(Wire::Ethernet::size));
    Wire::Tag first;
    if (!walk.next(first)) {
        return false;
    }
    Wire::Tag second;
    const bool isOwn = first.vlanId() == 0 ||
                       (tagging.kind == Tagging::Kind::vlan && first.vlanId() == tagging.vlan);
    return !isOwn || walk.next(second);
}

VlanTags tagsToSend(const VlanTags& received, const Tagging& tagging, std::uint16_t nexthopVlan) {
    VlanTags tags;
    const auto push = [&tags](std::uint16_t tpid, std::uint16_t vlan) {
        tags.tags[tags.count++] = {Lumo::NetU16(tpid), Lumo::NetU16(vlan)};
    };
    if (tagging.kind == Tagging::Kind::subInterface) {
        if (tagging.innerVlan != 0) { // IEEE 802.1ad
            push(Wire::EtherType::serviceVlan, tagging.vlan);
        }
        push(Wire::EtherType::vlan, tagging.innerVlan != 0 ? tagging.innerVlan : tagging.vlan);
        return tags;
    }
    if (nexthopVlan == 0 && tagging.kind == Tagging::Kind::keep) {
        return received;
    }
    if (nexthopVlan == 0 && tagging.kind == Tagging::Kind::none) {
        return tags;
    }
    push(Wire::EtherType::vlan, nexthopVlan != 0 ? nexthopVlan : tagging.vlan);
    return tags;
}

bool insertTags(Lumo::Pkt& frame, const VlanTags& tags) {
    assert(frame.bytes() >= Wire::Ethernet::size);
    const std::size_t size = tags.count * Wire::Tag::size;
    if (size == 0 || frame.pushFront(size).empty()) {
        return size == 0;
    }
    std::uint8_t* const to = frame.writableData().data();
    std::copy_n(to + size, Wire::Ethernet::macsSize, to);
    for (std::size_t i = 0; i < tags.count; ++i) {
        const Wire::Tag tag{tags.tags[i].tpid, tags.tags[i].tci};
        tag.store(to + Wire::Ethernet::macsSize + i * Wire::Tag::size);
    }
    return true;
}

std::size_t linkHeaderSize(Ovix::PacketContext& packet) {
    if (packet.outerType() != Ovix::PktHdrType::eth) {
        return 0;
    }
    Ovix::ParsedPacket& parsed = packet.parsedPkt();
    const Ptr<Ovix::PacketHeader> eth = parsed.header(0);
    const Ptr<Ovix::PacketHeader> tags = parsed.header(1);
    const bool isTagged = tags && tags->pktHdrType() == Ovix::PktHdrType::vlanTags;
    return (eth ? eth->length() : 0) + (isTagged ? tags->length() : 0);
}

bool pushLink(Ovix::PacketContext& packet, const Lumo::EthAddr& source,
              const Lumo::EthAddr& destination, const VlanTags& tags) {
    if (packet.outerType() == Ovix::PktHdrType::eth) {
        return true;
    }
    constexpr std::size_t tagsAt = Wire::Ethernet::etherTypeAt;
    const std::size_t tagBytes = tags.count * Wire::Tag::size;
    const std::uint16_t etherType = etherTypeOf(packet.outerType());
    const std::span<std::uint8_t> room = packet.pkt()->pushFront(Wire::Ethernet::size + tagBytes);
    if (room.empty()) {
        return false;
    }
    Wire::EthernetWriter(room).macsAre(destination, source);
    for (std::size_t i = 0; i < tags.count; ++i) {
        const Wire::Tag tag{tags.tags[i].tpid, tags.tags[i].tci};
        tag.store(room.data() + tagsAt + i * Wire::Tag::size);
    }
    Lumo::NetU16(etherType).store(room.data() + tagsAt + tagBytes);
    packet.outerTypeIs(Ovix::PktHdrType::eth);
    return true;
}

} // namespace OvixAgent
