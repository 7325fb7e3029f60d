#include <array>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <set>

#include "FrameBytes.h"
#include "Live/ports/PacketPort.h"
#include "QueuesTesting.h"

namespace PacketQueuesTest {

namespace {

using namespace LiveTesting;
using namespace TestSupport::Raw;
using LiveTesting::Bytes;
using OvixAgent::PacketIntake;
using OvixAgent::PacketPort;
using TestSupport::ip;

constexpr std::uint32_t queues = 4;
constexpr std::uint32_t flows = 1000;

/// To the right, behind these tags and EtherTypes.
Bytes behind(std::initializer_list<std::uint16_t> fields, const Bytes& rest) {
    return join({toRight(fields, 0, 0), rest});
}

Bytes udpPacket(std::uint32_t destination, std::uint16_t port = 9) {
    return ipv4({.destination = destination}, udp(1024, port));
}

/// The frames of all flows: `frame(i)` is that of the i-th.
template <typename Make>
std::vector<Bytes> eachFlow(Make frame) {
    std::vector<Bytes> all;
    for (std::uint32_t i = 0; i < flows; ++i) {
        all.push_back(frame(i));
    }
    return all;
}

class PacketQueuesTest : public TestSupport::OwnNetwork {
  protected:
    void SetUp() override {
        OwnNetwork::SetUp();
        if (!IsSkipped()) {
            left.emplace(0, "left", PacketIntake::labelled);
            openRight(PacketIntake::labelledAndIp);
        }
    }
    void openRight(PacketIntake intake) {
        right.reset();
        right.emplace(std::make_unique<PacketPort>(1, "right", intake, queues), queues);
        ASSERT_TRUE(right->port->isOpen()) << right->port->problem();
        for (const auto& queue : right->queues) {
            ASSERT_TRUE(queue->isOpen()) << queue->problem();
        }
    }
    /// Each frame must come to one queue, once.
    void pass(const std::vector<Bytes>& frames) {
        right->came.clear();
        for (const Bytes& frame : frames) {
            transmit(*left, frame);
        }
        left->flush();
        right->receive(frames.size());
        std::vector<Bytes> all;
        for (const auto& some : right->came) {
            all.insert(all.end(), some.begin(), some.end());
        }
        std::vector<Bytes> expected = frames;
        std::sort(all.begin(), all.end());
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(all.size(), expected.size());
        EXPECT_TRUE(all == expected);
    }
    /// The queues to which frames have come.
    std::size_t used() const {
        std::size_t count = 0;
        for (const std::size_t share : right->shares()) {
            count += share > 0 ? 1 : 0;
        }
        return count;
    }
    /// Passes variants of frames of one flow after the other: those of each must come to one queue.
    template <typename Variants>
    void expectTogether(Variants variants) {
        std::set<std::size_t> seen;
        for (std::uint32_t flow = 0; flow < 16; ++flow) {
            pass(variants(flow));
            EXPECT_EQ(used(), 1U) << "flow " << flow;
            for (std::size_t i = 0; i < queues; ++i) {
                if (!right->came[i].empty()) {
                    seen.insert(i);
                }
            }
        }
        EXPECT_GT(seen.size(), 1U) << "all flows came to one queue";
    }

