#pragma once

#include <exception>

namespace OvixLog {

/// Why an exception was thrown, as its own text has it, or "out of memory".
const char* reasonOf(const std::exception& error) noexcept;

/// Reports on standard error what ends a program, as "PROGRAM: REASON".
void reportEnd(const char* program, const std::exception& error) noexcept;

/// The exit code of a program's `run`; `failure` when an exception leaves it, which is reported.
template <typename Run>
int endOf(const char* program, int failure, Run&& run) noexcept {
    try {
        return run();
    } catch (const std::exception& error) {
        reportEnd(program, error);
        return failure;
    }
}

} // namespace OvixLog
