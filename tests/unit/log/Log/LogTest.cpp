#include "Log/Log.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <thread>

#include "Log/LineLimits.h"
#include "LogTesting.h"

namespace LogTest {

using OvixLog::Log;
using TestSupport::LogPipe;

using Clock = std::chrono::steady_clock;

std::size_t linesIn(const std::string& text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

TEST(Log, LinesBeginWithTheProgramsName) {
    const LogPipe pipe;
    Log log("ovix-test", pipe.writer());
    log("routes", "one");
    log.plain("source: two");
    log.drain();
    EXPECT_EQ(pipe.read(), "ovix-test: one\nsource: two\n");
    EXPECT_EQ(log.leftOut(), 0U);
}

TEST(Log, AFloodIsCountedAndOtherLinesStay) {
    const LogPipe pipe;
    {
        Log log("ovix-test", pipe.writer());
        for (unsigned i = 0; i < 50'000; ++i) {
            log("routes", "route " + std::to_string(i));
        }
        log("ports", "a port");
        EXPECT_GE(log.leftOut(), 49'900U);
    }
    const std::string text = pipe.read();
    EXPECT_LT(linesIn(text), OvixLog::LineLimits::burst + 20);
    EXPECT_NE(text.find("ovix-test: a port\n"), std::string::npos);
    EXPECT_NE(text.find("ovix-test: routes: "), std::string::npos);
    EXPECT_NE(text.find(" more lines left out\n"), std::string::npos);
}

TEST(Log, WhoDoesNotReadHoldsNobodyUp) {
    const LogPipe pipe;
    const auto begin = Clock::now();
    {
        Log log("ovix-test", pipe.writer());
        Clock::duration longest{};
        for (unsigned i = 0; i < 20'000; ++i) {
            const auto before = Clock::now();
            log({}, std::string(200, 'x'));
            longest = std::max(longest, Clock::now() - before);
        }
        EXPECT_LT(longest, std::chrono::milliseconds(500));
        log.drain();
        EXPECT_GT(log.leftOut(), 10'000U);
        pipe.read();
        log({}, "after");
    }
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));
    const std::string text = pipe.read();
    EXPECT_NE(text.find(" lines could not be written\n"), std::string::npos) << text;
    EXPECT_NE(text.find("ovix-test: after\n"), std::string::npos);
}

TEST(Log, NoLogIsNoError) {
    std::signal(SIGPIPE, SIG_IGN);
    const Posix::FileDescriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    LogPipe pipe;
    pipe.endReader();
    for (const int descriptor : {full.value(), pipe.writer(), -1}) {
        Log log("ovix-test", descriptor);
        log({}, "one");
        log.drain();
        EXPECT_EQ(log.leftOut(), 1U) << descriptor;
    }
}

TEST(Log, ManyThreadsMayLog) {
    const LogPipe pipe;
    Log log("ovix-test", pipe.writer());
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&log] {
            for (int line = 0; line < 100; ++line) {
                log({}, "line");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    log.drain();
    EXPECT_EQ(linesIn(pipe.read()), 400U);
}

/// The signals that a thread of this process blocks, as the kernel shows them.
std::uint64_t blockedBy(const std::filesystem::path& task) {
    std::ifstream status(task / "status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("SigBlk:")) {
            return std::stoull(line.substr(7), nullptr, 16);
        }
    }
    return 0;
}

TEST(Log, ItsThreadsTakeNoSignals) {
    const LogPipe pipe;
    const Log log("ovix-test", pipe.writer());
    unsigned others = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (task.path().filename() != std::to_string(getpid())) {
            ++others;
            EXPECT_NE(blockedBy(task.path()) & (1U << (SIGTERM - 1)), 0U);
        }
    }
    EXPECT_EQ(others, 2U);
    sigset_t own;
    pthread_sigmask(SIG_SETMASK, nullptr, &own);
    EXPECT_EQ(sigismember(&own, SIGTERM), 0);
}

} // namespace LogTest
