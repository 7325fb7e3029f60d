#include "Tables/SharedTables.h"

#include <chrono>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "Published/TablePublisher.h"
#include "Tessel/Exceptions.h"

namespace OvixAgent {

namespace {

/// Null when there are none, or none that are finished.
Ptr<Tessel::TableReader> openIfThere(const std::string& name) {
    try {
        auto memory = Tessel::TableMemory::sharedForReading(name);
        const auto* magic = reinterpret_cast<const std::uint64_t*>(memory.bytes().data());
        if (Tessel::TableLayout::load(*magic) == 0) { // it is written last
            return nullptr;
        }
        return Tessel::make<Tessel::TableReader>(std::move(memory));
    } catch (const std::system_error& absent) {
        if (absent.code() != std::errc::no_such_file_or_directory &&
            absent.code() != std::errc::no_message_available) {
            throw;
        }
        return nullptr;
    }
}

} // namespace

Ptr<Tessel::TableReader> openSharedTables(const std::string& name) {
    constexpr int tries = 200;
    for (int i = 0; i < tries; ++i) {
        if (auto tables = openIfThere(name)) {
            return tables;
        }
        try {
            const Mpls::TablePublisher empty(Tessel::TableMemory::sharedForWriting(name));
        } catch (const Tessel::TablesBusy&) {
            std::this_thread::sleep_for(
                std::chrono::milliseconds(10)); // another process is creating them
        }
    }
    throw std::runtime_error("tables \"" + name + "\": another process is still creating them");
}

} // namespace OvixAgent
