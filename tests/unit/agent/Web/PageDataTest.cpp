#include "Web/PageData.h"

#include <atomic>
#include <chrono>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <thread>
#include <unistd.h>

#include "Control/ControlServer.h"

namespace PageDataTest {

using nlohmann::json;
using OvixAgent::ControlAnswer;
using OvixAgent::ControlServer;
using OvixAgent::PageData;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds work{20};

/// An agent that works a while for each answer.
class PageDataTest : public testing::Test {
  protected:
    PageDataTest() {
        thread_ = std::thread([this] {
            while (!isOver_) {
                server_.serve();
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
    }
    ~PageDataTest() override {
        isOver_ = true;
        thread_.join();
    }
    static ControlAnswer answerTo(const std::string& request) {
        std::this_thread::sleep_for(work);
        if (json::parse(request).at("command") != "recorded-frames") {
            return std::string(R"({"ok":true})");
        }
        json frames = json::array();
        for (int i = 1; i <= 60; ++i) {
            frames.push_back({{"sequence", (i * 7) % 61}, // in no order
                              {"reason", i % 2 == 0 ? "even" : "odd"},
                              {"bytes", "00ff"}});
        }
        frames.push_back(
            {{"sequence", 61}, {"reason", "Address of the device"}, {"fate", "punted"}});
        return json({{"ok", true}, {"recorded-frames", frames}}).dump();
    }

  private:
    const std::string path_ = testing::TempDir() + fmt::format("ovix-page-{}.sock", getpid());
    ControlServer server_{path_, &PageDataTest::answerTo};
    std::atomic<bool> isOver_ = false;
    std::thread thread_;

  protected:
    const PageData data{path_};
};

TEST_F(PageDataTest, FramesComeNewestFirstInPagesAndWithoutTheirBytes) {
    const json first = json::parse(data.frames(0, ""));
    ASSERT_EQ(first.at("frames").size(), PageData::framesAtOnce);
    EXPECT_EQ(first.at("frames").front().at("sequence"), 60);
    EXPECT_EQ(first.at("frames").back().at("sequence"), 11);
    EXPECT_TRUE(first.at("more").get<bool>());
    EXPECT_EQ(first.dump().find("bytes"), std::string::npos);
    const json last = json::parse(data.frames(11, ""));
    EXPECT_EQ(last.at("frames").size(), 10U);
    EXPECT_FALSE(last.at("more").get<bool>());
    EXPECT_EQ(json::parse(data.frames(0, "odd")).at("frames").size(), 30U);
    EXPECT_EQ(json::parse(data.frames(0, "none")).at("frames").size(), 0U);
}

TEST_F(PageDataTest, PuntedFramesAreShownToWhoAsksForThem) {
    const auto newest = [&](const std::string& reason) {
        return json::parse(data.frames(0, reason)).at("frames").at(0).at("sequence");
    };
    EXPECT_EQ(newest(""), 60);
    EXPECT_EQ(newest("*"), 61);
    EXPECT_EQ(newest("of the dev"), 61);
}

TEST_F(PageDataTest, TheAgentRestsFourTimesAsLongAsItHasWorked) {
    const auto began = Clock::now();
    data.sets(0);
    data.sets(0);
    EXPECT_GE(Clock::now() - began, work + 4 * work + work);
}

TEST(PageData, WithoutAnAgentNothingIsShown) {
    const PageData nobody("/nonexistent/control.sock");
    const json now = json::parse(nobody.now());
    for (const auto& [name, answer] : now.items()) {
        EXPECT_TRUE(answer.is_null()) << name;
    }
    EXPECT_EQ(json::parse(nobody.frames(0, "")),
              json({{"frames", json::array()}, {"more", false}}));
    EXPECT_EQ(nobody.sets(0), "null");
}

} // namespace PageDataTest
