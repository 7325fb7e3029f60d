#include "Program/Ending.h"

#include <cstdio>
#include <new>

namespace OvixLog {

const char* reasonOf(const std::exception& error) noexcept {
    return dynamic_cast<const std::bad_alloc*>(&error) != nullptr ? "out of memory" : error.what();
}

void reportEnd(const char* program, const std::exception& error) noexcept {
    std::fprintf(stderr, "%s: %s\n", program, reasonOf(error));
}

} // namespace OvixLog
