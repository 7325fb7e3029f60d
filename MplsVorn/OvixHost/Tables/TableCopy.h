#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "Tables/TableMemory.h"
#include "Tables/TableReader.h"

namespace Tessel {

/// A generation of a set of tables in memory of its own, which nobody else changes.
class TableCopy {
  public:
    /// Of the generation that the reader of `from` holds, which another process may be replacing:
    /// throws SnapshotLost when it has been.
    TableCopy(const TableReader& live, std::span<const std::byte> from);
    /// The same of the newest generation, tried anew while others replace it. Throws SnapshotLost
    /// when they never leave it alone, and what a reader of the memory throws.
    static TableCopy ofNewest(const std::string& name, std::span<const std::byte> from);

    /// A further copy, which a writer may take over.
    TableMemory memory() const;
    /// A reader of it; the copy has to outlive it.
    Ptr<TableReader> reader() const;
    /// A reader that keeps the copy's memory, which is then not in here any more.
    Ptr<TableReader> intoReader() &&;
    /// The words in use; what lies behind them is zero.
    std::span<const std::byte> used() const noexcept { return memory_.bytes().first(used_); }

    /// Memory with these words in use. Throws as a reader of it does when they are no tables.
    static TableCopy ofBytes(const std::string& name, std::span<const std::byte> used);

  private:
    TableCopy(std::string name, TableMemory memory, std::size_t used)
        : name_(std::move(name)), memory_(std::move(memory)), used_(used) {}

    std::string name_;
    TableMemory memory_;
    std::size_t used_;
};

} // namespace Tessel
