#include "Ovix/packet/PacketContext.h"

#include <algorithm>

#include "Ovix/packet/FlowHash.h"
#include "Ovix/packet/TtlBytes.h"

// One slab per type for the whole process, whoever makes and releases the objects.
template class Tessel::Slabbed<Ovix::PacketHeader>;
template class Tessel::Slabbed<Ovix::MplsHeaderData>;
template class Tessel::Slabbed<Ovix::VlanTagHeaderData>;
template class Tessel::Slabbed<Ovix::PacketContext>;

namespace Ovix {

std::string_view pktHdrName(PktHdrType type) noexcept {
    static constexpr std::array<std::string_view, pktHdrTypes> names = {
        "", "Eth", "VlanTags", "Mpls", "Ipv4", "Ipv6", "Udp"};
    return names[static_cast<std::size_t>(type)];
}

Ptr<PacketHeader> labelsBeneath(const PacketHeader& header, std::size_t popped) {
    const MplsHeaderData* labels = mplsHeaderData(header);
    if (labels == nullptr || popped >= labels->entries()) {
        return nullptr;
    }
    const auto skipped = static_cast<std::uint32_t>(popped * Lumo::MplsLabelEntry::size);
    const std::uint32_t offset = header.offset() + skipped;
    auto rest = Tessel::make<MplsHeaderData>(labels->pkt(), offset,
                                             static_cast<std::uint32_t>(labels->entries() - popped),
                                             labels->hashingFlag());
    return Tessel::make<PacketHeader>(header.position(), PktHdrType::mpls, labels->pkt(), offset,
                                      header.length() - skipped, std::move(rest));
}

VlanTagHeaderData::VlanTagHeaderData(std::span<const Tag> tags) noexcept
    : PacketHeaderData(PktHdrType::vlanTags), count_(std::min(tags.size(), maxTags)) {
    std::copy_n(tags.begin(), count_, tags_.begin());
}

std::uint8_t classOf(PktHdrType first, Wire::Bytes packet) noexcept {
    if (first == PktHdrType::eth) {
        const Wire::Ethernet header(packet);
        if (!header) {
            return 0;
        }
        packet = packet.subspan(Wire::Ethernet::size);
        Wire::TagWalk tags(header.etherType(), packet);
        if (Wire::Tag tag; tags.next(tag)) {
            return tag.priority();
        }
        first = PacketParser::announcedBy(header.etherType());
    }
    const bool isWhole = first == PktHdrType::mpls
                             ? packet.size() >= Lumo::MplsLabelEntry::size
                             : PacketParser::ipHeaderLength(first, packet) > 0;
    return isWhole ? trafficClassOf(first, packet) : std::uint8_t{0};
}

void ParsedPacket::parseUpTo(std::int32_t position) {
    while (count_ <= position && !complete()) {
        PacketParser::parseNext(*this);
    }
    // What a label stack carries is parsed along with it, since routing labels always needs it.
    if (count_ > 0 &&
        headers_[static_cast<std::size_t>(count_ - 1)]->pktHdrType() == PktHdrType::mpls) {
        PacketParser::parseNext(*this);
    }
}

Ptr<PacketHeader> ParsedPacket::firstHeaderOfType(PktHdrType type) const noexcept {
    for (std::int32_t i = 0; i < count_; ++i) {
        const Ptr<PacketHeader>& header = headers_[static_cast<std::size_t>(i)];
        if (header->pktHdrType() == type) {
            return header;
        }
    }
    return nullptr;
}

void ParsedPacket::maybeDoFullParse() {
    while (!complete()) {
        PacketParser::parseNext(*this);
    }
}

void ParsedPacket::restart(Ptr<Lumo::Pkt> pkt, PktHdrType first) noexcept {
    assert(count_ <= maxHeaders);
    for (; count_ > 0; --count_) {
        headers_[static_cast<std::size_t>(count_ - 1)].reset();
    }
    pkt_ = std::move(pkt);
    nextOffset_ = 0;
    nextType_ = first;
}

PacketContext::PacketContext(Ptr<Lumo::Pkt> pkt, PktHdrType first) noexcept
    : pkt_(std::move(pkt)), outerType_(first) {}

void PacketContext::replacePacket(Ptr<Lumo::Pkt> pkt, PktCtxParse parse) noexcept {
    pkt_ = std::move(pkt);
    if (parse == PktCtxParse::reparse) {
        stale_ = true;
    }
}

void PacketContext::initializeParsedPkt(const Ptr<PacketParser>&) noexcept {
    outerTypeIs(PktHdrType::eth);
}

std::uint32_t PacketContext::hash() {
    if (!hash_) {
        hash_ = flowHash(parsedPkt());
    }
    return *hash_;
}

std::uint8_t PacketContext::classificationInput() const noexcept {
    return classOf(outerType_, pkt_->data());
}

} // namespace Ovix
