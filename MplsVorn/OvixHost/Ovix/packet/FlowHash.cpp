#include "Ovix/packet/FlowHash.h"

#include "Wire/Ethernet.h"
#include "Wire/Ip.h"
#include "Wire/LabelStack.h"

namespace Ovix {

namespace {

/// The flow label replaces ports that extension headers hide (RFC 6438).
void addIpv6(FlowHasher& hasher, Wire::Bytes header, Wire::Bytes payload) noexcept {
    constexpr unsigned flowLabelShift = 40;
    const Wire::Ipv6 ip(header);
    for (std::size_t at = Wire::Ipv6::sourceAt; at < Wire::Ipv6::size; at += 8) {
        hasher.add(Lumo::NetU64::load(header.data() + at).value());
    }
    const bool arePortsNext = header.size() == Wire::Ipv6::size;
    const std::uint32_t ports = arePortsNext ? portsOf(ip.nextHeader(), payload) : 0;
    hasher.add(std::uint64_t{ip.flowLabel()} << flowLabelShift |
               std::uint64_t{ip.nextHeader()} << 32U | ports);
}

/// Adds the labels of a walk like addLabels(); true when an entropy label ends them.
bool addWalk(FlowHasher& hasher, Wire::LabelWalk& walk) noexcept {
    bool entropyNext = false;
    bool extended = false;
    bool isNamed = false; // an extended label behind an indicator ends the hash with the stack
    for (Lumo::MplsLabelEntry entry; walk.next(entry);) {
        const Lumo::MplsLabel label = entry.label();
        isNamed = isNamed || (entropyNext && !label.isSpecialPurpose());
        if (!label.isSpecialPurpose() && !extended) {
            hasher.add(label.value());
            if (entropyNext) {
                return true;
            }
        }
        entropyNext = entropyNext || label == Lumo::entropyLabelIndicator;
        extended = label == Lumo::extensionLabel;
    }
    return isNamed;
}

/// Adds a header; false when nothing behind it may be looked at. What is not IP under labels only
/// looks like Ethernet (a control word shifts it), so the labels must do.
bool addHeader(FlowHasher& hasher, const PacketHeader& header, bool& labelled) noexcept {
    switch (header.pktHdrType()) {
    case PktHdrType::mpls: {
        const MplsHeaderData* labels = mplsHeaderData(header);
        if (labels == nullptr) {
            return false;
        }
        addLabels(hasher, *labels);
        labelled = true;
        return !labels->hashingFlag();
    }
    case PktHdrType::ipv4:
        addIpv4(hasher, header.bytes(), header.payload());
        return false;
    case PktHdrType::ipv6:
        addIpv6(hasher, header.bytes(), header.payload());
        return false;
    default:
        return !labelled;
    }
}

} // namespace

void addLabels(FlowHasher& hasher, const MplsHeaderData& labels) noexcept {
    Wire::LabelWalk walk(labels.bytes());
    addWalk(hasher, walk);
}

std::uint32_t flowHash(ParsedPacket& parsed) {
    FlowHasher hasher;
    bool labelled = false;
    for (std::int32_t position = 0;; ++position) {
        const Ptr<PacketHeader> header = parsed.header(position);
        if (!header || !addHeader(hasher, *header, labelled)) {
            return hasher.finish();
        }
    }
}

[[gnu::flatten]] std::uint32_t flowHash(PktHdrType first, Wire::Bytes packet) noexcept {
    FlowHasher hasher;
    if (const Wire::Ethernet header(packet); first == PktHdrType::eth && header) {
        Wire::TagWalk tags(header.etherType(), packet.subspan(Wire::Ethernet::size));
        for (Wire::Tag tag; tags.next(tag);) {
        }
        packet = tags.rest();
        first = PacketParser::announcedBy(tags.etherType());
    }
    if (first == PktHdrType::mpls) {
        Wire::LabelWalk walk(packet);
        if (addWalk(hasher, walk) || !walk.isAtBottom()) {
            return hasher.finish();
        }
        packet = walk.rest();
        first = PacketParser::beneathLabels(packet);
    }
    if (const std::size_t length = PacketParser::ipHeaderLength(first, packet)) {
        const auto add = first == PktHdrType::ipv4 ? addIpv4 : addIpv6;
        add(hasher, packet.first(length), packet.subspan(length));
    }
    return hasher.finish();
}

std::uint32_t MplsHasher::hash(const PacketHeader& header) const {
    FlowHasher hasher;
    if (const MplsHeaderData* labels = mplsHeaderData(header)) {
        addLabels(hasher, *labels);
    }
    return hasher.finish();
}

} // namespace Ovix
