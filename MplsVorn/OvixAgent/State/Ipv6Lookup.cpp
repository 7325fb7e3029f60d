#include "State/Ipv6Lookup.h"

#include <bit>
#include <stdexcept>

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

} // namespace

constinit const std::array<std::uint8_t, 256> Ipv6Lookup::ones = countOnes();

// Place 0 is no node, so that it can end the lists of free ones.
Ipv6Lookup::Ipv6Lookup() : bytes_(runSize) {}

void Ipv6Lookup::insert(const PrefixBytes& prefix, unsigned length, PrefixValue value) {
    assert(length <= 128);
    root_ = changed(root_, 0, PrefixChange::adding(prefix, length, value, lengths_));
}

void Ipv6Lookup::erase(const PrefixBytes& prefix, unsigned length, PrefixValue covering) {
    assert(length <= 128);
    root_ = changed(root_, 0, PrefixChange::removing(prefix, length, covering, lengths_));
}

Ipv6Lookup::Slot Ipv6Lookup::changed(Slot slot, unsigned depth, const PrefixChange& change) {
    if (!isNode(slot) && change.length <= depth) {
        return change.concerns(valueOf(slot)) ? slotOf(change.value) : slot;
    }
    // On the way to a long prefix one slot of a node changes, and mostly from one node to another.
    if (isNode(slot) && change.length > depth + bitsPerNode) {
        const std::size_t run = runOf(placeOf(slot), change.prefix[depth / bitsPerNode]);
        if (const Slot next = load(run); isNode(next)) {
            const Slot made = changed(next, depth + bitsPerNode, change);
            store(run, made);
            return isNode(made) ? slot : pack(unpack(slot));
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
    if (!isNode(slot)) {
        slots.fill(slot);
        return slots;
    }
    const std::size_t node = placeOf(slot);
    for (std::size_t i = 0; i < fanout; ++i) {
        slots[i] = load(runOf(node, static_cast<std::uint8_t>(i)));
    }
    release(node, (runOf(node, fanout - 1) - node - headerSize) / runSize + 1);
    return slots;
}

Ipv6Lookup::Slot Ipv6Lookup::pack(const Slots& slots) {
    std::array<std::uint8_t, headerSize> header{};
    Slots runs;
    std::size_t count = 0;
    for (std::size_t i = 0; i < fanout; ++i) {
        if (i % 8 == 0) {
            header[groups + i / 8] = static_cast<std::uint8_t>(count);
        }
        if (i == 0 || slots[i] != slots[i - 1]) {
            header[i / 8] |= static_cast<std::uint8_t>(1U << i % 8);
            runs[count++] = slots[i];
        }
    }
    if (count == 1 && !isNode(runs[0])) {
        return runs[0];
    }
    const std::size_t node = allocate(count);
    std::copy(header.begin(), header.end(), bytes_.data() + node);
    for (std::size_t i = 0; i < count; ++i) {
        store(node + headerSize + i * runSize, runs[i]);
    }
    return static_cast<Slot>(node / 2);
}

std::size_t Ipv6Lookup::allocate(std::size_t runs) {
    assert(runs > 0 && runs <= fanout);
    if (free_[runs] != 0) {
        const std::size_t node = placeOf(free_[runs]);
        free_[runs] = load(node);
        return node;
    }
    const std::size_t node = bytes_.size();
    if (node / 2 > ~Slot{0}) {
        throw std::length_error("too many IPv6 routes");
    }
    bytes_.resize(node + headerSize + runs * runSize);
    return node;
}

void Ipv6Lookup::release(std::size_t node, std::size_t runs) {
    store(node, free_[runs]);
    free_[runs] = static_cast<Slot>(node / 2);
}

} // namespace OvixAgent
