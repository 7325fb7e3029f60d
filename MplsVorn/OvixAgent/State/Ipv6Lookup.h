#pragma once

#include <cstring>

#include "State/PrefixChange.h"

namespace OvixAgent {

/// The longest prefix that an IPv6 address lies in: a trie with a node for each byte of the
/// address, so that a /48 is found in six nodes. The 256 slots of a node are packed, a run of equal
/// ones is kept once: else each of a hundred thousand /128 could take 12 KiB. Nodes lie in one
/// stretch of memory.
///
/// ```
///   byte  0  starts: a bit for each slot, set where a run starts
///   byte 32  before: for each eight slots, the number of runs that start in the slots before them
///   byte 64  the runs, 4 bytes each: a value, or the node of the next byte
/// ```
class Ipv6Lookup {
  public:
    Ipv6Lookup();

    PrefixValue find(const PrefixBytes& address) const noexcept {
        const std::uint8_t* byte = address.data();
        Slot slot = root_;
        while (isNode(slot)) {
            slot = load(runOf(placeOf(slot), *byte++));
        }
        return valueOf(slot);
    }

    /// Adds a prefix that is not there. Its value is no other prefix's.
    void insert(const PrefixBytes& prefix, unsigned length, PrefixValue value);
    /// Removes a prefix. `covering` is the value of the longest shorter prefix that it lies in,
    /// `noPrefix` when there is none.
    void erase(const PrefixBytes& prefix, unsigned length, PrefixValue covering);

    /// Bytes in use.
    std::size_t memory() const noexcept { return bytes_.size(); }

  private:
    /// A value times two plus one, or a node: its place in `bytes_` divided by two.
    using Slot = std::uint32_t;
    static constexpr std::size_t fanout = 256;
    using Slots = std::array<Slot, fanout>;

    static constexpr std::size_t groups = fanout / 8;
    static constexpr std::size_t headerSize = 2 * groups;
    static constexpr std::size_t runSize = sizeof(Slot);
    static const std::array<std::uint8_t, 256> ones; ///< the number of ones in a byte

    static constexpr bool isNode(Slot slot) noexcept { return (slot & 1U) == 0; }
    static constexpr PrefixValue valueOf(Slot slot) noexcept { return slot >> 1U; }
    static constexpr Slot slotOf(PrefixValue value) noexcept { return value << 1U | 1U; }
    static constexpr std::size_t placeOf(Slot node) noexcept { return std::size_t{node} * 2; }

    /// Where the run is that holds the node's slot for this byte of an address.
    std::size_t runOf(std::size_t node, std::uint8_t byte) const noexcept {
        const std::uint8_t* group = bytes_.data() + node + byte / 8U;
        const std::size_t runs = group[groups] + ones[*group & ((2U << byte % 8U) - 1U)];
        return node + headerSize + (runs - 1) * runSize;
    }
    Slot load(std::size_t place) const noexcept {
        Slot slot = 0;
        std::memcpy(&slot, bytes_.data() + place, sizeof slot);
        return slot;
    }
    void store(std::size_t place, Slot slot) noexcept {
        std::memcpy(bytes_.data() + place, &slot, sizeof slot);
    }

    Slot changed(Slot slot, unsigned depth, const PrefixChange& change);
    Slots unpack(Slot slot);
    Slot pack(const Slots& slots);
    std::size_t allocate(std::size_t runs);
    void release(std::size_t node, std::size_t runs);

    std::vector<std::uint8_t> bytes_;
    /// For each number of runs the first free node, which holds the next; 0 when there is none.
    std::array<Slot, fanout + 1> free_{};
    Slot root_ = slotOf(noPrefix);
    PrefixLengths lengths_;
};

} // namespace OvixAgent
