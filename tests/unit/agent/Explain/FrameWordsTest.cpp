#include "Explain/FrameWords.h"

#include <gtest/gtest.h>

#include "FrameBytes.h"
#include "Refusal.h"

namespace FrameWordsTest {

using namespace OvixAgent;
using namespace TestSupport::Raw;

namespace {

constexpr Lumo::EthAddr west{2, 0, 0, 0, 0, 1};

Bytes frameOf(const std::string& text) {
    const auto frame = readFrame(text, 3, {west});
    if (!frame) {
        ADD_FAILURE() << frame.refused().what;
        return {};
    }
    EXPECT_EQ(frame.value().port, 3U);
    EXPECT_EQ(frame.value().originalLength, frame.value().bytes.size());
    return frame.value().bytes;
}

std::string refusalOf(const std::string& text) {
    const auto frame = readFrame(text, 0, {west});
    return frame ? "taken" : frame.refused().what;
}

} // namespace

TEST(FrameWords, HexMayHaveSeparators) {
    EXPECT_EQ(frameOf("0200.0000-0001 aa:BB"), (Bytes{2, 0, 0, 0, 0, 1, 0xaa, 0xbb}));
    EXPECT_EQ(frameOf("0x0203"), (Bytes{2, 3}));
}

TEST(FrameWords, HexIsRefusedAtItsCharacter) {
    EXPECT_EQ(refusalOf("0x02zz"), "FRAME, character 3: \"z\" is no hexadecimal digit");
    EXPECT_EQ(refusalOf("02 0"), "FRAME, character 4: half a byte is left");
    EXPECT_EQ(refusalOf(" "), "FRAME, character 1: is empty");
}

TEST(FrameWords, LabelsHaveClassAndTtlAndTheLastIsTheBottom) {
    const Bytes frame = frameOf("label 100/ttl 9/tc 5, label 7, ip 10.1.1.1 > 10.9.0.1 udp 3503");
    const Bytes stackBytes{0x00, 0x06, 0x4a, 9, 0x00, 0x00, 0x71, 64};
    ASSERT_GT(frame.size(), 22U);
    EXPECT_EQ(Bytes(frame.begin(), frame.begin() + 6), (Bytes{2, 0, 0, 0, 0, 1}));
    EXPECT_EQ(Bytes(frame.begin() + 12, frame.begin() + 14), (Bytes{0x88, 0x47}));
    EXPECT_EQ(Bytes(frame.begin() + 14, frame.begin() + 22), stackBytes);
}

/// Sums made with the same fields by hand: 0x4500 + 0x001c + 0x4011 + addresses, RFC 1071.
TEST(FrameWords, IpPacketsHaveLengthsAndChecksums) {
    const Bytes frame = frameOf("ip 10.1.1.1 > 10.9.0.1 udp 1024 > 3503 ttl 7 df");
    const Bytes header{0x45, 0, 0, 28, 0, 0, 0x40, 0, 7, 17, 0x5e, 0xc6, 10, 1, 1, 1, 10, 9, 0, 1};
    EXPECT_EQ(Bytes(frame.begin() + 14, frame.begin() + 34), header);
    const Bytes udpStart{0x04, 0x00, 0x0d, 0xaf, 0, 8};
    EXPECT_EQ(Bytes(frame.begin() + 34, frame.begin() + 40), udpStart);
    EXPECT_EQ(frame.size(), 42U);
}

TEST(FrameWords, Ipv6IsNoCaptureAndNoHex) {
    const Bytes frame = frameOf("ip 2001:db8::1 > 2001:db8::2");
    EXPECT_EQ(Bytes(frame.begin() + 12, frame.begin() + 15), (Bytes{0x86, 0xdd, 0x60}));
    EXPECT_EQ(frame.size(), 54U);
}

TEST(FrameWords, SizeIsThatOfThePacket) {
    EXPECT_EQ(frameOf("label 100, ip 10.1.1.1 > 10.9.0.1 size 1500").size(), 14U + 4 + 1500);
}

TEST(FrameWords, APseudowireHasAControlWordAndAFrame) {
    const Bytes frame = frameOf("mac 02:00:00:00:00:09 from 02:00:00:00:00:08, vlan 7 priority 3, "
                                "label 200, control-word 0x00000005, ethernet 02:00:00:00:00:0a");
    const Bytes start{2, 0, 0, 0, 0, 9, 2, 0, 0, 0, 0, 8, 0x81, 0, 0x60, 7, 0x88, 0x47};
    EXPECT_EQ(Bytes(frame.begin(), frame.begin() + 18), start);
    EXPECT_EQ(Bytes(frame.begin() + 22, frame.begin() + 32),
              (Bytes{0, 0, 0, 5, 2, 0, 0, 0, 0, 0x0a}));
}

TEST(FrameWords, WordsAreRefusedAtTheirPlace) {
    EXPECT_EQ(refusalOf("label 100/tl 1"), "FRAME, word 3: \"tl\" is too much here");
    EXPECT_EQ(refusalOf("label 1048576"),
              "FRAME, word 2: \"1048576\" as the label: a number of 0 to 1048575");
    EXPECT_EQ(refusalOf("labl 100"),
              "FRAME, word 1: \"labl\" is no header; did you mean \"label\"?");
    EXPECT_EQ(refusalOf("label 100, ip 10.1.1.1"),
              "FRAME, word 5: \">\" and the destination are missing");
    EXPECT_EQ(refusalOf("label 100, ip 10.1.1.1 > 2001:db8::1"),
              "FRAME, word 4: source and destination are of different families");
    EXPECT_EQ(refusalOf("label 100, , label 7"), "FRAME, word 3: a header is missing");
    EXPECT_EQ(refusalOf("ip 10.1.1.1 > 10.9.0.1, label 7"),
              "FRAME, word 5: \"label\" belongs further out");
    EXPECT_EQ(refusalOf("label 7, vlan 5"), "FRAME, word 3: \"vlan\" belongs further out");
    EXPECT_EQ(refusalOf("mac 02:00"), "FRAME, word 2: \"02:00\" is no MAC address");
}

TEST(FrameWords, WhatIsGivenTwiceIsRefused) {
    EXPECT_EQ(refusalOf("label 100/ttl 9/ttl 8"), "FRAME, word 5: the TTL is given twice");
    EXPECT_EQ(refusalOf("label 100/tc 1/tc 1"), "FRAME, word 5: the traffic class is given twice");
    const std::string ip = "ip 10.1.1.1 > 10.9.0.1 ";
    EXPECT_EQ(refusalOf(ip + "df df"), "FRAME, word 6: df is given twice");
    EXPECT_EQ(refusalOf(ip + "udp 5 tcp 6"), "FRAME, word 7: the protocol is given twice");
    EXPECT_EQ(refusalOf(ip + "ttl 5 size 60 ttl 5"), "FRAME, word 9: ttl is given twice");
    EXPECT_EQ(refusalOf(ip + "," + ip), "FRAME, word 5: \"ip\" is given twice");
    EXPECT_EQ(refusalOf("label 7, control-word, control-word"),
              "FRAME, word 4: \"control-word\" is given twice");
    EXPECT_EQ(refusalOf("vlan 4095, label 7").substr(0, 15), "FRAME, word 2: ");
    EXPECT_EQ(refusalOf("ip 10.1.1.1 > 10.9.0.1 size 10"),
              "FRAME, word 2: a size of 10: the headers alone have 20 bytes");
    EXPECT_EQ(refusalOf("ip 10.1.1.1 > 10.9.0.1 udp 5 size 20"),
              "FRAME, word 2: a size of 20: the headers alone have 28 bytes");
    EXPECT_EQ(refusalOf("in/west.pcap:x"), "FRAME: \"x\" is no number of a frame of in/west.pcap");
    EXPECT_EQ(refusalOf("vlan 5, vlan 5, label 7, label 7"), "taken");
}

TEST(FrameWords, ACaptureNeedsANumberFrom1) {
    EXPECT_EQ(refusalOf("drops.pcapng"),
              "FRAME: which frame of the capture? drops.pcapng:1 is its first");
    EXPECT_EQ(refusalOf("drops.pcapng:0"), "FRAME: the frames of a capture have numbers from 1");
    EXPECT_EQ(refusalOf("."), "FRAME, character 1: no byte is given");
}

TEST(FrameWords, ACaptureThatIsNotThereIsNamed) {
    EXPECT_NE(refusalOf("/nonexistent/a.pcap:1").find("/nonexistent/a.pcap"), std::string::npos);
    EXPECT_NE(refusalOf("no such.pcap:1").find("no such.pcap"), std::string::npos);
    EXPECT_NE(refusalOf("lable 100:1").find("\"lable\""), std::string::npos) << "is no file";
}

/// Whatever is typed is taken or refused, and nothing else happens.
TEST(FrameWords, CutAndBrokenWordsAreRefusedOrTaken) {
    const std::string whole = "mac 02:00:00:00:00:09 from 02:00:00:00:00:08, vlan 7 priority 3, "
                              "label 100/ttl 9/tc 5, control-word 0x1, ethernet 02:00:00:00:00:0a, "
                              "ip 10.1.1.1 > 10.9.0.1 udp 1 > 3503 ttl 7 tos 1 size 60 df";
    ASSERT_EQ(refusalOf(whole), "taken");
    for (std::size_t i = 0; i < whole.size(); ++i) {
        EXPECT_FALSE(refusalOf(whole.substr(0, i)).empty());
        for (const char c : {' ', ',', '>', '/', 'x', '9', '\0', '\xff'}) {
            std::string broken = whole;
            broken[i] = c;
            EXPECT_FALSE(refusalOf(broken).empty());
        }
    }
}

} // namespace FrameWordsTest
