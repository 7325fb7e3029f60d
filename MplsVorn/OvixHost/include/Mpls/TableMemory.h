#pragma once

#include <cstddef>
#include <span>

namespace Mpls {

/// A stretch of zeroed memory of which only the pages that are touched exist.
class TableMemory {
  public:
    /// Throws std::bad_alloc when the address space has no room.
    explicit TableMemory(std::size_t bytes);
    ~TableMemory();
    TableMemory(const TableMemory&) = delete;
    TableMemory& operator=(const TableMemory&) = delete;

    std::span<std::byte> bytes() const noexcept { return bytes_; }

  private:
    std::span<std::byte> bytes_;
};

} // namespace Mpls
