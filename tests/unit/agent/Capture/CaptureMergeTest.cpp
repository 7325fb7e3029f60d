#include "Capture/CaptureMerge.h"

#include "CaptureTesting.h"

namespace CaptureMergeTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

std::vector<std::string> framesOf(CaptureMerge& merge) {
    std::vector<std::string> frames;
    while (const Frame* const frame = merge.next()) {
        frames.emplace_back(frame->bytes.begin(), frame->bytes.end());
    }
    return frames;
}

using Texts = std::vector<std::string>;

std::vector<PortConfig> twoPorts() {
    std::vector<PortConfig> ports(2);
    ports[0].name = "eth1";
    ports[1].name = "eth2";
    return ports;
}

std::string errorOf(const std::vector<InputOption>& inputs) {
    return captureError([&] { openInputs(inputs, twoPorts()); });
}

} // namespace

class CaptureMergeTest : public CaptureTest {
  protected:
    CaptureReader reader(const std::string& name, const std::string& records,
                         std::uint32_t magic = microsecondMagic) const {
        return {0, file(name, pcapHeader(magic) + records)};
    }
    template <typename... Readers>
    static CaptureMerge merge(Readers... readers) {
        std::vector<CaptureReader> list;
        (list.push_back(std::move(readers)), ...);
        return CaptureMerge(std::move(list));
    }
};

TEST_F(CaptureMergeTest, TakesFramesInTimeOrder) {
    CaptureMerge merged = merge(
        reader("a", pcapRecord(1, 0, "1.0") + pcapRecord(3, 0, "3.0")),
        reader("b", pcapRecord(0, 5, "0.5") + pcapRecord(2, 1, "2.1") + pcapRecord(4, 0, "4.0")),
        reader("c", pcapRecord(2, 500, "2.0005"), nanosecondMagic));
    EXPECT_EQ(framesOf(merged), (Texts{"0.5", "1.0", "2.0005", "2.1", "3.0", "4.0"}));
    EXPECT_TRUE(merged.problems().empty());
}

TEST_F(CaptureMergeTest, FramesOfEqualTimeComeInTheOrderOfTheCaptures) {
    CaptureMerge merged = merge(reader("a", pcapRecord(1, 0, "a1") + pcapRecord(1, 0, "a2")),
                                reader("b", pcapRecord(1, 0, "b1") + pcapRecord(1, 0, "b2")),
                                reader("c", pcapRecord(1, 0, "c1")));
    EXPECT_EQ(framesOf(merged), (Texts{"a1", "a2", "b1", "b2", "c1"}));
}

TEST_F(CaptureMergeTest, FramesOfOneCaptureKeepTheirOrder) {
    CaptureMerge merged = merge(reader("a", pcapRecord(5, 0, "a5") + pcapRecord(1, 0, "a1")),
                                reader("b", pcapRecord(4, 0, "b4") + pcapRecord(6, 0, "b6")));
    EXPECT_EQ(framesOf(merged), (Texts{"b4", "a5", "a1", "b6"}));
}

TEST_F(CaptureMergeTest, ATruncatedCaptureDoesNotEndTheOthersAndIsReportedOnce) {
    const std::string record = pcapRecord(2, 0, "never whole");
    CaptureMerge merged =
        merge(reader("a", pcapRecord(1, 0, "a1") + record.substr(0, record.size() - 1)),
              reader("b", pcapRecord(3, 0, "b3")));
    EXPECT_EQ(framesOf(merged), (Texts{"a1", "b3"}));
    EXPECT_EQ(merged.next(), nullptr);
    EXPECT_EQ(merged.problems(), Texts{path("a") + " is truncated after frame 1"});
}

TEST_F(CaptureMergeTest, WithoutCapturesThereAreNoFrames) {
    CaptureMerge merged = merge();
    EXPECT_EQ(merged.next(), nullptr);
    EXPECT_EQ(merged.progress(), 0.0);
}

TEST_F(CaptureMergeTest, HasMicrosecondsWhenAllCapturesHave) {
    EXPECT_TRUE(merge(reader("a", ""), reader("b", "")).hasMicroseconds());
    EXPECT_FALSE(merge(reader("a", ""), reader("b", "", nanosecondMagic)).hasMicroseconds());
}

TEST_F(CaptureMergeTest, ProgressGrowsToOne) {
    std::string records;
    for (std::uint32_t i = 0; i < 1000; ++i) {
        records += pcapRecord(i, 0, std::string(100, 'x'));
    }
    CaptureMerge merged = merge(reader("a", records), reader("b", records));
    double last = merged.progress();
    EXPECT_LT(last, 0.1);
    for (int i = 0; i < 1000; ++i) {
        merged.next();
        EXPECT_GE(merged.progress(), last);
        last = merged.progress();
    }
    EXPECT_NEAR(last, 0.5, 0.01);
    framesOf(merged);
    EXPECT_EQ(merged.progress(), 1.0);
}

TEST(OpenInputs, NamesAnUnknownPortBeforeAnyFileIsOpened) {
    EXPECT_EQ(errorOf({{"eth1", "/nonexistent"}, {"eth22", "b.pcap"}}),
              "--in eth22=b.pcap: no port is named \"eth22\"; did you mean \"eth2\"?");
    EXPECT_EQ(errorOf({{"port", "b.pcap"}}),
              "--in port=b.pcap: no port is named \"port\"; known: eth1, eth2");
}

TEST(OpenInputs, NamesACaptureThatCannotBeOpened) {
    EXPECT_EQ(errorOf({{"eth1", "/nonexistent"}}),
              "/nonexistent: cannot be opened: No such file or directory");
}

TEST_F(CaptureMergeTest, OneCaptureMayFeedTwoPorts) {
    const std::string path = file("a", pcapHeader(microsecondMagic) + pcapRecord(1, 0, "x"));
    auto readers = openInputs({{"eth2", path}, {"eth1", path}}, twoPorts());
    ASSERT_EQ(readers.size(), 2U);
    for (const std::uint32_t port : {1U, 0U}) {
        const Frame* const frame = readers[1 - port].next();
        ASSERT_NE(frame, nullptr);
        EXPECT_EQ(frame->port, port);
    }
}

} // namespace CaptureMergeTest
