#include "FrameBytes.h"
#include "MadeUpVias.h"

namespace MplsRoutingHandlerTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

const Bytes payload = udpPacket(0x0a090001);

class FrameEntry : public MadeUpViasFixture {
  protected:
    /// Hands the frame to the routing handler with a header of the test's choice.
    Ptr<RoutingOutput> process(const Ptr<RoutingContext>& context,
                               const Ptr<PacketHeader>& header) {
        const auto output = Tessel::make<RoutingOutput>();
        plugin->mplsRoutingHandler()->processPacket(output, context, header,
                                                    Tessel::make<RoutingVrfRoot>());
        return output;
    }
};

TEST_F(FrameEntry, WhileRoutingIsOffOnlyThatIsCountedAndTraced) {
    routingInfo->mplsRoutingEnabledIs(false);
    swapRoute(decap, 100, 300);
    EXPECT_TRUE(routeFrame(mplsFrame({{100}}, payload))->nexthops()->empty());
    EXPECT_EQ(everythingCounted(), (std::vector{row("Drop", "Mpls routing not enabled")}));
    EXPECT_EQ(trace, lines({"Mpls routing not enabled"}));
    routingInfo->mplsRoutingEnabledIs(true);
    EXPECT_EQ(routeFrame(mplsFrame({{100}}, payload))->nexthops()->size(), 1U);
}

TEST_F(FrameEntry, WhileRoutingIsOffAFrameWithoutCountersIsStillTraced) {
    routingInfo->mplsRoutingEnabledIs(false);
    EXPECT_TRUE(routeFrame(mplsFrame({{100}}, payload), false)->nexthops()->empty());
    EXPECT_EQ(trace, lines({"Mpls routing not enabled"}));
}

TEST_F(FrameEntry, HeaderDataThatIsAbsentOrOfAnotherTypeIsADrop) {
    const std::array<VlanTagHeaderData::Tag, 1> tags{};
    const auto context = contextOf(mplsFrame({{100}}, payload));
    const auto headerWith = [&](Ptr<PacketHeaderData> data) {
        return Tessel::make<PacketHeader>(1, PktHdrType::mpls, context->packetContext()->pkt(), 14U,
                                          4U, std::move(data));
    };
    EXPECT_TRUE(process(context, headerWith(nullptr))->nexthops()->empty());
    EXPECT_EQ(everythingCounted(), (std::vector{row("Drop", "No mplsHeaderData")}));
    EXPECT_EQ(trace, lines({"No mplsHeaderData"}));
    EXPECT_TRUE(
        process(context, headerWith(Tessel::make<VlanTagHeaderData>(tags)))->nexthops()->empty());
    EXPECT_EQ(everythingCounted(), (std::vector{row("Drop", "No mplsHeaderData", 2)}));
    const auto uncounted = contextOf(mplsFrame({{100}}, payload), false);
    EXPECT_TRUE(process(uncounted, headerWith(nullptr))->nexthops()->empty());
    EXPECT_EQ(timesTraced("No mplsHeaderData"), 3U);
}

TEST_F(FrameEntry, AFrameWithoutItsHeaderIsABrokenPromise) {
    const auto context = contextOf(mplsFrame({{100}}, payload));
    EXPECT_DEATH(process(context, nullptr), "Assertion.*header");
}

TEST_F(FrameEntry, AnOamFrameIsPuntedWithoutALookup) {
    swapRoute(decap, 1, 300);
    swapRoute(decap, 100, 300);
    for (const Bytes& frame : {mplsFrame({{1}, {100}}, payload), mplsFrame({{0}, {1}}, payload),
                               mplsFrame({{2}}, udpPacket(0x7f000001, 3503))}) {
        counters = Tessel::make<OvixNamedCounters>();
        trace.clear();
        const auto output = routeFrame(frame);
        ASSERT_EQ(output->nexthops()->size(), 1U);
        EXPECT_TRUE(output->nexthops()->nexthopFront()->isCpuTrapNexthop());
        EXPECT_TRUE(output->nexthops()->nexthopFront()->rewriteInfos().rewrites().empty());
        EXPECT_EQ(everythingCounted(), (std::vector{row("Action", "MPLS Oam packet")}));
        EXPECT_EQ(trace, lines({"MPLS Oam packet"}));
    }
}

