#include "Live/ports/SendQueue.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace SendQueueTest {

namespace {

using OvixAgent::LiveCounts;
using OvixAgent::LiveEvent;
using OvixAgent::SendQueue;

/// What the next calls do: send that many at most, or fail with an error. Then everything is sent.
struct Answer {
    int sent = 0;
    int error = 0;
};
std::vector<Answer> script;
std::string sentFrames;
std::size_t calls = 0;

int sendMany(int, mmsghdr* messages, unsigned int count, int) {
    ++calls;
    int sends = static_cast<int>(count);
    if (!script.empty()) {
        const Answer answer = script.front();
        script.erase(script.begin());
        if (answer.error != 0) {
            errno = answer.error;
            return -1;
        }
        sends = std::min(sends, answer.sent);
    }
    for (int i = 0; i < sends; ++i) {
        const iovec& extent = *messages[i].msg_hdr.msg_iov;
        sentFrames.append(static_cast<const char*>(extent.iov_base), extent.iov_len);
    }
    return sends;
}

class SendQueueTest : public testing::Test {
  protected:
    SendQueueTest() {
        script.clear();
        sentFrames.clear();
        calls = 0;
    }

    void push(const std::string& frames) {
        for (const char& frame : frames) {
            queue.push(0, {reinterpret_cast<const std::uint8_t*>(&frame), 1});
        }
    }

    LiveCounts counts;
    SendQueue queue{counts, sendMany};
};

} // namespace

TEST_F(SendQueueTest, SendsManyFramesInOrderByOneCall) {
    push("abcdef");
    EXPECT_EQ(sentFrames, "");
    queue.flush(0);
    EXPECT_EQ(sentFrames, "abcdef");
    EXPECT_EQ(calls, 1U);
    EXPECT_EQ(counts.of(LiveEvent::sent), 6U);
    queue.flush(0);
    EXPECT_EQ(calls, 1U);
}

struct Failure {
    std::vector<Answer> answers;
    LiveEvent counted;
    std::uint64_t times;
    std::string sent;
    std::size_t left;
};

class SendQueueFailures : public SendQueueTest, public testing::WithParamInterface<Failure> {};

TEST_P(SendQueueFailures, AreCounted) {
    script = GetParam().answers;
    push("abcd");
    queue.flush(0);
    EXPECT_EQ(sentFrames, GetParam().sent);
    EXPECT_EQ(counts.of(GetParam().counted), GetParam().times);
    EXPECT_EQ(counts.of(LiveEvent::sent), GetParam().sent.size());
    EXPECT_EQ(queue.size(), GetParam().left);
    sentFrames.clear();
    push("e");
    queue.flush(0);
    EXPECT_EQ(sentFrames.back(), 'e');
    EXPECT_EQ(sentFrames.size(), GetParam().left + 1);
    EXPECT_EQ(queue.size(), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    All, SendQueueFailures,
    testing::Values(Failure{{{3, 0}}, LiveEvent::sent, 4, "abcd", 0},
                    Failure{{{0, EINTR}, {0, EINTR}}, LiveEvent::interrupted, 2, "abcd", 0},
                    Failure{{{1, 0}, {0, EINTR}}, LiveEvent::interrupted, 1, "abcd", 0},
                    Failure{{{1, 0}, {0, EAGAIN}}, LiveEvent::wouldBlock, 1, "a", 3},
                    Failure{{{0, ENOBUFS}}, LiveEvent::noBuffers, 1, "bcd", 0},
                    Failure{{{2, 0}, {0, ENOBUFS}, {0, ENOBUFS}}, LiveEvent::noBuffers, 2, "ab", 0},
                    Failure{{{1, 0}, {0, EMSGSIZE}}, LiveEvent::tooLong, 1, "acd", 0},
                    Failure{{{1, 0}, {0, ENETDOWN}}, LiveEvent::linkDown, 3, "a", 0},
                    Failure{{{0, ENXIO}}, LiveEvent::interfaceGone, 4, "", 0},
                    Failure{{{0, ENODEV}}, LiveEvent::interfaceGone, 4, "", 0},
                    Failure{{{0, EINVAL}}, LiveEvent::failed, 1, "bcd", 0}));

TEST_F(SendQueueTest, AFullQueueIsFlushedForTheNextFrame) {
    push(std::string(SendQueue::maxFrames, 'x') + "y");
    EXPECT_EQ(sentFrames, std::string(SendQueue::maxFrames, 'x'));
    EXPECT_EQ(queue.size(), 1U);
}

TEST_F(SendQueueTest, AQueueThatStaysFullDropsNewFrames) {
    script = {{0, EAGAIN}, {0, EAGAIN}};
    push(std::string(SendQueue::maxFrames, 'x') + "yz");
    EXPECT_EQ(counts.of(LiveEvent::queueFull), 2U);
    EXPECT_EQ(counts.of(LiveEvent::wouldBlock), 2U);
    queue.flush(0);
    EXPECT_EQ(sentFrames, std::string(SendQueue::maxFrames, 'x'));
}

TEST_F(SendQueueTest, LongFramesFillTheQueueByTheirBytes) {
    const std::vector<std::uint8_t> frame(65553, 'x');
    const std::size_t fitting = SendQueue::maxBytes / frame.size();
    for (std::size_t i = 0; i <= fitting; ++i) {
        queue.push(0, frame);
    }
    EXPECT_EQ(counts.of(LiveEvent::sent), fitting);
    EXPECT_EQ(queue.size(), 1U);
}

TEST_F(SendQueueTest, AFrameLongerThanTheWholeQueueIsDropped) {
    queue.push(0, std::vector<std::uint8_t>(SendQueue::maxBytes + 1));
    EXPECT_EQ(counts.of(LiveEvent::queueFull), 1U);
    push("a");
    queue.flush(0);
    EXPECT_EQ(sentFrames, "a");
}

} // namespace SendQueueTest
