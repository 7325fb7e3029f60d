#include "State/TokenBucket.h"

#include <cstring>
#include <random>

namespace OvixAgent {

std::uint64_t runSeed() {
    static const std::uint64_t seed = [] {
        std::random_device random;
        return std::uint64_t{random()} << 32U | random();
    }();
    return seed;
}

TokenBucket& SenderBuckets::of(std::uint32_t port, const Lumo::IpGenAddr& source) noexcept {
    constexpr std::uint8_t network4 = 24;
    constexpr std::uint8_t network6 = 56;
    const bool isIpv4 = source.family() == Lumo::IpFamily::ipv4;
    const Lumo::IpGenAddr network = source.masked(isIpv4 ? network4 : network6);
    std::uint64_t bits = 0;
    std::memcpy(&bits, network.bytes().data(), sizeof bits);
    std::uint64_t mixed = (bits ^ seed_) + port;
    for (int round = 0; round < 2; ++round) {
        mixed = (mixed ^ mixed >> 29U) * (0xbf58476d1ce4e5b9U ^ (seed_ << 1U));
    }
    return buckets_[(mixed >> 33U) % count];
}

} // namespace OvixAgent
