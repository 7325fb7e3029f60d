#include "commands/RecordedFrames.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <system_error>
#include <unistd.h>

namespace RecordedFramesTest {

using namespace OvixCtl;

namespace {

Json recorded() {
    return Json::parse(R"({"sequence":3,"time":1500000000123456789,"fate":"dropped",
        "reason":"No route","first":true,"port":"west","length":60,"bytes":"0102ff","label":100,
        "via":{"port":"east","nexthop":"10.0.2.2"},"generation":7})");
}

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace

TEST(RecordedFrames, ReadAsALineAndAsAComment) {
    Json frame = recorded();
    EXPECT_EQ(recordedText(frame), "2017-07-14T02:40:00.123Z west label 100 60 bytes via east to "
                                   "10.0.2.2 generation 7 dropped: No route (the first)");
    EXPECT_EQ(recordedComment(frame),
              "dropped: No route (port west label 100 via east to 10.0.2.2, generation 7)");
    frame["first"] = false;
    frame["label"] = nullptr;
    frame["via"] = {{"port", nullptr}, {"nexthop", nullptr}};
    EXPECT_EQ(recordedText(frame),
              "2017-07-14T02:40:00.123Z west 60 bytes generation 7 dropped: No route");
    EXPECT_EQ(recordedComment(frame), "dropped: No route (port west, generation 7)");
}

TEST(RecordedFrames, HexEndsWhereItIsNone) {
    EXPECT_EQ(bytesOfHex("0aff"), (std::vector<std::uint8_t>{10, 255}));
    EXPECT_EQ(bytesOfHex("0afg01"), (std::vector<std::uint8_t>{10}));
    EXPECT_EQ(bytesOfHex("0"), std::vector<std::uint8_t>());
}

TEST(RecordedFrames, ACaptureHasAnInterfaceForEachPort) {
    const std::string path =
        (std::filesystem::temp_directory_path() / ("recorded-" + std::to_string(getpid())));
    {
        RecordedCapture capture(path);
        Json frame = recorded();
        capture.add(frame);
        capture.add(frame);
        frame["port"] = "a-port-of-another-name";
        capture.add(frame);
    }
    const std::string content = contentOf(path);
    std::filesystem::remove(path);
    EXPECT_EQ(content.size() % 4, 0U);
    std::vector<std::uint32_t> types;
    for (std::size_t at = 0; at + 8 <= content.size();) {
        std::uint32_t block[2];
        content.copy(reinterpret_cast<char*>(block), sizeof block, at);
        types.push_back(block[0]);
        ASSERT_GT(block[1], 0U);
        std::uint32_t again = 0;
        content.copy(reinterpret_cast<char*>(&again), sizeof again, at + block[1] - sizeof again);
        EXPECT_EQ(again, block[1]) << "the length stands at both ends";
        at += block[1];
    }
    EXPECT_EQ(types, (std::vector<std::uint32_t>{0x0a0d0d0a, 1, 6, 6, 1, 6}));
}

TEST(RecordedFrames, AFileThatCannotBeMadeIsReported) {
    try {
        const RecordedCapture capture("/nonexistent/frames.pcapng");
        FAIL() << "nothing was thrown";
    } catch (const std::system_error& error) {
        EXPECT_NE(std::string(error.what()).find("/nonexistent/frames.pcapng"), std::string::npos);
    }
}

} // namespace RecordedFramesTest
