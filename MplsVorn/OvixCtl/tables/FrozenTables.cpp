#include <fmt/format.h>
#include <system_error>

#include "Tables/TableCopy.h"
#include "Tables/TableFiles.h"
#include "Tessel/Exceptions.h"
#include "tables/TableView.h"

namespace OvixCtl {

using Tessel::TableMemory;

namespace {

std::string noTables(const std::string& name) {
    return fmt::format("tables \"{}\" do not exist; lfib add and lfib load with \"--create\" make "
                       "them, and so do an agent with \"--create\" and ovix-fpm",
                       name);
}

Tessel::Result<TableMemory> openMemory(const std::string& name) {
    try {
        return TableMemory::sharedForReading(name);
    } catch (const std::system_error& absent) {
        if (absent.code() == std::errc::no_message_available) {
            return Tessel::Refused{
                fmt::format("tables \"{}\" have no header: they are being made, or were cut short; "
                            "\"ovixctl tables repair\" makes them usable again",
                            name)};
        }
        if (absent.code() != std::errc::no_such_file_or_directory) {
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
    return advising(
        [&] { return Tessel::TableCopy::ofNewest(name, memory.value().bytes()).intoReader(); });
}

} // namespace OvixCtl
