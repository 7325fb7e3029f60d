#include "FastPath/EgressLines.h"

#include "ForwarderTesting.h"

namespace EgressLinesTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

class EgressLinesTest : public ForwarderFixture {
  protected:
    static EgressKey toward(const std::string& address, PortIndex port = east) {
        return {port, 0, 0, false, Lumo::IpGenAddr::fromText(address)};
    }
    const EgressLine& line(const EgressKey& key) { return lines[lines.numberOf(key)]; }
    /// The MAC addresses that a line sends with: the neighbour's and the port's.
    static Bytes macs(const EgressLine& line) { return {line.macs.begin(), line.macs.end()}; }

    EgressLines lines{tables};
    const Lumo::IpGenAddr learned = Lumo::IpGenAddr::fromText("10.0.2.9");
};

} // namespace

TEST_F(EgressLinesTest, ANextHopHasOneLine) {
    const std::uint32_t number = lines.numberOf(toward("10.0.2.2"));
    EXPECT_EQ(lines.numberOf(toward("10.0.2.2")), number);
    EXPECT_NE(lines.numberOf(toward("10.0.2.2", west)), number);
    EXPECT_NE(lines.numberOf(toward("10.0.2.3")), number);
    EgressKey other = toward("10.0.2.2");
    other.mtu = 99;
    EXPECT_NE(lines.numberOf(other), number);
    other = toward("10.0.2.2");
    other.vlan = 5;
    EXPECT_NE(lines.numberOf(other), number);
}

TEST_F(EgressLinesTest, ALineHasTheNeighboursAddressAndThePorts) {
    const EgressLine& found = line(toward("10.0.2.2"));
    EXPECT_EQ(found.port, &ports.ports()[east]);
    EXPECT_TRUE(found.takes(1));
    EXPECT_EQ(macs(found), (Bytes{2, 0, 0, 0, 2, 2, 2, 0, 0, 0, 0, 2}));
    EXPECT_EQ(found.tagBytes, 0U);
}

TEST_F(EgressLinesTest, WithoutAnAddressItIsTheOnlyNeighbourOnTheLink) {
    EXPECT_EQ(macs(line({dark, 0, 0, false, {}})), (Bytes{2, 0, 0, 0, 3, 2, 2, 0, 0, 0, 0, 3}));
    const std::uint32_t number = lines.numberOf({dark, 0, 0, false, {}});
    tables.neighbours.learn(Lumo::IpGenAddr::fromText("10.0.3.9"), dark, {2, 0, 0, 0, 3, 9});
    lines.refresh();
    EXPECT_FALSE(lines[number].takes(1));
}

TEST_F(EgressLinesTest, TakesWhatFitsWhileThePortIsUp) {
    EgressKey key = toward("10.0.2.2");
    EXPECT_TRUE(line(key).takes(100));
    EXPECT_FALSE(line(key).takes(101));
    key.mtu = 60;
    EXPECT_TRUE(line(key).takes(60));
    EXPECT_FALSE(line(key).takes(61));
    key.mtu = 2000;
    EXPECT_FALSE(line(key).takes(101));
    ports.mtuIs(east, 200);
    EXPECT_TRUE(line(key).takes(101));
    ports.upIs(east, false);
    EXPECT_FALSE(line(key).takes(20));
    EXPECT_FALSE(line(toward("10.0.3.2", dark)).takes(20));
    EXPECT_FALSE(line(toward("10.0.1.99", west)).takes(20));
}

TEST_F(EgressLinesTest, TakesNothingThatIsLongerThanAPacketMayBeWithItsLinkHeader) {
    ports.mtuIs(east, Lumo::Pkt::maxBytes);
    EgressKey key = toward("10.0.2.2");
    constexpr std::uint32_t longest = Lumo::Pkt::maxBytes - 14;
    EXPECT_TRUE(line(key).takes(longest));
    EXPECT_FALSE(line(key).takes(longest + 1));
    key.vlan = 5; // whose tag is part of the link header
    EXPECT_TRUE(line(key).takes(longest - 4));
    EXPECT_FALSE(line(key).takes(longest - 3));
}

TEST_F(EgressLinesTest, NeighboursAreFollowedAsTheyComeMoveAndGo) {
    const std::uint32_t number = lines.numberOf(toward("10.0.2.9"));
    EXPECT_FALSE(lines[number].takes(1));
    for (const std::uint8_t last : Bytes{1, 2}) {
        tables.neighbours.learn(learned, east, {2, 0, 0, 0, 9, last});
        lines.refresh();
        EXPECT_TRUE(lines[number].takes(50));
        EXPECT_EQ(macs(lines[number]), (Bytes{2, 0, 0, 0, 9, last, 2, 0, 0, 0, 0, 2}));
    }
    tables.neighbours.forget(learned, east);
    lines.refresh();
    EXPECT_FALSE(lines[number].takes(50));
    EXPECT_TRUE(line(toward("10.0.2.2")).takes(50));
}

TEST_F(EgressLinesTest, APortsNewAddressIsSentWith) {
    const std::uint32_t number = lines.numberOf(toward("10.0.2.2"));
    const std::uint32_t other = lines.numberOf(toward("10.0.1.2", west));
    ports.macIs(east, {2, 0, 0, 0, 7, 7});
    lines.refresh();
    EXPECT_EQ(macs(lines[number]), (Bytes{2, 0, 0, 0, 2, 2, 2, 0, 0, 0, 7, 7}));
    EXPECT_EQ(macs(lines[other]), (Bytes{2, 0, 0, 0, 1, 2, 2, 0, 0, 0, 0, 1}));
}

TEST_F(EgressLinesTest, AGroupNeedsNoNeighbour) {
    EgressKey key = toward("10.0.2.99");
    const std::uint32_t number = lines.numberOf(key);
    key.isGroup = true;
    EXPECT_NE(lines.numberOf(key), number);
    EXPECT_EQ(macs(line(key)), (Bytes{1, 0, 0x5e, 0x80, 0, 0, 2, 0, 0, 0, 0, 2}));
    EXPECT_TRUE(line(key).takes(100));
}

TEST_F(EgressLinesTest, AVlanOfTheNextHopIsItsTag) {
    EgressKey key = toward("10.0.2.2");
    key.vlan = 5;
    const EgressLine& tagged = line(key);
    EXPECT_EQ(tagged.tagBytes, 4U);
    EXPECT_EQ(Bytes(tagged.tags.begin(), tagged.tags.begin() + 4), join({u16(ethVlan), u16(5)}));
}

TEST_F(EgressLinesTest, ANewConfigurationIsTakenOverByNewLines) {
    lines.numberOf(toward("10.0.2.2"));
    std::string text = testConfig;
    text.replace(text.find("02:00:00:00:02:02"), 17, "02:00:00:00:02:05");
    tables.configure(configOf(text));
    lines.clear();
    EXPECT_EQ(macs(line(toward("10.0.2.2")))[5], 5U);
}

TEST_F(EgressLinesTest, NextHopsNoLongerUsedDoNotStayForEver) {
    EgressKey key = toward("10.0.2.2");
    for (std::uint32_t i = 0; !lines.isFull(); ++i) {
        ASSERT_LT(i, 100000U);
        key.mtu = 1000 + i;
        lines.numberOf(key);
    }
    lines.clear();
    EXPECT_FALSE(lines.isFull());
    EXPECT_EQ(lines.numberOf(key), 0U);
}

} // namespace EgressLinesTest
