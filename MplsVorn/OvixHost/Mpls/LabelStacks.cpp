#include "Mpls/LabelStacks.h"

#include <array>
#include <atomic>
#include <map>
#include <mutex>
#include <vector>

namespace Mpls {

namespace {

struct Store {
    std::mutex mutex; // of the writers; a reader takes none
    std::map<std::vector<std::uint8_t>, std::uint32_t> numbers;
    // Keys of the map, which never move. The stack of number n stands at n - 1.
    std::array<std::atomic<const std::vector<std::uint8_t>*>, LabelStacks::max> stacks{};
};

Store& store() {
    static Store kept;
    return kept;
}

} // namespace

std::uint32_t LabelStacks::intern(std::span<const std::uint8_t> packed) {
    Store& kept = store();
    const std::lock_guard lock(kept.mutex);
    std::vector<std::uint8_t> stack(packed.begin(), packed.end());
    if (const auto found = kept.numbers.find(stack); found != kept.numbers.end()) {
        return found->second;
    }
    if (kept.numbers.size() == max) {
        return 0;
    }
    const auto number = static_cast<std::uint32_t>(kept.numbers.size() + 1);
    const auto added = kept.numbers.emplace(std::move(stack), number).first;
    kept.stacks[number - 1].store(&added->first, std::memory_order_release);
    return number;
}

std::span<const std::uint8_t> LabelStacks::find(std::uint32_t number) noexcept {
    if (number == 0 || number > max) {
        return {};
    }
    const auto* stack = store().stacks[number - 1].load(std::memory_order_acquire);
    return stack != nullptr ? std::span<const std::uint8_t>(*stack)
                            : std::span<const std::uint8_t>();
}

} // namespace Mpls
