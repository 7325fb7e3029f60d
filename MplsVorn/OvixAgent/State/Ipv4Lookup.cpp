#include "State/Ipv4Lookup.h"

namespace OvixAgent {

namespace {

constexpr unsigned tableBits = 16;
constexpr unsigned pageBits = 8;
/// A change makes one page for each of the last two bytes at the most.
constexpr std::size_t pagesPerChange = 2;

} // namespace

void Ipv4Lookup::insert(const PrefixBytes& prefix, unsigned length, PrefixValue value) {
    assert(length <= 32);
    if (table_.empty()) {
        table_.assign(std::size_t{1} << tableBits, noPrefix);
    }
    change(PrefixChange::adding(prefix, length, value, lengths_));
}

void Ipv4Lookup::erase(const PrefixBytes& prefix, unsigned length, PrefixValue covering) {
    assert(!table_.empty() && length <= 32);
    change(PrefixChange::removing(prefix, length, covering, lengths_));
}

void Ipv4Lookup::change(const PrefixChange& change) {
    // Slots are changed in place, so the pages must not move meanwhile.
    if (pages_.capacity() - pages_.size() < pagesPerChange) {
        pages_.reserve(2 * pages_.size() + pagesPerChange);
    }
    const unsigned open = change.length < tableBits ? tableBits - change.length : 0;
    const std::size_t count = std::size_t{1} << open;
    const std::size_t first = tableIndex(change.prefix.data()) & ~(count - 1);
    for (std::size_t i = first; i < first + count; ++i) {
        changeSlot(table_[i], tableBits, change);
    }
}

void Ipv4Lookup::changeSlot(Slot& slot, unsigned depth, const PrefixChange& change) {
    if (!isPage(slot)) {
        if (change.length <= depth) {
            slot = change.concerns(slot) ? change.value : slot;
            return;
        }
        slot = newPage(slot);
    }
    Page& page = pages_[pageOf(slot)];
    const auto first = page.begin() + static_cast<std::ptrdiff_t>(change.first(depth));
    std::for_each_n(first, change.count(depth),
                    [&](Slot& each) { changeSlot(each, depth + pageBits, change); });
    // A page of one value has no longer prefixes any more.
    if (!isPage(page[0]) &&
        std::all_of(page.begin(), page.end(), [&](Slot each) { return each == page[0]; })) {
        freePages_.push_back(slot);
        slot = page[0];
    }
}

Ipv4Lookup::Slot Ipv4Lookup::newPage(Slot filledWith) {
    if (freePages_.empty()) {
        assert(pages_.size() < pages_.capacity());
        pages_.emplace_back().fill(filledWith);
        return pageBit | static_cast<Slot>(pages_.size() - 1);
    }
    const Slot made = freePages_.back();
    freePages_.pop_back();
    pages_[pageOf(made)].fill(filledWith);
    return made;
}

std::size_t Ipv4Lookup::memory() const noexcept {
    return table_.size() * sizeof(Slot) + pages_.size() * sizeof(Page);
}

} // namespace OvixAgent
