#include "Lumo/Pkt.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

#include "Tessel/Exceptions.h"

namespace PktTest {

using namespace Lumo;

namespace {

/// Bytes that differ from their neighbours, so that a shift shows.
std::vector<std::uint8_t> pattern(std::size_t size) {
    std::vector<std::uint8_t> bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
    }
    return bytes;
}

bool holds(const Pkt& packet, std::size_t offset, const std::vector<std::uint8_t>& expected) {
    const auto bytes = packet.offsetFront(offset);
    return std::equal(bytes.begin(), bytes.end(), expected.begin(), expected.end());
}

class PktTest : public ::testing::Test {
  protected:
    Ptr<PktManager> manager = Tessel::make<PktManager>();
};

} // namespace

TEST_F(PktTest, ANewPacketIsEmpty) {
    const auto packet = manager->newPkt();
    EXPECT_EQ(packet->bytes(), 0U);
    EXPECT_EQ(packet->headroom(), 0U);
    EXPECT_TRUE(packet->data().empty());
    EXPECT_FALSE(packet->popFront(1));
    EXPECT_TRUE(packet->popFront(0));
    EXPECT_EQ(manager->buffersFromHeap(), 0U);
}

TEST_F(PktTest, HoldsEverySizeThereIs) {
    for (const std::size_t size : {0U, 1U, 60U, 2048U, 2049U, 9000U, 16384U, 16385U, 65535U}) {
        const std::vector<std::uint8_t> bytes = pattern(size);
        const auto packet = manager->newPkt(bytes);
        EXPECT_EQ(packet->bytes(), size);
        EXPECT_EQ(packet->headroom(), Pkt::defaultHeadroom);
        EXPECT_TRUE(holds(*packet, 0, bytes)) << size;
        std::fill(packet->writableData().begin(), packet->writableData().end(), std::uint8_t{0xff});
    }
}

TEST_F(PktTest, RefusesMoreThanTheLongestFrame) {
    const auto packet = manager->newPkt(pattern(3));
    EXPECT_THROW(packet->newSharedHeadData(65536), Tessel::RangeError);
    EXPECT_THROW(packet->newSharedHeadData(~std::size_t{0}), Tessel::RangeError);
    EXPECT_TRUE(holds(*packet, 0, pattern(3)));
    EXPECT_THROW(manager->newPkt(pattern(65536)), Tessel::RangeError);
}

TEST_F(PktTest, FreshDataReplacesTheOldInASmallerOrLargerBuffer) {
    const auto packet = manager->newPkt(pattern(100));
    for (const std::size_t size : {65535U, 0U, 100U, 3000U}) {
        const std::span<std::uint8_t> fresh = packet->newSharedHeadData(size);
        ASSERT_EQ(fresh.size(), size);
        std::fill(fresh.begin(), fresh.end(), std::uint8_t{0x5a});
        EXPECT_TRUE(holds(*packet, 0, std::vector<std::uint8_t>(size, 0x5a)));
        EXPECT_EQ(packet->headroom(), Pkt::defaultHeadroom);
    }
}

TEST_F(PktTest, FreshDataStartsOnACacheLine) {
    for (const std::size_t size : {60U, 9000U, 65535U}) {
        const auto packet = manager->newPkt(pattern(size));
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(packet->data().data()) % 64, 0U);
    }
}

TEST_F(PktTest, OffsetsBeyondTheEndAreEmpty) {
    const auto packet = manager->newPkt(pattern(10));
    EXPECT_EQ(packet->offsetFront(0).size(), 10U);
    EXPECT_EQ(packet->offsetFront(4)[0], pattern(10)[4]);
    EXPECT_TRUE(packet->offsetFront(10).empty());
    EXPECT_TRUE(packet->offsetFront(11).empty());
    EXPECT_TRUE(packet->offsetFront(~std::size_t{0}).empty());
    EXPECT_EQ(packet->offsetBytes(4), 6U);
    EXPECT_EQ(packet->offsetBytes(10), 0U);
    EXPECT_EQ(packet->offsetBytes(11), 0U);
}

TEST_F(PktTest, PopsNoMoreThanThereIs) {
    const auto packet = manager->newPkt(pattern(10));
    EXPECT_FALSE(packet->popFront(11));
    EXPECT_FALSE(packet->popFront(~std::size_t{0}));
    EXPECT_EQ(packet->bytes(), 10U);
    EXPECT_TRUE(packet->popFront(4));
    EXPECT_EQ(packet->bytes(), 6U);
    EXPECT_EQ(packet->data()[0], pattern(10)[4]);
    EXPECT_TRUE(packet->popFront(6));
    EXPECT_FALSE(packet->popFront(1));
}

