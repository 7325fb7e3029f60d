#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "Tables/TableHeap.h"
#include "Tables/TableLayout.h"
#include "Tables/TableMemory.h"
#include "Tables/TableReader.h"

namespace Tessel {

class TableReader;

/// A table as a set of tables is made with it.
struct TableDescription {
    std::string_view path;
    std::string_view typeName;
    /// What its entries refer to; no kind when the entries are sealed values.
    std::optional<RecordKind> records;
};

/// The one writing side of a set of tables. Changes are a batch that no reader sees until it is
/// committed. A writer that finds tables takes them over as the last one left them.
class TableWriter {
  public:
    /// Makes the tables in memory that holds none, with those in `tables`, at most
    /// TableLayout::maxTables. Throws CorruptionDetected when the memory holds something else; an
    /// invalid entry is removed.
    TableWriter(TableMemory memory, std::span<const TableDescription> tables,
                std::chrono::milliseconds keptFor = TableHeap::keptFor);

    /// The header of tables that have no generation yet.
    static TableLayout::TableHeader newHeader(std::span<const TableDescription> tables,
                                              std::size_t regionBytes);
    /// Of tables that are begun anew, or repaired.
    static std::uint64_t newIdentity();

    const std::string& name() const noexcept { return memory_.name(); }
    std::span<std::byte> memory() const noexcept { return memory_.bytes(); }

    /// Between two batches: lets others write, and what they have committed since makes this writer
    /// invalid.
    void unlock() noexcept { memory_.unlock(); }
    /// False when another has committed, or the name leads to other memory by now: then only a new
    /// writer will do. Throws as TableMemory does.
    bool lockAgain(std::chrono::milliseconds wait);
    /// Whether the name of the memory still leads to it, and to the same tables.
    bool isNamed() const {
        return memory_.now() == TableMemory::Now::same && header().identity == identity_;
    }

    /// The last committed generation.
    std::uint64_t generation() const noexcept { return root_.generation; }
    bool changed() const noexcept { return changed_; }
    /// Makes the changes visible, all at once. Nothing happens when there are none. Throws
    /// CorruptionDetected when the file has been cut short.
    void commit();
    /// Undoes the changes since the last commit.
    void discard();

    /// A reader of the tables with the changes made so far; invalid after the next one.
    Ptr<TableReader> working() const;
    /// With the changes made.
    TableRef entry(std::size_t table, std::uint32_t key) const;
    std::uint32_t entries(std::size_t table) const noexcept { return working_[table].entries; }
    /// Puts an entry in a key's place; an empty one removes it. What was there is the caller's to
    /// release. Throws std::length_error when there is no room, std::invalid_argument when the
    /// key is larger than TableLayout::maxKey.
    void entryIs(std::size_t table, std::uint32_t key, TableRef ref);

    /// Puts a record of `own` words alone in a key's place, unless an equal one is there, and
    /// releases what was there. Throws as `entryIs` does, having changed nothing.
    void recordEntryIs(std::size_t table, std::uint32_t key, RecordKind kind,
                       std::span<const std::uint64_t> own);
    /// Removes a record from a key's place and releases it; false when there is none.
    bool recordEntryDel(std::size_t table, std::uint32_t key);
    /// Puts a record, made by `recordIs`, in a key's place, and releases what was there. When there
    /// is no room, releases the new record and throws.
    void replaceRecord(std::size_t table, std::uint32_t key, TableRef record);

    /// Room for a record, to be filled by `recordIs`. Throws std::length_error.
    std::uint32_t take(std::size_t units);
    /// Writes a record into taken room: `own` and, behind the own words, `behind`, which holds
    /// records of their own that `seal` has made.
    TableRef recordIs(std::uint32_t unit, RecordKind kind, std::span<const std::uint64_t> own,
                      std::span<const std::uint64_t> behind = {});
    /// The header of a record at `unit`, and the reference to it.
    static std::pair<std::uint64_t, TableRef> seal(std::uint32_t unit, RecordKind kind,
                                                   std::span<const std::uint64_t> own,
                                                   std::size_t wordsBehind = 0);
    /// Releases a record's room.
    void release(TableRef record);

    /// The words of a record as written, header first; for the writer's own bookkeeping.
    std::span<const std::uint64_t> record(TableRef ref) const;

    /// Memory in use: header, directories, pages and records of the working generation.
    std::size_t usedBytes() const noexcept;
    /// How many invalid entries were found and removed when tables were taken over.
    std::size_t repaired() const noexcept { return repaired_; }

  private:
    TableLayout::TableHeader& header() const noexcept {
        return *reinterpret_cast<TableLayout::TableHeader*>(memory_.bytes().data());
    }
    std::uint64_t* words() const noexcept {
        return reinterpret_cast<std::uint64_t*>(memory_.bytes().data());
    }
    void initialize(std::span<const TableDescription> tables);
    Ptr<TableReader> openOrAdvise() const;
    void takeOver(std::span<const TableDescription> tables);
    void takeOut(std::size_t table, std::uint32_t key, bool wholePage);
    std::uint32_t ownBlock(std::uint32_t unit, std::size_t words);
    void ownDirectory(std::size_t table);
    std::uint32_t page(std::size_t table, std::uint32_t key) const;
    void publish(const TableLayout::Root& root);
    void checkMemory() const;

    TableMemory memory_;
    TableHeap heap_;
    std::uint64_t identity_ = 0;
    TableLayout::Root root_{}; ///< as committed
    TableRef current_;
    std::array<TableLayout::Root::Table, TableLayout::maxTables> working_{};
    bool changed_ = false;
    std::size_t repaired_ = 0;
};

} // namespace Tessel
