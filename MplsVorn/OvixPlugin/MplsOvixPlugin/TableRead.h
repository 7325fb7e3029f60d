#pragma once

#include <type_traits>

#include "Tessel/Exceptions.h"
#include "Tessel/Ptr.h"

namespace Ovix {

/// Reads a record of a shared table by calling `read`. Corruption never stops the frame: the
/// table's hook is told and the default record is the result. Any other exception passes on.
template <typename Table, typename Read>
auto readOrDefault(const Ptr<Table>& table, Read&& read) -> decltype(read()) {
    try {
        return read();
    } catch (const Tessel::CorruptionDetected& corruption) {
        table->doCorruptionDetected(corruption.what());
        static const std::remove_cvref_t<decltype(read())> byDefault{};
        return byDefault;
    }
}

} // namespace Ovix
