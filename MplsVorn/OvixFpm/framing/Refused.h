#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "framing/Bytes.h"

namespace OvixFpm {

/// What was skipped because it makes no sense: where it began in the stream of the connection, its
/// first bytes, and why.
class Refused {
  public:
    static constexpr std::size_t maxBytes = 64;

    /// Keeps the first `maxBytes` of `bytes`.
    Refused(std::uint64_t offset, Bytes bytes, std::string reason);

    std::uint64_t offset() const noexcept { return offset_; }
    const std::vector<std::uint8_t>& bytes() const noexcept { return bytes_; }
    const std::string& reason() const noexcept { return reason_; }

    /// "at byte 1204: REASON: 3c 00 00 00 …", for a log.
    std::string text() const;

    friend bool operator==(const Refused&, const Refused&) = default;

  private:
    std::uint64_t offset_;
    std::vector<std::uint8_t> bytes_;
    std::string reason_;
};

} // namespace OvixFpm
