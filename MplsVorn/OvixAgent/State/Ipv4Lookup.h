#pragma once

#include "State/PrefixChange.h"

namespace OvixAgent {

/// The longest prefix that an IPv4 address lies in, in one memory access for prefixes up to /16,
/// two up to /24 and three for longer ones: a table of the first 16 bits, whose slots have a value
/// or a page for the next 8 bits, and so once more. The table takes 256 KiB, a page 1 KiB.
class Ipv4Lookup {
  public:
    /// `address` is in network byte order.
    [[gnu::always_inline]] PrefixValue find(const std::uint8_t* address) const noexcept {
        return findAt(place(address), address);
    }
    PrefixValue find(const PrefixBytes& address) const noexcept { return find(address.data()); }

    /// Where what find() reads second lies, or the only thing it reads; null before the first
    /// prefix.
    [[gnu::always_inline]] const PrefixValue* place(const std::uint8_t* address) const noexcept {
        if (table_.empty()) {
            return nullptr;
        }
        const Slot& slot = table_[tableIndex(address)];
        return isPage(slot) ? &pages_[pageOf(slot)][address[2]] : &slot;
    }
    /// What find() finds, given that.
    [[gnu::always_inline]] PrefixValue findAt(const PrefixValue* place,
                                              const std::uint8_t* address) const noexcept {
        if (place == nullptr) {
            return noPrefix;
        }
        return isPage(*place) ? pages_[pageOf(*place)][address[3]] : *place;
    }

    /// Adds a prefix that is not there. Its value is no other prefix's.
    void insert(const PrefixBytes& prefix, unsigned length, PrefixValue value);
    /// Removes a prefix. `covering` is the value of the longest shorter prefix that it lies in,
    /// `noPrefix` when there is none.
    void erase(const PrefixBytes& prefix, unsigned length, PrefixValue covering);

    /// Bytes in use.
    std::size_t memory() const noexcept;

  private:
    /// A value, or a page with the highest bit set.
    using Slot = std::uint32_t;
    using Page = std::array<Slot, 256>;
    static constexpr Slot pageBit = 0x8000'0000;

    static constexpr bool isPage(Slot slot) noexcept { return (slot & pageBit) != 0; }
    static constexpr std::size_t pageOf(Slot slot) noexcept { return slot & ~pageBit; }
    static std::size_t tableIndex(const std::uint8_t* address) noexcept {
        return std::size_t{address[0]} << 8U | address[1];
    }

    void change(const PrefixChange& change);
    void changeSlot(Slot& slot, unsigned depth, const PrefixChange& change);
    Slot newPage(Slot filledWith);

    std::vector<Slot> table_; ///< empty before the first prefix
    std::vector<Page> pages_;
    std::vector<Slot> freePages_;
    PrefixLengths lengths_;
};

} // namespace OvixAgent
