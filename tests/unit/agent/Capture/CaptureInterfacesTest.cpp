#include "Capture/CaptureInterfaces.h"

#include <algorithm>
#include <sys/stat.h>

#include "Capture/CaptureReader.h"
#include "CaptureTesting.h"

namespace CaptureInterfacesTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

using Names = std::vector<std::string>;

std::string option(std::uint16_t code, const std::string& value) {
    std::string padded = value;
    padded.resize((value.size() + 3) / 4 * 4);
    return field16(code) + field16(static_cast<std::uint16_t>(value.size())) + padded;
}

/// Of Ethernet, with a comment before its name.
std::string interfaceNamed(const std::string& name) {
    return pcapngBlock(1, field16(1) + field16(0) + field32(0) + option(1, "a comment") +
                              option(2, name) + option(0, ""));
}

Names namesIn(const std::string& path) {
    CaptureInterfaces interfaces(path);
    Names names;
    while (const auto name = interfaces.next()) {
        names.push_back(*name);
    }
    return names;
}

/// As a machine of the other byte order writes it, but for the bytes of names and frames.
std::string swapped(std::string words, std::initializer_list<std::size_t> halves) {
    for (std::size_t at = 0; at + 4 <= words.size(); at += 4) {
        const auto begin = words.begin() + static_cast<std::ptrdiff_t>(at);
        std::reverse(begin, begin + 4);
        if (std::find(halves.begin(), halves.end(), at) != halves.end()) {
            std::rotate(begin, begin + 2, begin + 4);
        }
    }
    return words;
}

} // namespace

using CaptureInterfacesTest = CaptureTest;

TEST_F(CaptureInterfacesTest, EachFrameHasTheNameOfItsInterface) {
    const std::string path =
        file("a.pcapng", pcapngSection() + interfaceNamed("west") + interfaceNamed("east.100") +
                             pcapngPacket(1, 1, "frame") + pcapngBlock(5, field32(0)) +
                             pcapngPacket(0, 2, "other") + pcapngBlock(3, field32(5) + "short") +
                             pcapngBlock(2, field16(1) + field16(0) + std::string(16, '\0')));
    EXPECT_EQ(namesIn(path), (Names{"east.100", "west", "west", "east.100"}));
    EXPECT_EQ(captureInterfaceOf(path, 2), "west");
    EXPECT_EQ(captureInterfaceOf(path, 5), "");
    EXPECT_EQ(captureInterfaceOf(path, ~std::uint64_t{0}), "");
}

TEST_F(CaptureInterfacesTest, ASectionHasInterfacesOfItsOwn) {
    EXPECT_EQ(namesIn(file("a.pcapng", pcapngSection() + interfaceNamed("west") +
                                           pcapngPacket(0, 1, "frame") + pcapngSection() +
                                           interfaceNamed("east") + pcapngPacket(0, 2, "frame") +
                                           pcapngPacket(1, 2, "frame"))),
              (Names{"west", "east", ""}));
}

TEST_F(CaptureInterfacesTest, EitherByteOrderIsRead) {
    const std::string section = pcapngSection();
    const std::string interface =
        pcapngBlock(1, field16(1) + field16(0) + field32(0) + field16(2) + field16(4) + "tsew");
    const std::string path = file("a.pcapng", swapped(section, {12}) + swapped(interface, {8, 16}) +
                                                  swapped(pcapngPacket(0, 1, "abcd"), {}));
    CaptureReader reader(0, path);
    EXPECT_NE(reader.next(), nullptr) << "the file is right";
    EXPECT_EQ(namesIn(path), (Names{"west"}));
}

TEST_F(CaptureInterfacesTest, FramesOfNamelessInterfacesHaveNone) {
    EXPECT_EQ(namesIn(file("a.pcapng",
                           pcapngSection() + pcapngInterface(1, 6) + pcapngPacket(0, 1, "frame"))),
              (Names{""}));
    EXPECT_EQ(namesIn(file("a.pcap", pcapHeader(microsecondMagic) + pcapRecord(100, 0, "first"))),
              Names());
    EXPECT_EQ(namesIn(path("none")), Names());
}

TEST_F(CaptureInterfacesTest, DamageEndsTheNames) {
    const std::string whole = pcapngSection() + interfaceNamed("west") +
                              pcapngPacket(0, 1, "frame") + pcapngPacket(0, 2, "other");
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const Names names = namesIn(file("cut", whole.substr(0, size)));
        EXPECT_LT(names.size(), 3U) << size;
        EXPECT_EQ(std::count(names.begin(), names.end(), "west"),
                  static_cast<std::ptrdiff_t>(names.size()));
    }
    for (const std::uint32_t length : {0U, 8U, 11U, 13U, 1U << 30U, ~0U}) {
        EXPECT_EQ(namesIn(file("long", pcapngSection() + field32(6) + field32(length))), Names());
    }
    EXPECT_EQ(namesIn(file("order", pcapngSection().replace(8, 4, "abcd") + interfaceNamed("west") +
                                        pcapngPacket(0, 1, "frame"))),
              Names());
    const std::string beyond =
        field16(1) + field16(0) + field32(0) + field16(2) + field16(99) + "w";
    EXPECT_EQ(namesIn(file("beyond",
                           pcapngSection() + pcapngBlock(1, beyond) + pcapngPacket(0, 1, "frame"))),
              (Names{""}));
}

TEST_F(CaptureInterfacesTest, APipeIsLeftToWhoeverReadsTheFrames) {
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(namesIn(path("pipe")), Names());
}

} // namespace CaptureInterfacesTest
