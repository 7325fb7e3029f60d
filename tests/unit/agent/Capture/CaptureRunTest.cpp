#include "Capture/CaptureRun.h"

#include <atomic>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>

#include "CaptureTesting.h"
#include "ForwarderTesting.h"
#include "Published/TablePublisher.h"
#include "Tessel/Exceptions.h"

namespace CaptureRunTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using namespace std::chrono_literals;

namespace {

/// Counts the frames that reach it, for another thread.
class CountingPort : public TransmitPort {
  public:
    void transmit(const Frame& frame) override {
        const bool isInOrder = frame.time.seconds == frames.load();
        inOrder = inOrder && isInOrder;
        ++frames;
    }

    std::atomic<std::int64_t> frames{0};
    std::atomic<bool> inOrder{true};
};

std::string recordOf(std::uint32_t seconds, const Bytes& frame) {
    const std::string bytes(frame.begin(), frame.end());
    return pcapRecord(seconds, 0, bytes, static_cast<std::uint32_t>(bytes.size()));
}

class CaptureRunTest : public ForwarderFixture {
  protected:
    CaptureRunTest() {
        directory = std::filesystem::temp_directory_path() /
                    ("capture-run-test-" + std::to_string(getpid()));
        std::filesystem::create_directories(directory);
        ports.ports()[east].out = &sent;
        handler->decide = always(withRewrite(nexthop("east", "10.0.2.2"), swapInfo(300)));
    }
    ~CaptureRunTest() override { std::filesystem::remove_all(directory); }

    int run(const std::string& path) {
        std::vector<CaptureReader> readers;
        readers.emplace_back(west, path);
        CaptureMerge merge(std::move(readers));
        FastPath fastPath(*forwarder, manager, tables, published);
        CliProgress none(stderr, false);
        return CaptureRun{&merge, &published, &fastPath, nullptr, &none}.forwardAll();
    }

    std::filesystem::path directory;
    CountingPort sent;
    Mpls::TablePublisher publisher{Tessel::TableMemory::ofProcess()};
    Mpls::PublishedTables published{
        Tessel::make<Tessel::TableReader>("tables", std::as_bytes(publisher.tables().memory()))};
};

bool within(std::chrono::seconds time, const std::function<bool()>& isSo) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (!isSo() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(1ms);
    }
    return isSo();
}

} // namespace

TEST_F(CaptureRunTest, ForwardsFramesOfEverySizeInOrder) {
    std::string capture = pcapHeader(microsecondMagic);
    capture.replace(16, 4, field32(longestCapturedFrame)); // the file's snapshot length
    constexpr std::uint32_t count = 1000;
    for (std::uint32_t i = 0; i < count; ++i) {
        capture += recordOf(i, labelled());
    }
    capture += recordOf(count, Bytes(longestCapturedFrame, 1)); // no burst has room for two
    capture += recordOf(count + 1, Bytes(longestCapturedFrame, 2));
    const std::string path = (directory / "in.pcap").string();
    std::ofstream(path, std::ios::binary) << capture;
    EXPECT_EQ(run(path), 0);
    EXPECT_EQ(sent.frames, count);
    EXPECT_TRUE(sent.inOrder);
    EXPECT_EQ(summary().in.frames, count + 2);
}

TEST_F(CaptureRunTest, FramesBehindOneThatMetALostGenerationAreForwardedOnce) {
    std::string capture = pcapHeader(microsecondMagic);
    constexpr std::uint32_t count = 10;
    for (std::uint32_t i = 0; i < count; ++i) {
        capture += recordOf(i, labelled());
    }
    const std::string path = (directory / "in.pcap").string();
    std::ofstream(path, std::ios::binary) << capture;
    int calls = 0;
    const Decide route = handler->decide;
    handler->decide = [&](const auto& context, Ovix::RoutingNexthops& nexthops) {
        if (++calls == 5) {
            throw Tessel::SnapshotLost("lost");
        }
        route(context, nexthops);
    };
    EXPECT_EQ(run(path), 0);
    EXPECT_EQ(calls, 11);
    EXPECT_EQ(sent.frames, count);
    EXPECT_TRUE(sent.inOrder);
    EXPECT_EQ(summary().in.frames, count);
}

TEST_F(CaptureRunTest, AFrameThatAPipeHasBroughtAloneWaitsForNoOther) {
    const std::string path = (directory / "pipe").string();
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    std::thread source([&] {
        std::ofstream pipe(path, std::ios::binary);
        pipe << pcapHeader(microsecondMagic) << recordOf(0, labelled()) << std::flush;
        EXPECT_TRUE(within(10s, [&] { return sent.frames == 1; }));
        pipe << recordOf(1, labelled()) << recordOf(2, labelled()) << std::flush;
        EXPECT_TRUE(within(10s, [&] { return sent.frames == 3; }));
    });
    EXPECT_EQ(run(path), 0);
    source.join();
    EXPECT_TRUE(sent.inOrder);
}

} // namespace CaptureRunTest
