#include "IpBytes.h"

#include <iterator>

namespace Bench {

void put16(Bytes& to, std::uint32_t value) {
    to.push_back(static_cast<std::uint8_t>(value >> 8U));
    to.push_back(static_cast<std::uint8_t>(value));
}
void put32(Bytes& to, std::uint32_t value) {
    put16(to, value >> 16U);
    put16(to, value);
}

void putIpv4(Bytes& to, std::uint32_t flow, std::uint32_t destination, std::uint32_t length,
             std::uint16_t udpPort) {
    constexpr std::uint32_t headersSize = 28;
    const std::uint32_t words[]{0x45000000 | length, 0, 0x40110000, 0x0a010000 | flow, destination};
    std::uint32_t sum = 0;
    for (const std::uint32_t word : words) {
        sum += (word >> 16U) + (word & 0xffffU);
    }
    sum = (sum & 0xffffU) + (sum >> 16U);
    sum = (sum & 0xffffU) + (sum >> 16U);
    constexpr std::size_t checksumWord = 2;
    for (std::size_t i = 0; i < std::size(words); ++i) {
        put32(to, i == checksumWord ? words[i] | (~sum & 0xffffU) : words[i]);
    }
    put32(to, (flow << 16U) | udpPort);
    put32(to, (length - 20U) << 16U);
    to.resize(to.size() + length - headersSize);
}

void putIpv6(Bytes& to, std::uint32_t flow) {
    put32(to, 0x60000000);
    put32(to, 0x00001140 | (8U << 16U));
    for (const std::uint32_t word :
         {0x20010db8U, 0x00010000U, 0U, flow, 0x20010db8U, 0x01000000U, 0U, flow}) {
        put32(to, word);
    }
    put32(to, (flow << 16U) | 9U);
    put32(to, 0x00080000);
}

} // namespace Bench
