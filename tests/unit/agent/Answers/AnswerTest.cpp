#include "Answers/Answer.h"

#include "AnswersTesting.h"

namespace AnswerTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using namespace TestSupport::Raw;

namespace {

const Bytes packet = ipv4({}, udp());
const Bytes reply{0x45, 1, 2, 3};

bool everywhere(const Lumo::IpGenAddr&) {
    return true;
}
bool nowhere(const Lumo::IpGenAddr&) {
    return false;
}

} // namespace

TEST(LabelledPacket, IsFoundBehindTagsAndLabels) {
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

TEST(Answer, IsRoutedToASourceThatIsRoutable) {
    const Bytes frame = labelled({{100, 5, 1}}, packet);
    Lumo::IpGenAddr asked;
    const auto answer = answerTo(read(frame), reply, [&asked](const Lumo::IpGenAddr& address) {
        asked = address;
        return true;
    });
    ASSERT_TRUE(answer);
    EXPECT_EQ(asked, Lumo::IpGenAddr::fromText("10.1.0.1"));
    EXPECT_EQ(answer->packet, reply);
    EXPECT_TRUE(answer->labels.empty());
}

TEST(Answer, OtherwiseUsesTheLspWithATtlOf255) {
    const Bytes frame = tagged({{100, 5, 1}, {200, 0, 64}}, packet);
    const auto answer = answerTo(read(frame), reply, nowhere);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->packet, reply);
    const std::vector<Lumo::MplsLabelEntry> labels{
        {Lumo::MplsLabel(100), 5, false, 255},
        {Lumo::MplsLabel(200), 0, true, 255},
    };
    EXPECT_EQ(answer->labels, labels);
}

TEST(Answer, LeavesOutRouterAlertLabels) {
    const Bytes frame = labelled({{1, 0, 1}, {200, 0, 64}}, packet);
    const auto answer = answerTo(read(frame), reply, nowhere);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->labels,
              (std::vector<Lumo::MplsLabelEntry>{{Lumo::MplsLabel(200), 0, true, 255}}));
    const Bytes nothingBeneath = labelled({{200, 0, 1}, {1, 0, 64}}, packet);
    EXPECT_FALSE(answerTo(read(nothingBeneath), reply, nowhere));
}

TEST(Answer, IsEmptyWithoutAPacketOrAPath) {
    const Bytes frame = labelled({{100, 5, 1}}, packet);
    const Bytes unlabelled = join({eth(ethIpv4), packet});
    EXPECT_FALSE(answerTo(read(frame), {}, everywhere));
    EXPECT_FALSE(answerTo(read(unlabelled), reply, nowhere));
    EXPECT_TRUE(answerTo(read(unlabelled), reply, everywhere));
}

} // namespace AnswerTest