    std::optional<PacketPort> left;
    std::optional<QueuedPort> right;
};

} // namespace

TEST_F(PacketQueuesTest, FlowsThatDifferInTheInnerIpHeaderSpread) {
    const Bytes labels = stack({{100}});
    pass(eachFlow([&](std::uint32_t i) {
        return behind({ethMpls}, join({labels, udpPacket(0x0a000000 + i)}));
    }));
    EXPECT_TRUE(isEven(*right));
    pass(eachFlow([&](std::uint32_t i) {
        return behind({ethMpls},
                      join({labels, udpPacket(0x0a000000, static_cast<std::uint16_t>(i))}));
    }));
    EXPECT_TRUE(isEven(*right));
    pass(eachFlow([&](std::uint32_t i) {
        return behind({ethMpls}, join({labels, ipv6({.flowLabel = i + 1}, udp())}));
    }));
    EXPECT_TRUE(isEven(*right));
    pass(eachFlow([&](std::uint32_t i) {
        return behind({ethMpls}, join({labels, ipv6({}, udp(static_cast<std::uint16_t>(i), 9))}));
    }));
    EXPECT_TRUE(isEven(*right));
}

TEST_F(PacketQueuesTest, FlowsThatDifferInAnInnerLabelSpread) {
    for (const std::size_t above : std::array<std::size_t, 4>{0, 1, 5, 15}) {
        pass(eachFlow([&](std::uint32_t i) {
            std::vector<Entry> labels(above, {100});
            labels.push_back({1000 + i});
            labels.push_back({200});
            return behind({ethMpls}, join({stack(labels), filled(40, 0)}));
        }));
        EXPECT_TRUE(isEven(*right)) << above;
    }
    pass(eachFlow([&](std::uint32_t i) { // an entropy label behind its indicator (RFC 6790)
        return behind({ethMpls}, join({stack({{100}, {7}, {1000 + i}}), filled(40, 0)}));
    }));
    EXPECT_TRUE(isEven(*right));
}

TEST_F(PacketQueuesTest, OfADeepStackTheFirstLabelsDecide) {
    expectTogether([](std::uint32_t flow) {
        std::vector<Bytes> frames;
        for (std::uint32_t i = 0; i < 8; ++i) {
            std::vector<Entry> labels(19, {100 + flow});
            labels.push_back({500 + i});
            frames.push_back(behind({ethMpls}, join({stack(labels), udpPacket(i)})));
        }
        return frames;
    });
}

TEST_F(PacketQueuesTest, WhatDiffersWithinAFlowDecidesNothing) {
    expectTogether([](std::uint32_t flow) {
        std::vector<Bytes> frames;
        for (std::uint8_t i = 0; i < 8; ++i) {
            const Bytes packet = ipv4({.destination = flow,
                                       .ttl = static_cast<std::uint8_t>(40 + i),
                                       .tos = i,
                                       .ident = i,
                                       .options = filled(std::size_t{i} % 4 * 4, 1)},
                                      udp(1, 2, filled(i, i)));
            const auto ttl = static_cast<std::uint8_t>(60 + i);
            frames.push_back(
                behind({ethMpls}, join({stack({{100, i, ttl}, {200, i, ttl}}), packet})));
        }
        return frames;
    });
}

TEST_F(PacketQueuesTest, FragmentsStayTogether) {
    expectTogether([](std::uint32_t flow) {
        std::vector<Bytes> frames;
        constexpr std::uint16_t more = 0x2000;
        for (const std::uint16_t fragment :
             {std::uint16_t{more}, std::uint16_t{more | 5}, std::uint16_t{9}}) {
            for (const std::uint32_t payload : {1U, 2U, 3U}) { // which only the first has ports in
                frames.push_back(behind(
                    {ethMpls}, join({stack({{100}}),
                                     ipv4({.destination = flow, .fragment = fragment, .ident = 7},
                                          udp(static_cast<std::uint16_t>(payload), 2))})));
            }
        }
        return frames;
    });
    expectTogether([](std::uint32_t flow) {
        std::vector<Bytes> frames;
        for (const std::uint32_t payload : {1U, 2U, 3U, 4U}) {
            const Bytes extension = join({{protocolUdp, 0}, u16(payload * 8), u32(7)});
            const Bytes packet =
                ipv6({.destination = static_cast<std::uint8_t>(flow), .nextHeader = 44},
                     join({extension, filled(16, static_cast<std::uint8_t>(payload))}));
            frames.push_back(behind({ethMpls}, join({stack({{100}}), packet})));
        }
        return frames;
    });
}

TEST_F(PacketQueuesTest, TagsAreNoLabels) {
    const Bytes labelled = join({stack({{100}}), udpPacket(0)});
    const std::vector<std::vector<std::uint16_t>> tags{
        {ethVlan, 5}, {ethServiceVlan, 5}, {ethLegacyVlan, 5}, {ethServiceVlan, 5, ethVlan, 6}};
    for (const auto& fields : tags) {
        Bytes front = toRight({}, 0, 0);
        for (const std::uint16_t field : fields) {
            front = join({front, u16(field)});
        }
        front = join({front, u16(ethMpls)});
        pass(eachFlow([&](std::uint32_t i) {
            return join({front, stack({{100}, {1000 + i}}), udpPacket(0)});
        }));
        EXPECT_TRUE(isEven(*right));
        pass(eachFlow([&](std::uint32_t i) {
            return join({front, stack({{100}}), udpPacket(0x0a000000 + i)});
        }));
        EXPECT_TRUE(isEven(*right));
    }
    expectTogether([&](std::uint32_t flow) { // priorities
        std::vector<Bytes> frames;
        for (std::uint32_t i = 0; i < 8; ++i) {
            frames.push_back(behind({ethVlan, static_cast<std::uint16_t>(i << 13U | flow), ethVlan,
                                     static_cast<std::uint16_t>(i << 13U | 7U), ethMpls},
                                    labelled));
        }
        return frames;
    });
}

TEST_F(PacketQueuesTest, FramesWithoutLabelsSpread) {
    pass(eachFlow([](std::uint32_t i) { return behind({ethIpv4}, udpPacket(0x0a000000 + i)); }));
    EXPECT_TRUE(isEven(*right));
    pass(eachFlow([](std::uint32_t i) {
        return behind({ethVlan, 5, ethIpv6}, ipv6({.flowLabel = i + 1}, udp()));
    }));
    EXPECT_TRUE(isEven(*right));
    openRight(PacketIntake::everything);
    pass(eachFlow([](std::uint32_t i) {
        Bytes frame = frameOf(leftStation, otherStation, {0x88cc});
        frame[10] = static_cast<std::uint8_t>(i >> 8U);
        frame[11] = static_cast<std::uint8_t>(i);
        return frame;
    }));
    EXPECT_TRUE(isEven(*right));
}

TEST_F(PacketQueuesTest, FramesThatEndEarlyComeOnce) {
    const Bytes whole = join({stack({{100}, {200}}), udpPacket(0x0a000001)});
    const Bytes six = join({stack({{100}}), ipv6({}, udp())});
    std::vector<Bytes> frames;
    for (const Bytes& bytes : {whole, six}) {
        for (std::size_t length = 0; length <= bytes.size(); ++length) {
            frames.push_back(behind(
                {ethMpls}, {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length)}));
        }
    }
    for (std::uint8_t words = 0; words < 16; ++words) { // IPv4 header lengths
        Bytes packet = udpPacket(words);
        packet[0] = static_cast<std::uint8_t>(0x40U | words);
        frames.push_back(behind({ethMpls}, join({stack({{100}}), packet})));
    }
    for (std::size_t depth = 1; depth < 40; ++depth) { // stacks without a bottom
        Bytes labels;
        for (std::size_t i = 0; i < depth; ++i) {
            labels = join({labels, entry({100}, false)});
        }
        frames.push_back(behind({ethMpls}, labels));
    }
    pass(frames);
}

