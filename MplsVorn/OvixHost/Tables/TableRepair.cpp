#include "Tables/TableRepair.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "Tables/TableReader.h"
#include "Tessel/Exceptions.h"

namespace Tessel {

using namespace TableLayout;

TableRepair::TableRepair(TableMemory& memory, std::span<const TableDescription> tables)
    : memory_(&memory), inUse_(reinterpret_cast<const std::uint64_t*>(memory.bytes().data()),
                               memory.bytesInUse() / unitBytes) {
    if (memory.foundBytes() < std::max(heapBytesOffset, sizeSaid())) {
        findings_.push_back("the file had been cut short to " +
                            std::to_string(memory.foundBytes()) + " bytes; it has its size again");
    }
    repairHeader(tables);
    const bool isHorizonDamaged = repairHorizon();
    if (const std::optional<std::uint64_t> generation = currentGeneration()) {
        if (isHorizonDamaged) { // readers of older ones start again
            store(header().horizon, sealedHorizon(*generation));
        }
    } else {
        repairCurrent();
    }
}

/// By a header that is whole; else 0.
std::size_t TableRepair::sizeSaid() const {
    const TableHeader& found = header();
    return found.magic == magic && found.check == checkOf(found) ? found.regionBytes : 0;
}

// Everything before `check` and the names are the same as long as the tables live.
void TableRepair::repairHeader(std::span<const TableDescription> tables) {
    TableHeader wanted = TableWriter::newHeader(tables, memory_->bytes().size());
    TableHeader& found = header();
    if (std::memcmp(&found, &wanted, offsetof(TableHeader, writer)) == 0 &&
        std::memcmp(&found.names, &wanted.names, sizeof wanted.names) == 0) {
        return;
    }
    if (found.magic == magic && found.check == checkOf(found) &&
        found.regionBytes == wanted.regionBytes) {
        throw CorruptionDetected(memory_->name() + ": the tables are of another version");
    }
    wanted.writer = found.writer;
    wanted.current = found.current;
    wanted.horizon = found.horizon;
    std::memcpy(&found, &wanted, sizeof wanted);
    findings_.emplace_back("the header was damaged; it is made anew");
}

bool TableRepair::repairHorizon() {
    const std::uint64_t horizon = load(header().horizon);
    if (horizon == sealedHorizon(horizon >> 16U)) {
        return false;
    }
    store(header().horizon, sealedHorizon(0));
    findings_.emplace_back("the horizon was damaged; it is made anew");
    return true;
}

std::optional<std::uint64_t> TableRepair::currentGeneration() const {
    try {
        const TableReader whole(memory_->name(), memory_->bytes());
        return whole.root().heapUnits <= inUse_.size() ? std::optional(whole.generation())
                                                       : std::nullopt;
    } catch (const CorruptionDetected&) {
        return std::nullopt;
    }
}

void TableRepair::repairCurrent() {
    const std::optional<Found> newest = newestRoot();
    if (!newest) {
        findings_.emplace_back("no generation is whole; all entries are lost");
        store(header().magic, 0);
        return;
    }
    store(header().identity, TableWriter::newIdentity());
    store(header().horizon, sealedHorizon(newest->root.generation));
    store(header().current, newest->ref.word);
    findings_.push_back("the current generation was damaged; generation " +
                        std::to_string(newest->root.generation) +
                        " is the newest that is whole, and changes after it are lost");
}

std::optional<TableRepair::Found> TableRepair::rootAt(std::uint32_t unit) const {
    const auto head = RecordHeader::of(load(inUse_[unit]));
    if (head.ownWords != rootWords || head.units != rootWords + 1 ||
        unit + std::size_t{head.units} > inUse_.size()) {
        return std::nullopt;
    }
    std::array<std::uint64_t, rootWords> own{};
    std::uint64_t hash = recordSeed(RecordKind::root, unit, head.units, head.ownWords);
    for (std::size_t i = 0; i < rootWords; ++i) {
        own[i] = load(inUse_[unit + 1 + i]);
        hash = mix(hash, own[i]);
    }
    Found found{TableRef::of(unit, head.check), {}};
    std::memcpy(&found.root, own.data(), sizeof found.root);
    const bool isWhole = head.check == static_cast<std::uint32_t>(hash) &&
                         found.root.heapUnits <= inUse_.size() && found.root.generation > 0;
    return isWhole ? std::optional(found) : std::nullopt;
}

std::optional<TableRepair::Found> TableRepair::newestRoot() const {
    std::optional<Found> newest;
    for (std::uint32_t unit = heapUnit; unit < inUse_.size(); ++unit) {
        const std::optional<Found> found = rootAt(unit);
        if (found && (!newest || found->root.generation > newest->root.generation)) {
            newest = found;
        }
    }
    return newest;
}

} // namespace Tessel
