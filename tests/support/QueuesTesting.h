#pragma once

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "LiveTesting.h"

namespace LiveTesting {

/// A port with the objects of its queues, all of them used by the test's thread.
struct QueuedPort {
    QueuedPort(std::unique_ptr<OvixAgent::LivePort> opened, std::uint32_t count)
        : port(std::move(opened)) {
        for (std::uint32_t i = 0; i < count; ++i) {
            queues.push_back(port->queue(i));
        }
    }

    /// Puts what comes to each queue into `came`, by queue, until `count` frames have come in all,
    /// and for a little longer.
    void receive(std::size_t count) {
        using Clock = std::chrono::steady_clock;
        const auto end = Clock::now() + std::chrono::seconds(10);
        while (total() < count && Clock::now() < end) {
            look();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        look();
    }
    void look() {
        came.resize(queues.size());
        for (std::size_t i = 0; i < queues.size(); ++i) {
            queues[i]->receive(each([&](const OvixAgent::Frame& frame) {
                                   came[i].emplace_back(frame.bytes.begin(), frame.bytes.end());
                               }),
                               256);
        }
    }
    std::size_t total() const {
        std::size_t all = 0;
        for (const auto& frames : came) {
            all += frames.size();
        }
        return all;
    }
    std::vector<std::size_t> shares() const {
        std::vector<std::size_t> all;
        for (const auto& frames : came) {
            all.push_back(frames.size());
        }
        return all;
    }

    std::unique_ptr<OvixAgent::LivePort> port;
    std::vector<std::unique_ptr<OvixAgent::LivePort>> queues;
    std::vector<std::vector<Bytes>> came;
};

/// Whether each of the queues has received between three and five quarters of its even share.
inline testing::AssertionResult isEven(const QueuedPort& port) {
    const std::size_t even = port.total() / port.queues.size();
    for (const std::size_t share : port.shares()) {
        if (share * 4 < even * 3 || share * 4 > even * 5) {
            return testing::AssertionFailure() << testing::PrintToString(port.shares());
        }
    }
    return testing::AssertionSuccess();
}

} // namespace LiveTesting
