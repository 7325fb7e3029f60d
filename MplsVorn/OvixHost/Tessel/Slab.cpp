#include "Tessel/Slab.h"

#include <new>

#include "Tessel/Ptr.h"

namespace Tessel {

bool Threading::multiThreaded_ = false;

namespace {

constexpr std::size_t chunkBytes = 16384;

} // namespace

// A chunk is never freed: what one burst of frames needed, the next one will need again.
void SlabList::refill() {
    constexpr std::size_t unit = alignof(std::max_align_t);
    const std::size_t stride = (blockSize_ + unit - 1) / unit * unit;
    const std::size_t blocks = chunkBytes / stride > 0 ? chunkBytes / stride : 1;
    auto* chunk =
        static_cast<std::byte*>(::operator new (blocks* stride, std::align_val_t{alignment}));
    ++chunks_;
    blocks_ += blocks;
    for (std::size_t i = blocks; i > 0; --i) {
        auto* block = reinterpret_cast<Block*>(chunk + (i - 1) * stride);
        block->next = free_;
        free_ = block;
    }
}

MemAllocationTracker SlabList::tracker() const noexcept {
    auto inUse = static_cast<std::int64_t>(blocks_);
    for (const Block* block = free_; block != nullptr; block = block->next) {
        --inUse;
    }
    return {inUse, chunks_};
}

} // namespace Tessel
