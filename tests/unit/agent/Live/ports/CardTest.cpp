#include "Live/ports/Card.h"

#include <array>
#include <filesystem>
#include <gtest/gtest.h>
#include <numeric>
#include <vector>

#include "Plugin/Loader.h"

namespace CardTest {

namespace {

using OvixAgent::Frame;
using OvixAgent::WritableFrame;

/// A device of DPDK that receives what it sends, in the very buffers.
class CardTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!std::filesystem::exists(Plugin::Library::installed("libOvixDpdk.so"))) {
            GTEST_SKIP() << "the module for DPDK was not built";
        }
        open();
    }
    void open(std::uint32_t mtu = 0, Lumo::EthAddr mac = {}) {
        card_.reset(); // memory is short without hugepages
        card_ = OvixAgent::openDpdkCard({nextDevice(), {}, 1, mac, mtu});
    }
    static std::string nextDevice() { return "net_ring" + std::to_string(++devices_); }

    std::span<WritableFrame> received() { return std::span(room_).first(card_->receive(room_)); }
    void queueCopies(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            ASSERT_TRUE(card_->queue(bytes_));
        }
        EXPECT_EQ(card_->flush().sent, count);
    }
    std::size_t send(std::span<const std::uint8_t> bytes) {
        Frame frame;
        frame.bytes = bytes;
        const std::size_t queued = card_->queueLent({&frame, 1});
        EXPECT_EQ(card_->flush().sent, queued);
        return queued;
    }
    static std::vector<std::uint8_t> numbered() {
        std::vector<std::uint8_t> bytes(100);
        std::iota(bytes.begin(), bytes.end(), std::uint8_t{1});
        return bytes;
    }

    std::vector<std::uint8_t> bytes_ = numbered();
    std::unique_ptr<OvixAgent::Card> card_;
    std::array<WritableFrame, OvixAgent::burstFrames> room_;

  private:
    static inline int devices_ = 0;
};

} // namespace

TEST_F(CardTest, LentBytesLeaveInTheBufferThatTheyCameIn) {
    queueCopies(1);
    const auto came = received();
    ASSERT_EQ(came.size(), 1U);
    EXPECT_GE(came[0].headroom, OvixAgent::frameHeadroom);
    std::uint8_t* const longer = came[0].bytes - 4; // as after a push
    longer[0] = 99;
    ASSERT_EQ(send({longer, bytes_.size() + 4}), 1U);
    const auto again = received();
    ASSERT_EQ(again.size(), 1U);
    EXPECT_EQ(again[0].bytes, longer);
    EXPECT_EQ(again[0].size, bytes_.size() + 4);
    EXPECT_EQ(std::vector(again[0].bytes + 4, again[0].bytes + again[0].size), numbered());
}

TEST_F(CardTest, LentBytesAreTakenOnceAndOthersAreCopied) {
    queueCopies(1);
    const WritableFrame lent = received()[0];
    ASSERT_EQ(send({lent.bytes, lent.size}), 1U);
    ASSERT_EQ(send({lent.bytes, lent.size}), 1U); // a second leg of the same bytes
    ASSERT_EQ(send(bytes_), 1U);
    const auto came = received();
    ASSERT_EQ(came.size(), 3U);
    EXPECT_EQ(came[0].bytes, lent.bytes);
    EXPECT_NE(came[1].bytes, lent.bytes);
    for (const WritableFrame& frame : came) {
        EXPECT_EQ(std::vector(frame.bytes, frame.bytes + frame.size), bytes_);
    }
}

TEST_F(CardTest, AnMtuThatIsAskedForHasRoom) {
    const std::vector<std::uint8_t> large(9022, 7); // with two tags
    EXPECT_EQ(card_->mtu(), 1500U);
    EXPECT_FALSE(card_->queue(large));
    open(9000);
    EXPECT_EQ(card_->mtu(), 9000U);
    ASSERT_TRUE(card_->queue(large));
    EXPECT_EQ(card_->flush().sent, 1U);
    const auto came = received();
    ASSERT_EQ(came.size(), 1U);
    EXPECT_EQ(std::vector(came[0].bytes, came[0].bytes + came[0].size), large);
}

TEST_F(CardTest, TheMacThatIsAskedForIsTheCards) {
    constexpr Lumo::EthAddr asked{2, 0, 0, 0, 0, 9};
    EXPECT_NE(card_->mac(), asked);
    open(0, asked);
    EXPECT_EQ(card_->mac(), asked);
}

TEST_F(CardTest, WhatIsNotSentIsGivenBack) {
    for (int round = 0; round < 1000; ++round) { // of many more frames than there are buffers
        queueCopies(OvixAgent::burstFrames);
        const auto came = received();
        ASSERT_EQ(came.size(), OvixAgent::burstFrames);
        std::size_t sent = 0;
        for (std::size_t i = 0; i < came.size(); i += 3) { // the others are dropped
            sent += send({came[i].bytes, came[i].size});
        }
        ASSERT_EQ(received().size(), sent);
    }
    EXPECT_EQ(card_->missed(), 0U);
}

} // namespace CardTest
