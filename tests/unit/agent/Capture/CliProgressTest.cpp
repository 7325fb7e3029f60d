#include "Capture/CliProgress.h"

#include <array>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace CliProgressTest {

using namespace OvixAgent;
using namespace std::chrono_literals;

class CliProgressTest : public ::testing::Test {
  protected:
    std::string written() {
        std::rewind(file_.get());
        std::array<char, 4096> text{};
        const std::size_t size = std::fread(text.data(), 1, text.size(), file_.get());
        return {text.data(), size};
    }

    struct Closer {
        void operator()(std::FILE* file) const noexcept { std::fclose(file); }
    };
    std::unique_ptr<std::FILE, Closer> file_{std::tmpfile()};
    CliProgress::Clock::time_point start_{};
};

TEST_F(CliProgressTest, ShowsAtMostTenUpdatesASecond) {
    CliProgress progress(file_.get(), true, start_);
    for (int ms = 0; ms <= 1000; ++ms) {
        progress.show(static_cast<std::uint64_t>(ms), ms / 1000.0, start_ + ms * 1ms);
    }
    const std::string text = written();
    EXPECT_EQ(text.substr(0, 25), "\r\x1b[K100 frames, 10 %\r\x1b[K2");
    std::size_t updates = 0;
    for (const char c : text) {
        updates += c == '%' ? 1 : 0;
    }
    EXPECT_EQ(updates, 10U);
}

TEST_F(CliProgressTest, ShortRunsShowNothing) {
    CliProgress progress(file_.get(), true, start_);
    progress.show(1000, 1.0, start_ + 99ms);
    progress.clear();
    EXPECT_EQ(written(), "");
}

TEST_F(CliProgressTest, TheLineIsRemovedOnce) {
    CliProgress progress(file_.get(), true, start_);
    progress.show(5, 0.5, start_ + 1s);
    progress.clear();
    progress.clear();
    EXPECT_EQ(written(), "\r\x1b[K5 frames, 50 %\r\x1b[K");
}

TEST_F(CliProgressTest, ShowsNothingWhenDisabled) {
    CliProgress progress(file_.get(), false, start_);
    for (int i = 0; i < 1000; ++i) {
        EXPECT_FALSE(progress.isDue(64));
    }
    progress.show(5, 0.5, start_ + 1s);
    progress.clear();
    EXPECT_EQ(written(), "");
}

TEST_F(CliProgressTest, IsDueOnceInManyFrames) {
    CliProgress progress(file_.get(), true, start_);
    int due = 0;
    for (int i = 0; i < 40; ++i) {
        due += progress.isDue(64) ? 1 : 0;
    }
    EXPECT_EQ(due, 10);
}

TEST_F(CliProgressTest, AStreamThatCannotBeWrittenIsNoError) {
    const std::unique_ptr<std::FILE, Closer> full{std::fopen("/dev/full", "w")};
    std::setbuf(full.get(), nullptr);
    CliProgress progress(full.get(), true, start_);
    EXPECT_NO_THROW(progress.show(5, 0.5, start_ + 1s));
    EXPECT_NO_THROW(progress.clear());
}

} // namespace CliProgressTest
