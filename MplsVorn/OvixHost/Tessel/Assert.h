#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Tessel {

/// Ends the process after naming the broken invariant, and the function, file and line that found
/// it.
[[noreturn, gnu::noinline, gnu::cold]] inline void
assertionFailed(const char* text, const char* function, const char* file, int line) noexcept {
    const char* source = std::strstr(file, "MplsVorn/"); // wherever the sources lie
    std::fprintf(stderr, "%s:%d: %s: assertion \"%s\" failed\n", source != nullptr ? source : file,
                 line, function, text);
    std::abort();
}

/// A hard assertion: an internal invariant, never a check of input.
inline void hardAssert(bool holds, const char* text, const char* function = __builtin_FUNCTION(),
                       const char* file = __builtin_FILE(), int line = __builtin_LINE()) noexcept {
    if (!holds) [[unlikely]] {
        assertionFailed(text, function, file, line);
    }
}

} // namespace Tessel
