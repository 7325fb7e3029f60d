#include <array>
#include <atomic>
#include <gtest/gtest.h>
#include <thread>

#include "FrameBytes.h"
#include "Live/ports/PacketPort.h"
#include "Live/ports/TapPort.h"
#include "Live/ports/XdpPort.h"
#include "LiveTesting.h"

namespace QueueThreadsTest {

namespace {

using namespace LiveTesting;
using namespace TestSupport::Raw;
using LiveTesting::Bytes;
using OvixAgent::LiveCounts;
using OvixAgent::LiveEvent;
using OvixAgent::LivePort;
using OvixAgent::PacketIntake;
using TestSupport::ip;

/// The queues of a port, each with a thread that receives, and sends something now and then.
class Threads {
  public:
    Threads(LivePort& port, std::uint32_t queues) {
        for (std::uint32_t i = 0; i < queues; ++i) {
            queues_.push_back(port.queue(i));
            counts_.push_back(&queues_.back()->counts());
        }
        for (const auto& queue : queues_) {
            threads_.emplace_back([this, &queue] { serve(*queue); });
        }
    }
    Threads(const Threads&) = delete;
    Threads& operator=(const Threads&) = delete;
    ~Threads() {
        isEnding_ = true;
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }

    /// While the threads count.
    std::uint64_t of(LiveEvent event) const {
        std::uint64_t all = 0;
        for (const LiveCounts* counts : counts_) {
            all += counts->of(event);
        }
        return all;
    }

  private:
    void serve(LivePort& queue) {
        while (!isEnding_) {
            queue.receive([](std::span<OvixAgent::WritableFrame>) {}, 64);
            if (!queue.isOpen()) {
                queue.reopen();
            }
            send(queue, toLeft({0x88cc}));
            queue.counts();
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    }

    std::vector<std::unique_ptr<LivePort>> queues_;
    std::vector<const LiveCounts*> counts_;
    std::vector<std::thread> threads_;
    std::atomic<bool> isEnding_{false};
};

bool becomes(const std::function<bool()>& isSo) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!isSo() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return isSo();
}

class QueueThreadsTest : public TestSupport::OwnNetwork {
  protected:
    /// Sends labelled frames from the other end until the queues have received as many more.
    static bool passes(LivePort& from, const Threads& queues) {
        constexpr std::uint64_t frames = 100;
        const std::uint64_t before = queues.of(LiveEvent::received);
        return becomes([&] {
            for (std::uint32_t i = 0; i < frames; ++i) {
                transmit(from, join({toRight({ethMpls}, 0, 0), stack({{100}, {1000 + i}}),
                                     filled(40, 0)}));
            }
            from.flush();
            return queues.of(LiveEvent::received) >= before + frames;
        });
    }
    /// What the object that has the interface does meanwhile.
    static void change(LivePort& port, LivePort& from, const Threads& queues) {
        EXPECT_TRUE(passes(from, queues));
        for (const PacketIntake intake :
             {PacketIntake::everything, PacketIntake::taggedToAny, PacketIntake::labelledAndIp}) {
            port.intakeIs(intake);
            send(port, toLeft({0x88cc}));
            port.receive([](std::span<OvixAgent::WritableFrame>) {}, 64);
            EXPECT_TRUE(passes(from, queues));
        }
        EXPECT_GT(queues.of(LiveEvent::sent), 0U);
    }
    static void closeFor(LivePort& port, const std::string& interface) {
        ip("link del " + interface);
        port.receive([](std::span<OvixAgent::WritableFrame>) {}, 64);
        EXPECT_FALSE(port.isOpen());
    }
};

} // namespace

TEST_F(QueueThreadsTest, FollowAPacketPort) {
    OvixAgent::PacketPort left(0, "left", PacketIntake::labelled);
    OvixAgent::PacketPort right(1, "right", PacketIntake::labelled, 3);
    const Threads queues(right, 3);
    change(right, left, queues);
    closeFor(right, "right");
    addLinks();
    EXPECT_TRUE(right.reopen()) << right.problem();
    EXPECT_TRUE(left.reopen());
    change(right, left, queues);
}

TEST_F(QueueThreadsTest, FollowAnXdpPort) {
    const auto addWideLinks = [] {
        ip("link add left address 02:00:00:00:00:01 numtxqueues 2 numrxqueues 2 type veth peer "
           "name right address 02:00:00:00:00:02 numtxqueues 2 numrxqueues 2");
        for (const std::string side : {"left", "right"}) {
            ip("link set " + side + " addrgenmode none up");
        }
        awaitOperation("left");
        awaitOperation("right");
    };
    ip("link del left");
    addWideLinks();
    OvixAgent::PacketPort left(0, "left", PacketIntake::labelled);
    OvixAgent::XdpPort right(1, "right", 2);
    if (!right.isOpen()) {
        GTEST_SKIP() << right.problem();
    }
    const Threads queues(right, 2);
    change(right, left, queues);
    closeFor(right, "right");
    addWideLinks();
    EXPECT_TRUE(becomes([&] { return right.reopen(); })) << right.problem();
    EXPECT_TRUE(left.reopen());
    change(right, left, queues);
}

TEST_F(QueueThreadsTest, FollowATapPort) {
    OvixAgent::TapPort tap(1, "tap", std::nullopt, 3);
    if (!tap.isOpen()) {
        GTEST_SKIP() << tap.problem();
    }
    const Threads queues(tap, 3);
    for (int times = 0; times < 2; ++times) {
        OvixAgent::PacketPort stack(0, "tap", PacketIntake::labelled);
        change(tap, stack, queues);
        closeFor(tap, "tap");
        EXPECT_TRUE(becomes([&] { return tap.reopen(); })) << tap.problem();
    }
}

} // namespace QueueThreadsTest
