#include "Mpls/Hardware/Adjacency.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstring>
#include <new>
#include <vector>

#include "Mpls/LfibLayout.h"
#include "Mpls/PackedVia.h"
#include "Tessel/Slab.h"

namespace Mpls::Hardware {

using LfibLayout::wordsFor;

namespace {

// One is made for every frame that meets a hardware route: room for a via or a few, for a group of
// dozens and of hundreds. What is larger still comes from the heap.
constexpr std::array<std::size_t, 3> roomBytes{448, 4096, 65536};
[[maybe_unused]] __attribute__((tls_model(
    "initial-exec"))) thread_local constinit std::array<Tessel::SlabList, roomBytes.size()>
    rooms{Tessel::SlabList(roomBytes[0]), Tessel::SlabList(roomBytes[1]),
          Tessel::SlabList(roomBytes[2])};

Tessel::SlabList* roomFor([[maybe_unused]] std::size_t bytes) noexcept {
#ifndef TESSEL_SLAB_FROM_HEAP
    for (std::size_t i = 0; i < roomBytes.size(); ++i) {
        if (bytes <= roomBytes[i]) [[likely]] {
            return &rooms[i];
        }
    }
#endif
    return nullptr;
}

} // namespace

Ptr<Adjacency> Adjacency::ofWords(std::size_t words) {
    const std::size_t bytes = sizeof(Adjacency) + words * sizeof(std::uint64_t);
    Tessel::SlabList* room = roomFor(bytes);
    void* memory = room != nullptr ? room->take() : ::operator new(bytes);
    return Ptr<Adjacency>::first(new (memory) Adjacency(static_cast<std::uint32_t>(words)));
}

void Adjacency::lastUserGone() noexcept {
    Tessel::SlabList* room = roomFor(sizeof(Adjacency) + words_ * sizeof(std::uint64_t));
    this->~Adjacency();
    if (room != nullptr) {
        room->give(this);
    } else {
        ::operator delete(this);
    }
}

Ptr<const Adjacency> Adjacency::create(std::span<const WeightedRecord> vias,
                                       std::span<const WeightedRecord> backups, bool useBackups,
                                       LfibViaType viaType, LfibViaSetType setType) {
    checkedWeight(vias);
    checkedWeight(backups);
    std::vector<Entry> entries;
    std::vector<std::uint8_t> packed;
    const std::size_t packedFrom = sizeof(Head) + (vias.size() + backups.size()) * sizeof(Entry);
    for (const auto& list : {vias, backups}) {
        for (const WeightedRecord& member : list) {
            Ovix::OvixMplsVia rest = member.via;
            rest.intfId = {}; // is in the entry, where validity is checked without unpacking
            const PackedVia one(rest);
            entries.push_back({member.via.intfId, member.weight,
                               static_cast<std::uint32_t>(packedFrom + packed.size())});
            packed.insert(packed.end(), one.bytes().begin(), one.bytes().end());
        }
    }
    const std::size_t words = wordsFor(packedFrom + packed.size());
    Ptr<Adjacency> made = ofWords(words);
    const Head head{
        static_cast<std::uint16_t>(vias.size()), static_cast<std::uint16_t>(backups.size()),
        static_cast<std::uint8_t>(useBackups),   static_cast<std::uint8_t>(viaType),
        static_cast<std::uint8_t>(setType),      0};
    auto* to = reinterpret_cast<std::uint8_t*>(made->firstWord());
    made->firstWord()[words - 1] = 0;
    std::memcpy(to, &head, sizeof head);
    if (!entries.empty()) {
        std::memcpy(to + sizeof head, entries.data(), entries.size() * sizeof(Entry));
        std::copy(packed.begin(), packed.end(), to + packedFrom);
    }
    assert(made->holdsTogether());
    return made;
}

Ptr<const Adjacency> Adjacency::create(const AdjacencyVias& content) {
    return create(recordsOf(content.vias), recordsOf(content.backups), content.useBackups,
                  content.viaType, content.setType);
}

Tessel::Result<AdjacencyVias> Adjacency::content() const {
    AdjacencyVias all{viaType(), setType(), useBackups(), {}, {}};
    for (const bool backups : {false, true}) {
        for (std::uint32_t i = 0; i < entries(backups).size(); ++i) {
            const auto one = Via::fromRecord(via(backups, i));
            if (!one) {
                return one.refused();
            }
            (backups ? all.backups : all.vias).push_back({one.value(), entries(backups)[i].weight});
        }
    }
    return all;
}

Ptr<const Adjacency> Adjacency::read(const Tessel::TableReader& tables, Tessel::TableRef ref) {
    constexpr std::string_view what = "adjacency at unit";
    const std::uint16_t words = tables.headOf(ref, what).ownWords;
    Ptr<Adjacency> made = ofWords(words);
    tables.read(ref, Tessel::RecordKind::adjacency, {made->firstWord(), words}, what);
    if (!made->holdsTogether()) {
        tables.refuse(what, ref.unit());
    }
    return made;
}

Ptr<const Adjacency> Adjacency::fromWords(std::span<const std::uint64_t> words) {
    Ptr<Adjacency> made = ofWords(words.size());
    std::copy(words.begin(), words.end(), made->firstWord());
    return made->holdsTogether() ? made : nullptr;
}

/// Whether everything is where the head and the entries say.
bool Adjacency::holdsTogether() const noexcept {
    if (words_ == 0 || head().vias > LfibViaSet::capacity ||
        head().backups > LfibViaSet::capacity) {
        return false;
    }
    const std::size_t all = std::size_t{head().vias} + head().backups;
    if (1 + 2 * all > words_) {
        return false;
    }
    const auto* first = reinterpret_cast<const Entry*>(firstWord() + 1);
    return std::all_of(first, first + all, [this](const Entry& entry) {
        return entry.packedOffset <= words_ * sizeof(std::uint64_t);
    });
}

const Ovix::OvixMplsVia& Adjacency::unpack(const Entry* entry) const noexcept {
    assert(entry->packedOffset <= words().size_bytes());
    const auto bytes = std::as_bytes(words()).subspan(entry->packedOffset);
    unpacked_ = {};
    if (PackedVia::unpack({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()},
                          unpacked_)) {
        unpacked_.intfId = entry->intf;
    } else {
        unpacked_ = {};
    }
    unpackedEntry_ = entry;
    return unpacked_;
}

bool Adjacency::isEq(const Adjacency& other) const noexcept {
    return std::equal(words().begin(), words().end(), other.words().begin(), other.words().end());
}

} // namespace Mpls::Hardware
