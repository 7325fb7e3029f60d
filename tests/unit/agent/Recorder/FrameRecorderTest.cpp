#include "Recorder/FrameRecorder.h"

#include <gtest/gtest.h>
#include <numeric>
#include <unordered_map>

#include "FrameBytes.h"
#include "HeapCount.h"

namespace FrameRecorderTest {

using namespace OvixAgent;
using namespace TestSupport::Raw;

namespace {

class FrameRecorderTest : public ::testing::Test {
  protected:
    FrameRecorder recorder;
    FrameRecorder::Log& log = recorder.logOf(drop("no reason"), 1);

    void record(std::uint32_t label) {
        Bytes& frame = frames_[label];
        if (frame.empty()) {
            frame = join({eth(ethMpls), stack({{label}}), ipv4({}, udp())});
        }
        const auto length = static_cast<std::uint32_t>(frame.size());
        recorder.record(log, Frame{2, {5, label}, frame, length}, {});
    }
    std::vector<std::uint32_t> labelsKept() const {
        std::vector<std::uint32_t> labels;
        for (std::size_t i = 0; i < log.kept(); ++i) {
            labels.push_back(*topLabel(log.keptAt(i).bytes()));
        }
        return labels;
    }
    const RecordedFrame& newest() const { return log.keptAt(log.kept() - 1); }

