#include "Ovix/packet/FlowHash.h"

#include "Ovix/packet/PacketHashers.h"

namespace Ovix {

namespace {

constexpr std::uint8_t protocolTcp = 6;
constexpr std::uint8_t protocolUdp = 17;
constexpr std::uint8_t protocolSctp = 132;

std::uint32_t word(const std::uint8_t* at) noexcept {
    return Lumo::NetU32::load(at).value();
}

bool hasPorts(std::uint8_t protocol) noexcept {
    return protocol == protocolTcp || protocol == protocolUdp || protocol == protocolSctp;
}

void addPorts(FlowHasher& hasher, std::span<const std::uint8_t> upperLayer) noexcept {
    if (upperLayer.size() >= 4) {
        hasher.add(word(upperLayer.data()));
    }
}

/// Fragments are hashed without ports, so that all of a packet's fragments take one path.
void addIpv4(FlowHasher& hasher, const PacketHeader& header) noexcept {
    const std::uint8_t* bytes = header.bytes().data();
    const std::uint8_t protocol = bytes[9];
    hasher.add(word(bytes + 12));
    hasher.add(word(bytes + 16));
    hasher.add(protocol);
    const bool fragment = (Lumo::NetU16::load(bytes + 6).value() & 0x3fffU) != 0;
    if (!fragment && hasPorts(protocol)) {
        addPorts(hasher, header.payload());
    }
}

/// The flow label stands in for ports that extension headers hide (RFC 6438).
void addIpv6(FlowHasher& hasher, const PacketHeader& header) noexcept {
    constexpr std::size_t addresses = 8;
    constexpr std::size_t end = 40;
    constexpr std::uint32_t flowLabel = 0xfffff;
    const std::uint8_t* bytes = header.bytes().data();
    for (std::size_t at = addresses; at < end; at += 4) {
        hasher.add(word(bytes + at));
    }
    hasher.add(word(bytes) & flowLabel);
    hasher.add(bytes[6]);
    if (header.length() == end && hasPorts(bytes[6])) {
        addPorts(hasher, header.payload());
    }
}

/// Adds what a header tells; false when nothing behind it may be looked at. What is not IP under
/// labels only looks like Ethernet (a control word shifts it), so the labels must do.
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