TEST_F(PacketQueuesTest, FramesOfAFlowKeepTheirOrder) {
    std::vector<Bytes> frames;
    for (std::uint32_t i = 0; i < 3000; ++i) {
        frames.push_back(behind({ethMpls}, join({stack({{100}}), ipv4({.destination = i % 10},
                                                                      join({udp(), u32(i)}))})));
    }
    pass(frames);
    for (const auto& some : right->came) {
        std::map<Bytes, Bytes> last; // by the header
        for (const Bytes& frame : some) {
            const Bytes flow(frame.begin() + 34, frame.begin() + 38);
            const Bytes number(frame.end() - 4, frame.end());
            EXPECT_LT(last[flow], number);
            last[flow] = number;
        }
    }
}

TEST_F(PacketQueuesTest, AQueueThatIsOpenedAgainJoinsTheOthers) {
    const auto all = eachFlow([](std::uint32_t i) {
        return behind({ethMpls}, join({stack({{100}}), udpPacket(i)}));
    });
    EXPECT_TRUE(right->queues[2]->reopen());
    pass(all);
    EXPECT_TRUE(isEven(*right));
    right->queues[0].reset();
    right->queues[0] = right->port->queue(0);
    pass(all);
    EXPECT_TRUE(isEven(*right));
    for (auto& queue : right->queues) { // the last of which ends the group
        queue.reset();
    }
    for (std::uint32_t i = 0; i < queues; ++i) {
        right->queues[i] = right->port->queue(i);
    }
    pass(all);
    EXPECT_TRUE(isEven(*right));
}

