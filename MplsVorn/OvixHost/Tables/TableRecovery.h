#pragma once

#include <array>
#include <span>
#include <vector>

#include "Tables/TableReader.h"
#include "Tables/TableWriter.h"

namespace Tessel {

/// What a generation of tables reaches, found by walking it, and what in it is damaged.
struct TableRecovery {
    struct Damage {
        std::size_t table;
        std::uint32_t key;
        bool wholePage; ///< the page itself cannot be followed
    };

    static TableRecovery walk(const TableReader& reader, std::span<const TableDescription> tables);

    std::vector<TableHeap::Block> reached;
    std::vector<Damage> damaged;
    std::array<std::uint32_t, TableLayout::maxTables> entries{}; ///< per table, without the damaged
};

} // namespace Tessel
