#include "State/Solicits.h"

#include <gtest/gtest.h>

namespace SolicitsTest {

using namespace OvixAgent;

namespace {

using namespace std::chrono_literals;
using By = Solicits::By;
using Verdict = Solicits::Verdict;

constexpr PortIndex east = 1;

Solicits::Neighbour host(std::uint32_t number) {
    const std::array<std::uint8_t, 4> bytes{10, static_cast<std::uint8_t>(number >> 16U),
                                            static_cast<std::uint8_t>(number >> 8U),
                                            static_cast<std::uint8_t>(number)};
    return {Lumo::IpGenAddr::ipv4(bytes.data()), east};
}

class SolicitsTest : public testing::Test {
  protected:
    SolicitsTest() { at(0ms); }

    void at(std::chrono::milliseconds time) {
        solicits.timeIs(Solicits::Clock::time_point(1h) + time);
    }
    Verdict want(std::uint32_t number, By by = By::packet, const char* source = "192.0.2.1",
                 PortIndex ingress = 0) {
        return solicits.want(host(number), by, ingress, Lumo::IpGenAddr::fromText(source));
    }
    /// How many of so many new hosts, asked for one at a time, are solicited.
    std::size_t solicited(std::uint32_t first, std::uint32_t count,
                          const std::function<std::string(std::uint32_t)>& sourceOf) {
        std::size_t all = 0;
        for (std::uint32_t i = first; i < first + count; ++i) {
            want(i, By::packet, sourceOf(i).c_str());
            all += solicits.take().size();
        }
        return all;
    }

    Solicits solicits{2, 1};
};

} // namespace

TEST_F(SolicitsTest, EachIsToldOnceASecond) {
    EXPECT_TRUE(solicits.take().empty());
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(want(7), Verdict::waits);
        EXPECT_EQ(want(8, By::route), Verdict::waits);
    }
    const auto taken = solicits.take();
    EXPECT_EQ(std::vector<Solicits::Neighbour>(taken.begin(), taken.end()),
              (std::vector<Solicits::Neighbour>{host(8), host(7)})); // the route's first
    at(999ms);
    EXPECT_EQ(want(7), Verdict::waits);
    EXPECT_TRUE(solicits.take().empty());
    at(1s);
    EXPECT_EQ(want(7), Verdict::waits);
    EXPECT_EQ(solicits.take().size(), 1U);
}

TEST_F(SolicitsTest, ASenderHasSoManyASecond) {
    const auto same = [](auto) { return "192.0.2.1"; };
    EXPECT_EQ(solicited(0, 1000, same), Solicits::perSender.burst);
    EXPECT_EQ(want(5000, By::packet, "192.0.2.200"), Verdict::refused); // the same network
    EXPECT_EQ(want(5000, By::packet, "192.0.3.1"), Verdict::waits);
    EXPECT_EQ(want(5001, By::packet, "192.0.2.1", east), Verdict::waits); // another port's
    EXPECT_EQ(solicits.take().size(), 2U);
    at(1s);
    EXPECT_EQ(solicited(1000, 1000, same), Solicits::perSender.perSecond);
}

TEST_F(SolicitsTest, APortHasSoManyASecond) {
    const auto any = [](std::uint32_t i) {
        return "20." + std::to_string(i / 256 % 256) + '.' + std::to_string(i % 256) + ".1";
    };
    EXPECT_EQ(solicited(0, 5000, any), Solicits::perPort.burst);
    at(1s);
    EXPECT_EQ(solicited(5000, 5000, any), Solicits::perPort.perSecond);
    Solicits::Neighbour west = host(1);
    west.port = 0;
    EXPECT_EQ(solicits.want(west, By::packet, 0, Lumo::IpGenAddr::fromText("20.1.1.1")),
              Verdict::waits);
}

TEST_F(SolicitsTest, NextHopsAndWhoHasAnsweredAreNotLimited) {
    solicits.isKnown(host(70000));
    solicited(0, 1000, [](auto) { return "192.0.2.1"; });
    EXPECT_EQ(want(70000), Verdict::waits);
    EXPECT_EQ(want(70001), Verdict::refused);
    std::size_t all = solicits.take().size();
    EXPECT_EQ(all, 1U);
    for (std::uint32_t i = 0; i < 500; ++i) {
        EXPECT_EQ(want(100'000 + i, By::route), Verdict::waits);
        all += solicits.take().size();
    }
    EXPECT_EQ(all, 501U);
}

TEST_F(SolicitsTest, AFailureHoldsForAWhile) {
    for (const By by : {By::packet, By::route}) {
        const std::uint32_t number = by == By::packet ? 1 : 2;
        at(0ms);
        want(number, by);
        solicits.hasFailed(host(number));
        const auto end = by == By::packet ? Solicits::ofPacket : Solicits::ofRoute;
        at(end - 1ms);
        EXPECT_EQ(want(number, by), Verdict::failed);
        at(end);
        EXPECT_EQ(want(number, by), Verdict::waits);
    }
    solicits.hasFailed(host(3));
    solicits.isKnown(host(3));
    EXPECT_EQ(want(3), Verdict::waits);
}

TEST_F(SolicitsTest, BeyondTheFirstFewAtOnceOthersComeLater) {
    for (std::uint32_t i = 0; i < 100; ++i) {
        EXPECT_EQ(want(i, By::route), Verdict::waits);
    }
    EXPECT_EQ(solicits.take().size(), 32U);
    EXPECT_EQ(want(99, By::route), Verdict::waits);
    EXPECT_EQ(solicits.take().size(), 1U);
}

TEST_F(SolicitsTest, OneThatHasAnsweredAndIsForgottenIsAskedAtOnce) {
    want(7);
    solicits.take();
    solicits.isKnown(host(7));
    at(10ms);
    EXPECT_EQ(want(7), Verdict::waits);
    EXPECT_EQ(solicits.take().size(), 1U);
}

} // namespace SolicitsTest
