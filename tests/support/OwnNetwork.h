#pragma once

#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdexcept>
#include <string>

#include "Links.h"

namespace TestSupport {

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
        addLinkPair({"left", "02:00:00:00:00:01"}, {"right", "02:00:00:00:00:02"});
    }
};

} // namespace TestSupport
