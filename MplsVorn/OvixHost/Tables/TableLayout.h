#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Tessel {

// A set of tables in one stretch of memory, private or shared between processes. Everything refers
// to everything else by unit (8 bytes, counted from the start), so the stretch may stand at any
// address, and every word is read and written whole.
//
//     0           +-----------------------------------------------------+
//                 | TableHeader: what this is, the current root, the    |
//                 | horizon, and the tables' paths and types            |
//     4096        +-----------------------------------------------------+
//                 | heap: roots, directories, pages and records         |
//                 +-----------------------------------------------------+
//
//     current --> root --> directory --> page ----------> record
//                 (one      (1024 pages   (1024 entries    (RecordHeader and
//                  slot per  per table)    of one table)    its words)
//                  table)
//
// A directory has two words per page: what refers to it, and the generation that it was made in,
// which distinguishes a page from a later one in the same place.
//
// A batch of changes writes new records, pages, directories and a new root beside the old ones and
// becomes visible whole when `current` names the new root: one store. What the new root no longer
// reaches is used again later; before that the horizon is raised, which tells a reader that still
// holds an older root that it may have read something else. So readers take no lock and are never
// waited for, and a process killed at any moment leaves the last whole generation behind.
//
// Every reference carries a check of what it refers to: a reference or a record in which any bit
// has changed does not match. Memory that has never been touched does not exist.

/// Names what a table's entry refers to; part of a record's check, so that a record of one kind is
/// never taken for one of another.
enum class RecordKind : std::uint8_t {
    root = 1,
    viaSet,
    ipVia,
    ipLookupVia,
    multicastVia,
    adjacency,
    mvpnIntf,
    interfaceName,
    ipRoute,
    pseudowire,
};

/// A record's unit and the check of its content; 0 names none. A table's entry is one of these, or
/// a value sealed with its own place.
///
///     63              32 31               0
///     +-----------------+-----------------+
///     |      check      |  unit or value  |
///     +-----------------+-----------------+
struct TableRef {
    std::uint64_t word = 0;

    static constexpr TableRef of(std::uint32_t unit, std::uint32_t check) noexcept {
        return {(std::uint64_t{check} << 32U) | unit};
    }
    constexpr std::uint32_t unit() const noexcept { return static_cast<std::uint32_t>(word); }
    constexpr std::uint32_t check() const noexcept {
        return static_cast<std::uint32_t>(word >> 32U);
    }
    constexpr explicit operator bool() const noexcept { return word != 0; }
    friend constexpr bool operator==(TableRef, TableRef) noexcept = default;
};

namespace TableLayout {

inline constexpr std::uint64_t magic = 0x32534c42544c584f; // "OXLTBLS2" as it stands in memory
inline constexpr std::uint32_t version = 5;
inline constexpr std::size_t unitBytes = 8;
inline constexpr std::size_t maxTables = 16;
inline constexpr std::size_t pageEntries = 1024;
inline constexpr std::size_t directoryPages = 1024;
inline constexpr std::size_t directoryUnits = 2 * directoryPages;
inline constexpr std::uint32_t maxKey = pageEntries * directoryPages - 1;

/// Where a table is mounted and what its entries are; NUL-padded.
struct TableName {
    std::array<char, 64> path;
    std::array<char, 48> typeName;
};

struct TableHeader {
    std::uint64_t magic;
    std::uint32_t version;
    std::uint32_t tables; ///< how many of `names` are in use
    std::uint64_t regionBytes;
    std::uint64_t check;   ///< of all of the header that never changes
    std::uint64_t writer;  ///< process id of the last writer; for messages only
    std::uint64_t current; ///< TableRef of the root
    std::uint64_t
        horizon; ///< sealed: what only generations before this one reach may be overwritten
    std::uint64_t identity; ///< another one each time that the tables are begun anew or repaired
    std::array<TableName, maxTables> names;
};
static_assert(offsetof(TableHeader, version) == 8 && offsetof(TableHeader, regionBytes) == 16 &&
              offsetof(TableHeader, check) == 24 && offsetof(TableHeader, writer) == 32 &&
              offsetof(TableHeader, current) == 40 && offsetof(TableHeader, horizon) == 48 &&
              offsetof(TableHeader, names) == 64 && sizeof(TableHeader) == 64 + 16 * 112);

inline constexpr std::size_t heapBytesOffset = 4096;
inline constexpr std::uint32_t heapUnit = heapBytesOffset / unitBytes;
static_assert(sizeof(TableHeader) <= heapBytesOffset);

///      0        4          6          8
///     +--------+----------+----------+
///     | check  |  units   | ownWords |
///     +--------+----------+----------+
struct RecordHeader {
    std::uint32_t check;    ///< of the place, the kind, the rest of this header and the own words
    std::uint16_t units;    ///< of the whole allocation, this header included
    std::uint16_t ownWords; ///< behind this header; what follows them are records of their own

