#include "Tables/TableCopy.h"

#include <algorithm>
#include <cstring>

#include "Tables/TableLayout.h"
#include "Tessel/Exceptions.h"

namespace Tessel {

using namespace TableLayout;

namespace {

constexpr int attempts = 50;

/// A reader that owns its memory.
class FrozenReader : public TableReader {
  public:
    FrozenReader(std::string name, TableMemory memory)
        : TableReader(std::move(name), memory.bytes()), copy_(std::move(memory)) {}

  private:
    TableMemory copy_;
};

/// Word by word, as another process may be writing.
void copyWords(std::span<const std::byte> from, std::span<std::byte> to, std::uint64_t words) {
    const auto* source = reinterpret_cast<const std::uint64_t*>(from.data());
    auto* target = reinterpret_cast<std::uint64_t*>(to.data());
    for (std::uint64_t i = 0; i < words; ++i) {
        target[i] = load(source[i]);
    }
}

} // namespace

TableCopy::TableCopy(const TableReader& live, std::span<const std::byte> from)
    : name_(live.name()), memory_(TableMemory::ofProcess(from.size())),
      used_(live.root().heapUnits * sizeof(std::uint64_t)) {
    copyWords(from, memory_.bytes(), live.root().heapUnits);
    auto& header = *reinterpret_cast<TableHeader*>(memory_.bytes().data());
    header.current = live.current().word;
    header.horizon = sealedHorizon(0);
    static_cast<void>(live.pageMadeIn(0, 0)); // whether the generation is still there
}

TableCopy TableCopy::ofNewest(const std::string& name, std::span<const std::byte> from) {
    TableReader live(name, from);
    for (int attempt = 1;; ++attempt) {
        try {
            return TableCopy(live, from);
        } catch (const SnapshotLost&) {
            if (attempt == attempts) {
                throw;
            }
            live.refresh();
        }
    }
}

TableCopy TableCopy::ofBytes(const std::string& name, std::span<const std::byte> used) {
    constexpr std::uint64_t mostBytes = std::uint64_t{1} << 36U;
    TableHeader header{};
    if (used.size() < heapBytesOffset || used.size() % unitBytes != 0) {
        throw CorruptionDetected(name + ": too short for tables");
    }
    std::memcpy(&header, used.data(), sizeof header);
    if (header.regionBytes < used.size() || header.regionBytes > mostBytes) {
        throw CorruptionDetected(name + ": tables of another size");
    }
    TableMemory memory = TableMemory::ofProcess(header.regionBytes);
    std::memcpy(memory.bytes().data(), used.data(), used.size());
    static_cast<void>(TableReader(name, memory.bytes()));
    return {name, std::move(memory), used.size()};
}

TableMemory TableCopy::memory() const {
    TableMemory copy = TableMemory::ofProcess(memory_.bytes().size());
    std::memcpy(copy.bytes().data(), memory_.bytes().data(), used_);
    return copy;
}

Ptr<TableReader> TableCopy::reader() const {
    return make<TableReader>(name_, memory_.bytes());
}

Ptr<TableReader> TableCopy::intoReader() && {
    return make<FrozenReader>(std::move(name_), std::move(memory_));
}

} // namespace Tessel
