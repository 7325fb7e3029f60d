#pragma once

#include <bit>
#include <cstdint>
#include <vector>

#include "Lumo/IpGenAddr.h"
#include "Lumo/NetInt.h"

namespace OvixAgent {

/// An address of either family as a number, first bit on the wire highest; an IPv4 address fills
/// the upper 32 bits.
struct AddressBits {
    std::uint64_t high = 0;
    std::uint64_t low = 0;

    static AddressBits of(const Lumo::IpGenAddr& address) noexcept {
        const std::uint8_t* bytes = address.bytes().data();
        return {Lumo::NetU64::load(bytes).value(), Lumo::NetU64::load(bytes + 8).value()};
    }
    /// The first `length` bits set; at most 128.
    static constexpr AddressBits mask(unsigned length) noexcept {
        constexpr std::uint64_t all = ~std::uint64_t{0};
        if (length == 0) {
            return {};
        }
        return length <= 64 ? AddressBits{all << (64 - length), 0}
                            : AddressBits{all, all << (128 - length)};
    }
    friend constexpr AddressBits operator&(AddressBits a, AddressBits b) noexcept {
        return {a.high & b.high, a.low & b.low};
    }
    friend constexpr bool operator==(const AddressBits&, const AddressBits&) noexcept = default;
};

/// The prefixes of one length: a hash table with linear probing, at most half full, so that a
/// lookup mostly costs one cache line.
class PrefixTable {
  public:
    static constexpr std::uint32_t none = ~std::uint32_t{0};

    explicit PrefixTable(unsigned length) : length_(length), mask_(AddressBits::mask(length)) {}

    unsigned length() const noexcept { return length_; }

    /// The value of the prefix that the address lies in; `none` when there is none.
    std::uint32_t find(AddressBits address) const noexcept {
        return slots_[slotFor(address & mask_)].value;
    }

    /// False, with nothing done, when the prefix is there already. `value` must not be `none`.
    bool insert(AddressBits address, std::uint32_t value) {
        if (find(address) != none) {
            return false;
        }
        if (++size_ * 2 > slots_.size()) {
            grow();
        }
        const AddressBits prefix = address & mask_;
        slots_[slotFor(prefix)] = {prefix, value};
        return true;
    }

    /// The value that the prefix had; `none` when it was not there. Later entries of the probe run
    /// move up.
    std::uint32_t erase(AddressBits address) {
        std::size_t hole = slotFor(address & mask_);
        const std::uint32_t value = slots_[hole].value;
        if (value == none) {
            return none;
        }
        const std::size_t last = slots_.size() - 1;
        for (std::size_t at = (hole + 1) & last; slots_[at].value != none; at = (at + 1) & last) {
            if (((at - home(slots_[at].prefix)) & last) >= ((at - hole) & last)) {
                slots_[hole] = slots_[at];
                hole = at;
            }
        }
        slots_[hole] = Slot();
        --size_;
        return value;
    }

  private:
    struct Slot {
        AddressBits prefix;
        std::uint32_t value = none;
    };

    // The upper bits of the product: the lower ones are zero for a short prefix.
    std::size_t home(AddressBits prefix) const noexcept {
        const std::uint64_t bits = prefix.high ^ std::rotl(prefix.low, 29);
        return (bits * 0x9e3779b97f4a7c15) >> std::countl_zero(slots_.size() - 1);
    }
    std::size_t slotFor(AddressBits prefix) const noexcept {
        std::size_t at = home(prefix);
        while (slots_[at].value != none && slots_[at].prefix != prefix) {
            at = (at + 1) & (slots_.size() - 1);
        }
        return at;
    }
    void grow() {
        std::vector<Slot> old(slots_.size() * 2);
        old.swap(slots_);
        for (const Slot& slot : old) {
            if (slot.value != none) {
                slots_[slotFor(slot.prefix)] = slot;
            }
        }
    }

    unsigned length_;
    AddressBits mask_;
    std::size_t size_ = 0;
    std::vector<Slot> slots_ = std::vector<Slot>(8); ///< a power of two
};

} // namespace OvixAgent
