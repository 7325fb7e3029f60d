#include "Program/Ending.h"

#include <cstdio>
#include <cstdlib>
#include <new>
#include <unistd.h>

namespace OvixLog {

namespace {

const char* programToEnd = "";
int failureCode = 1;
std::terminate_handler formerHandler = std::abort;

/// Memory may give out where nothing can be thrown, in a destructor of a library for one.
void reportAndExit() {
    try {
        if (const std::exception_ptr thrown = std::current_exception()) {
            std::rethrow_exception(thrown);
        }
    } catch (const std::bad_alloc& error) {
        reportEnd(programToEnd, error);
        _exit(failureCode); // other handlers would need memory, too
    } catch (...) {
        // The former handler looks at it itself.
    }
    formerHandler();
}

} // namespace

const char* reasonOf(const std::exception& error) noexcept {
    return dynamic_cast<const std::bad_alloc*>(&error) != nullptr ? "out of memory" : error.what();
}

void reportEnd(const char* program, const std::exception& error) noexcept {
    std::fprintf(stderr, "%s: %s\n", program, reasonOf(error));
}

void endWithoutMemoryBy(const char* program, int failure) noexcept {
    programToEnd = program;
    failureCode = failure;
    if (const std::terminate_handler former = std::set_terminate(reportAndExit);
        former != reportAndExit) {
        formerHandler = former;
    }
}

} // namespace OvixLog
