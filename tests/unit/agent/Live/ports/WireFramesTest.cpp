#include "Live/ports/WireFrames.h"

#include <gtest/gtest.h>
#include <random>
#include <string>

#include "MergedFrame.h"

namespace WireFramesTest {

namespace {

using namespace LiveTesting;
using namespace TestSupport::Raw;
using OvixAgent::FrameSegments;
using OvixAgent::OffloadedWork;
using OvixAgent::WritableFrame;

std::vector<Bytes> rest(FrameSegments& segments) {
    std::vector<Bytes> all;
    while (segments.nextSize() > 0) {
        Bytes room(segments.nextSize());
        const WritableFrame frame = segments.next(room.data());
        EXPECT_EQ(frame.bytes, room.data());
        EXPECT_EQ(frame.size, room.size());
        EXPECT_EQ(frame.originalLength, frame.size);
        all.push_back(std::move(room));
    }
    return all;
}

std::vector<Bytes> cut(Bytes whole, const OffloadedWork& work) {
    FrameSegments segments;
    EXPECT_TRUE(segments.start(whole, work, {}));
    return rest(segments);
}

struct Case {
    std::string name;
    MergedFrame merged;
};

std::ostream& operator<<(std::ostream& out, const Case& each) {
    return out << each.name;
}

MergedFrame over(const Bytes& link, bool isIpv4 = true) {
    return {.link = link, .isIpv4 = isIpv4, .segmentation = isIpv4 ? tcpOverIpv4 : tcpOverIpv6};
}

const MergedFrame tcp4;
const MergedFrame tcp6 = over(eth(ethIpv6), false);
constexpr std::uint8_t everyFlag = 0xff;
const std::uint8_t tcp4WithCwr = tcpOverIpv4 | withCwr;
const std::uint8_t tcp6WithCwr = tcpOverIpv6 | withCwr;

const std::vector<Case> cases{
    {"whole segments", tcp4},
    {"a short last one", {.payload = 2001}},
    {"odd sizes", {.payload = 100, .segmentSize = 7}},
    {"a byte each", {.payload = 5, .segmentSize = 1}},
    {"one segment", {.payload = 1000}},
    {"less than a segment", {.payload = 999}},
    {"no payload", {.payload = 0}},
    {"all flags", {.flags = everyFlag, .segmentation = tcp4WithCwr}},
    {"all flags in one segment", {.payload = 10, .flags = everyFlag}},
    {"FIN and PSH", {.flags = 0x19}},
    {"options of TCP", {.tcpOptions = 12}},
    {"as many options as there may be", {.tcpOptions = 40, .ipv4Options = filled(40, 1)}},
    {"the sequence number wraps", {.sequence = 0xffffff00}},
    {"the identification wraps", {.ident = 0xffff}},
    {"as much as IPv4 can hold", {.payload = 65535 - 40, .segmentSize = 1448}},
    {"IPv6", tcp6},
    {"IPv6, all flags",
     {.link = eth(ethIpv6),
      .isIpv4 = false,
      .payload = 2500,
      .flags = everyFlag,
      .segmentation = tcp6WithCwr}},
    {"as much as IPv6 can hold",
     {.link = eth(ethIpv6),
      .isIpv4 = false,
      .payload = 65535 - 20,
      .segmentSize = 1428,
      .segmentation = tcpOverIpv6}},
    {"UDP", {.isTcp = false, .payload = 2500, .segmentation = udpOverIp}},
    {"UDP over IPv6",
     {.link = eth(ethIpv6),
      .isIpv4 = false,
      .isTcp = false,
      .payload = 2500,
      .segmentation = udpOverIp}},
    {"a tag", over(join({eth(ethVlan), tag(5, ethIpv4)}))},
    {"two tags, IPv6", over(join({eth(ethServiceVlan), tag(5, ethVlan), tag(6, ethIpv6)}), false)},
    {"a label", over(join({eth(ethMpls), stack({{100}})}))},
    {"labels, IPv6", over(join({eth(ethMpls), stack({{100}, {200}, {2}})}), false)},
    {"upstream-assigned label", over(join({eth(ethMplsUpstream), stack({{100}})}))},
    {"a tag and a label", over(join({eth(ethVlan), tag(5, ethMpls), stack({{100}})}))},
};

/// Frames of the cases with other values in their headers, cut short, and said to be something
/// else; the IPv4 checksum is made right in half of them.
class MadeUp {
  public:
    const MergedFrame& any() {
        for (;;) {
            const MergedFrame& merged = cases[below(cases.size())].merged;
            if (merged.payload < 5000) {
                return merged;
            }
        }
    }

    Bytes frame(const MergedFrame& merged) {
        Bytes whole = merged.whole();
        for (std::size_t changes = below(4); changes > 0; --changes) {
            whole[below(merged.headers())] = static_cast<std::uint8_t>(random_());
        }
        if (merged.isIpv4 && below(2) == 0) {
            setIpv4Checksum(whole, merged.link.size());
        }
        if (below(4) == 0) {
            whole.resize(below(whole.size() + 1));
        }
        return {whole.begin(), whole.end()}; // without spare room behind
    }

