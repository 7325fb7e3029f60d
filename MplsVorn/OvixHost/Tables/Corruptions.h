#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "Tessel/Exceptions.h"
#include "Tessel/Ptr.h"

namespace Tessel {

/// Counts the damage that reads of a table found, and keeps the last message.
class Corruptions {
  public:
    void add(std::string_view message) {
        ++count_;
        last_ = message;
    }
    std::uint64_t count() const noexcept { return count_; }
    const std::string& last() const noexcept { return last_; }

  private:
    std::uint64_t count_ = 0;
    std::string last_;
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
