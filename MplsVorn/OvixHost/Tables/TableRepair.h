#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Tables/TableWriter.h"

namespace Tessel {

/// Makes a set of tables usable again that no writer takes over: its header is damaged, or its file
/// was cut short. The newest generation that is whole in memory becomes the current one; entries
/// that are damaged go when a writer takes the tables over afterwards. Readers that have the memory
/// mapped go on with it.
class TableRepair {
  public:
    /// Repairs. Throws CorruptionDetected when the memory holds undamaged tables of another kind.
    TableRepair(TableMemory& memory, std::span<const TableDescription> tables);

    /// What was found and what has become of it, in sentences; nothing when all was well.
    const std::vector<std::string>& findings() const noexcept { return findings_; }

  private:
    struct Found {
        TableRef ref;
        TableLayout::Root root;
    };

    TableLayout::TableHeader& header() const noexcept {
        return *reinterpret_cast<TableLayout::TableHeader*>(memory_->bytes().data());
    }
    std::size_t sizeSaid() const;
    void repairHeader(std::span<const TableDescription> tables);
    bool repairHorizon();
    void repairCurrent();
    std::optional<std::uint64_t> currentGeneration() const;
    std::optional<Found> rootAt(std::uint32_t unit) const;
    std::optional<Found> newestRoot() const;

    TableMemory* memory_;
    std::span<const std::uint64_t> inUse_; ///< the words that there are
    std::vector<std::string> findings_;
};

} // namespace Tessel
