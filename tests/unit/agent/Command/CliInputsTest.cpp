#include "Command/CliInputs.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "State/CaptureError.h"

using namespace OvixAgent;

namespace {

std::vector<PortConfig> twoPorts() {
    std::vector<PortConfig> ports(2);
    ports[0].name = "eth1";
    ports[1].name = "eth2";
    return ports;
}

std::string errorOf(const std::vector<InputOption>& inputs) {
    try {
        openInputs(inputs, twoPorts());
    } catch (const CaptureError& error) {
        return error.what();
    }
    return "";
}

/// A pcap with one frame of one byte.
std::string oneFrame() {
    using namespace std::string_literals;
    return "\xd4\xc3\xb2\xa1\2\0\4\0\0\0\0\0\0\0\0\0\0\0\1\0\1\0\0\0"
           "\1\0\0\0\0\0\0\0\1\0\0\0\1\0\0\0x"s;
}

} // namespace

TEST(CliInputs, APortThatIsNotConfiguredIsNamedBeforeAnyFileIsOpened) {
    EXPECT_EQ(errorOf({{"eth1", "/nonexistent"}, {"eth22", "b.pcap"}}),
              "--in eth22=b.pcap: no port is named \"eth22\"; did you mean \"eth2\"?");
    EXPECT_EQ(errorOf({{"port", "b.pcap"}}),
              "--in port=b.pcap: no port is named \"port\"; known: eth1, eth2");
}

TEST(CliInputs, ACaptureThatCannotBeOpenedIsNamed) {
    EXPECT_EQ(errorOf({{"eth1", "/nonexistent"}}),
              "/nonexistent: cannot be opened: No such file or directory");
}

TEST(CliInputs, OneCaptureMayFeedTwoPorts) {
    const auto path = std::filesystem::temp_directory_path() /
                      ("inputs-test-" + std::to_string(getpid()) + ".pcap");
    std::ofstream(path, std::ios::binary) << oneFrame();
    auto readers = openInputs({{"eth2", path.string()}, {"eth1", path.string()}}, twoPorts());
    ASSERT_EQ(readers.size(), 2U);
    const Frame* frame = readers[0].next();
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->port, 1U);
    frame = readers[1].next();
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->port, 0U);
    std::filesystem::remove(path);
}