    static constexpr RecordHeader of(std::uint64_t word) noexcept {
        return {static_cast<std::uint32_t>(word), static_cast<std::uint16_t>(word >> 32U),
                static_cast<std::uint16_t>(word >> 48U)};
    }
    constexpr std::uint64_t word() const noexcept {
        return check | (std::uint64_t{units} << 32U) | (std::uint64_t{ownWords} << 48U);
    }
};

/// A root's words: the state of every table in one generation.
struct Root {
    struct Table {
        std::uint32_t directory; ///< unit; 0: the table is empty
        std::uint32_t entries;   ///< keys that have one
        std::uint64_t changedIn; ///< the generation
    };
    std::uint64_t generation;
    std::uint64_t heapUnits;   ///< the heap ends before this unit
    std::uint64_t committedAt; ///< nanoseconds since 1970
    std::array<Table, maxTables> tables;
};
inline constexpr std::size_t rootWords = sizeof(Root) / unitBytes;
static_assert(rootWords == 3 + 2 * maxTables);

/// Any change of one word changes the result.
constexpr std::uint64_t mix(std::uint64_t hash, std::uint64_t word) noexcept {
    hash = (hash ^ word) * 0x9e3779b97f4a7c15;
    return hash ^ (hash >> 32U);
}

/// Where a record's check starts.
constexpr std::uint64_t recordSeed(RecordKind kind, std::uint32_t unit, std::uint16_t units,
                                   std::uint16_t ownWords) noexcept {
    return mix((std::uint64_t{unit} << 8U) | static_cast<std::uint8_t>(kind),
               (std::uint64_t{units} << 16U) | ownWords);
}

/// A value that fits its place alone: a page's unit in a directory, or an entry that is no record.
constexpr TableRef sealed(std::uint32_t value, std::uint32_t place) noexcept {
    return TableRef::of(value, static_cast<std::uint32_t>(mix(~std::uint64_t{place}, value)));
}
/// The place of a directory's entry.
constexpr std::uint32_t pagePlace(std::size_t table, std::size_t page) noexcept {
    return static_cast<std::uint32_t>((table + 1) << 20U | page);
}

/// The place of an entry that is no record.
constexpr std::uint32_t entryPlace(std::size_t table, std::uint32_t key) noexcept {
    return ~(static_cast<std::uint32_t>((table + 1) << 20U) | key);
}

/// A horizon: a generation of 48 bits, and 16 bits that fit it.
constexpr std::uint64_t sealedHorizon(std::uint64_t generation) noexcept {
    return (generation << 16U) | (mix(magic, generation) & 0xffffU);
}

constexpr std::string_view text(const char* from, std::size_t capacity) noexcept {
    std::size_t size = 0;
    while (size < capacity && from[size] != '\0') {
        ++size;
    }
    return {from, size};
}

/// The check of what never changes in a header.
std::uint64_t checkOf(const TableHeader& header) noexcept;

// What another process may be writing is read in whole words. What is read afterwards was written
// no earlier: when the horizon, read last, has not moved, everything read before it was valid.
inline std::uint64_t load(const std::uint64_t& word) noexcept {
    return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}
inline void store(std::uint64_t& word, std::uint64_t value) noexcept {
    __atomic_store_n(&word, value, __ATOMIC_RELEASE);
}

} // namespace TableLayout

} // namespace Tessel