  private:
    std::unordered_map<std::uint32_t, Bytes> frames_; // floods are built once
};

std::vector<std::uint32_t> numbersFrom(std::uint32_t first, std::size_t count) {
    std::vector<std::uint32_t> numbers(count);
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

} // namespace

TEST_F(FrameRecorderTest, TheFirstFrameAndTheLast64OfAReasonAreKept) {
    for (std::uint32_t label = 16; label < 16 + 64; ++label) {
        record(label);
    }
    EXPECT_EQ(labelsKept(), numbersFrom(16, 64));
    for (std::uint32_t label = 80; label < 180; ++label) {
        record(label);
    }
    std::vector<std::uint32_t> expected = numbersFrom(116, 64);
    expected.insert(expected.begin(), 16);
    EXPECT_EQ(labelsKept(), expected);
    EXPECT_EQ(log.frames(), 164U);
    EXPECT_EQ(log.keptAt(1).sequence, 101U);
    EXPECT_EQ(log.byPort(), (std::vector<std::uint64_t>{0, 0, 164}));
}

TEST_F(FrameRecorderTest, AFrameIsKeptAsItCameWithItsFirst128Bytes) {
    recorder.generationIs(9);
    const RecordedVia via{4, Lumo::IpGenAddr::fromText("10.0.0.1")};
    for (const std::size_t size : {0, 1, 13, 31, 32, 33, 63, 64, 65, 127, 128, 129, 1514}) {
        Bytes bytes(size);
        std::iota(bytes.begin(), bytes.end(), std::uint8_t{7});
        const Bytes head(bytes.begin(),
                         bytes.begin() + static_cast<long>(std::min<std::size_t>(size, 128)));
        const auto length = static_cast<std::uint32_t>(size + 3);
        const auto expectKept = [&](const RecordedVia& where) {
            EXPECT_EQ(Bytes(newest().bytes().begin(), newest().bytes().end()), head);
            EXPECT_EQ(newest().length, length);
            EXPECT_EQ(newest().port, 1U);
            EXPECT_EQ(newest().time, (CaptureTime{5, 6}));
            EXPECT_EQ(newest().generation, 9U);
            EXPECT_EQ(newest().viaPort, where.port);
        };
        recorder.record(log, Frame{1, {5, 6}, bytes, length}, via);
        expectKept(via);
        EXPECT_EQ(newest().via(), via);
        const WritableFrame same{bytes.data(), static_cast<std::uint32_t>(size), length, 0, 3,
                                 {5, 6}};
        recorder.record(log, same, 1);
        expectKept({});
    }
}

TEST_F(FrameRecorderTest, OfAFloodsLabelsSomeAreCountedForAll) {
    for (std::uint32_t i = 0; i < FrameRecorder::allOfSecond; ++i) {
        record(100);
    }
    EXPECT_EQ(log.topLabels(5).front().count, FrameRecorder::allOfSecond) << "few are all counted";
    for (int i = 0; i < 90'000; ++i) {
        record(i % 3 == 0 ? 200 : 300);
    }
    const auto top = log.topLabels(5);
    EXPECT_EQ(top[0].key, 300U);
    EXPECT_NEAR(static_cast<double>(top[0].count), 60'000, 6'000);
    EXPECT_NEAR(static_cast<double>(top[1].count), 30'000, 6'000);
}

TEST_F(FrameRecorderTest, OfAFloodTheFirstFramesOfASecondAreKeptAndSomeOfTheRestAndAllAreCounted) {
    const auto recordNow = [this](std::int64_t second, std::uint32_t frames) {
        Bytes frame = join({eth(ethMpls), stack({{100}}), ipv4({}, udp())});
        const auto size = static_cast<std::uint32_t>(frame.size());
        for (std::uint32_t i = 0; i < frames; ++i) {
            recorder.record(log, WritableFrame{frame.data(), size, size, 0, i % 3, {second, i}},
                            i % 3);
        }
    };
    recordNow(5, FrameRecorder::allOfSecond);
    for (std::size_t i = 1; i < log.kept(); ++i) {
        EXPECT_EQ(log.keptAt(i).sequence, FrameRecorder::allOfSecond - 64 + i);
    }
    recordNow(5, 60'000);
    const std::uint64_t flood = FrameRecorder::allOfSecond + 60'000;
    EXPECT_EQ(log.frames(), flood);
    const auto byPort = log.byPort();
    EXPECT_EQ(std::accumulate(byPort.begin(), byPort.end(), std::uint64_t{0}), flood);
    EXPECT_EQ(byPort[0], 342U + 20'000U);
    EXPECT_NEAR(static_cast<double>(log.topLabels(5).front().count), static_cast<double>(flood),
                255);
    for (std::size_t i = 2; i < log.kept(); ++i) {
        const std::uint64_t apart = log.keptAt(i).sequence - log.keptAt(i - 1).sequence;
        EXPECT_GE(apart, 128U);
        EXPECT_LE(apart, 255U);
        EXPECT_EQ(log.keptAt(i).standsFor, apart);
    }
    recordNow(6, 10);
    for (std::size_t i = log.kept() - 9; i < log.kept(); ++i) {
        EXPECT_EQ(log.keptAt(i).sequence, log.keptAt(i - 1).sequence + 1) << "one second later";
    }
    EXPECT_EQ(log.frames(), flood + 10);
}

TEST_F(FrameRecorderTest, FramesThatComeInTurnAreAllMetInAFlood) {
    for (std::uint32_t i = 0; i < 400'000; ++i) {
        record(100 + i % 64);
    }
    const auto top = log.topLabels(5);
    ASSERT_EQ(top.size(), 64U);
    for (const auto& label : top) {
        EXPECT_NEAR(static_cast<double>(label.count), 400'000.0 / 64, 4'000) << label.key;
    }
}

TEST_F(FrameRecorderTest, NeighboursOfAFloodAreCountedByThoseThatAreKept) {
    FrameRecorder::Log& wanting = recorder.logOf(drop(Reason::noNeighbour), 2);
    const Bytes frame = join({eth(ethMpls), stack({{100}}), ipv4({}, udp())});
    const RecordedVia via{1, Lumo::IpGenAddr::fromText("10.0.2.9")};
    for (int i = 0; i < 50'000; ++i) {
        recorder.record(wanting, Frame{0, {5, 0}, frame, 60}, via);
    }
    EXPECT_EQ(wanting.frames(), 50'000U);
    EXPECT_NEAR(static_cast<double>(recorder.unresolved().top(1, 5).front().count), 50'000, 255);
}

TEST_F(FrameRecorderTest, WhatWasPassedOverIsTakenOverAsCounted) {
    FrameRecorder other;
    FrameRecorder::Log& theirs = other.logOf(drop("no reason"), 1);
    const Bytes frame = join({eth(ethMpls), stack({{7}}), ipv4({}, udp())});
    std::uint64_t all = 0;
    for (const std::uint64_t frames : {10'000U, 10U, 3'000U, 1U, 1U}) {
        for (std::uint64_t i = 0; i < frames; ++i) {
            other.record(theirs, Frame{4, {5, 6}, frame, 99}, {});
        }
        recorder.absorb(other);
        all += frames;
        EXPECT_EQ(log.frames(), all);
        EXPECT_EQ(log.byPort().at(4), all);
        EXPECT_EQ(recorder.sequence(), all);
        EXPECT_EQ(theirs.frames(), 0U);
    }
    EXPECT_NEAR(static_cast<double>(log.topLabels(5).front().count), static_cast<double>(all), 300);
}

TEST_F(FrameRecorderTest, TheOutermostLabelIsFoundBehindTags) {
    const Bytes macs(12, 2);
    const Bytes labels = stack({{100}, {200}});
    EXPECT_EQ(topLabel(join({macs, {0x81, 0, 0, 5}, u16(ethMpls), labels})), 100U);
    EXPECT_EQ(topLabel(join({macs, u16(ethMplsUpstream), labels})), 100U);
    EXPECT_EQ(topLabel(join({macs, u16(ethMpls), {0, 1, 2}})), std::nullopt);
    EXPECT_EQ(topLabel(join({macs, u16(ethIpv4), ipv4({}, udp())})), std::nullopt);
    EXPECT_EQ(topLabel(Bytes(13, 0)), std::nullopt);
}

TEST_F(FrameRecorderTest, PacketsThatWantANeighbourAreCountedForIt) {
    FrameRecorder::Log& wanting = recorder.logOf(drop(Reason::noNeighbour), 2);
    const Bytes frame = join({eth(ethMpls), stack({{100}}), ipv4({}, udp())});
    const RecordedVia via{1, Lumo::IpGenAddr::fromText("10.0.2.9")};
    for (int i = 0; i < 3; ++i) {
        recorder.record(wanting, Frame{0, {5, 0}, frame, 60}, via);
    }
    recorder.record(log, Frame{0, {5, 0}, frame, 60}, via);
    const auto top = recorder.unresolved().top(10, 5);
    ASSERT_EQ(top.size(), 1U);
    EXPECT_EQ(top.front().key, via);
    EXPECT_EQ(top.front().count, 3U);
}

TEST_F(FrameRecorderTest, ItsMemoryIsBounded) {
    for (std::uint64_t i = 2; i < 1000; ++i) {
        const std::string reason = "ttl for label " + std::to_string(i);
        EXPECT_EQ(recorder.logOf(drop(reason), i).reason,
                  i < 2 + FrameRecorder::mostWithValues ? reason : "Other reasons");
    }
    for (std::uint64_t i = 2000; i < 3000; ++i) {
        const bool hasLog =
            i < 2000 + FrameRecorder::mostReasons - FrameRecorder::mostWithValues - 1;
        EXPECT_EQ(recorder.logOf(drop("many"), i).reason, hasLog ? "many" : "Other reasons");
    }
    EXPECT_EQ(recorder.logs().size(), FrameRecorder::mostReasons + 1);
    EXPECT_LE(recorder.memoryBytes(), FrameRecorder::mostMemoryBytes());
    EXPECT_LE(FrameRecorder::mostMemoryBytes(), std::size_t{5} << 20U);
    EXPECT_EQ(&recorder.logOf(drop("no reason"), 1), &log);
}

TEST_F(FrameRecorderTest, NothingComesFromTheHeapOnceAReasonIsKnown) {
    record(100);
    const Bytes frame = join({eth(ethMpls), stack({{100}}), ipv4({}, udp())});
    const std::uint64_t before = TestSupport::heapAllocations;
    for (int i = 0; i < 5000; ++i) {
        recorder.record(recorder.logOf(drop("no reason"), 1),
                        Frame{2, {5 + i / 1000, 0}, frame, 64}, {});
    }
    EXPECT_EQ(TestSupport::heapAllocations - before, 0U);
}

TEST_F(FrameRecorderTest, NothingIsRecordedWhilePaused) {
    recorder.isPausedIs(true);
    record(100);
    recorder.isPausedIs(false);
    record(101);
    EXPECT_EQ(labelsKept(), (std::vector<std::uint32_t>{101}));
}

TEST_F(FrameRecorderTest, TakesOverEachFramesLabelOnce) {
    const Bytes frame = join({eth(ethMpls), stack({{7}}), ipv4({}, udp())});
    std::uint64_t all = 0;
    for (const std::uint64_t frames : {3U, 60U, 64U, 65U, 200U}) {
        FrameRecorder other;
        FrameRecorder::Log& theirs = other.logOf(drop("no reason"), 1);
        for (std::uint64_t i = 0; i < frames; ++i) {
            other.record(theirs, Frame{4, {5, 6}, frame, 99}, {});
        }
        recorder.absorb(other);
        all += frames;
        const auto labels = recorder.logOf(drop("no reason"), 1).topLabels(5);
        ASSERT_EQ(labels.size(), 1U);
        EXPECT_EQ(labels.front().count, all);
        EXPECT_EQ(labels.front().current, all);
    }
}

TEST_F(FrameRecorderTest, TakesOverWhatAnotherHasRecordedWhichStartsOver) {
    FrameRecorder other;
    FrameRecorder::Log& theirs = other.logOf(drop("no reason"), 1);
    FrameRecorder::Log& only = other.logOf(drop("another reason"), 2);
    const auto recordThere = [&](FrameRecorder::Log& to, std::uint32_t label) {
        const Bytes frame = join({eth(ethMpls), stack({{label}}), ipv4({}, udp())});
        other.record(to, Frame{4, {5, label}, frame, 99}, {});
    };
    record(17);
    for (std::uint32_t label = 100; label < 300; ++label) {
        recordThere(theirs, label);
    }
    recordThere(only, 18);
    recorder.absorb(other);
    EXPECT_EQ(log.frames(), 201U);
    EXPECT_EQ(log.byPort(), (std::vector<std::uint64_t>{0, 0, 1, 0, 200}));
    EXPECT_EQ(*topLabel(newest().bytes()), 299U);
    EXPECT_EQ(*topLabel(log.keptAt(0).bytes()), 17U);
    EXPECT_EQ(newest().sequence, recorder.sequence() - 1); // behind it the other reason's
    EXPECT_EQ(recorder.logOf(drop("another reason"), 2).frames(), 1U);
    EXPECT_EQ(theirs.frames(), 0U);
    EXPECT_EQ(theirs.kept(), 0U);
    recordThere(theirs, 400);
    recorder.absorb(other);
    EXPECT_EQ(log.frames(), 202U);
    EXPECT_EQ(*topLabel(newest().bytes()), 400U);
}

} // namespace FrameRecorderTest