TEST_F(FrameEntry, AnOamFrameWithoutCountersIsPuntedJustTheSame) {
    const auto output = routeFrame(mplsFrame({{1}}, payload), false);
    ASSERT_EQ(output->nexthops()->size(), 1U);
    EXPECT_TRUE(output->nexthops()->nexthopFront()->isCpuTrapNexthop());
    EXPECT_TRUE(traced("MPLS Oam packet"));
}

TEST_F(FrameEntry, AnUnknownTopLabelIsADropCountedOncePerTableAndOnceForTheFrame) {
    EXPECT_TRUE(routeFrame(mplsFrame({{4242}, {100}}, payload))->nexthops()->empty());
    EXPECT_EQ(
        everythingCounted(),
        (std::vector{row("Drop", "No via set in lfib %s for %s", 4),
                     row("Drop", "No labels resolved to via sets, and nexthop not resolved")}));
    ASSERT_EQ(trace.size(), 8U);
    EXPECT_EQ(trace.front(), "Pkt 7: Mpls processing label 4242");
    EXPECT_EQ(trace[5], "Pkt 7: No route in hw status for label 4242");
    EXPECT_EQ(trace[6], "Pkt 7: No viaSet for label 4242");
    EXPECT_EQ(trace[7], "Pkt 7: No labels resolved to via sets, and nexthop not resolved");
}

