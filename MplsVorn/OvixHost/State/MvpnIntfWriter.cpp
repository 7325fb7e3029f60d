#include "State/MvpnIntfWriter.h"

#include <array>
#include <cassert>
#include <stdexcept>
#include <vector>

namespace Routing::Multicast {

using Tessel::TableRef;
using VrfId = Vrf::VrfIdMap::VrfId;

namespace {

/// The header and the two words of an entry.
constexpr std::size_t recordUnits = 3;

std::array<std::uint64_t, 2> wordsOf(const MvpnVrfIntfId& entry) {
    return {entry.vrfId.value, entry.intfId.value()};
}

} // namespace

VrfId MvpnIntfWriter::vrfAt(std::uint32_t place) const {
    const auto words = tables_->record(tables_->entry(table_, place));
    return {words.size() == recordUnits ? static_cast<std::uint32_t>(words[1]) : 0};
}

std::uint32_t MvpnIntfWriter::placeOf(VrfId vrf) const {
    std::uint32_t place = MvpnPlaces::home(vrf);
    for (std::uint32_t distance = 0; distance <= MvpnPlaces::maxDistance; ++distance) {
        if (!tables_->entry(table_, place) || vrfAt(place) == vrf) {
            return place;
        }
        place = MvpnPlaces::next(place);
    }
    throw std::length_error("too many VRF IDs like " + std::to_string(vrf.value));
}

void MvpnIntfWriter::closeGaps() {
    std::vector<MvpnVrfIntfId> displaced;
    std::uint32_t found = 0;
    const std::uint32_t entries = tables_->entries(table_);
    for (std::uint32_t place = 0; found < entries && place <= Tessel::TableLayout::maxKey;
         ++place) {
        if (const TableRef ref = tables_->entry(table_, place)) {
            ++found;
            const auto words = tables_->record(ref);
            const VrfId vrf = vrfAt(place);
            if (words.size() == recordUnits && placeOf(vrf) == place) {
                continue;
            }
            if (words.size() == recordUnits) {
                displaced.push_back({vrf, Lumo::IntfId::fromValue(words[2])});
            }
            tables_->recordEntryDel(table_, place);
        }
    }
    for (const MvpnVrfIntfId& entry : displaced) {
        entryIs(entry.vrfId, entry);
    }
}

void MvpnIntfWriter::entryIs(VrfId vrf, const MvpnVrfIntfId& entry) {
    tables_->recordEntryIs(table_, placeOf(vrf), Tessel::RecordKind::mvpnIntf, wordsOf(entry));
}

// Those behind move up, so that no place between a VRF and its home is ever empty.
bool MvpnIntfWriter::vrfIntfIdDel(VrfId vrf) {
    std::uint32_t hole = placeOf(vrf);
    if (!tables_->entry(table_, hole)) {
        return false;
    }
    for (std::uint32_t at = MvpnPlaces::next(hole); tables_->entry(table_, at);
         at = MvpnPlaces::next(at)) {
        assert(at != hole);
        const std::uint32_t toHole = (at - hole) & Tessel::TableLayout::maxKey;
        if (MvpnPlaces::distance(at, vrfAt(at)) >= toHole) {
            const auto held = tables_->record(tables_->entry(table_, at));
            tables_->recordEntryIs(table_, hole, Tessel::RecordKind::mvpnIntf,
                                   std::array<std::uint64_t, 2>{held[1], held[2]});
            hole = at;
        }
    }
    return tables_->recordEntryDel(table_, hole);
}

} // namespace Routing::Multicast
