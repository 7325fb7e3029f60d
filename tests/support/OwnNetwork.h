#pragma once

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace TestSupport {

/// Runs ip(8) with these arguments, for example "link set left up".
inline void ip(const std::string& arguments) {
    const std::string command = "ip " + arguments;
    if (std::system(command.c_str()) != 0) { // NOLINT(cert-env33-c): the tests' own words
        throw std::runtime_error("failed: " + command);
    }
}

/// A network namespace that this thread is in or has been in.
class Namespace {
  public:
    /// The one that the thread is in.
    Namespace() : file_(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC)) {}
    Namespace(const Namespace&) = delete;
    Namespace& operator=(const Namespace&) = delete;
    ~Namespace() { close(file_); }

    void enter() const {
        if (setns(file_, CLONE_NEWNET) != 0) {
            throw std::runtime_error(std::string("setns: ") + std::strerror(errno));
        }
    }
    /// As ip(8) takes it behind "netns".
    std::string path() const {
        return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(file_);
    }

  private:
    int file_;
};

/// Puts the thread into a new network namespace. Why there is none to be had; empty when there is.
inline std::string leaveNetwork() {
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
        return std::string("no network namespace: ") + std::strerror(errno);
    }
    return {};
}

/// Calls `step` whenever the descriptor has something to report, until `isDone`. False when that
/// has taken ten seconds.
inline bool pollUntil(const std::function<int()>& descriptor, const std::function<void()>& step,
                      const std::function<bool()>& isDone) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::seconds(10);
    while (!isDone()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        pollfd waiting{descriptor(), POLLIN, 0};
        if (left.count() <= 0 || poll(&waiting, 1, static_cast<int>(left.count())) == 0) {
            return false;
        }
        step();
    }
    return true;
}

/// A test in a network namespace of its own: nothing of the host's network is within reach.
/// Skipped, with the reason, where such a namespace or a pair of virtual links is not to be had.
class OwnNetwork : public testing::Test {
  protected:
    void SetUp() override {
        const std::string unavailable = leaveNetwork();
        if (!unavailable.empty()) {
            GTEST_SKIP() << unavailable;
        }
        try {
            ip("link set lo up");
            addLinks();
        } catch (const std::runtime_error& refused) {
            GTEST_SKIP() << refused.what();
        }
    }

    /// Two ends of one link, "left" and "right", which are up and send nothing by themselves.
    static void addLinks() {
        ip("link add name left address 02:00:00:00:00:01 type veth "
           "peer name right address 02:00:00:00:00:02");
        for (const char* end : {"left", "right"}) {
            ip(std::string("link set ") + end + " addrgenmode none");
            ip(std::string("link set ") + end + " up");
        }
        awaitOperation("left");
        awaitOperation("right");
    }

    /// A link that has been brought up takes a moment until it sends.
    static void awaitOperation(const std::string& link) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        const std::string isUp = "ip -oneline link show " + link + " | grep -q 'state UP'";
        while (std::system(isUp.c_str()) != 0) { // NOLINT(cert-env33-c): the tests' own words
            if (std::chrono::steady_clock::now() > end) {
                throw std::runtime_error(link + " does not come up");
            }
        }
    }
};

} // namespace TestSupport
