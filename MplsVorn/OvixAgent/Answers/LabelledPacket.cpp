#include "Answers/LabelledPacket.h"

#include "State/LinkHeader.h"

namespace OvixAgent {

namespace {

constexpr std::size_t tagsAt = 12;
constexpr std::size_t tagSize = 4;

/// How long the VLAN tags are, where the label stack starts in a frame, and where it ends in an IP
/// packet.
struct Place {
    std::size_t tagBytes = 0;
    std::size_t labels = 0;
    std::size_t ip = 0;
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
    return header ? Place{link.tags.count * tagSize, labels, header->offset(), header->pktHdrType()}
                  : Place{};
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
    return LabelledPacket{frame.subspan(place.labels, place.ip - place.labels), ip,
                          (frame[0] & 1U) != 0, frame.subspan(tagsAt, place.tagBytes)};
}

std::vector<Lumo::MplsLabelEntry> labelEntries(std::span<const std::uint8_t> labels) {
    std::vector<Lumo::MplsLabelEntry> entries;
    for (std::size_t at = 0; at < labels.size(); at += Lumo::MplsLabelEntry::size) {
        entries.push_back(Lumo::MplsLabelEntry::load(labels.data() + at));
    }
    return entries;
}

} // namespace OvixAgent
