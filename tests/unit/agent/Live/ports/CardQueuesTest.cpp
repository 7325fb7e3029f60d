#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <set>

#include "FrameBytes.h"
#include "Live/ports/Card.h"
#include "LiveTesting.h"
#include "Plugin/Loader.h"
#include "Refusal.h"
#include "ShmTesting.h"

namespace CardQueuesTest {

namespace {

using namespace LiveTesting;
using namespace TestSupport::Raw;
using LiveTesting::Bytes;
using OvixAgent::Card;

constexpr std::uint32_t flows = 300;
constexpr std::uint32_t workers = 2;

Bytes little(std::uint32_t value) {
    return {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8U),
            static_cast<std::uint8_t>(value >> 16U), static_cast<std::uint8_t>(value >> 24U)};
}

void write(const std::string& path, const std::vector<Bytes>& frames) {
    Bytes all =
        join({little(0xa1b2c3d4), little(0x00040002), filled(8, 0), little(65535), little(1)});
    for (const Bytes& frame : frames) {
        const auto size = static_cast<std::uint32_t>(frame.size());
        all = join({all, filled(8, 0), little(size), little(size), frame});
    }
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(all.data()), static_cast<std::streamsize>(all.size()));
}

/// A frame whose payload ends with what it is.
Bytes frameOfFlow(std::uint32_t flow, std::uint32_t number) {
    const Bytes stacked = flow % 2 == 0 ? stack({{100}, {1000 + flow}}) : stack({{100}});
    const Bytes packet =
        ipv4({.destination = flow % 2 == 0 ? 1 : flow}, join({udp(), u32(flow), u32(number)}));
    return join({toRight({ethMpls}, 0, 0), stacked, packet});
}

/// A device of the capture driver, in a process of its own, since DPDK's environment has threads.
class Device {
  public:
    /// The first flows are in the first queue's capture, and those beside them in the second's.
    Device() {
        std::array<std::vector<Bytes>, workers> queues;
        for (std::uint32_t number = 0; number < 3; ++number) {
            for (std::uint32_t flow = 0; flow < flows; ++flow) {
                queues[flow < flows * 4 / 5 ? 0 : 1].push_back(frameOfFlow(flow, number));
            }
        }
        write(path("0"), queues[0]);
        write(path("1"), queues[1]);
        options.workers = workers;
        options.device = "net_pcap0,rx_pcap=" + path("0") + ",rx_pcap=" + path("1");
        for (const std::string out : {"a", "b", "c"}) {
            options.device += ",tx_pcap=" + path(out);
        }
    }
    std::string path(const std::string& name) const { return directory + "/" + name + ".pcap"; }

    const std::string directory = [] {
        std::string made = (std::filesystem::temp_directory_path() / "cardXXXXXX").string();
        return std::string(mkdtemp(made.data()));
    }();
    OvixAgent::CardOptions options;
};

/// What a child finds wrong ends it with 1.
void require(bool isRight, const std::string& what) {
    if (!isRight) {
        std::cerr << what << std::endl;
        _exit(1);
    }
}

std::vector<Bytes> receive(Card& card) {
    std::array<OvixAgent::WritableFrame, OvixAgent::burstFrames> room;
    std::vector<Bytes> all;
    for (const auto& frame : std::span(room).first(card.receive(room))) {
        all.emplace_back(frame.bytes, frame.bytes + frame.size);
    }
    return all;
}

void checkSpread(const Device& device) {
    const auto card = OvixAgent::openDpdkCard(device.options);
    require(card->forWorker(workers) == nullptr, "there are more workers than were asked for");
    std::map<std::uint32_t, std::set<std::uint32_t>> workersOf;
    std::map<std::uint32_t, std::uint32_t> next;
    std::array<std::size_t, workers> shares{};
    std::array<std::unique_ptr<Card>, workers> all{card->forWorker(0), card->forWorker(1)};
    for (int turns = 0; turns < 1000; ++turns) {
        for (std::uint32_t worker = 0; worker < workers; ++worker) {
            for (const Bytes& frame : receive(*all[worker])) {
                const auto numbers = std::span(frame).last(8);
                const std::uint32_t flow = numbers[2] * 256U + numbers[3];
                workersOf[flow].insert(worker);
                require(next[flow]++ == numbers[7], "a flow is out of order");
                ++shares[worker];
            }
        }
    }
    require(receive(*card).empty(), "the one that only sends receives");
    require(shares[0] + shares[1] == std::size_t{3} * flows, "frames are missing");
    require(std::min(shares[0], shares[1]) > flows, "flows are not spread");
    for (const auto& [flow, used] : workersOf) {
        require(used.size() == 1, "a flow has come to both");
    }
    for (Card* const sender : {all[0].get(), all[1].get(), card.get()}) {
        require(sender->queue(frameOfFlow(1, 1)), "no room");
        require(sender->flush().sent == 1, "not sent");
    }
    require(card->missed() == 0, "frames were missed");
}

class CardQueuesTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!std::filesystem::exists(Plugin::Library::installed("libOvixDpdk.so"))) {
            GTEST_SKIP() << "needs the module for DPDK, which was not built";
        }
    }
};

} // namespace

TEST_F(CardQueuesTest, WorkersShareFlowsThatTheDeviceDoesNotSpread) {
    const Device device;
    ShmTesting::Child child([&] { checkSpread(device); });
    EXPECT_EQ(child.wait(), 0);
    for (const std::string out : {"a", "b", "c"}) {
        EXPECT_GT(std::filesystem::file_size(device.path(out)), 24U) << out;
    }
}

TEST_F(CardQueuesTest, FewerQueuesThanWorkersNeedAreRefused) {
    Device device;
    device.options.workers = 3;
    ShmTesting::Child child([&] {
        const std::string said =
            TestSupport::refusal([&] { OvixAgent::openDpdkCard(device.options); });
        const std::string expected = ": has 2 receive and 3 transmit queues for 3 workers, which "
                                     "need 3 and 4: fewer workers do";
        require(said.find(expected) != said.npos, said);
    });
    EXPECT_EQ(child.wait(), 0);
}

} // namespace CardQueuesTest
