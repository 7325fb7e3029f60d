#pragma once

#include <exception>

namespace OvixLog {

/// Why an exception was thrown, as its own text has it, or "out of memory".
const char* reasonOf(const std::exception& error) noexcept;

/// Reports on standard error what ends a program, as "PROGRAM: REASON".
void reportEnd(const char* program, const std::exception& error) noexcept;

/// From now on the program reports memory that gives out where nothing can be thrown, and exits
/// with `failure`; every other std::terminate stays what it was.
void endWithoutMemoryBy(const char* program, int failure) noexcept;

/// The exit code of a program's `run`; `failure` when an exception leaves it, which is reported, or
/// when memory gives out anywhere.
template <typename Run>
int endOf(const char* program, int failure, Run&& run) noexcept {
    endWithoutMemoryBy(program, failure);
    try {
        return run();
    } catch (const std::exception& error) {
        reportEnd(program, error);
        return failure;
    }
}

} // namespace OvixLog
