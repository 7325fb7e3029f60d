#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace OvixAgent {

/// Completes a checksum (RFC 1071): what is summed begins at `start`, and the field at `start +
/// offset` holds zero, or for TCP and UDP the sum of the pseudo header. False, and nothing is
/// written, when the bytes do not reach that far.
bool completeChecksum(std::span<std::uint8_t> frame, std::size_t start,
                      std::size_t offset) noexcept;

} // namespace OvixAgent
