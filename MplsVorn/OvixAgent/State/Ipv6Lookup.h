#pragma once

#include <cstring>

#include "State/PrefixChange.h"

namespace OvixAgent {

/// The longest prefix that an IPv6 address lies in: a trie with a node for each byte of the
/// address. Most nodes of a sparse table have one byte that leads on, and take 16 bytes. The 256
/// slots of the others are packed, a run of equal ones is kept once. Nodes lie in one stretch of
/// memory, in units of 16 bytes.
///
/// ```
///   single  byte  0  the byte
///           byte  4  the slot for it
///           byte  8  the slot for all others
///   packed  byte  0  starts: a bit for each slot, set where a run starts
///           byte 32  before: for each eight slots, the number of runs that start before them
///           byte 64  the runs, 4 bytes each
/// ```
class Ipv6Lookup {
  public:
    Ipv6Lookup();

    PrefixValue find(const PrefixBytes& address) const noexcept {
        const std::uint8_t* byte = address.data();
        Slot slot = root_;
        while (!isValue(slot)) {
            slot = next(slot, *byte++);
        }
        return valueOf(slot);
    }

    /// Adds a prefix, or gives it another value. Its value is no other prefix's.
    void insert(const PrefixBytes& prefix, unsigned length, PrefixValue value);
    /// Removes a prefix. `covering` is the value of the longest shorter prefix that it lies in,
    /// `noPrefix` when there is none.
    void erase(const PrefixBytes& prefix, unsigned length, PrefixValue covering);

    /// Bytes in use.
    std::size_t memory() const noexcept { return bytes_.size(); }

  private:
    /// A value or the unit at which a node starts, times four, and which of these it is.
    using Slot = std::uint32_t;
    enum Kind : Slot { leaf = 0, single = 1, packed = 2 };
    static constexpr std::size_t unit = 16; ///< bytes, and the alignment of a node
    static constexpr std::size_t fanout = 256;
    using Slots = std::array<Slot, fanout>;

    static constexpr std::size_t groups = fanout / 8;
    static constexpr std::size_t headerSize = 2 * groups;
    static constexpr std::size_t slotSize = sizeof(Slot);
    static constexpr std::size_t mostUnits = (headerSize + fanout * slotSize) / unit;
    static const std::array<std::uint8_t, 256> ones; ///< the number of ones in a byte

    static constexpr Kind kindOf(Slot slot) noexcept { return static_cast<Kind>(slot & 3U); }
    static constexpr bool isValue(Slot slot) noexcept { return kindOf(slot) == leaf; }
    static constexpr PrefixValue valueOf(Slot slot) noexcept { return slot >> 2U; }
    static constexpr Slot slotOf(PrefixValue of) noexcept { return of << 2U; }

    const std::uint8_t* bytesOf(Slot node) const noexcept {
        return bytes_.data() + std::size_t{node >> 2U} * unit;
    }
    std::uint8_t* bytesOf(Slot node) noexcept {
        return bytes_.data() + std::size_t{node >> 2U} * unit;
    }
    static Slot load(const std::uint8_t* at) noexcept {
        Slot slot = 0;
        std::memcpy(&slot, at, sizeof slot);
        return slot;
    }
    /// Where a node has its slot for the byte.
    const std::uint8_t* placeOf(Slot slot, std::uint8_t byte) const noexcept {
        const std::uint8_t* node = bytesOf(slot);
        return kindOf(slot) == single ? node + (*node == byte ? 1 : 2) * slotSize
                                      : runOf(node, byte);
    }
    static const std::uint8_t* runOf(const std::uint8_t* node, std::uint8_t byte) noexcept {
        const std::uint8_t* group = node + byte / 8U;
        const std::size_t runs = group[groups] + ones[*group & ((2U << byte % 8U) - 1U)];
        return node + headerSize + (runs - 1) * slotSize;
    }
    Slot next(Slot slot, std::uint8_t byte) const noexcept { return load(placeOf(slot, byte)); }

    Slot changed(Slot slot, unsigned depth, const PrefixChange& change);
    Slots unpack(Slot slot);
    Slot pack(const Slots& slots);
    Slot packSingle(std::uint8_t byte, Slot forByte, Slot forOthers);
    Slot allocate(std::size_t units, Kind kind);
    void release(Slot node, std::size_t units);

    std::vector<std::uint8_t> bytes_;
    /// For each size in units the first free node, which holds the next; 0 when there is none.
    std::array<Slot, mostUnits + 1> free_{};
    Slot root_ = slotOf(noPrefix);
    PrefixLengths lengths_;
};

} // namespace OvixAgent
