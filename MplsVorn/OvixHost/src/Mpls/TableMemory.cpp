#include "Mpls/TableMemory.h"

#include <new>
#include <sys/mman.h>

namespace Mpls {

TableMemory::TableMemory(std::size_t bytes) {
    void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::bad_alloc();
    }
    // A lookup among a million routes would miss the address cache more than the data cache. Where
    // there are no huge pages, nothing is lost.
    madvise(memory, bytes, MADV_HUGEPAGE);
    bytes_ = {static_cast<std::byte*>(memory), bytes};
}

TableMemory::~TableMemory() {
    munmap(bytes_.data(), bytes_.size());
}

} // namespace Mpls
