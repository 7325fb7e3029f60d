#pragma once

#include <cstdint>

namespace Counter {

/// Packets and bytes.
class PktCounter {
  public:
    std::uint64_t packets() const noexcept { return packets_; }
    std::uint64_t bytes() const noexcept { return bytes_; }

    /// One packet of that many bytes.
    void countBytes(std::uint32_t bytes) noexcept {
        ++packets_;
        bytes_ += bytes;
    }
    void clearCounter() noexcept { *this = PktCounter(); }

  private:
    std::uint64_t packets_ = 0;
    std::uint64_t bytes_ = 0;
};

} // namespace Counter
