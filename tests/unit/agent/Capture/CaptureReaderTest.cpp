#include "Capture/CaptureReader.h"

#include <algorithm>
#include <sys/stat.h>
#include <thread>

#include "CaptureTesting.h"

namespace CaptureReaderTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

std::string text(const Frame& frame) {
    return {frame.bytes.begin(), frame.bytes.end()};
}

std::string byteSwapped(const std::string& words) {
    std::string result = words;
    for (std::size_t i = 0; i + 4 <= result.size(); i += 4) {
        std::reverse(result.begin() + static_cast<std::ptrdiff_t>(i),
                     result.begin() + static_cast<std::ptrdiff_t>(i + 4));
    }
    return result;
}

std::size_t countFrames(CaptureReader& reader) {
    std::size_t frames = 0;
    while (reader.next() != nullptr) {
        ++frames;
    }
    return frames;
}

} // namespace

using CaptureReaderTest = CaptureTest;

TEST_F(CaptureReaderTest, ReadsMicroseconds) {
    CaptureReader reader(7, file("a.pcap", pcapHeader(microsecondMagic) +
                                               pcapRecord(100, 999'999, "first") +
                                               pcapRecord(101, 0, "second", 1500)));
    EXPECT_TRUE(reader.hasMicroseconds());
    const Frame* frame = reader.next();
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->port, 7U);
    EXPECT_EQ(frame->time, (CaptureTime{100, 999'999'000}));
    EXPECT_EQ(text(*frame), "first");
    EXPECT_EQ(frame->originalLength, 5U);
    frame = reader.next();
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(text(*frame), "second");
    EXPECT_EQ(frame->originalLength, 1500U);
    EXPECT_EQ(reader.next(), nullptr);
    EXPECT_EQ(reader.next(), nullptr);
    EXPECT_EQ(reader.problem(), "");
}

TEST_F(CaptureReaderTest, ReadsNanoseconds) {
    CaptureReader reader(
        0, file("a.pcap", pcapHeader(nanosecondMagic) + pcapRecord(100, 999'999'999, "x")));
    EXPECT_FALSE(reader.hasMicroseconds());
    EXPECT_EQ(reader.next()->time, (CaptureTime{100, 999'999'999}));
}

TEST_F(CaptureReaderTest, ReadsTheOtherByteOrder) {
    // The version is two halves of one word, which swap places with their bytes.
    const std::string header = field32(microsecondMagic) + field16(4) + field16(2) + field32(0) +
                               field32(0) + field32(65535) + field32(1);
    CaptureReader reader(0, file("a.pcap", byteSwapped(header) + byteSwapped(pcapRecord(5, 6, "")) +
                                               byteSwapped(pcapRecord(7, 8, "").substr(0, 8) +
                                                           field32(2) + field32(2)) +
                                               "ab"));
    EXPECT_TRUE(reader.hasMicroseconds());
    EXPECT_EQ(reader.next()->time, (CaptureTime{5, 6000}));
    EXPECT_EQ(text(*reader.next()), "ab");
}

