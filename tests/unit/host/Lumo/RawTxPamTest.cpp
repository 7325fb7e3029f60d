#include "Lumo/RawTxPam.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>

#include "NetworkNamespace.h"
#include "RawTxCollector.h"

namespace RawTxPamTest {

namespace {

using TestSupport::LoopbackRun;
using TestSupport::onOwnLoopback;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint16_t experimental = 0x88b5; // IEEE 802: for local experiments

Bytes frameOf(std::size_t size) {
    Bytes frame(size);
    for (std::size_t i = 0; i < size; ++i) {
        frame[i] = static_cast<std::uint8_t>(i);
    }
    frame[12] = experimental >> 8U;
    frame[13] = experimental & 0xffU;
    return frame;
}

std::string textOf(bool sent) {
    return sent ? "sent " : "refused ";
}

std::ptrdiff_t openFiles() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

} // namespace

TEST(RawTxPam, AFrameComesOutOnTheInterfaceByteForByte) {
    const LoopbackRun run = onOwnLoopback(experimental, [] {
        const auto port = Lumo::rawTxPamFactory("lo");
        port->enabledIs(true);
        port->ethProtocolIs(experimental);
        const std::uint32_t index = Lumo::if_nametoindexAt("lo");
        std::string all = textOf(port->send(Lumo::globalPktManager()->newPkt(frameOf(14)), index));
        all += textOf(port->send(Lumo::globalPktManager()->newPkt(frameOf(9018)), index));
        return all;
    });
    if (!run.unavailable.empty()) {
        GTEST_SKIP() << run.unavailable;
    }
    EXPECT_EQ(run.said, "sent sent ");
    EXPECT_EQ(run.frames, (std::vector<Bytes>{frameOf(14), frameOf(9018)}));
}

TEST(RawTxPam, SendsOnlyWhileItIsEnabledAndOnlyOnAnInterfaceThatThereIs) {
    const LoopbackRun run = onOwnLoopback(experimental, [] {
        const auto port = Lumo::rawTxPamFactory("lo");
        port->ethProtocolIs(experimental);
        const auto frame = Lumo::globalPktManager()->newPkt(frameOf(60));
        const std::uint32_t index = Lumo::if_nametoindexAt("lo");
        std::string all = textOf(port->send(frame, index));
        port->enabledIs(true);
        port->enabledIs(true);
        all += textOf(port->send(frame, 0));
        all += textOf(port->send(frame, 4242));
        all += textOf(port->send(frame, index));
        port->enabledIs(false);
        all += textOf(port->send(frame, index));
        return all;
    });
    if (!run.unavailable.empty()) {
        GTEST_SKIP() << run.unavailable;
    }
    EXPECT_EQ(run.said, "refused refused refused sent refused ");
    EXPECT_EQ(run.frames, std::vector<Bytes>{frameOf(60)});
}

TEST(RawTxPam, ItsSocketIsGivenBackWithTheLastHandle) {
    const LoopbackRun run = onOwnLoopback(experimental, [] {
        const std::ptrdiff_t before = openFiles();
        auto port = Lumo::rawTxPamFactory("lo");
        port->enabledIs(true);
        std::string all = std::to_string(openFiles() - before);
        port.reset();
        return all + " " + std::to_string(openFiles() - before);
    });
    if (!run.unavailable.empty()) {
        GTEST_SKIP() << run.unavailable;
    }
    EXPECT_EQ(run.said, "1 0");
}

TEST(RawTxPam, InterfacesThatThereAreNotHaveNoIndex) {
    EXPECT_EQ(Lumo::if_nametoindexAt(""), 0U);
    EXPECT_EQ(Lumo::if_nametoindexAt("no-such"), 0U);
    EXPECT_EQ(Lumo::if_nametoindexAt("longer-than-any-interface"), 0U);
}

TEST(RawTxPam, AnotherBackendTakesThePlaceOfTheKernelsUntilItGoes) {
    const Lumo::RawTxBackend& kernel = Lumo::RawTxBackend::current();
    {
        TestSupport::RawTxCollector collector;
        EXPECT_EQ(&Lumo::RawTxBackend::current(), &collector);
        EXPECT_EQ(Lumo::if_nametoindexAt("lo"), collector.loopbackIndex);
        const auto port = Lumo::rawTxPamFactory("lo");
        port->enabledIs(true);
        EXPECT_TRUE(port->send(Lumo::globalPktManager()->newPkt(frameOf(20)), 7));
        ASSERT_EQ(collector.sent.size(), 1U);
        EXPECT_EQ(collector.sent[0].interfaceName, "lo");
        EXPECT_EQ(collector.sent[0].interfaceIndex, 7U);
        EXPECT_EQ(collector.sent[0].bytes, frameOf(20));
    }
    EXPECT_EQ(&Lumo::RawTxBackend::current(), &kernel);
}

} // namespace RawTxPamTest
