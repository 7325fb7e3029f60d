#pragma once

#include <csignal>
#include <functional>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

namespace ShmTesting {

/// Makes something happen in the middle of a read: when a page of the reader's own mapping is next
/// touched, `action` runs first, in the reading thread. One at a time.
class InMidRead {
  public:
    InMidRead(const void* touched, std::function<void()> action) {
        const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
        at() = reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(touched) / page * page);
        whenTouched() = std::move(action);
        struct sigaction handling {};
        handling.sa_handler = [](int) {
            mprotect(at(), 1, PROT_READ);
            std::exchange(whenTouched(), nullptr)();
        };
        handling.sa_flags = SA_NODEFER;
        sigaction(SIGSEGV, &handling, &before_);
        mprotect(at(), 1, PROT_NONE);
    }
    InMidRead(const InMidRead&) = delete;
    InMidRead& operator=(const InMidRead&) = delete;
    ~InMidRead() {
        mprotect(at(), 1, PROT_READ);
        sigaction(SIGSEGV, &before_, nullptr);
    }

    bool happened() const { return !whenTouched(); }

  private:
    static void*& at() {
        static void* page = nullptr;
        return page;
    }
    static std::function<void()>& whenTouched() {
        static std::function<void()> action;
        return action;
    }

    struct sigaction before_ {};
};

} // namespace ShmTesting
