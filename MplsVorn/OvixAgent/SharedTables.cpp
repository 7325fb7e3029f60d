#include "SharedTables.h"

#include <system_error>

#include "Mpls/TablePublisher.h"
#include "Tessel/Exceptions.h"

namespace OvixAgent {

Ptr<Tessel::TableReader> openSharedTables(const std::string& name) {
    try {
        return Tessel::make<Tessel::TableReader>(Tessel::TableMemory::sharedForReading(name));
    } catch (const std::system_error& absent) {
        if (absent.code() != std::errc::no_such_file_or_directory &&
            absent.code() != std::errc::no_message_available) {
            throw;
        }
    }
    try {
        const Mpls::TablePublisher empty(Tessel::TableMemory::sharedForWriting(name));
    } catch (const Tessel::TablesBusy&) {
        // Somebody makes them at this moment.
    }
    return Tessel::make<Tessel::TableReader>(Tessel::TableMemory::sharedForReading(name));
}

} // namespace OvixAgent
