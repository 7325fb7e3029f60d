#pragma once

#include <cassert>
#include <cstddef>
#include <new>
#include <sys/mman.h>
#include <type_traits>

namespace Tessel {

/// A large array of zero bytes that takes memory where it is used only.
template <typename T>
class LazyArray {
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);

  public:
    /// Throws std::bad_alloc.
    explicit LazyArray(std::size_t size) : size_(size) {
        void* const memory = mmap(nullptr, bytes(), PROT_READ | PROT_WRITE,
                                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory == MAP_FAILED) {
            throw std::bad_alloc();
        }
        madvise(memory, bytes(), MADV_HUGEPAGE); // fewer TLB misses; a refusal is harmless
        first_ = static_cast<T*>(memory);
    }
    LazyArray(const LazyArray&) = delete;
    LazyArray& operator=(const LazyArray&) = delete;
    ~LazyArray() { munmap(first_, bytes()); }

    T& operator[](std::size_t index) noexcept {
        assert(index < size_);
        return first_[index];
    }
    /// Without the check; to be read or loaded ahead.
    const T* at(std::size_t index) const noexcept { return first_ + index; }

  private:
    std::size_t bytes() const noexcept { return size_ * sizeof(T); }

    std::size_t size_;
    T* first_ = nullptr;
};

} // namespace Tessel
