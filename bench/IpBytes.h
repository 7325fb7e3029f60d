#pragma once

#include <cstdint>
#include <vector>

namespace Bench {

/// Bytes of a frame in the making.
using Bytes = std::vector<std::uint8_t>;

void put16(Bytes& to, std::uint32_t value);
void put32(Bytes& to, std::uint32_t value);

/// A UDP packet of `length` bytes, at least 28, from 10.1.0.0 and the lower 16 bits of `flow`.
void putIpv4(Bytes& to, std::uint32_t flow, std::uint32_t destination, std::uint32_t length = 46,
             std::uint16_t udpPort = 9);
void putIpv6(Bytes& to, std::uint32_t flow);

} // namespace Bench
