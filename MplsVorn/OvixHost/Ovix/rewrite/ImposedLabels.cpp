#include "Ovix/rewrite/ImposedLabels.h"

namespace Ovix {

namespace {

/// The label that names a flow, never a special-purpose one (RFC 6790 section 3, RFC 6391 section
/// 1.3).
Lumo::MplsLabel labelOfFlow(std::uint32_t hash) {
    constexpr std::uint32_t firstOrdinary = 16;
    return Lumo::MplsLabel(firstOrdinary + hash % (Lumo::MplsLabel::max + 1 - firstOrdinary));
}

/// Writes entries one behind the other.
class EntryWriter {
  public:
    EntryWriter(std::span<std::uint8_t> room, bool lastIsBottom) noexcept
        : room_(room), lastIsBottom_(lastIsBottom) {}

    void write(Lumo::MplsLabel label, std::uint8_t tc, std::uint8_t ttl) {
        assert(room_.size() >= Lumo::MplsLabelEntry::size);
        const bool isBottom = lastIsBottom_ && room_.size() == Lumo::MplsLabelEntry::size;
        Lumo::MplsLabelEntry(label, tc, isBottom, ttl).store(room_.data());
        room_ = room_.subspan(Lumo::MplsLabelEntry::size);
    }

  private:
    std::span<std::uint8_t> room_;
    bool lastIsBottom_;
};

} // namespace

// An entropy label is never forwarded by, so its TTL is 0; its indicator has the TTL and TC of the
// label above (RFC 6790 section 4.2). The TTL of 1 keeps a flow label that surfaces from being
// forwarded by, and its TC must be 0 (RFC 6391 section 1.3).
void ImposedLabels::write(std::span<std::uint8_t> room, std::uint8_t tc, std::uint8_t ttl,
                          std::uint32_t hash, bool ontoLabels) const {
    constexpr std::uint8_t entropyTtl = 0;
    constexpr std::uint8_t flowTtl = 1;
    constexpr std::uint8_t flowTc = 0;
    assert(room.size() == entries() * Lumo::MplsLabelEntry::size);
    const Lumo::UnboundedMplsLabelOperation labels = operation();
    EntryWriter writer(room, !ontoLabels);
    for (std::size_t i = 0; i < labels.depth(); ++i) {
        writer.write(labels.label(i), tc, ttl);
        if (i + 1 == entropyBeneath_) {
            writer.write(Lumo::entropyLabelIndicator, tc, ttl);
            writer.write(labelOfFlow(hash), tc, entropyTtl);
        }
    }
    if (flowLabel_) {
        writer.write(labelOfFlow(hash), flowTc, flowTtl);
    }
}

bool ImposedLabels::push(PacketContext& packet, std::uint8_t tc, std::uint8_t ttl,
                         bool ontoLabels) const {
    const std::uint32_t hash = namesFlow() ? packet.hash() : 0;
    const std::span<std::uint8_t> room =
        packet.pkt()->pushFront(entries() * Lumo::MplsLabelEntry::size);
    if (room.empty()) {
        return false;
    }
    write(room, tc, ttl, hash, ontoLabels);
    packet.outerTypeIs(PktHdrType::mpls);
    return true;
}

} // namespace Ovix