TEST_F(PacketQueuesTest, OtherPortsHaveGroupsOfTheirOwn) {
    ip("link add other type veth peer name another && ip link set other up");
    const QueuedPort other(std::make_unique<PacketPort>(2, "other", PacketIntake::labelled, 2), 2);
    for (const auto& queue : other.queues) {
        EXPECT_TRUE(queue->isOpen()) << queue->problem();
    }
    pass(eachFlow([](std::uint32_t i) {
        return behind({ethMpls}, join({stack({{100}}), udpPacket(i)}));
    }));
    EXPECT_TRUE(isEven(*right));
}

TEST_F(PacketQueuesTest, QueuesCloseWithThePortsInterface) {
    ip("link del right");
    right->port->receive(each([](const auto&) {}), 1);
    EXPECT_EQ(right->port->problem(), "right: the interface was removed");
    right->look();
    for (const auto& queue : right->queues) {
        EXPECT_FALSE(queue->isOpen() || queue->reopen());
    }
}

TEST_F(PacketQueuesTest, QueuesFollowThePortToTheInterfacesSuccessor) {
    ip("link del right");
    right->port->receive(each([](const auto&) {}), 1);
    right->look();
    addLinks();
    EXPECT_TRUE(right->port->reopen() && left->reopen());
    right->look();
    pass(eachFlow([](std::uint32_t i) {
        return behind({ethMpls}, join({stack({{100}}), udpPacket(i)}));
    }));
    EXPECT_TRUE(isEven(*right));
    send(*right->queues[3], toLeft({ethMpls}, 1));
    send(*right->port, toLeft({ethMpls}, 2));
    EXPECT_EQ(receiveUpTo(*left, toLeft({ethMpls}, 2)).size(), 2U);
}

TEST_F(PacketQueuesTest, QueuesFollowThePortsIntake) {
    const std::vector<Bytes> frames(3, frameOf(leftStation, otherStation, {0x0806}, 1));
    right->port->intakeIs(PacketIntake::everything);
    EXPECT_EQ(right->port->warning(), "");
    right->look();
    pass(frames);
    send(*right->queues[1], toLeft({ethMpls}, 1)); // past the guard
    send(*right->port, toLeft({ethMpls}, 2));
    EXPECT_EQ(receiveUpTo(*left, toLeft({ethMpls}, 2)).size(), 2U);
    right->port->intakeIs(PacketIntake::labelled);
    right->look();
    transmit(*left, frames.front());
    pass({toRight({ethMpls}, 1)});
}

TEST_F(PacketQueuesTest, DoNotReceiveFramesOfTheHost) {
    openRight(PacketIntake::everything);
    send(*right->port, toLeft({ethMpls}, 1));
    send(*right->queues[0], toLeft({ethMpls}, 2));
    PacketPort other(1, "right", PacketIntake::labelled);
    send(other, toLeft({ethMpls}, 3));
    pass({toRight({ethMpls}, 4)});
}

TEST_F(PacketQueuesTest, AfterTheStopNothingComes) {
    for (const auto& queue : right->queues) {
        queue->stopIntake();
    }
    send(*left, toRight({ethMpls}, 1));
    right->receive(0);
    EXPECT_EQ(right->total(), 0U);
}

} // namespace PacketQueuesTest
