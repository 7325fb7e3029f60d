#include "Mpls/LabelStacks.h"

#include <map>
#include <mutex>
#include <vector>

namespace Mpls {

namespace {

struct Store {
    std::mutex mutex;
    std::map<std::vector<std::uint8_t>, std::uint32_t> numbers;
    std::vector<const std::vector<std::uint8_t>*> stacks; // keys of the map, which never move
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
    if (kept.stacks.size() == max) {
        return 0;
    }
    const auto number = static_cast<std::uint32_t>(kept.stacks.size() + 1);
    const auto added = kept.numbers.emplace(std::move(stack), number).first;
    kept.stacks.push_back(&added->first);
    return number;
}

std::span<const std::uint8_t> LabelStacks::find(std::uint32_t number) noexcept {
    Store& kept = store();
    const std::lock_guard lock(kept.mutex);
    if (number == 0 || number > kept.stacks.size()) {
        return {};
    }
    return *kept.stacks[number - 1];
}

} // namespace Mpls
