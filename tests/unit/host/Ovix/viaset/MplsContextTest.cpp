#include "Ovix/viaset/MplsContext.h"

#include <gtest/gtest.h>

namespace MplsContextTest {

namespace {

using namespace Ovix;

TEST(MplsContext, HasAPacketContextOnlyThroughItsRoutingContext) {
    const auto packet = Tessel::make<PacketContext>(Lumo::globalPktManager()->newPkt({}));
    const auto routing = Tessel::make<RoutingContext>(7U, packet, nullptr);
    const Lumo::MplsLabelEntry entry(Lumo::MplsLabel(100), 0, true, 64);
    const auto contextOf = [&](const Ptr<RoutingContext>& of) {
        return Tessel::make<MplsContext>(of, entry, nullptr, nullptr, nullptr,
                                         Lumo::MplsStackEntryIndex(0), nullptr);
    };
    EXPECT_EQ(contextOf(routing)->pktCtx(), packet);
    EXPECT_FALSE(contextOf(nullptr)->pktCtx());
    EXPECT_FALSE(contextOf(nullptr)->viaIndex().has_value());
}

} // namespace

} // namespace MplsContextTest
