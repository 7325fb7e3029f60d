#include "HeapCount.h"

#include <atomic>
#include <cstdlib>
#include <new>

std::uint64_t TestSupport::heapAllocations = 0;

#ifndef __SANITIZE_ADDRESS__

namespace {

void* counted(void* memory) {
    std::atomic_ref(TestSupport::heapAllocations).fetch_add(1, std::memory_order_relaxed);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

} // namespace

void* operator new(std::size_t size) {
    return counted(std::malloc(size));
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    const auto align = static_cast<std::size_t>(alignment);
    return counted(std::aligned_alloc(align, (size + align - 1) / align * align));
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

#endif
