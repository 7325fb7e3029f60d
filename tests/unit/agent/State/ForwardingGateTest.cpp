#include "State/ForwardingGate.h"

#include <atomic>
#include <chrono>
#include <ctime>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace ForwardingGateTest {

using namespace OvixAgent;

TEST(ForwardingGateTest, WithoutOtherThreadsItIsClosedAtOnce) {
    ForwardingGate gate;
    const ForwardingGate::Closed closed(gate);
    const ForwardingGate::Closed again(gate);
    EXPECT_EQ(gate.closings(), 0U);
}

TEST(ForwardingGateTest, ClosingsNest) {
    ForwardingGate gate;
    ForwardingGate::Place& place = gate.addPlace();
    {
        const ForwardingGate::Closed closed(gate);
        { const ForwardingGate::Closed again(gate); }
        EXPECT_TRUE(place.isToLeave());
        EXPECT_EQ(gate.closings(), 1U);
    }
    EXPECT_FALSE(place.isToLeave());
    place.enter();
    place.leave();
}

// What is not atomic here is what ThreadSanitizer watches.
TEST(ForwardingGateTest, NobodyForwardsWhileItIsClosed) {
    constexpr int threads = 3;
    constexpr int changes = 2000;
    ForwardingGate gate;
    int shared = 0;
    std::atomic<bool> ends{false};
    std::vector<std::thread> forwarding;
    std::vector<ForwardingGate::Place*> places;
    for (int i = 0; i < threads; ++i) {
        places.push_back(&gate.addPlace());
    }
    std::atomic<int> odd{0};
    for (int i = 0; i < threads; ++i) {
        forwarding.emplace_back([&, place = places[static_cast<std::size_t>(i)]] {
            while (!ends) {
                place->enter();
                odd += shared % 2;
                place->leave();
            }
        });
    }
    for (int i = 0; i < changes; ++i) {
        const ForwardingGate::Closed closed(gate);
        ++shared;
        ++shared;
    }
    ends = true;
    for (std::thread& thread : forwarding) {
        thread.join();
    }
    EXPECT_EQ(odd, 0);
    EXPECT_EQ(gate.closings(), static_cast<std::uint64_t>(changes));
}

// The processor time of a thread that waits for long is that of its first tries.
TEST(ForwardingGateTest, WhoWaitsLongFallsAsleepAndIsWoken) {
    using namespace std::chrono_literals;
    ForwardingGate gate;
    ForwardingGate::Place& place = gate.addPlace();
    std::atomic<bool> isBegun{false};
    double seconds = 1;
    std::thread waiting;
    {
        const ForwardingGate::Closed closed(gate);
        waiting = std::thread([&] {
            isBegun = true;
            place.enter();
            place.leave();
            timespec used{};
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
            seconds = static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
        });
        while (!isBegun) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(300ms);
    }
    waiting.join();
    EXPECT_LT(seconds, 0.1);
}

} // namespace ForwardingGateTest
