#include "Answers/LabelledPacket.h"

#include <cassert>

#include "State/LinkHeader.h"
#include "Wire/Ethernet.h"
#include "Wire/LabelStack.h"

namespace OvixAgent {

namespace {

/// Offsets in a frame.
struct Place {
    std::size_t labels = 0; ///< of the label stack, behind the link header
    std::size_t ip = 0;     ///< of the IP packet, behind the label stack
    Ovix::PktHdrType type = Ovix::PktHdrType::none;
};

Place find(std::span<const std::uint8_t> frame) {
    Ovix::PacketContext context(Lumo::globalPktManager()->newPkt(frame));
    Ovix::ParsedPacket& parsed = context.parsedPkt();
    const ReceivedLink link = readLink(parsed);
    Ptr<Ovix::PacketHeader> header = link.routed;
    if (!header) {
        return {};
    }
    const std::size_t labels = header->offset();
    if (header->pktHdrType() == Ovix::PktHdrType::mpls) {
        header = parsed.header(header->position() + 1);
    }
    return header ? Place{labels, header->offset(), header->pktHdrType()} : Place{};
}

} // namespace

std::optional<LabelledPacket> readLabelledPacket(std::span<const std::uint8_t> frame) {
    if (frame.size() > Lumo::Pkt::maxBytes) {
        return std::nullopt;
    }
    const Place place = find(frame);
    if (!isIp(place.type)) {
        return std::nullopt;
    }
    IpPacket ip{place.type, frame.subspan(place.ip)};
    if (!ip.fault(0).empty()) {
        return std::nullopt;
    }
    ip.bytes = ip.bytes.first(ip.length());
    constexpr std::size_t tagsAt = Wire::Ethernet::etherTypeAt;
    return LabelledPacket{frame.subspan(place.labels, place.ip - place.labels), ip,
                          Wire::Ethernet(frame).isToGroup(),
                          frame.subspan(tagsAt, place.labels - Wire::Ethernet::size)};
}

std::vector<Lumo::MplsLabelEntry> labelEntries(std::span<const std::uint8_t> labels) {
    assert(labels.size() % Lumo::MplsLabelEntry::size == 0);
    std::vector<Lumo::MplsLabelEntry> entries;
    Wire::LabelWalk walk(labels);
    for (Lumo::MplsLabelEntry entry; walk.next(entry);) {
        entries.push_back(entry);
    }
    return entries;
}

} // namespace OvixAgent
