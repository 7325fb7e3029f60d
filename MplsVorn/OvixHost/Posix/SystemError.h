#pragma once

#include <cerrno>
#include <system_error>

namespace Posix {

/// Throws std::system_error for an error number; `step` says what failed.
[[noreturn]] inline void fail(const char* step, int error = errno) {
    throw std::system_error(error, std::generic_category(), step);
}

} // namespace Posix