    OffloadedWork work(const MergedFrame& merged) {
        OffloadedWork work = merged.work();
        if (below(2) == 0) {
            work.flags = static_cast<std::uint8_t>(random_());
            work.segmentSize = static_cast<std::uint16_t>(random_());
        }
        if (below(8) == 0) {
            work.segmentation = static_cast<std::uint8_t>(random_());
            work.checksumStart = static_cast<std::uint16_t>(random_());
        }
        return work;
    }

  private:
    std::size_t below(std::size_t end) { return random_() % end; }

    std::mt19937 random_{1}; // NOLINT(cert-msc32-c,cert-msc51-cpp): the same every time
};

class FrameSegmentsOf : public testing::TestWithParam<Case> {};

INSTANTIATE_TEST_SUITE_P(All, FrameSegmentsOf, testing::ValuesIn(cases));

} // namespace

TEST_P(FrameSegmentsOf, AreWireFrames) {
    const MergedFrame& merged = GetParam().merged;
    EXPECT_EQ(cut(merged.whole(), merged.work()), merged.segments());
}

TEST(FrameSegments, ChecksumsAreValidWhateverTheFieldHeld) {
    Bytes whole = tcp4.whole();
    whole[tcp4.transport() + 16] ^= 0xff;
    OffloadedWork work = tcp4.work();
    work.flags = 0;
    work.checksumStart = 0;
    EXPECT_EQ(cut(whole, work), tcp4.segments());
}

TEST(FrameSegments, PaddingIsNotPayload) {
    EXPECT_EQ(cut(join({tcp4.whole(), filled(9, 0xee)}), tcp4.work()), tcp4.segments());
}

TEST(FrameSegments, HaveTheTimeOfTheFrameAndLeaveItAsItIs) {
    Bytes whole = tcp4.whole();
    FrameSegments segments;
    ASSERT_TRUE(segments.start(whole, tcp4.work(), {11, 12}));
    Bytes room(segments.nextSize());
    EXPECT_EQ(segments.next(room.data()).time, (OvixAgent::CaptureTime{11, 12}));
    rest(segments);
    EXPECT_EQ(whole, tcp4.whole());
}

TEST(FrameSegments, AreNoneBeforeTheStartAfterTheLastOrAfterDrop) {
    FrameSegments segments;
    EXPECT_TRUE(rest(segments).empty());
    Bytes whole = tcp4.whole();
    ASSERT_TRUE(segments.start(whole, tcp4.work(), {}));
    EXPECT_EQ(rest(segments).size(), 3U);
    EXPECT_TRUE(rest(segments).empty());
    whole = tcp4.whole();
    ASSERT_TRUE(segments.start(whole, tcp4.work(), {}));
    segments.drop();
    EXPECT_TRUE(rest(segments).empty());
}

TEST(FrameSegments, AreNoneWhenTheFrameCannotBeCut) {
    FrameSegments segments;
    Bytes whole = tcp4.whole();
    ASSERT_TRUE(segments.start(whole, tcp4.work(), {}));
    whole = tcp4.whole();
    OffloadedWork work = tcp4.work();
    work.segmentSize = 0;
    EXPECT_FALSE(segments.start(whole, work, {}));
    EXPECT_TRUE(rest(segments).empty());
}

TEST(FrameSegments, HeadersThatAreTooLongAreRefused) {
    for (const std::size_t labels : {45U, 50U, 51U, 60U}) {
        const MergedFrame merged =
            over(join({eth(ethMpls), stack(std::vector<Entry>(labels, Entry{100}))}));
        Bytes whole = merged.whole();
        EXPECT_EQ(FrameSegments().start(whole, merged.work(), {}), merged.headers() <= 256)
            << labels;
    }
}

// Whatever the lengths in a frame and beside it say, segments are parts of the frame, and their
// payloads its payload. The address sanitizer sees what is read beyond.
TEST(FrameSegments, RandomLengthsAreHandled) {
    MadeUp madeUp;
    std::size_t taken = 0;
    for (int round = 0; round < 20000; ++round) {
        const MergedFrame& merged = madeUp.any();
        Bytes whole = madeUp.frame(merged);
        const OffloadedWork work = madeUp.work(merged);
        const auto layout = OvixAgent::readSegmentedFrame(whole, work);
        FrameSegments segments;
        if (!segments.start(whole, work, {})) {
            continue;
        }
        ++taken;
        std::size_t payload = 0;
        for (const Bytes& segment : rest(segments)) {
            payload += segment.size() - layout->payload;
        }
        ASSERT_EQ(payload, layout->end - layout->payload);
    }
    EXPECT_GT(taken, 1000U);
}

} // namespace WireFramesTest
