#pragma once

#include <cassert>
#include <cstdint>
#include <vector>

namespace OvixAgent {

/// Objects by number; a number that is released is used again, for an object as good as new.
template <typename T>
class Pool {
  public:
    std::uint32_t add(T object) {
        if (free_.empty()) {
            objects_.push_back(std::move(object));
            return static_cast<std::uint32_t>(objects_.size() - 1);
        }
        const std::uint32_t number = free_.back();
        free_.pop_back();
        objects_[number] = std::move(object);
        return number;
    }
    void release(std::uint32_t number) {
        assert(number < objects_.size());
        objects_[number] = T();
        free_.push_back(number);
    }

    T& operator[](std::uint32_t number) noexcept {
        assert(number < objects_.size());
        return objects_[number];
    }
    const T& operator[](std::uint32_t number) const noexcept {
        assert(number < objects_.size());
        return objects_[number];
    }
    /// Without the check.
    const T& at(std::uint32_t number) const noexcept { return objects_[number]; }
    std::size_t size() const noexcept { return objects_.size() - free_.size(); }

  private:
    std::vector<T> objects_;
    std::vector<std::uint32_t> free_;
};

} // namespace OvixAgent
