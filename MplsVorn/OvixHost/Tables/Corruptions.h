#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "Tessel/Exceptions.h"
#include "Tessel/Ptr.h"

namespace Tessel {

/// The corruption hook of a table: reads report damage here, which it counts, and it keeps the last
/// message.
class CorruptionHook {
  public:
    void doCorruptionDetected(std::string_view message) const {
        ++count_;
        last_ = message;
    }
    std::uint64_t corruptionsDetected() const noexcept { return count_; }
    const std::string& lastCorruption() const noexcept { return last_; }

  private:
    mutable std::uint64_t count_ = 0;
    mutable std::string last_;
};

/// Reads a record of a shared table by calling `read`. Damage never stops the frame: it is reported
/// to the table, and the record reads as absent: the default one. Any other exception passes on.
template <typename Table, typename Read>
auto readOrDefault(const Table& table, Read&& read) -> decltype(read()) {
    try {
        return read();
    } catch (const CorruptionDetected& corruption) {
        table.doCorruptionDetected(corruption.what());
        static const std::remove_cvref_t<decltype(read())> byDefault{};
        return byDefault;
    }
}
template <typename Table, typename Read>
auto readOrDefault(const Ptr<Table>& table, Read&& read) -> decltype(read()) {
    return readOrDefault(*table, std::forward<Read>(read));
}

} // namespace Tessel
