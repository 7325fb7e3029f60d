#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace OvixAgent {

/// Completes a TCP or UDP checksum that a sender on this host has left to the network hardware: the
/// field at `start + offset` holds the sum of the pseudo header, and what is summed begins at
/// `start`. False, and nothing is written, when the frame does not reach that far.
bool completeChecksum(std::span<std::uint8_t> frame, std::size_t start,
                      std::size_t offset) noexcept;

} // namespace OvixAgent
