#include <filesystem>
#include <string>

#include "Capture/CaptureReader.h"
#include "CaptureTesting.h"
#include "SourceDir.h"

namespace RealCapturesTest {

using namespace OvixAgent;

namespace {

struct RealCapture {
    const char* file;
    std::size_t frames;
};

} // namespace

class RealCaptures : public ::testing::TestWithParam<RealCapture> {};

/// Captures of real traffic lie beside the source tree, not in it.
TEST_P(RealCaptures, AreReadToTheEnd) {
    const auto path = std::filesystem::path(TestSupport::sourceDir()) / ".." / "shared" /
                      "captures" / GetParam().file;
    if (!std::filesystem::exists(path)) {
        GTEST_SKIP() << "no captures of real traffic beside the source tree";
    }
    CaptureReader reader(0, path.string());
    std::size_t frames = 0;
    CaptureTime last;
    while (const Frame* const frame = reader.next()) {
        ++frames;
        EXPECT_GE(frame->bytes.size(), 14U);
        EXPECT_GE(frame->time, last);
        last = frame->time;
    }
    EXPECT_EQ(frames, GetParam().frames);
    EXPECT_EQ(reader.problem(), "");
}

INSTANTIATE_TEST_SUITE_P(All, RealCaptures,
                         ::testing::Values(RealCapture{"mixed-vlan-mpls.pcap", 47},
                                           RealCapture{"mpls-in-vlan.pcap", 3},
                                           RealCapture{"lsp-ping-ldp.pcap", 13}));

} // namespace RealCapturesTest
