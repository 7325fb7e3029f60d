#pragma once

namespace Tessel {

/// Ends the process after naming the broken invariant and its source.
[[noreturn]] void assertionFailed(const char* text, const char* function, const char* source,
                                  int line) noexcept;

/// A hard assertion: an internal invariant, never a check of input. `source` is the component's
/// own name, so that a report from the field says which plugin broke its promise.
inline void hardAssert(bool holds, const char* text, const char* function, const char* source,
                       int line = __builtin_LINE()) noexcept {
    if (!holds) [[unlikely]] {
        assertionFailed(text, function, source, line);
    }
}

} // namespace Tessel