TEST_F(PktTest, PushesIntoTheHeadroomWithoutMovingTheBytes) {
    const auto packet = manager->newPkt(pattern(60));
    const std::uint8_t* const payload = packet->data().data();
    const std::span<std::uint8_t> room = packet->pushFront(Pkt::defaultHeadroom);
    ASSERT_EQ(room.size(), Pkt::defaultHeadroom);
    EXPECT_EQ(room.data() + room.size(), payload);
    EXPECT_EQ(packet->headroom(), 0U);
    EXPECT_TRUE(holds(*packet, Pkt::defaultHeadroom, pattern(60)));
    EXPECT_EQ(manager->buffersFromHeap(), 1U);
}

TEST_F(PktTest, PushesBeyondTheHeadroomIntoAnotherBuffer) {
    const struct {
        std::size_t size;
        std::size_t pushed;
    } cases[] = {{0, 257},    {60, 257},   {60, 2000},    {2048, 257},
                 {60, 16384}, {60, 65475}, {16384, 1000}, {65000, 535}};
    for (const auto& row : cases) {
        const auto packet = manager->newPkt(pattern(row.size));
        const std::span<std::uint8_t> room = packet->pushFront(row.pushed);
        ASSERT_EQ(room.size(), row.pushed);
        std::fill(room.begin(), room.end(), std::uint8_t{0xa5});
        EXPECT_EQ(packet->bytes(), row.size + row.pushed);
        EXPECT_EQ(room.data(), packet->data().data());
        EXPECT_TRUE(holds(*packet, row.pushed, pattern(row.size))) << row.size;
        EXPECT_GT(packet->headroom(), 0U) << "the next push would move the bytes again";
    }
}

TEST_F(PktTest, PushesOntoAPacketWithoutABuffer) {
    const auto packet = manager->newPkt();
    EXPECT_EQ(packet->pushFront(4).size(), 4U);
    EXPECT_EQ(packet->bytes(), 4U);
}

TEST_F(PktTest, ManySmallPushesMoveTheBytesOnlyNowAndThen) {
    const auto packet = manager->newPkt(pattern(60));
    const std::uint8_t* payload = packet->data().data();
    int moves = 0;
    for (std::size_t pushed = 4; pushed <= 4 * 256; pushed += 4) {
        packet->pushFront(4);
        moves += packet->data().data() + pushed != payload ? 1 : 0;
        payload = packet->data().data() + pushed;
    }
    EXPECT_LE(moves, 4);
    EXPECT_TRUE(holds(*packet, 4 * 256, pattern(60)));
}

TEST_F(PktTest, RefusesToPushBeyondTheLongestFrame) {
    const auto packet = manager->newPkt(pattern(65531));
    EXPECT_TRUE(packet->pushFront(5).empty());
    EXPECT_TRUE(packet->pushFront(65536).empty());
    EXPECT_TRUE(packet->pushFront(~std::size_t{0}).empty());
    EXPECT_TRUE(holds(*packet, 0, pattern(65531)));
    EXPECT_EQ(packet->pushFront(4).size(), 4U);
    EXPECT_EQ(packet->bytes(), Pkt::maxBytes);
    EXPECT_TRUE(packet->pushFront(1).empty());
}

TEST_F(PktTest, BuffersGoBackToThePool) {
    for (const std::size_t size : {60U, 9000U, 65535U}) {
        { const auto packet = manager->newPkt(pattern(size)); }
        const std::uint64_t warm = manager->buffersFromHeap();
        for (int i = 0; i < 100; ++i) {
            const auto packet = manager->newPkt(pattern(size));
        }
        EXPECT_EQ(manager->buffersFromHeap(), warm) << size;
    }
    EXPECT_EQ(manager->buffersFromHeap(), 3U);
}

TEST_F(PktTest, TheBufferLeftBehindByAMoveGoesBackToo) {
    for (int i = 0; i < 10; ++i) {
        const auto packet = manager->newPkt(pattern(60));
        packet->pushFront(3000);
        packet->newSharedHeadData(60000);
    }
    EXPECT_EQ(manager->buffersFromHeap(), 3U);
}

TEST_F(PktTest, PacketsAtTheSameTimeHaveBuffersOfTheirOwn) {
    std::vector<Ptr<Pkt>> packets;
    for (std::size_t i = 0; i < 8; ++i) {
        packets.push_back(manager->newPkt(pattern(100 + i)));
    }
    for (std::size_t i = 0; i < 8; ++i) {
        EXPECT_TRUE(holds(*packets[i], 0, pattern(100 + i)));
    }
    EXPECT_EQ(manager->buffersFromHeap(), 8U);
}

TEST(GlobalPktManager, IsOneForTheProcess) {
    ASSERT_TRUE(globalPktManager());
    EXPECT_EQ(globalPktManager(), globalPktManager());
    EXPECT_EQ(globalPktManager()->newPkt(pattern(64))->bytes(), 64U);
}

} // namespace PktTest
