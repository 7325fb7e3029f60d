#include "Mpls/Hardware/Adjacency.h"

#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <vector>

#include "Mpls/PackedVia.h"

namespace Mpls::Hardware {

namespace {

void check(std::span<const WeightedVia> vias) {
    std::uint64_t total = 0;
    for (const WeightedVia& via : vias) {
        total += via.weight;
    }
    if (vias.size() > LfibViaSet::capacity) {
        throw std::invalid_argument("more than 599 vias in an adjacency");
    }
    if (total > std::numeric_limits<std::uint32_t>::max()) {
        throw std::invalid_argument("the weights of an adjacency add up to 2^32 or more");
    }
}

} // namespace

Ptr<const Adjacency> Adjacency::create(std::span<const WeightedVia> vias,
                                       std::span<const WeightedVia> backups, bool useBackups,
                                       LfibViaType viaType, LfibViaSetType setType) {
    check(vias);
    check(backups);
    std::vector<Entry> entries;
    std::vector<std::uint8_t> packed;
    const std::size_t packedFrom =
        sizeof(Adjacency) + (vias.size() + backups.size()) * sizeof(Entry);
    for (const auto& list : {vias, backups}) {
        for (const WeightedVia& member : list) {
            Ovix::OvixMplsVia rest = member.via;
            rest.intfId = {}; // stands in the entry, where validity is checked without unpacking
            const PackedVia one(rest);
            entries.push_back({member.via.intfId, member.weight,
                               static_cast<std::uint32_t>(packedFrom + packed.size())});
            packed.insert(packed.end(), one.bytes().begin(), one.bytes().end());
        }
    }
    const std::size_t bytes = packedFrom + packed.size();
    auto* memory = static_cast<std::byte*>(::operator new(bytes));
    auto* made = new (memory) Adjacency;
    made->bytes_ = static_cast<std::uint32_t>(bytes);
    made->vias_ = static_cast<std::uint16_t>(vias.size());
    made->backups_ = static_cast<std::uint16_t>(backups.size());
    made->useBackups_ = useBackups;
    made->viaType_ = viaType;
    made->setType_ = setType;
    if (!entries.empty()) {
        std::memcpy(memory + sizeof(Adjacency), entries.data(), entries.size() * sizeof(Entry));
        std::memcpy(memory + packedFrom, packed.data(), packed.size());
    }
    return Ptr<const Adjacency>(made);
}

Ovix::OvixMplsVia Adjacency::via(bool backups, std::uint32_t index) const noexcept {
    const Entry& at = entries(backups)[index];
    const auto* start = reinterpret_cast<const std::uint8_t*>(this);
    Ovix::OvixMplsVia via;
    PackedVia::unpack({start + at.packedOffset, bytes_ - at.packedOffset}, via);
    via.intfId = at.intf;
    return via;
}

} // namespace Mpls::Hardware
