// Loaded before a program (LD_PRELOAD): one of its allocations fails, that of the number in
// $OVIX_FAIL_ALLOCATION, counted from main() on. Their number is printed at the end when that is 0.

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
}

namespace {

using Main = int (*)(int, char**, char**);

Main programsMain = nullptr;
long failing = 0;
std::atomic<bool> isCounting{false};
std::atomic<long> allocations{0};

bool fails() {
    if (!isCounting || ++allocations != failing) {
        return false;
    }
    errno = ENOMEM;
    return true;
}

int countedMain(int argc, char** argv, char** environment) {
    const char* const number = getenv("OVIX_FAIL_ALLOCATION");
    failing = number == nullptr ? 0 : std::strtol(number, nullptr, 10);
    isCounting = true;
    const int code = programsMain(argc, argv, environment);
    isCounting = false;
    if (failing == 0) {
        std::fprintf(stderr, "allocations: %ld\n", allocations.load());
    }
    return code;
}

} // namespace

extern "C" {

void* malloc(std::size_t size) {
    return fails() ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    return fails() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) {
    return fails() ? nullptr : __libc_realloc(memory, size);
}

int __libc_start_main(Main main, int argc, char** argv, void (*init)(), void (*fini)(),
                      void (*rtldFini)(), void* stackEnd) {
    programsMain = main;
    const auto start =
        reinterpret_cast<decltype(&__libc_start_main)>(dlsym(RTLD_NEXT, "__libc_start_main"));
    return start(countedMain, argc, argv, init, fini, rtldFini, stackEnd);
}

} // extern "C"
