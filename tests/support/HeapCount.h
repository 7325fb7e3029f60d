#pragma once

#include <cstdint>

#include "Tessel/Slab.h"

namespace TestSupport {

/// How often the program has allocated from the heap. Counted by HeapCount.cpp, which replaces the
/// global allocation functions; not under the address sanitizer, which needs its own.
extern std::uint64_t heapAllocations;

/// Under the address sanitizer every object is a heap block of its own, so that counting is moot.
#ifdef TESSEL_SLAB_FROM_HEAP
inline constexpr bool slabsFromHeap = true;
#else
inline constexpr bool slabsFromHeap = false;
#endif

} // namespace TestSupport
