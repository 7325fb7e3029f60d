#include "Tessel/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Tessel {

void assertionFailed(const char* text, const char* function, const char* source,
                     int line) noexcept {
    std::fprintf(stderr, "%s:%d: %s: assertion \"%s\" failed\n", source, line, function, text);
    std::abort();
}

} // namespace Tessel
