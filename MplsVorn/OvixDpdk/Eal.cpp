#include "Eal.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <pthread.h>
#include <rte_eal.h>
#include <rte_errno.h>
#include <rte_log.h>
#include <sched.h>
#include <unistd.h>

#include "Live/ports/Card.h"
#include "Posix/FileDescriptor.h"

namespace OvixDpdk {

namespace {

/// DPDK binds the thread that starts it to one processor, and makes others, which must not take
/// this process's signals.
class KeptThread {
  public:
    KeptThread() {
        pthread_getaffinity_np(pthread_self(), sizeof processors_, &processors_);
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &signals_);
    }
    KeptThread(const KeptThread&) = delete;
    KeptThread& operator=(const KeptThread&) = delete;
    ~KeptThread() {
        pthread_sigmask(SIG_SETMASK, &signals_, nullptr);
        pthread_setaffinity_np(pthread_self(), sizeof processors_, &processors_);
    }

  private:
    cpu_set_t processors_{};
    sigset_t signals_{};
};

/// DPDK prints its usage to standard output when it refuses an argument, where a program that reads
/// this one's results does not expect it.
class QuietOutput {
  public:
    QuietOutput() : nowhere_(open("/dev/null", O_WRONLY | O_CLOEXEC)) {
        std::fflush(stdout);
        kept_ = Posix::FileDescriptor(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
        if (kept_.isOpen() && nowhere_.isOpen()) {
            dup2(nowhere_.value(), STDOUT_FILENO);
        }
    }
    QuietOutput(const QuietOutput&) = delete;
    QuietOutput& operator=(const QuietOutput&) = delete;
    ~QuietOutput() {
        std::fflush(stdout);
        if (kept_.isOpen()) {
            dup2(kept_.value(), STDOUT_FILENO);
        }
    }

  private:
    Posix::FileDescriptor nowhere_;
    Posix::FileDescriptor kept_;
};

bool hasFreeHugepages() {
    std::error_code none;
    for (const auto& size : std::filesystem::directory_iterator("/sys/kernel/mm/hugepages", none)) {
        std::ifstream file(size.path() / "free_hugepages");
        std::uint64_t count = 0;
        if (file >> count && count > 0) {
            return true;
        }
    }
    return false;
}

std::vector<std::string> arguments(const std::vector<std::string>& more) {
    // The allow list names no device, so that none is taken before it is asked for.
    std::vector<std::string> all{"ovix-agent",
                                 "--no-telemetry",
                                 "--log-level=error",
                                 "-l",
                                 std::to_string(std::max(sched_getcpu(), 0)),
                                 "-a",
                                 "ffff:ff:1f.7"};
    const bool doesWithout = std::find(more.begin(), more.end(), "--no-huge") != more.end();
    if (!doesWithout && hasFreeHugepages()) {
        all.emplace_back("--in-memory");
    } else {
        all.insert(all.end(), {"--no-huge", "-m", "256", "--no-shconf"});
    }
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

} // namespace

void startEal(const std::vector<std::string>& more) {
    static bool isStarted = false;
    if (isStarted) {
        return;
    }
    std::vector<std::string> words = arguments(more);
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    const KeptThread kept;
    const QuietOutput quiet;
    if (rte_eal_init(static_cast<int>(words.size()), argv.data()) < 0) {
        throw OvixAgent::CardError(std::string("dpdk: eal: the environment does not start: ") +
                                   rte_strerror(rte_errno) +
                                   "; its own messages are above. --no-huge does without "
                                   "hugepages, and -m MEGABYTES takes "
                                   "that much memory");
    }
    isStarted = true;
}

} // namespace OvixDpdk
