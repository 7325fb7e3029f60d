#include "Capture/CapturedLoopback.h"

#include "ForwarderTesting.h"

namespace CapturedLoopbackTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

const Bytes frame = join({eth(0x8139), filled(46, 0x5a)});

class CapturedLoopbackTest : public ::testing::Test {
  protected:
    static bool sendOn(std::string_view interfaceName, bool enabled = true) {
        const auto port = Lumo::rawTxPamFactory(interfaceName);
        port->enabledIs(enabled);
        port->ethProtocolIs(0x8139);
        return port->send(Lumo::globalPktManager()->newPkt(frame),
                          Lumo::if_nametoindexAt(interfaceName));
    }

    MemoryPort out;
    Frame cause;
    CapturedLoopback loopback{out, cause};
};

} // namespace

TEST_F(CapturedLoopbackTest, CapturesFramesSentOnLoAtTheTimeAndLengthOfTheirCause) {
    cause = {0, {5, 6}, frame, 60};
    EXPECT_TRUE(sendOn("lo"));
    cause = {0, {7, 8}, frame, 160}; // 100 bytes were not captured
    EXPECT_TRUE(sendOn("lo"));
    EXPECT_EQ(out.frames, (Frames{frame, frame}));
    EXPECT_EQ(out.times, (std::vector<CaptureTime>{{5, 6}, {7, 8}}));
    EXPECT_EQ(out.originalLengths, (std::vector<std::uint32_t>{60, 160}));
    EXPECT_EQ(loopback.sent(), (Traffic{2, 120}));
}

TEST_F(CapturedLoopbackTest, KnowsNoOtherInterface) {
    EXPECT_EQ(Lumo::if_nametoindexAt("eth0"), 0U);
    EXPECT_FALSE(sendOn("eth0"));
    EXPECT_TRUE(out.frames.empty());
}

TEST_F(CapturedLoopbackTest, ADisabledPortSendsNothing) {
    EXPECT_FALSE(sendOn("lo", false));
    EXPECT_TRUE(out.frames.empty());
    EXPECT_EQ(loopback.sent(), Traffic());
}

TEST(CapturedLoopback, IsInstalledOnlyWhileItExists) {
    const Lumo::RawTxBackend& kernel = Lumo::RawTxBackend::current();
    {
        MemoryPort out;
        const Frame cause;
        const CapturedLoopback loopback(out, cause);
        EXPECT_EQ(&Lumo::RawTxBackend::current(), &loopback);
    }
    EXPECT_EQ(&Lumo::RawTxBackend::current(), &kernel);
}

} // namespace CapturedLoopbackTest
