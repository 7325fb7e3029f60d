#include "Log/LineOutput.h"

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "LogTesting.h"

namespace LineOutputTest {

using OvixLog::LineOutput;
using TestSupport::LogPipe;

/// How many of so many lines are written.
unsigned written(LineOutput& output, unsigned lines) {
    unsigned all = 0;
    for (unsigned i = 0; i < lines; ++i) {
        all += output.write(std::string(99, 'x') + '\n') ? 1U : 0U;
    }
    return all;
}

TEST(LineOutput, APipeTakesLines) {
    const LogPipe pipe;
    LineOutput output(pipe.writer());
    EXPECT_TRUE(output.write("one\n"));
    EXPECT_TRUE(output.write("two\n"));
    EXPECT_EQ(pipe.read(), "one\ntwo\n");
}

TEST(LineOutput, APipeThatNobodyReadsIsWaitedForOnce) {
    const LogPipe pipe;
    LineOutput output(pipe.writer());
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_LT(written(output, 10'000), 1000U); // a pipe has 64 KiB
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    EXPECT_EQ(pipe.read().size() % 100, 0U) << "lines are written whole";
    EXPECT_TRUE(output.write("again\n"));
    EXPECT_EQ(pipe.read(), "again\n");
}

TEST(LineOutput, TheDescriptorKeepsBlockingForOthers) {
    const LogPipe pipe;
    const LineOutput output(pipe.writer());
    EXPECT_EQ(fcntl(pipe.writer(), F_GETFL) & O_NONBLOCK, 0);
}

TEST(LineOutput, AReaderThatHasGoneIsNoError) {
    std::signal(SIGPIPE, SIG_IGN);
    LogPipe pipe;
    LineOutput output(pipe.writer());
    pipe.endReader();
    EXPECT_FALSE(output.write("one\n"));
}

TEST(LineOutput, AFullDeviceIsNoError) {
    const Posix::FileDescriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    LineOutput output(full.value());
    EXPECT_FALSE(output.write("one\n"));
}

TEST(LineOutput, ASocketThatNobodyReadsIsNoError) {
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    const Posix::FileDescriptor reader(ends[0]);
    const Posix::FileDescriptor writer(ends[1]);
    LineOutput output(writer.value());
    EXPECT_TRUE(output.write("one\n"));
    EXPECT_LT(written(output, 100'000), 100'000U);
}

TEST(LineOutput, ALongLineIsCutAndKeepsItsEnd) {
    const LogPipe pipe;
    LineOutput output(pipe.writer());
    EXPECT_TRUE(output.write(std::string(100'000, 'x') + '\n'));
    const std::string line = pipe.read();
    EXPECT_EQ(line.size(), LineOutput::mostBytes);
    EXPECT_EQ(line.find('\n'), line.size() - 1);
}

} // namespace LineOutputTest
