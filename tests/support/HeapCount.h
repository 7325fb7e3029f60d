#pragma once

#include <cstdint>
#include <cstdlib>
#include <new>

#include "Tessel/Slab.h"

/// Replaces the global allocation functions by ones that count: include it in one source file of a
/// program.
namespace TestSupport {

inline std::uint64_t heapAllocations = 0;

/// Under the address sanitizer every object is a heap block of its own, so that counting is moot.
#ifdef TESSEL_SLAB_FROM_HEAP
inline constexpr bool slabsFromHeap = true;
#else
inline constexpr bool slabsFromHeap = false;
#endif

inline void* counted(void* memory) {
    ++heapAllocations;
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

} // namespace TestSupport

void* operator new(std::size_t size) {
    return TestSupport::counted(std::malloc(size));
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    const auto align = static_cast<std::size_t>(alignment);
    return TestSupport::counted(std::aligned_alloc(align, (size + align - 1) / align * align));
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}
