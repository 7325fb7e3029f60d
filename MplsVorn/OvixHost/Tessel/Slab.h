#pragma once

#include <cstddef>
#include <cstdint>

namespace Tessel {

/// What the calling thread's slab of a type has handed out, for tests and for the metrics of a
/// running agent. An object returned by another thread counts -1 there and stays +1 here, so the
/// sum over the threads is what is in use.
struct MemAllocationTracker {
    std::int64_t objectsInUse = 0;    ///< handed out and not yet returned
    std::uint64_t chunksFromHeap = 0; ///< times the slab went to the heap
};

/// A free list of equally sized blocks. One per type and thread, so taking and returning a block
/// needs no lock; a block returned by another thread joins that thread's list.
class SlabList {
  public:
    /// That of the chunks, hence the largest of any block.
    static constexpr std::size_t alignment = 64;

    constexpr explicit SlabList(std::size_t blockSize) noexcept : blockSize_(blockSize) {}

    void* take() {
        if (free_ == nullptr) [[unlikely]] {
            refill();
        }
        Block* block = free_;
        free_ = block->next;
        return block;
    }

    void give(void* memory) noexcept {
        auto* block = static_cast<Block*>(memory);
        block->next = free_;
        free_ = block;
    }

    /// Walks the free list, so that taking and giving keep no count.
    MemAllocationTracker tracker() const noexcept;

  private:
    struct Block {
        Block* next;
    };

    void refill();

    std::size_t blockSize_;
    Block* free_ = nullptr;
    std::uint64_t blocks_ = 0;
    std::uint64_t chunks_ = 0;
};

#if defined(__SANITIZE_ADDRESS__)
#define TESSEL_SLAB_FROM_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TESSEL_SLAB_FROM_HEAP 1
#endif
#endif

/// Gives a class (the most derived one) `new` and `delete` from a slab of its own. A header of the
/// host declares `extern template class Tessel::Slabbed<X>` so that the host library and the
/// plugins share one slab per type. Handles destroy a final slabbed class directly, so it must not
/// override `lastUserGone`.
template <typename T>
class Slabbed {
  public:
#ifdef TESSEL_SLAB_FROM_HEAP
    // Under the address sanitizer every object is a heap block of its own, so that a use after
    // the last handle has gone is seen.
#else
    static void* operator new(std::size_t size) {
        static_assert(alignof(T) <= SlabList::alignment);
        return size == sizeof(T) ? slab_.take() : ::operator new(size);
    }
    static void operator delete(void* memory, std::size_t size) noexcept {
        if (size == sizeof(T)) {
            slab_.give(memory);
        } else {
            ::operator delete(memory);
        }
    }
#endif
    static MemAllocationTracker memAllocationTracker() noexcept {
        return slab_.tracker();
    }

  private:
    struct List : SlabList {
        constexpr List() noexcept : SlabList(sizeof(T)) {}
    };
    // Every user is linked or loaded after the host library, so the cheap access model holds.
    __attribute__((tls_model("initial-exec"))) static thread_local constinit List slab_;
};

template <typename T>
__attribute__((tls_model("initial-exec"))) thread_local constinit
    typename Slabbed<T>::List Slabbed<T>::slab_;

} // namespace Tessel
