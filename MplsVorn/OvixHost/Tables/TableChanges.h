#pragma once

#include <array>
#include <cassert>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "Tables/TableReader.h"

namespace Tessel {

/// Finds which keys of a table have changed from one generation to a later one, however many lie
/// between: keeps what it has seen of every page in use and compares.
class TableChanges {
  public:
    /// What the reader holds now counts as seen. Throws SnapshotLost when that is no longer kept.
    TableChanges(Ptr<const TableReader> tables, std::size_t table);
    /// Nothing counts as seen: every entry will be reported.
    static TableChanges fromNothing(Ptr<const TableReader> tables, std::size_t table) {
        return {std::move(tables), table, Seen::nothing};
    }

    /// Compares up to `pages` changed pages with what the reader holds, and reports each entry that
    /// has changed: `visitor(key)`. True when everything has been seen. A key for which the visitor
    /// throws SnapshotLost is reported again; a damaged page throws CorruptionDetected and is
    /// skipped.
    template <typename Visitor>
    bool look(std::size_t pages, Visitor&& visitor) {
        report(visitor);
        for (; toSee_ > 0; skip()) {
            if (!differs(next_)) {
                continue;
            }
            if (pages-- == 0) {
                return false;
            }
            seePage(next_);
            report(visitor);
        }
        return true;
    }
    /// All pages are to be compared again, since the reader has gone over to another generation;
    /// beginning where the last comparison ended, so that pages that change all the time do not
    /// keep others from being seen.
    void restart() noexcept {
        if (tables_->changedIn(table_) != changedIn_ || tables_->identity() != identity_) {
            compareAll();
        }
    }
    /// Another reader of the same tables, whatever generation it holds: what differs from what has
    /// been seen will be reported.
    void readerIs(Ptr<const TableReader> tables) noexcept {
        tables_ = std::move(tables);
        restart();
    }
    bool done() const noexcept { return toSee_ == 0 && changed_.empty(); }

  private:
    enum class Seen : std::uint8_t { nothing };
    TableChanges(Ptr<const TableReader> tables, std::size_t table, Seen) noexcept
        : tables_(std::move(tables)), table_(table) {
        restart();
    }

    using Page = std::array<std::uint64_t, TableLayout::pageEntries>;

    void compareAll() noexcept;
    void skip() noexcept {
        assert(toSee_ > 0);
        next_ = (next_ + 1) % TableLayout::directoryPages;
        --toSee_;
    }
    bool differs(std::size_t page);
    void seePage(std::size_t page);
    template <typename Visitor>
    void report(Visitor&& visitor) {
        while (!changed_.empty()) {
            visitor(changed_.back());
            changed_.pop_back();
        }
    }

    Ptr<const TableReader> tables_;
    std::size_t table_;
    std::size_t next_ = 0;        ///< page
    std::size_t toSee_ = 0;       ///< pages, from there on
    std::uint64_t changedIn_ = 0; ///< of the table, as last restarted
    std::uint64_t identity_ = 0;  ///< of the tables, likewise
    std::array<std::uint64_t, TableLayout::directoryPages> madeIn_{}; ///< of the pages seen
    std::array<std::unique_ptr<Page>, TableLayout::directoryPages> pages_;
    std::vector<std::uint32_t> changed_; ///< seen and not reported yet
};

} // namespace Tessel
