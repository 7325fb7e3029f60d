#pragma once

namespace Tessel {

/// Loads the cache line at `address` ahead of its use; a wrong address does no harm. Compilers see
/// no effect in that alone and leave out calls of functions that do no more; the empty statement is
/// an effect to them.
[[gnu::always_inline]] inline void prefetch(const void* address) noexcept {
    __builtin_prefetch(address);
    __asm__ volatile("");
}

} // namespace Tessel
