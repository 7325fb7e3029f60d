#include "State/FecTable.h"

#include "ForwarderTesting.h"
#include "Tessel/Fib/FecId.h"

namespace FecTableTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using Tessel::Fib::FecId;

namespace {

Lumo::IntfId intfOf(std::uint64_t fec) {
    return FecId::fecIdToHierarchicalIntfId(FecId(fec));
}

WeightedNextHop hopTo(PortIndex port, std::uint8_t lastByte, std::uint32_t weight) {
    return {port, Lumo::IpGenAddr::fromText("10.0.2." + std::to_string(lastByte)), weight};
}

const std::vector<Port> allUp(5);

class FecEgress : public ForwarderFixture {
  protected:
    FecEgress() {
        tables.fecs =
            FecTable({{42, {hopTo(east, 2, 1), hopTo(plain, 9, 0)}}, {43, {hopTo(east, 9, 1)}}});
    }
    static Ptr<Ovix::RoutingNexthop> toFec(std::uint64_t fec) {
        return withRewrite(Tessel::make<Ovix::RoutingNexthop>(intfOf(fec)), swapInfo(300));
    }
};

} // namespace

TEST(FecTable, FlowsAreSharedByWeight) {
    const FecTable table({{7, {hopTo(0, 1, 1)}},
                          {42, {hopTo(1, 2, 1), hopTo(2, 3, 0), hopTo(3, 4, 3), hopTo(4, 5, 2)}}});
    const PortIndex owners[]{1, 3, 3, 3, 4, 4};
    for (std::uint32_t hash = 0; hash < 60; ++hash) {
        const WeightedNextHop* nexthop = table.choose(intfOf(42), hash, allUp);
        ASSERT_NE(nexthop, nullptr);
        EXPECT_EQ(nexthop->port, owners[hash % 6]) << hash;
        EXPECT_EQ(nexthop->address.text(), "10.0.2." + std::to_string(nexthop->port + 1));
    }
    EXPECT_EQ(table.choose(intfOf(7), 0xffffffff, allUp)->port, 0U);
}

TEST(FecTable, FlowsOfAPortThatIsDownTakeAnother) {
    const FecTable table({{42, {hopTo(1, 2, 1), hopTo(2, 3, 3), hopTo(3, 4, 2)}}});
    std::vector<Port> ports(4);
    ports[2].isUp = false;
    for (std::uint32_t hash = 0; hash < 60; ++hash) {
        const PortIndex before = table.choose(intfOf(42), hash, allUp)->port;
        const PortIndex now = table.choose(intfOf(42), hash, ports)->port;
        EXPECT_TRUE(now == before || (before == 2 && now != 2)) << hash;
    }
}

TEST(FecTable, TheLargestWeightsAddUp) {
    const FecTable table({{1, {hopTo(0, 1, 0xfffffffe), hopTo(1, 2, 1)}}});
    EXPECT_EQ(table.choose(intfOf(1), 0xfffffffd, allUp)->port, 0U);
    EXPECT_EQ(table.choose(intfOf(1), 0xfffffffe, allUp)->port, 1U);
    EXPECT_EQ(table.choose(intfOf(1), 0xffffffff, allUp)->port, 0U);
}

TEST(FecTable, OtherInterfacesHaveNoFec) {
    const FecTable table({{42, {hopTo(0, 1, 1)}}});
    for (const Lumo::IntfId other :
         {intfOf(41), Lumo::IntfId(), Lumo::IntfId("east"), Lumo::VlanIntfId::vlanIdToIntfId(42)}) {
        EXPECT_EQ(table.choose(other, 0, allUp), nullptr);
    }
    EXPECT_EQ(FecTable({}).choose(intfOf(42), 0, allUp), nullptr);
}

TEST_F(FecEgress, LeadsToAMemberOfTheFec) {
    receive(labelled(), always(toFec(42)));
    EXPECT_EQ(out[east].frames,
              Frames{join({eastHeader(ethMpls), stack({{300, 0, 63}}), packet()})});
    EXPECT_TRUE(out[plain].frames.empty());
}

TEST_F(FecEgress, AMemberThatIsNotANeighbourIsAReasonToDrop) {
    receive(labelled(), always(toFec(43)));
    EXPECT_EQ(dropped(), (ReasonCounts{{"No neighbour for the next hop", 1}}));
}

TEST_F(FecEgress, AnUnknownFecIsAReasonToDrop) {
    receive(labelled(), always(toFec(44)));
    EXPECT_EQ(dropped(), (ReasonCounts{{"No FEC for the egress interface", 1}}));
}

} // namespace FecTableTest
