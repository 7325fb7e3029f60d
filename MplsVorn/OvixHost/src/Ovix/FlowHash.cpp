#include "Ovix/FlowHash.h"

#include "Ovix/PacketHashers.h"

namespace Ovix {

namespace {

constexpr std::uint32_t highestSpecialPurposeLabel = 15;
constexpr std::uint8_t protocolTcp = 6;
constexpr std::uint8_t protocolUdp = 17;
constexpr std::uint8_t protocolSctp = 132;

std::uint32_t word(const std::uint8_t* at) noexcept { return Lumo::NetU32::load(at).value(); }

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

} // namespace

void addLabels(FlowHasher& hasher, const MplsHeaderData& labels) noexcept {
    bool entropyNext = false;
    for (const Lumo::MplsLabelEntry entry : labels) {
        const std::uint32_t label = entry.label().value();
        if (entropyNext) {
            hasher.add(label);
            return;
        }
        entropyNext = entry.label() == Lumo::entropyLabelIndicator;
        if (label > highestSpecialPurposeLabel) {
            hasher.add(label);
        }
    }
}

std::uint32_t flowHash(ParsedPacket& parsed) {
    FlowHasher hasher;
    for (std::int32_t position = 0;; ++position) {
        const Ptr<PacketHeader> header = parsed.header(position);
        if (!header) {
            return hasher.finish();
        }
        if (const MplsHeaderData* labels = mplsHeaderData(*header)) {
            addLabels(hasher, *labels);
            if (labels->hashingFlag()) {
                return hasher.finish();
            }
        } else if (header->pktHdrType() == PktHdrType::ipv4) {
            addIpv4(hasher, *header);
            return hasher.finish();
        } else if (header->pktHdrType() == PktHdrType::ipv6) {
            addIpv6(hasher, *header);
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
