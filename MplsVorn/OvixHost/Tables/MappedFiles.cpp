#include "Tables/MappedFiles.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <sys/mman.h>

namespace Tessel {

namespace {

struct Stretch {
    std::atomic<std::uintptr_t> begin = 0; ///< 0: free
    std::atomic<std::size_t> bytes = 0;
    std::atomic<bool> isWritten = false;
    std::atomic<bool> isLost = false;

    bool has(std::uintptr_t at) const noexcept { return begin != 0 && at - begin < bytes; }

    /// Takes only what a signal handler may do.
    bool becomesZeros() noexcept {
        void* const memory = mmap(reinterpret_cast<void*>(begin.load()), bytes,
                                  isWritten ? PROT_READ | PROT_WRITE : PROT_READ,
                                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED, -1, 0);
        isLost = memory != MAP_FAILED;
        return isLost;
    }
};

std::array<Stretch, 64> mappedStretches;
struct sigaction formerBusAction {};

void onBusError(int signal, siginfo_t* info, void*) {
    const int error = errno;
    const auto at = reinterpret_cast<std::uintptr_t>(info->si_addr);
    const auto found = std::find_if(mappedStretches.begin(), mappedStretches.end(),
                                    [at](const Stretch& each) { return each.has(at); });
    if (found == mappedStretches.end() || !found->becomesZeros()) {
        sigaction(signal, &formerBusAction,
                  nullptr); // the fault comes again, and is somebody else's
    }
    errno = error;
}

bool handleBusErrors() noexcept {
    struct sigaction action {};
    action.sa_sigaction = &onBusError;
    action.sa_flags = SA_SIGINFO;
    sigemptyset(&action.sa_mask);
    return sigaction(SIGBUS, &action, &formerBusAction) == 0;
}

Stretch* stretchAt(const void* begin) noexcept {
    const auto at = reinterpret_cast<std::uintptr_t>(begin);
    const auto found =
        std::find_if(mappedStretches.begin(), mappedStretches.end(),
                     [at](const Stretch& each) { return at != 0 && each.begin == at; });
    return found != mappedStretches.end() ? &*found : nullptr;
}

} // namespace

void MappedFiles::add(std::span<std::byte> mapped, bool isWritten) noexcept {
    static const bool isHandled = handleBusErrors();
    for (Stretch& each : mappedStretches) {
        std::size_t none = 0;
        if (isHandled && each.bytes.compare_exchange_strong(none, mapped.size())) {
            each.isWritten = isWritten;
            each.isLost = false;
            each.begin = reinterpret_cast<std::uintptr_t>(mapped.data());
            return;
        }
    }
}

void MappedFiles::remove(std::span<std::byte> mapped) noexcept {
    if (Stretch* const found = stretchAt(mapped.data())) {
        found->begin = 0;
        found->bytes = 0;
    }
}

bool MappedFiles::wasLost(const void* begin) noexcept {
    const Stretch* const found = stretchAt(begin);
    return found != nullptr && found->isLost;
}

} // namespace Tessel
