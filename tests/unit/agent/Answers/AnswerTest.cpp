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
