#pragma once

#include <array>
#include <cassert>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Tables/TableLayout.h"
#include "Tables/TableMemory.h"
#include "Tessel/Ptr.h"

namespace Tessel {

/// The reading side of a set of tables: holds one generation at a time and copies out of it. Takes
/// no lock and writes nothing; used by one thread. Every index, count and length is checked before
/// it is followed, and every word that is handed out was covered by a check: damage throws
/// CorruptionDetected, and what has been replaced because this reader was held up throws
/// SnapshotLost.
class TableReader : public Counted {
  public:
    /// Throws CorruptionDetected, naming what it found, when the memory holds no tables of this
    /// version.
    explicit TableReader(TableMemory memory);
    /// Reads memory that the caller keeps, under a name for messages.
    TableReader(std::string name, std::span<const std::byte> memory);
    /// The same of a generation that its writer has not committed yet.
    TableReader(std::string name, std::span<const std::byte> memory,
                const TableLayout::Root& working)
        : TableReader(std::move(name), memory) {
        root_ = working;
    }

    /// Goes over to the newest generation; true when that was not the one held. A damaged one
    /// throws CorruptionDetected, once, and the one held is kept.
    bool refresh() { return refreshNeeded() && pinNewest(); }
    bool refreshNeeded() const noexcept {
        const std::uint64_t newest = TableLayout::load(header().current);
        return newest != current_.word && newest != refused_;
    }

    /// Another reader of the same memory, for another thread; memory that somebody else keeps has
    /// to outlive it. Throws as the constructors do.
    Ptr<TableReader> another() const;

    /// Goes over to other memory with tables of the same kind. Throws CorruptionDetected, with
    /// nothing changed, when it holds none.
    void memoryIs(TableMemory memory);
    /// Of the tables' file; null when somebody else keeps the memory.
    const TableMemory* memory() const noexcept { return memory_.get(); }

    TableRef current() const noexcept { return current_; }
    const TableLayout::Root& root() const noexcept { return root_; }
    std::uint64_t generation() const noexcept { return root_.generation; }
    /// Counts what this reader has held: generations, of whatever tables.
    std::uint64_t held() const noexcept { return held_; }
    /// Of the tables: where it has changed, generations and pages do not follow on from those
    /// before.
    std::uint64_t identity() const noexcept { return identity_; }
    /// Nanoseconds since 1970.
    std::uint64_t committedAt() const noexcept { return root_.committedAt; }
    const std::string& name() const noexcept { return name_; }

    /// The table that is mounted at `path`. Throws CorruptionDetected when there is none or when it
    /// is of another type.
    std::size_t table(std::string_view path, std::string_view typeName) const;

    /// Keys of the table that have an entry.
    std::uint32_t entries(std::size_t table) const noexcept {
        assert(table < TableLayout::maxTables);
        return root_.tables[table].entries;
    }
    /// The generation that changed the table last.
    std::uint64_t changedIn(std::size_t table) const noexcept {
        return root_.tables[table].changedIn;
    }

    /// The entry of a key of at most TableLayout::maxKey; an empty one when there is none.
    TableRef entry(std::size_t table, std::uint32_t key) const {
        assert(table < TableLayout::maxTables && key <= TableLayout::maxKey);
        const std::uint32_t page = pageOf(table, key);
        if (page == 0) {
            return {};
        }
        const TableRef found{load(page + key % TableLayout::pageEntries)};
        checkHeld();
        return found;
    }

    /// Visits the words of a page's entries in order, zeros when there is no such page:
    /// `visitor(index, word)`. They are of the generation held once this has returned.
    template <typename Visitor>
    void visitPage(std::size_t table, std::size_t page, Visitor&& visitor) const {
        assert(table < TableLayout::maxTables && page < TableLayout::directoryPages);
        const auto first = static_cast<std::uint32_t>(page * TableLayout::pageEntries);
        const std::uint32_t unit = pageOf(table, first);
        for (std::uint32_t i = 0; i < TableLayout::pageEntries; ++i) {
            visitor(i, unit != 0 ? load(unit + i) : 0);
        }
        checkHeld();
    }

    /// Visits the entries of a table by key, from `from` on: `visitor(key, ref)`.
    template <typename Visitor>
    void forEach(std::size_t table, Visitor&& visitor, std::uint32_t from = 0) const {
        for (std::uint64_t key = from; key <= TableLayout::maxKey;) {
            const auto number = static_cast<std::uint32_t>(key);
            if (key % TableLayout::pageEntries == 0 && pageOf(table, number) == 0) {
                key += TableLayout::pageEntries;
                continue;
            }
            ++key;
            if (const TableRef ref = entry(table, number)) {
                visitor(number, ref);
            }
        }
    }

