#include "Answers/LabelledPacket.h"

#include "AnswersTesting.h"

namespace LabelledPacketTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using namespace TestSupport::Raw;

TEST(LabelledPacket, IsFoundBehindTagsAndLabels) {
    const Bytes packet = ipv4({}, udp());
    const Bytes padded = join({tagged({{100, 3, 1}, {200, 0, 7}}, packet), filled(4, 0)});
    const LabelledPacket taken = read(padded);
    EXPECT_EQ(hex(taken.tags), "88a800058100e00a");
    EXPECT_EQ(hex(taken.labels), hex(stack({{100, 3, 1}, {200, 0, 7}})));
    EXPECT_EQ(taken.ip.type, Ovix::PktHdrType::ipv4);
    EXPECT_EQ(hex(taken.ip.bytes), hex(packet));
    EXPECT_FALSE(taken.isToGroup);
}

TEST(LabelledPacket, MayHaveNoLabels) {
    const Bytes frame = join({eth(ethIpv6), ipv6({}, udp())});
    const LabelledPacket taken = read(frame);
    EXPECT_TRUE(taken.labels.empty());
    EXPECT_TRUE(taken.tags.empty());
    EXPECT_EQ(taken.ip.type, Ovix::PktHdrType::ipv6);
}

TEST(LabelledPacket, RecognisesAGroupByItsMacAddress) {
    Bytes frame = labelled({{100}}, ipv4({}, udp()));
    frame[0] = 1;
    EXPECT_TRUE(read(frame).isToGroup);
}

TEST(LabelledPacket, IsEmptyForOtherFrames) {
    Bytes broken = ipv4({}, udp());
    broken[11] ^= 1U;
    EXPECT_FALSE(readLabelledPacket({}));
    EXPECT_FALSE(readLabelledPacket(labelled({{100}}, broken)));
    EXPECT_FALSE(readLabelledPacket(labelled({{100}}, eth(ethIpv4))));
    EXPECT_FALSE(readLabelledPacket(join({eth(0x0806), filled(28, 0)})));
    EXPECT_FALSE(readLabelledPacket(join({eth(ethMpls), entry({100}, false)})));
    EXPECT_FALSE(readLabelledPacket(join({labelled({{100}}, ipv4({}, udp())), filled(65536, 0)})));
}

TEST(LabelledPacket, IsEmptyForEveryTruncatedFrame) {
    for (const Bytes& whole :
         {tagged({{100}, {200}}, ipv4({}, udp())), tagged({{100}, {200}}, ipv6({}, udp()))}) {
        for (std::size_t size = 0; size < whole.size(); ++size) {
            EXPECT_FALSE(readLabelledPacket(cut(whole, size))) << size;
        }
    }
}

} // namespace LabelledPacketTest