TEST_F(FrameEntry, NexthopsThatStayUnresolvedAreLeftOutWithoutADrop) {
    madeUpRoute(decap, 100);
    const auto handler = handlerAnswers({1});
    EXPECT_TRUE(routeFrame(mplsFrame({{100}}, payload))->nexthops()->empty());
    EXPECT_EQ(handler->seen.size(), 1U);
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(FrameEntry, NexthopsWithAnInterfaceOrAnAddressAreCopiedInOrder) {
    madeUpRoute(decap, 100);
    handlerIs([](const Ptr<MplsContext>& context) {
        const auto byIntf = Tessel::make<RoutingNexthop>(Lumo::IntfId("east"));
        const auto neither = Tessel::make<RoutingNexthop>(Lumo::IntfId());
        const auto byAddress = Tessel::make<RoutingNexthop>(Lumo::IntfId());
        byAddress->addressIs(Lumo::IpGenAddr::fromText("192.0.2.1"));
        for (const auto& nexthop : {byIntf, neither, byAddress}) {
            context->nexthops()->nexthopEnq(nexthop);
        }
        return ProcessingResult{1};
    });
    const auto output = routeFrame(mplsFrame({{100}}, payload));
    ASSERT_EQ(output->nexthops()->size(), 2U);
    auto nexthop = output->nexthops()->begin();
    EXPECT_EQ((*nexthop)->intfId(), Lumo::IntfId("east"));
    ++nexthop;
    EXPECT_EQ((*nexthop)->address().text(), "192.0.2.1");
    EXPECT_TRUE((*nexthop)->intfId().empty());
}

TEST_F(FrameEntry, AnAllZeroAddressOfAFamilyIsStillAnAddress) {
    madeUpRoute(decap, 100);
    handlerIs([](const Ptr<MplsContext>& context) {
        context->nexthops()->nexthopFront()->addressIs(Lumo::IpGenAddr(Lumo::IpFamily::ipv4));
        return ProcessingResult{1};
    });
    EXPECT_EQ(routeFrame(mplsFrame({{100}}, payload))->nexthops()->size(), 1U);
}

TEST_F(FrameEntry, ViasAreHandledWithOneUnresolvedWorkingNexthop) {
    madeUpRoute(decap, 100);
    std::size_t size = 0;
    bool unresolved = false;
    handlerIs([&](const Ptr<MplsContext>& context) {
        size = context->nexthops()->size();
        unresolved = context->nexthops()->nexthopFront()->unresolved();
        return ProcessingResult{1};
    });
    routeFrame(mplsFrame({{100}}, payload));
    EXPECT_EQ(size, 1U);
    EXPECT_TRUE(unresolved);
}

TEST_F(FrameEntry, TheHeaderBehindTheStackIsTheInnerHeader) {
    madeUpRoute(decap, 100);
    struct Row {
        Bytes frame;
        PktHdrType type;
    };
    for (const Row& one : {Row{mplsFrame({{100}, {200}}, payload), PktHdrType::ipv4},
                           Row{mplsFrame({{100}}, Raw::ipv6({}, Raw::udp())), PktHdrType::ipv6},
                           Row{mplsFrame({{100}}, {}), PktHdrType::none}}) {
        const auto handler = handlerAnswers({1});
        routeFrame(one.frame);
        ASSERT_EQ(handler->seen.size(), 1U);
        const Ptr<PacketHeader> inner = handler->seen[0]->packetHeader();
        EXPECT_EQ(inner ? inner->pktHdrType() : PktHdrType::none, one.type);
        if (inner) {
            EXPECT_EQ(inner->position(), 2);
        }
    }
}

TEST_F(FrameEntry, AFrameIsLookedAtAgainEveryTime) {
    EXPECT_TRUE(routeFrame(mplsFrame({{100}}, payload))->nexthops()->empty());
    swapRoute(decap, 100, 300);
    EXPECT_EQ(routeFrame(mplsFrame({{100}}, payload))->nexthops()->size(), 1U);
    writers[decap]->routeDel(key(100));
    EXPECT_TRUE(routeFrame(mplsFrame({{100}}, payload))->nexthops()->empty());
}

TEST_F(FrameEntry, ARangeErrorPassesThroughToTheAgent) {
    swapRoute(decap, 100, 300);
    try {
        routeFrame(mplsFrame(std::vector<TestSupport::Entry>(14, {100}), payload));
        FAIL() << "the stack of 14 labels was walked";
    } catch (const Tessel::RangeError& error) {
        EXPECT_STREQ(error.what(), "Lumo::MplsStackEntryIndex::value < "
                                   "Lumo::MplsStackEntryIndex::min or > "
                                   "Lumo::MplsStackEntryIndex::nullValue not allowed");
    }
}

TEST_F(FrameEntry, EventsGoToTheTextTraceAndTheRingAtLevel0) {
    TraceSource& source = TraceSource::named("Routing::Mpls", "Ovix::Routing::Mpls");
    source.ringLevelIs(0);
    std::vector<std::tuple<std::string, unsigned, std::string>> text;
    TraceOutput::instance().textSinkIs(
        [&](std::string_view name, unsigned level, std::string_view line) {
            text.emplace_back(name, level, line);
        });
    routingInfo->mplsRoutingEnabledIs(false);
    const auto context = Tessel::make<RoutingContext>(
        0xffffffffffffffffU,
        Tessel::make<PacketContext>(Lumo::globalPktManager()->newPkt(mplsFrame({{100}}, payload))),
        counters);
    process(context, context->packetContext()->parsedPkt().header(1));
    source.ringLevelIs(TraceSource::off);
    const std::string line = "Pkt 18446744073709551615: Mpls routing not enabled";
    ASSERT_EQ(text.size(), 1U);
    EXPECT_EQ(text[0], std::make_tuple(std::string("Ovix::Routing::Mpls"), 0U, line));
    TraceRing::Record latest;
    TraceOutput::instance().ring().visit([&](const TraceRing::Record& record) { latest = record; });
    EXPECT_EQ(latest.tag, "Routing::Mpls");
    EXPECT_EQ(latest.level, 0U);
    EXPECT_EQ(latest.line.view(), line);
}

TEST_F(FrameEntry, TheDoorBelongsToThePluginAndIsNamedMpls) {
    EXPECT_EQ(plugin->mplsRoutingHandler()->name(), "Mpls");
    EXPECT_EQ(plugin->mplsRoutingHandler()->plugin(), plugin.get());
}

} // namespace

} // namespace MplsRoutingHandlerTest