    /// The generation that a page of the table was made in; 0 when there is no such page.
    std::uint64_t pageMadeIn(std::size_t table, std::size_t page) const {
        assert(page < TableLayout::directoryPages);
        const std::uint32_t directory = root_.tables[table].directory;
        const std::uint64_t madeIn =
            directory == 0 ? 0 : load(directory + static_cast<std::uint32_t>(2 * page + 1));
        checkHeld();
        return madeIn;
    }

    /// Copies the own words of the record that `ref` names, at most as many as `to` has, and
    /// returns them. `what` names the record in messages.
    std::span<const std::uint64_t> read(TableRef ref, RecordKind kind, std::span<std::uint64_t> to,
                                        std::string_view what) const {
        const TableLayout::RecordHeader head = headOf(ref, what);
        if (head.ownWords > to.size()) [[unlikely]] {
            refuse(what, ref.unit());
        }
        std::uint64_t hash = TableLayout::recordSeed(kind, ref.unit(), head.units, head.ownWords);
        for (std::uint32_t i = 0; i < head.ownWords; ++i) {
            to[i] = load(ref.unit() + 1 + i);
            hash = TableLayout::mix(hash, to[i]);
        }
        if (static_cast<std::uint32_t>(hash) != ref.check() || head.check != ref.check())
            [[unlikely]] {
            refuse(what, ref.unit());
        }
        checkHeld();
        return to.first(head.ownWords);
    }

    /// What the record's header says; checked against the heap's end alone.
    TableLayout::RecordHeader headOf(TableRef ref, std::string_view what) const {
        if (ref.unit() < TableLayout::heapUnit || ref.unit() >= root_.heapUnits) [[unlikely]] {
            refuse(what, ref.unit());
        }
        const auto head = TableLayout::RecordHeader::of(load(ref.unit()));
        if (head.ownWords >= head.units || ref.unit() + std::uint64_t{head.units} > root_.heapUnits)
            [[unlikely]] {
            refuse(what, ref.unit());
        }
        return head;
    }
    /// The unit of the page with a key's entry; 0 when there is none.
    std::uint32_t pageOf(std::size_t table, std::uint32_t key) const {
        const std::uint32_t directory = root_.tables[table].directory;
        return directory == 0
                   ? 0
                   : pageUnit(table, directory,
                              static_cast<std::uint32_t>(key / TableLayout::pageEntries));
    }

    /// Throws SnapshotLost when the generation held is no longer kept, CorruptionDetected
    /// otherwise.
    [[noreturn]] void refuse(std::string_view what, std::uint64_t at) const;

  private:
    const TableLayout::TableHeader& header() const noexcept {
        return *reinterpret_cast<const TableLayout::TableHeader*>(words_.data());
    }
    std::uint64_t load(std::uint32_t unit) const noexcept {
        return TableLayout::load(words_[unit]);
    }
    /// The page's unit; 0 when there is none.
    std::uint32_t pageUnit(std::size_t table, std::uint32_t directory, std::uint32_t page) const {
        const TableRef ref{load(directory + 2 * page)};
        if (!ref) {
            checkHeld();
            return 0;
        }
        if (ref != TableLayout::sealed(ref.unit(), TableLayout::pagePlace(table, page)) ||
            ref.unit() < TableLayout::heapUnit ||
            std::uint64_t{ref.unit()} + TableLayout::pageEntries > root_.heapUnits) [[unlikely]] {
            refuse("page in directory at unit", directory + 2 * page);
        }
        return ref.unit();
    }
    /// What was read before this belongs to the generation held.
    void checkHeld() const {
        if (TableLayout::load(header().horizon) != horizon_) [[unlikely]] {
            horizonMoved();
        }
    }
    void open();
    bool pinNewest();
    void takeRoot(TableRef current);
    void horizonMoved() const;
    std::uint64_t horizonGeneration(std::uint64_t word) const;
    [[noreturn]] void corrupt(std::string_view what, std::uint64_t at) const;

    std::shared_ptr<const TableMemory> memory_; ///< null: somebody else keeps it
    std::string name_;
    std::span<const std::uint64_t> words_;
    TableRef current_;
    std::optional<std::uint64_t> refused_; ///< a damaged newest root, reported once
    TableLayout::Root root_{};
    std::uint64_t held_ = 0;
    std::uint64_t identity_ = 0;
    std::uint64_t kind_ = 0;            ///< the check of what kind of tables these are
    mutable std::uint64_t horizon_ = 0; ///< as last seen, when it was fine
};

} // namespace Tessel
