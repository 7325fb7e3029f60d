#include "Tables/TableRecovery.h"

#include <algorithm>

#include "Tessel/Exceptions.h"

namespace Tessel {

using namespace TableLayout;

namespace {

class Walk {
  public:
    Walk(const TableReader& reader, TableRecovery& found) : reader_(&reader), found_(&found) {}

    void table(std::size_t table, std::optional<RecordKind> records) {
        const std::uint32_t directory = reader_->root().tables[table].directory;
        if (directory == 0) {
            return;
        }
        claim(directory, directoryUnits);
        for (std::uint32_t key = 0; key <= maxKey; key += pageEntries) {
            page(table, key, records);
        }
    }

  private:
    void page(std::size_t table, std::uint32_t firstKey, std::optional<RecordKind> records) {
        try {
            const std::uint32_t unit = reader_->pageOf(table, firstKey);
            if (unit == 0) {
                return;
            }
            claim(unit, pageEntries);
        } catch (const CorruptionDetected&) {
            found_->damaged.push_back({table, firstKey, true});
            return;
        }
        for (std::uint32_t key = firstKey; key < firstKey + pageEntries; ++key) {
            entry(table, key, records);
        }
    }

    void entry(std::size_t table, std::uint32_t key, std::optional<RecordKind> records) {
        const TableRef ref = reader_->entry(table, key);
        if (!ref) {
            return;
        }
        try {
            if (records) {
                reader_->read(ref, *records, words_, "record");
                claim(ref.unit(), reader_->headOf(ref, "record").units);
            } else if (ref != sealed(ref.unit(), entryPlace(table, key))) {
                throw CorruptionDetected("entry");
            }
            ++found_->entries[table];
        } catch (const CorruptionDetected&) {
            found_->damaged.push_back({table, key, false});
        }
    }

    /// No two blocks may overlap, and none may be named twice.
    void claim(std::uint32_t unit, std::uint32_t units) {
        const auto first = claimed_.begin() + unit;
        if (std::find(first, first + units, true) != first + units) {
            throw CorruptionDetected(reader_->name() + ": unit " + std::to_string(unit) +
                                     " is in use twice");
        }
        std::fill(first, first + units, true);
        found_->reached.push_back({unit, units});
    }

    const TableReader* reader_;
    TableRecovery* found_;
    std::vector<bool> claimed_ = std::vector<bool>(reader_->root().heapUnits);
    std::vector<std::uint64_t> words_ = std::vector<std::uint64_t>(65536);
};

} // namespace

TableRecovery TableRecovery::walk(const TableReader& reader,
                                  std::span<const TableDescription> tables) {
    TableRecovery found;
    Walk walk(reader, found);
    for (std::size_t i = 0; i < tables.size(); ++i) {
        walk.table(i, tables[i].records);
    }
    return found;
}

} // namespace Tessel
