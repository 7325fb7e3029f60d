#include "Capture/CaptureWriter.h"

#include <span>

#include "Capture/CaptureReader.h"
#include "CaptureTesting.h"

namespace CaptureWriterTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

std::span<const std::uint8_t> bytesOf(const std::string& text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

} // namespace

using CaptureWriterTest = CaptureTest;

TEST_F(CaptureWriterTest, WritesWhatItWasGiven) {
    const std::string bytes = "some bytes";
    CaptureWriter writer(path("a.pcap"), TimePrecision::nanoseconds);
    writer.transmit({0, {100, 123'456'789}, bytesOf(bytes), 10});
    writer.transmit({0, {4'294'967'295, 999'999'999}, bytesOf(bytes).first(3), 1500});
    writer.close();
    EXPECT_EQ(writer.frames(), 2U);
    CaptureReader reader(0, path("a.pcap"));
    const Frame* frame = reader.next();
    EXPECT_EQ(frame->time, (CaptureTime{100, 123'456'789}));
    EXPECT_EQ(std::string(frame->bytes.begin(), frame->bytes.end()), bytes);
    EXPECT_EQ(frame->originalLength, 10U);
    frame = reader.next();
    EXPECT_EQ(frame->time.nanoseconds, 999'999'999U);
    EXPECT_EQ(frame->bytes.size(), 3U);
    EXPECT_EQ(frame->originalLength, 1500U);
    EXPECT_EQ(reader.next(), nullptr);
}

TEST_F(CaptureWriterTest, TheMagicNumberMatchesThePrecision) {
    const std::string bytes = "x";
    for (const auto precision : {TimePrecision::microseconds, TimePrecision::nanoseconds}) {
        CaptureWriter writer(path("a.pcap"), precision);
        writer.transmit({0, {1, 2000}, bytesOf(bytes), 1});
        writer.close();
        const bool isMicro = precision == TimePrecision::microseconds;
        EXPECT_EQ(contentOf(path("a.pcap")), field32(isMicro ? microsecondMagic : nanosecondMagic) +
                                                 field16(2) + field16(4) + field32(0) + field32(0) +
                                                 field32(262144) + field32(1) +
                                                 pcapRecord(1, isMicro ? 2 : 2000, "x"));
    }
}

TEST_F(CaptureWriterTest, ACaptureWithoutFramesIsValid) {
    CaptureWriter(path("a.pcap"), TimePrecision::microseconds).close();
    CaptureReader reader(0, path("a.pcap"));
    EXPECT_EQ(reader.next(), nullptr);
    EXPECT_EQ(reader.problem(), "");
}

TEST_F(CaptureWriterTest, NamesAFileThatCannotBeCreated) {
    const std::string bad = path("missing/a.pcap");
    EXPECT_EQ(captureError([&] { CaptureWriter(bad, TimePrecision::microseconds); }),
              bad + ": cannot be created: No such file or directory");
}

TEST_F(CaptureWriterTest, AFullDiskIsReportedAtOnceOrAtTheEnd) {
    const std::string full = path("full.pcap");
    std::filesystem::create_symlink("/dev/full", full);
    const std::string error = full + ": cannot be written: No space left on device";
    CaptureWriter small(full, TimePrecision::microseconds);
    EXPECT_EQ(captureError([&] { small.close(); }), error);

    const std::string bytes(1000, 'x');
    CaptureWriter large(full, TimePrecision::microseconds);
    EXPECT_EQ(captureError([&] {
                  for (int i = 0; i < 1000; ++i) {
                      large.transmit({0, {1, 0}, bytesOf(bytes), 1000});
                  }
              }),
              error);
    EXPECT_LT(large.frames(), 100U);
}

} // namespace CaptureWriterTest
