#include "Allocations.h"

#include "HeapCount.h"

std::uint64_t Bench::allocations() noexcept {
    return TestSupport::heapAllocations;
}
