#include "Ovix/PacketContext.h"

#include "Ovix/FlowHash.h"

namespace Ovix {

Ptr<PacketHeader> ParsedPacket::header(std::int32_t position) {
    if (position < 0) {
        return nullptr;
    }
    const PacketParser parser;
    while (count_ <= position && !complete()) {
        parser.parseNext(*this);
    }
    return position < count_ ? headers_[static_cast<std::size_t>(position)] : nullptr;
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
    const PacketParser parser;
    while (!complete()) {
        parser.parseNext(*this);
    }
}

void ParsedPacket::restart(Ptr<Lumo::Pkt> pkt, PktHdrType first) noexcept {
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

std::uint8_t PacketContext::classificationInput() {
    constexpr unsigned priorityShift = 13;
    constexpr unsigned precedenceShift = 5;
    ParsedPacket& parsed = parsedPkt();
    parsed.maybeDoFullParse();
    if (const auto tags = parsed.firstHeaderOfType(PktHdrType::vlanTags)) {
        const auto* data = static_cast<const VlanTagHeaderData*>(tags->headerData().get());
        return static_cast<std::uint8_t>(data->vlanTags()[0].tci.value() >> priorityShift);
    }
    if (const auto ipv4 = parsed.firstHeaderOfType(PktHdrType::ipv4)) {
        return static_cast<std::uint8_t>(ipv4->bytes()[1] >> precedenceShift);
    }
    if (const auto ipv6 = parsed.firstHeaderOfType(PktHdrType::ipv6)) {
        return static_cast<std::uint8_t>((ipv6->bytes()[0] & 0x0fU) >> 1U);
    }
    return 0;
}

} // namespace Ovix
