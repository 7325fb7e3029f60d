#pragma once

#include <algorithm>
#include <array>
#include <cassert>
#include <cstdint>
#include <span>
#include <string>
#include <type_traits>

#include "Tessel/Exceptions.h"

namespace Tessel {

/// A list of at most `capacity` trivially copyable entries held in place. Only the entries in use
/// are ever copied or compared.
template <typename T, std::size_t capacity>
class BoundedList {
    static_assert(std::is_trivially_copyable_v<T>);

  public:
    BoundedList() noexcept {} // the entries are left unset on purpose
    BoundedList(const BoundedList& other) noexcept { copy(other); }
    BoundedList& operator=(const BoundedList& other) noexcept {
        copy(other);
        return *this;
    }
    ~BoundedList() = default;

    static constexpr std::size_t max() noexcept { return capacity; }
    std::uint32_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    const T& operator[](std::size_t index) const noexcept {
        assert(index < size_);
        return entries()[index];
    }
    std::span<const T> view() const noexcept { return {entries(), size_}; }

    /// Throws RangeError when the list is full.
    void push(const T& entry) {
        checkCount(size_ + std::size_t{1});
        entries()[size_] = entry;
        ++size_;
    }

    /// Takes the content from elsewhere: the count is checked before anything is read. A count
    /// beyond the capacity throws RangeError.
    void assign(const void* from, std::size_t count) {
        checkCount(count);
        std::copy_n(static_cast<const std::byte*>(from), count * sizeof(T), storage_.data());
        size_ = static_cast<std::uint32_t>(count);
    }

    static void checkCount(std::size_t count) {
        if (count > capacity) {
            throw RangeError("list of " + std::to_string(count) + " entries exceeds " +
                             std::to_string(capacity));
        }
    }

    friend bool operator==(const BoundedList& a, const BoundedList& b) noexcept {
        return std::equal(a.view().begin(), a.view().end(), b.view().begin(), b.view().end());
    }

  private:
    T* entries() noexcept { return reinterpret_cast<T*>(storage_.data()); }
    const T* entries() const noexcept { return reinterpret_cast<const T*>(storage_.data()); }
    void copy(const BoundedList& other) noexcept {
        size_ = other.size_;
        std::copy_n(other.storage_.data(), other.size_ * sizeof(T), storage_.data());
    }

    std::uint32_t size_ = 0;
    alignas(T) std::array<std::byte, capacity * sizeof(T)> storage_;
};

} // namespace Tessel
