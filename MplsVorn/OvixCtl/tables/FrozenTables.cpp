#include <fmt/format.h>
#include <system_error>

#include "Tables/TableFiles.h"
#include "Tessel/Exceptions.h"
#include "tables/TableView.h"

namespace OvixCtl {

using namespace Tessel::TableLayout;
using Tessel::TableMemory;

namespace {

constexpr int attempts = 50;

/// A reader that owns its memory.
class FrozenReader : public Tessel::TableReader {
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

/// Throws SnapshotLost when what was copied may be of another generation.
Ptr<Tessel::TableReader> freeze(const Tessel::TableReader& live, std::span<const std::byte> from) {
    TableMemory copy = TableMemory::ofProcess(from.size());
    copyWords(from, copy.bytes(), live.root().heapUnits);
    auto& header = *reinterpret_cast<TableHeader*>(copy.bytes().data());
    header.current = live.current().word;
    header.horizon = sealedHorizon(0);
    static_cast<void>(live.pageMadeIn(0, 0)); // whether the generation is still there
    return Tessel::make<FrozenReader>(live.name(), std::move(copy));
}

std::string noTables(const std::string& name) {
    return fmt::format("tables \"{}\" do not exist; lfib add and lfib load with \"--create\" make "
                       "them, and so do an agent with \"--create\" and ovix-fpm",
                       name);
}

Tessel::Result<TableMemory> openMemory(const std::string& name) {
    try {
        return TableMemory::sharedForReading(name);
    } catch (const std::system_error& absent) {
        if (absent.code() != std::errc::no_such_file_or_directory &&
            absent.code() != std::errc::no_message_available) {
            throw;
        }
        return Tessel::Refused{noTables(name)};
    }
}

/// What cannot be opened at all may be repaired, unless it is of another version.
template <typename Open>
Ptr<Tessel::TableReader> advising(Open&& open) {
    try {
        return open();
    } catch (const Tessel::CorruptionDetected& damage) {
        const std::string what = damage.what();
        throw Tessel::CorruptionDetected(
            what.find("tables of version") != what.npos
                ? what
                : what + "; \"ovixctl tables repair\" makes the tables usable again");
    }
}

} // namespace

// What else is wrong with them is found when they are opened.
Tessel::Result<void> checkTablesExist(const std::string& name) {
    try {
        Tessel::TableFiles::openForReading(name);
    } catch (const std::system_error& absent) {
        if (absent.code() == std::errc::no_such_file_or_directory) {
            return Tessel::Refused{noTables(name)};
        }
    }
    return {};
}

Tessel::Result<Ptr<Tessel::TableReader>> openTables(const std::string& name) {
    Tessel::Result<TableMemory> memory = openMemory(name);
    if (!memory) {
        return memory.refused();
    }
    return advising([&] { return Tessel::make<Tessel::TableReader>(std::move(memory).value()); });
}

Tessel::Result<Ptr<Tessel::TableReader>> freezeTables(const std::string& name) {
    const Tessel::Result<TableMemory> memory = openMemory(name);
    if (!memory) {
        return memory.refused();
    }
    const auto opened =
        advising([&] { return Tessel::make<Tessel::TableReader>(name, memory.value().bytes()); });
    Tessel::TableReader& live = *opened;
    for (int attempt = 1;; ++attempt) {
        try {
            return freeze(live, memory.value().bytes());
        } catch (const Tessel::SnapshotLost&) {
            if (attempt == attempts) {
                throw;
            }
            live.refresh();
        }
    }
}

} // namespace OvixCtl
