#include "Bundle/AddressMap.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <random>
#include <span>

namespace OvixAgent {

namespace {

Lumo::IpGenPrefix prefixOf(const char* address, std::uint8_t length) {
    return {Lumo::IpGenAddr::fromText(address), length};
}

/// Whose meaning is in the address: unspecified, loopback, link-local, multicast and reserved, and
/// in IPv6 all that starts with zeros, IPv4-mapped addresses among them.
const std::array<Lumo::IpGenPrefix, 7>& specials() {
    static const std::array<Lumo::IpGenPrefix, 7> all{
        prefixOf("0.0.0.0", 8),   prefixOf("127.0.0.0", 8), prefixOf("169.254.0.0", 16),
        prefixOf("224.0.0.0", 3), prefixOf("::", 8),        prefixOf("fe80::", 10),
        prefixOf("ff00::", 8)};
    return all;
}

/// Private addresses become others of their kind: RFC 1918, RFC 6598 and RFC 4193.
const std::array<Lumo::IpGenPrefix, 5>& privates() {
    static const std::array<Lumo::IpGenPrefix, 5> all{
        prefixOf("10.0.0.0", 8), prefixOf("172.16.0.0", 12), prefixOf("192.168.0.0", 16),
        prefixOf("100.64.0.0", 10), prefixOf("fc00::", 7)};
    return all;
}

/// SipHash-2-4 of the words, a pseudo-random function of the key.
std::uint64_t sipHash(const AddressMap::Key& key, std::span<const std::uint64_t> words) noexcept {
    std::array<std::uint64_t, 4> v{key[0] ^ 0x736f6d6570736575U, key[1] ^ 0x646f72616e646f6dU,
                                   key[0] ^ 0x6c7967656e657261U, key[1] ^ 0x7465646279746573U};
    const auto rounds = [&](int count) {
        for (int i = 0; i < count; ++i) {
            v[0] += v[1];
            v[1] = std::rotl(v[1], 13) ^ v[0];
            v[0] = std::rotl(v[0], 32);
            v[2] += v[3];
            v[3] = std::rotl(v[3], 16) ^ v[2];
            v[0] += v[3];
            v[3] = std::rotl(v[3], 21) ^ v[0];
            v[2] += v[1];
            v[1] = std::rotl(v[1], 17) ^ v[2];
            v[2] = std::rotl(v[2], 32);
        }
    };
    for (const std::uint64_t word : words) {
        v[3] ^= word;
        rounds(2);
        v[0] ^= word;
    }
    v[2] ^= 0xff;
    rounds(4);
    return v[0] ^ v[1] ^ v[2] ^ v[3];
}

bool overlap(const Lumo::IpGenPrefix& a, const Lumo::IpGenPrefix& b) {
    return a.length() <= b.length() ? a.contains(b.address()) : b.contains(a.address());
}

} // namespace

AddressMap::AddressMap(const Key& key, std::vector<Lumo::IpGenPrefix> subnets)
    : key_(key), subnets_(std::move(subnets)) {}

AddressMap AddressMap::random(std::vector<Lumo::IpGenPrefix> subnets) {
    std::random_device source; // the kernel's
    const auto word = [&] { return std::uint64_t{source()} << 32U | source(); };
    return {{word(), word()}, std::move(subnets)};
}

/// Whether the bit behind these stays: they lead to special or private addresses, or are those of a
/// subnet.
bool AddressMap::isKept(const Lumo::IpGenPrefix& above) const {
    return std::any_of(specials().begin(), specials().end(),
                       [&](const auto& special) { return overlap(above, special); }) ||
           std::any_of(privates().begin(), privates().end(),
                       [&](const auto& one) {
                           return above.length() < one.length() && above.contains(one.address());
                       }) ||
           std::any_of(subnets_.begin(), subnets_.end(), [&](const auto& subnet) {
               return above.length() >= subnet.length() && subnet.contains(above.address());
           });
}

bool AddressMap::isFlipped(const Lumo::IpGenPrefix& above) const {
    std::array<std::uint64_t, 3> words{};
    std::memcpy(words.data(), above.address().bytes().data(), above.address().bytes().size());
    words[2] =
        std::uint64_t{above.length()} << 8U | static_cast<std::uint64_t>(above.address().family());
    return (sipHash(key_, words) & 1U) != 0;
}

Lumo::IpGenAddr AddressMap::operator()(const Lumo::IpGenAddr& address) const {
    if (address.family() == Lumo::IpFamily::none) {
        return address;
    }
    auto bytes = address.bytes();
    for (std::uint8_t bit = 0; bit < address.bits(); ++bit) {
        const auto above = Lumo::IpGenPrefix::of(address, bit);
        if (!isKept(above) && isFlipped(above)) {
            bytes[bit / 8U] ^= static_cast<std::uint8_t>(0x80U >> bit % 8U);
        }
    }
    return address.family() == Lumo::IpFamily::ipv4 ? Lumo::IpGenAddr::ipv4(bytes.data())
                                                    : Lumo::IpGenAddr::ipv6(bytes.data());
}

} // namespace OvixAgent
