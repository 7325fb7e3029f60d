#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include "Lumo/IpGenAddr.h"

namespace OvixAgent {

/// A small set of addresses that most packets ask for in vain: a filter of bits answers nearly all
/// of them by one load.
class HostSet {
  public:
    void insert(const Lumo::IpGenAddr& address) {
        const std::uint32_t bit = hash(address);
        filter_[bit / wordBits] |= std::uint64_t{1} << bit % wordBits;
        hosts_.push_back(address);
    }

    bool contains(const Lumo::IpGenAddr& address) const noexcept {
        return isSet(hash(address)) && isHost(address);
    }

    /// False when an IPv4 address, in network byte order, is none of them; true when it may be.
    bool mayHaveIpv4(const std::uint8_t* address) const noexcept {
        std::uint32_t bytes = 0;
        std::memcpy(&bytes, address, sizeof bytes);
        return isSet(mix(bytes));
    }

  private:
    static constexpr std::uint32_t wordBits = 64;
    static constexpr std::uint32_t words = 64;

    static std::uint32_t hash(const Lumo::IpGenAddr& address) noexcept {
        std::array<std::uint64_t, 2> halves{};
        std::memcpy(halves.data(), address.bytes().data(), sizeof halves);
        return mix(halves[0] ^ halves[1] * 3);
    }
    static std::uint32_t mix(std::uint64_t bytes) noexcept {
        return static_cast<std::uint32_t>(bytes * 0x9e3779b97f4a7c15U >> 52U); // below all bits
    }
    bool isSet(std::uint32_t bit) const noexcept {
        return (filter_[bit / wordBits] >> bit % wordBits & 1U) != 0;
    }
    bool isHost(const Lumo::IpGenAddr& address) const noexcept {
        return std::find(hosts_.begin(), hosts_.end(), address) != hosts_.end();
    }

    std::array<std::uint64_t, words> filter_{};
    std::vector<Lumo::IpGenAddr> hosts_;
};

} // namespace OvixAgent
