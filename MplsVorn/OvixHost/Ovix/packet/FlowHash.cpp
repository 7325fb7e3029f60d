#include "Ovix/packet/FlowHash.h"

#include "Wire/Ip.h"

namespace Ovix {

namespace {

std::uint32_t word(const std::uint8_t* at) noexcept {
    return Lumo::NetU32::load(at).value();
}

bool hasPorts(std::uint8_t protocol) noexcept {
    return protocol == Wire::IpProtocol::tcp || protocol == Wire::IpProtocol::udp ||
           protocol == Wire::IpProtocol::sctp;
}

/// Both ports start every one of these headers.
void addPorts(FlowHasher& hasher, std::span<const std::uint8_t> upperLayer) noexcept {
    if (upperLayer.size() >= 4) {
        hasher.add(word(upperLayer.data()));
    }
}

/// Fragments are hashed without ports, so that all of a packet's fragments take one path.
void addIpv4(FlowHasher& hasher, const PacketHeader& header) noexcept {
    const Wire::Ipv4 ip(header.bytes());
    hasher.add(word(ip.bytes().data() + Wire::Ipv4::sourceAt));
    hasher.add(word(ip.bytes().data() + Wire::Ipv4::destinationAt));
    hasher.add(ip.protocol());
    if (!ip.isFragment() && hasPorts(ip.protocol())) {
        addPorts(hasher, header.payload());
    }
}

/// The flow label replaces ports that extension headers hide (RFC 6438).
void addIpv6(FlowHasher& hasher, const PacketHeader& header) noexcept {
    const Wire::Ipv6 ip(header.bytes());
    for (std::size_t at = Wire::Ipv6::sourceAt; at < Wire::Ipv6::size; at += 4) {
        hasher.add(word(ip.bytes().data() + at));
    }
    hasher.add(ip.flowLabel());
    hasher.add(ip.nextHeader());
    if (header.length() == Wire::Ipv6::size && hasPorts(ip.nextHeader())) {
        addPorts(hasher, header.payload());
    }
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
        addIpv4(hasher, header);
        return false;
    case PktHdrType::ipv6:
        addIpv6(hasher, header);
        return false;
    default:
        return !labelled;
    }
}

} // namespace

void addLabels(FlowHasher& hasher, const MplsHeaderData& labels) noexcept {
    bool entropyNext = false;
    bool extended = false;
    for (const Lumo::MplsLabelEntry entry : labels) {
        const Lumo::MplsLabel label = entry.label();
        if (!label.isSpecialPurpose() && !extended) {
            hasher.add(label.value());
            if (entropyNext) {
                return;
            }
        }
        entropyNext = entropyNext || label == Lumo::entropyLabelIndicator;
        extended = label == Lumo::extensionLabel;
    }
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

std::uint32_t MplsHasher::hash(const PacketHeader& header) const {
    FlowHasher hasher;
    if (const MplsHeaderData* labels = mplsHeaderData(header)) {
        addLabels(hasher, *labels);
    }
    return hasher.finish();
}

} // namespace Ovix
