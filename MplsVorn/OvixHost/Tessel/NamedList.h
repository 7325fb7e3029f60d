#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "Tessel/Changes.h"
#include "Tessel/Ptr.h"

namespace Tessel {

/// Counted objects in the order in which they were added, each under its `name()`.
template <typename T>
class NamedList : public Counted {
  public:
    /// One of the same name is replaced, in its place. An empty handle is ignored.
    void add(Ptr<T> item) {
        if (!item) {
            return;
        }
        ++changes_;
        Changes::notice();
        const auto same = find(item->name());
        if (same != items_.end()) {
            items_[static_cast<std::size_t>(same - items_.begin())] = std::move(item);
        } else {
            items_.push_back(std::move(item));
        }
    }

    /// Empty when there is none of that name.
    Ptr<T> named(std::string_view name) const noexcept {
        const auto found = find(name);
        return found != items_.end() ? *found : nullptr;
    }
    const std::vector<Ptr<T>>& items() const noexcept { return items_; }
    /// How often an object has been added.
    std::uint64_t changes() const noexcept { return changes_; }

  private:
    auto find(std::string_view name) const noexcept {
        return std::find_if(items_.begin(), items_.end(),
                            [&](const auto& held) { return held->name() == name; });
    }

    std::vector<Ptr<T>> items_;
    std::uint64_t changes_ = 0;
};

} // namespace Tessel
