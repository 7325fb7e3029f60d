#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "Network.h"
#include "Random.h"

namespace Differential {

using Bytes = std::vector<std::uint8_t>;

template <std::size_t Size>
void put(Bytes& to, const std::array<std::uint8_t, Size>& bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}
void put16(Bytes& to, std::uint32_t value);
void put32(Bytes& to, std::uint32_t value);
void putRandom(Bytes& to, Random& random, std::size_t count);

/// A sound packet of UDP, TCP or another protocol, with options now and then, with `payload` bytes
/// behind its header, toward an address that routes of the network may match.
void putIpv4(Bytes& to, Random& random, const Network& network, std::size_t payload,
             std::uint8_t ttl);
void putIpv6(Bytes& to, Random& random, const Network& network, std::size_t payload,
             std::uint8_t hopLimit);

/// An Ethernet frame of a customer.
void putCustomersFrame(Bytes& to, Random& random, const Network& network);

/// Has `put` append a packet, and makes something of its header wrong.
template <typename Put>
void damageIp(Bytes& bytes, Random& random, const Put& put) {
    const std::size_t start = bytes.size();
    put();
    constexpr std::size_t header = 20;
    const std::size_t at = start + random.below(header);
    if (at < bytes.size()) {
        bytes[at] = random.chance(50)
                        ? random.byte()
                        : static_cast<std::uint8_t>(bytes[at] + (random.chance(50) ? 1 : -1));
    }
}

} // namespace Differential