TEST_F(CaptureReaderTest, ReadsPcapngOfAnyResolution) {
    CaptureReader reader(0, file("a.pcapng", pcapngSection() + pcapngInterface(1, 6) +
                                                 pcapngInterface(1, 9) +
                                                 pcapngPacket(0, 1'000'002, "micro") +
                                                 pcapngPacket(1, 1'000'000'003, "nanos")));
    EXPECT_FALSE(reader.hasMicroseconds());
    const Frame* frame = reader.next();
    EXPECT_EQ(frame->time, (CaptureTime{1, 2000}));
    EXPECT_EQ(text(*frame), "micro");
    frame = reader.next();
    EXPECT_EQ(frame->time, (CaptureTime{1, 3}));
    EXPECT_EQ(text(*frame), "nanos");
    EXPECT_EQ(reader.next(), nullptr);
    EXPECT_EQ(reader.problem(), "");
}

TEST_F(CaptureReaderTest, AnEmptyCaptureHasNoFrames) {
    CaptureReader reader(0, file("a.pcap", pcapHeader(microsecondMagic)));
    EXPECT_EQ(reader.next(), nullptr);
    EXPECT_EQ(reader.problem(), "");
}

TEST_F(CaptureReaderTest, RefusesFilesThatAreNotCaptures) {
    const auto errorOf = [](const std::string& path) {
        return captureError([&] { CaptureReader(0, path); });
    };
    EXPECT_EQ(errorOf(path("none.pcap")),
              path("none.pcap") + ": cannot be opened: No such file or directory");
    const std::string noCapture = ": is not a pcap or pcapng capture: ";
    for (const std::string& content :
         {std::string(), std::string("text that is no capture at all"), std::string("\xd4\xc3"),
          pcapHeader(microsecondMagic).substr(0, 10), pcapngSection().substr(0, 20),
          pcapngSection()}) {
        const std::string bad = file("bad", content);
        EXPECT_EQ(errorOf(bad).substr(0, (bad + noCapture).size()), bad + noCapture);
    }
    EXPECT_EQ(errorOf(directory_.string()).substr(0, (directory_.string() + noCapture).size()),
              directory_.string() + noCapture);
}

TEST_F(CaptureReaderTest, RefusesOtherLinkTypesByName) {
    const std::pair<std::uint32_t, const char*> cases[]{
        {113, "LINUX_SLL (Linux cooked v1)"},
        {101, "RAW (Raw IP)"},
        {9, "PPP (PPP)"},
        {60'000, "60000 (unknown)"},
    };
    for (const auto& [linkType, name] : cases) {
        const std::string bad = file("bad", pcapHeader(microsecondMagic, linkType));
        EXPECT_EQ(captureError([&] { CaptureReader(0, bad); }),
                  bad + ": link type " + name + " is not Ethernet");
        const std::string ng =
            file("ng", pcapngSection() + pcapngInterface(static_cast<std::uint16_t>(linkType), 6));
        EXPECT_EQ(captureError([&] { CaptureReader(0, ng); }),
                  ng + ": link type " + name + " is not Ethernet");
    }
}

TEST_F(CaptureReaderTest, ReadsTheWholeFramesOfATruncatedPcap) {
    const std::string header = pcapHeader(microsecondMagic);
    const std::string first = pcapRecord(1, 0, "first frame");
    const std::string second = pcapRecord(2, 0, "second frame");
    const std::string whole = header + first + second;
    for (std::size_t size = header.size(); size <= whole.size(); ++size) {
        const std::string cut = file("cut", whole.substr(0, size));
        const bool atEdge =
            size == header.size() || size == (header + first).size() || size == whole.size();
        const std::size_t frames =
            (size >= (header + first).size() ? 1U : 0U) + (size == whole.size() ? 1U : 0U);
        CaptureReader reader(0, cut);
        EXPECT_EQ(countFrames(reader), frames) << size;
        EXPECT_EQ(reader.next(), nullptr);
        EXPECT_EQ(reader.problem(),
                  atEdge ? "" : cut + " is truncated after frame " + std::to_string(frames))
            << size;
    }
}

TEST_F(CaptureReaderTest, ReadsTheWholeFramesOfATruncatedPcapng) {
    const std::string header = pcapngSection() + pcapngInterface(1, 6);
    const std::string packet = pcapngPacket(0, 1, "frame");
    for (std::size_t size = 1; size < packet.size(); ++size) {
        const std::string cut = file("cut", header + packet + packet.substr(0, size));
        CaptureReader reader(0, cut);
        EXPECT_EQ(countFrames(reader), 1U) << size;
        EXPECT_EQ(reader.problem(), cut + " is truncated after frame 1") << size;
    }
}

TEST_F(CaptureReaderTest, DamageInTheMiddleIsReportedAfterTheFramesBeforeIt) {
    const std::string damaged =
        file("a.pcap", pcapHeader(microsecondMagic) + pcapRecord(1, 0, "frame") + field32(2) +
                           field32(0) + field32(0x7fffffff) + field32(0x7fffffff) +
                           std::string(1000, 'x'));
    CaptureReader reader(0, damaged);
    EXPECT_EQ(countFrames(reader), 1U);
    const std::string problem = damaged + " cannot be read beyond frame 1: ";
    EXPECT_EQ(reader.problem().substr(0, problem.size()), problem);
    EXPECT_GT(reader.problem().size(), problem.size());
}

TEST_F(CaptureReaderTest, ASecondLinkTypeInAPcapngEndsTheReading) {
    const std::string mixed =
        file("a.pcapng", pcapngSection() + pcapngInterface(1, 6) + pcapngPacket(0, 1, "frame") +
                             pcapngInterface(101, 6) + pcapngPacket(1, 2, "other"));
    CaptureReader reader(0, mixed);
    EXPECT_EQ(countFrames(reader), 1U);
    EXPECT_EQ(reader.problem(), mixed + " cannot be read beyond frame 1: an interface has a type "
                                        "101 different from the type of the first interface");
}

TEST_F(CaptureReaderTest, FractionsBeyondASecondCarryOver) {
    CaptureReader reader(0, file("a.pcap", pcapHeader(microsecondMagic) +
                                               pcapRecord(10, 2'500'000, "late") +
                                               pcapRecord(10, ~std::uint32_t{0}, "early")));
    EXPECT_EQ(reader.next()->time, (CaptureTime{12, 500'000'000}));
    EXPECT_LT(reader.next()->time.nanoseconds, 1'000'000'000U);
}

TEST_F(CaptureReaderTest, AFrameIsNeverShorterOnTheWireThanCaptured) {
    CaptureReader reader(
        0, file("a.pcap", pcapHeader(microsecondMagic) + pcapRecord(1, 0, "frame", 2)));
    const Frame* const frame = reader.next();
    EXPECT_EQ(frame->bytes.size(), 5U);
    EXPECT_EQ(frame->originalLength, 5U);
}

TEST_F(CaptureReaderTest, ReportsItsReadPosition) {
    const std::string name =
        file("a.pcap", pcapHeader(microsecondMagic) + pcapRecord(1, 0, std::string(60, 'x')));
    CaptureReader reader(0, name);
    EXPECT_EQ(reader.sizeBytes(), 24U + 16 + 60);
    EXPECT_EQ(reader.readBytes(), 24U);
    reader.next();
    EXPECT_EQ(reader.readBytes(), reader.sizeBytes());
}

TEST_F(CaptureReaderTest, ReadsFromAPipe) {
    const std::string pipe = path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::thread writer([&] {
        std::ofstream(pipe, std::ios::binary)
            << pcapHeader(microsecondMagic) << pcapRecord(3, 4, "frame");
    });
    CaptureReader reader(0, pipe);
    EXPECT_EQ(reader.sizeBytes(), 0U);
    EXPECT_EQ(text(*reader.next()), "frame");
    EXPECT_EQ(reader.next(), nullptr);
    writer.join();
}

} // namespace CaptureReaderTest
