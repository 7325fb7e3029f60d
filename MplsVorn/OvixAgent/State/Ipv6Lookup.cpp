#include "State/Ipv6Lookup.h"

#include <bit>
#include <stdexcept>
#include <utility>

namespace OvixAgent {

namespace {

constexpr unsigned bitsPerNode = 8;

constexpr std::array<std::uint8_t, 256> countOnes() noexcept {
    std::array<std::uint8_t, 256> counts{};
    for (unsigned byte = 0; byte < counts.size(); ++byte) {
        counts[byte] = static_cast<std::uint8_t>(std::popcount(byte));
    }
    return counts;
}

constexpr std::size_t unitsFor(std::ptrdiff_t bytes) noexcept {
    return (static_cast<std::size_t>(bytes) + 15) / 16;
}

} // namespace

constinit const std::array<std::uint8_t, 256> Ipv6Lookup::ones = countOnes();

// Unit 0 is no node, so that it can end the lists of free ones.
Ipv6Lookup::Ipv6Lookup() : bytes_(unit) {}

void Ipv6Lookup::insert(const PrefixBytes& prefix, unsigned length, PrefixValue value) {
    assert(length <= 128);
    root_ = changed(root_, 0, PrefixChange::adding(prefix, length, value, lengths_));
}

void Ipv6Lookup::erase(const PrefixBytes& prefix, unsigned length, PrefixValue covering) {
    assert(length <= 128);
    root_ = changed(root_, 0, PrefixChange::removing(prefix, length, covering, lengths_));
}

Ipv6Lookup::Slot Ipv6Lookup::changed(Slot slot, unsigned depth, const PrefixChange& change) {
    if (isValue(slot) && change.length <= depth) {
        return change.concerns(valueOf(slot)) ? slotOf(change.value) : slot;
    }
    // On the way to a long prefix one slot of a node changes, and mostly from one node to another.
    if (!isValue(slot) && change.length > depth + bitsPerNode) {
        const std::uint8_t byte = change.prefix[depth / bitsPerNode];
        if (const Slot inner = next(slot, byte); !isValue(inner)) {
            const Slot made = changed(inner, depth + bitsPerNode, change);
            const auto at = placeOf(slot, byte) - std::as_const(*this).bytesOf(slot);
            std::memcpy(bytesOf(slot) + at, &made, slotSize);
            return isValue(made) ? pack(unpack(slot)) : slot;
        }
    }
    Slots slots = unpack(slot);
    const auto first = slots.begin() + static_cast<std::ptrdiff_t>(change.first(depth));
    std::for_each_n(first, change.count(depth),
                    [&](Slot& each) { each = changed(each, depth + bitsPerNode, change); });
    return pack(slots);
}

// A node's memory is released: what is made of its slots is packed anew.
Ipv6Lookup::Slots Ipv6Lookup::unpack(Slot slot) {
    Slots slots;
    if (isValue(slot)) {
        slots.fill(slot);
        return slots;
    }
    for (std::size_t i = 0; i < fanout; ++i) {
        slots[i] = next(slot, static_cast<std::uint8_t>(i));
    }
    const std::uint8_t* node = bytesOf(slot);
    release(slot, kindOf(slot) == single ? 1 : unitsFor(runOf(node, fanout - 1) + slotSize - node));
    return slots;
}

Ipv6Lookup::Slot Ipv6Lookup::pack(const Slots& slots) {
    std::array<std::uint8_t, headerSize> header{};
    Slots runs;
    std::size_t count = 0;
    std::array<std::size_t, 2> starts{}; // of the second and the third run
    for (std::size_t i = 0; i < fanout; ++i) {
        if (i % 8 == 0) {
            header[groups + i / 8] = static_cast<std::uint8_t>(count);
        }
        if (i == 0 || slots[i] != slots[i - 1]) {
            header[i / 8] |= static_cast<std::uint8_t>(1U << i % 8);
            if (count == 1 || count == 2) {
                starts[count - 1] = i;
            }
            runs[count++] = slots[i];
        }
    }
    if (count == 1 && isValue(runs[0])) {
        return runs[0];
    }
    if (count == 3 && runs[0] == runs[2] && starts[1] == starts[0] + 1) {
        return packSingle(static_cast<std::uint8_t>(starts[0]), runs[1], runs[0]);
    }
    const Slot node =
        allocate(unitsFor(static_cast<std::ptrdiff_t>(headerSize + count * slotSize)), packed);
    std::copy(header.begin(), header.end(), bytesOf(node));
    std::memcpy(bytesOf(node) + headerSize, runs.data(), count * slotSize);
    return node;
}

Ipv6Lookup::Slot Ipv6Lookup::packSingle(std::uint8_t byte, Slot forByte, Slot forOthers) {
    const Slot node = allocate(1, single);
    *bytesOf(node) = byte;
    std::memcpy(bytesOf(node) + slotSize, &forByte, slotSize);
    std::memcpy(bytesOf(node) + 2 * slotSize, &forOthers, slotSize);
    return node;
}

Ipv6Lookup::Slot Ipv6Lookup::allocate(std::size_t units, Kind kind) {
    assert(units > 0 && units <= mostUnits && kind != leaf);
    if (const Slot node = free_[units]; node != 0) {
        free_[units] = load(bytesOf(node));
        return node | kind;
    }
    const std::size_t at = bytes_.size() / unit;
    if (at >= std::size_t{1} << 30U) {
        throw std::length_error("too many IPv6 routes");
    }
    bytes_.resize((at + units) * unit);
    return static_cast<Slot>(at) << 2U | kind;
}

void Ipv6Lookup::release(Slot node, std::size_t units) {
    std::memcpy(bytesOf(node), &free_[units], slotSize);
    free_[units] = node & ~Slot{3};
}

} // namespace OvixAgent
