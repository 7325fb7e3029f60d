#include "IpLookupTesting.h"
#include "Ovix/rewrite/MplsRewrites.h"
#include "Ovix/routing/RewriteInfo.h"

namespace MplsIpLookupViaTypeHandlerTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

const Bytes ping4 = udpPacket(0x7f000001, 3503);

using IpLookupVia = IpLookupViaFixture;

TEST_F(IpLookupVia, PopsAndPointsAtTheDestinationOfThePayload) {
    EXPECT_EQ(process(mplsFrame({{100}}, ip4), lookupIn("red", PayloadType::ipv4)), 1);
    EXPECT_EQ(nexthop().address().text(), "192.0.2.1");
    EXPECT_EQ(nexthop().vrfName().view(), "red");
    EXPECT_TRUE(nexthop().intfId().empty());
    ASSERT_EQ(rewrites(), 1U);
    const Ptr<RewriteInfo> rewrite = nexthop().rewriteInfos().rewrites().front();
    ASSERT_EQ(rewrite->typeName().text(), "MplsPop");
    const auto& pop = static_cast<const MplsPopRewriteInfo&>(*rewrite);
    EXPECT_EQ(pop.payload, PayloadType::ipv4);
    EXPECT_EQ(pop.ttlMode, Mpls::TtlMode::pipe);
    EXPECT_EQ(trace, lines({"Vrf is not default, set VRF to red"}));
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(IpLookupVia, QueuesOneCounterActionForTheIncomingLabelWithTheSizeReceived) {
    const Bytes frame = mplsFrame({{100}}, ip4);
    process(frame, lookupIn("default", PayloadType::ipv4));
    ASSERT_EQ(counterActions(), 1U);
    const auto info = Tessel::ptrCast<LfibCounterActionInfo>(
        nexthop().rewriteInfos().finalCounterActions().front());
    EXPECT_EQ(info->routeKey(), key(100));
    EXPECT_EQ(info->byteCount(), frame.size());
}

TEST_F(IpLookupVia, AnAddressOfNothingButZerosIsNotCountedForTheLabel) {
    process(mplsFrame({{100}}, udpPacket(0)), lookupIn("default", PayloadType::ipv4));
    EXPECT_EQ(nexthop().address(), Lumo::IpGenAddr(Lumo::IpFamily::ipv4));
    EXPECT_EQ(rewrites(), 1U);
    EXPECT_EQ(counterActions(), 0U);
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(IpLookupVia, AboveAnotherLabelThePopIsAll) {
    for (const auto payload : {PayloadType::undefined, PayloadType::none, PayloadType::ipv4,
                               PayloadType::ethernet, PayloadType::automatic}) {
        trace.clear();
        EXPECT_EQ(process(mplsFrame({{100}, {200}}, ping4), lookupIn("red", payload)), 1);
        EXPECT_EQ(rewrites(), 1U);
        EXPECT_EQ(counterActions(), 0U);
        EXPECT_TRUE(nexthop().unresolved());
        EXPECT_EQ(nexthop().vrfName().view(), "red");
        EXPECT_EQ(trace, lines({"Vrf is not default, set VRF to red"}));
    }
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(IpLookupVia, TheDefaultVrfIsNeverWritten) {
    for (const std::string_view vrf : {"default", "Default", "default2", "defaul", "red", ""}) {
        trace.clear();
        process(mplsFrame({{100}}, ip4), lookupIn(vrf, PayloadType::ipv4));
        EXPECT_EQ(nexthop().vrfName().view(), vrf == "default" ? "" : vrf);
        EXPECT_EQ(timesTraced("Vrf is not default, set VRF to " + std::string(vrf)),
                  vrf == "default" ? 0U : 1U);
    }
}

TEST_F(IpLookupVia, AHeaderWithNothingBehindItHasADestination) {
    process(mplsFrame({{100}}, Raw::ipv4({}, {})), lookupIn("default", PayloadType::ipv4));
    EXPECT_EQ(nexthop().address().text(), "192.0.2.1");
    EXPECT_EQ(counterActions(), 1U);
    process(mplsFrame({{100}}, Raw::ipv6({}, {})), lookupIn("default", PayloadType::ipv6));
    EXPECT_EQ(nexthop().address().text(), "2001:db8::2");
    EXPECT_EQ(counterActions(), 1U);
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(IpLookupVia, TheVrfIsWrittenBeforeThePopIsFoundImpossible) {
    process(mplsFrame({{100}}, {}), lookupIn("red", PayloadType::none));
    expectDrop("no rewrite");
    EXPECT_EQ(nexthop().vrfName().view(), "red");
}

TEST_F(IpLookupVia, ASetOfSeveralViasIsDroppedBeforeTheTableIsAsked) {
    EXPECT_EQ(process(mplsFrame({{100}}, ip4), setOfIpVias(2)), 1);
    expectDrop("More than 1 via");
    EXPECT_EQ(rewrites(), 0U);
    EXPECT_EQ(writers[decap]->status()->corruptionsDetected(), 0U);
}

TEST_F(IpLookupVia, AnEmptySetIsDroppedInTheSameWords) {
    EXPECT_EQ(
        process(mplsFrame({{100}}, ip4), Tessel::make<MadeUpViaSet>(std::vector<std::uint32_t>{})),
        1);
    expectDrop("More than 1 via");
}

TEST_F(IpLookupVia, AViaOfNoTableIsNoVia) {
    EXPECT_EQ(process(mplsFrame({{100}}, ip4), Tessel::make<MadeUpViaSet>()), 1);
    expectDrop("No via");
    EXPECT_EQ(rewrites(), 0U);
}

TEST_F(IpLookupVia, AViaOfATableThatIsNoLongerMountedIsNoVia) {
    const auto set = lookupIn("red", PayloadType::ipv4);
    plugin->lfibTables()->decapLfibIs(nullptr);
    EXPECT_EQ(process(mplsFrame({{100}}, ip4), set), 1);
    expectDrop("No via");
}

TEST_F(IpLookupVia, ADamagedRecordIsReportedToTheTableAndIsNoVia) {
    EXPECT_EQ(process(mplsFrame({{100}}, ip4), setOfIpVias(1)), 1);
    expectDrop("No via");
    EXPECT_EQ(writers[decap]->status()->corruptionsDetected(), 1U);
}

TEST_F(IpLookupVia, IsReadFromTheTableThatTheLabelWasFoundIn) {
    for (const Table table : {decap, evpnEs, pseudowire, evpnLeaf, transit}) {
        const std::string vrf = "vrf" + std::to_string(table);
        process(mplsFrame({{100}}, ip4), lookupIn(vrf, PayloadType::ipv4, table));
        EXPECT_EQ(nexthop().vrfName().view(), vrf);
    }
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(IpLookupVia, OfSeveralNextHopsTheFirstIsUsed) {
    EXPECT_EQ(process(mplsFrame({{100}}, ip4), lookupIn("default", PayloadType::ipv4), 3), 1);
    EXPECT_EQ(everythingCounted(),
              (std::vector{row("Exceptional", "Using first nexthop, but %s nexthops found")}));
    EXPECT_EQ(trace, lines({"Using first nexthop, but 3 nexthops found"}));
    EXPECT_EQ(nexthop().address().text(), "192.0.2.1");
    auto other = nexthops->begin();
    EXPECT_TRUE((*++other)->unresolved());
    EXPECT_TRUE((*++other)->unresolved());
}

TEST_F(IpLookupVia, SeveralNextHopsAreReportedOnceTheViaIsKnownAndBeforeAPing) {
    process(mplsFrame({{100}}, ping4), setOfIpVias(2), 2);
    expectDrop("More than 1 via");
    counters = Tessel::make<OvixNamedCounters>();
    process(mplsFrame({{100}}, ping4), lookupIn("red", PayloadType::ipv4), 2);
    EXPECT_EQ(trace, lines({"Using first nexthop, but 2 nexthops found", "MPLS Oam packet"}));
    EXPECT_EQ(counted("Exceptional", "Using first nexthop, but %s nexthops found"), 1U);
    EXPECT_EQ(counted("Action", "MPLS Oam packet"), 1U);
}

TEST_F(IpLookupVia, AnLspPingGoesToTheCpuAsItIs) {
    Bytes ping6 = Raw::ipv6({}, Raw::udp(1024, 3503));
    std::fill(ping6.begin() + 24, ping6.begin() + 39, std::uint8_t{0});
    ping6[39] = 1;
    const std::pair<PayloadType, Bytes> cases[]{{PayloadType::ipv4, ping4},
                                                {PayloadType::ipv6, ping6}};
    for (const auto& given : cases) {
        counters = Tessel::make<OvixNamedCounters>();
        trace.clear();
        EXPECT_EQ(process(mplsFrame({{100}}, given.second), lookupIn("red", given.first)), 1);
        EXPECT_TRUE(nexthop().isCpuTrapNexthop());
        EXPECT_TRUE(nexthop().vrfName().empty());
        EXPECT_EQ(rewrites(), 0U);
        EXPECT_EQ(counterActions(), 0U);
        EXPECT_EQ(everythingCounted(), (std::vector{row("Action", "MPLS Oam packet")}));
        EXPECT_EQ(trace, lines({"MPLS Oam packet"}));
    }
}

TEST_F(IpLookupVia, OnlyAPayloadTypeOfIpIsExaminedForOam) {
    process(mplsFrame({{100}}, ping4), lookupIn("default", PayloadType::automatic));
    EXPECT_FALSE(nexthop().isCpuTrapNexthop());
    EXPECT_EQ(nexthop().address().text(), "127.0.0.1");
    EXPECT_EQ(trace, lines({"Not IP payload type"}));
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(IpLookupVia, AnAutomaticPayloadIsParsedToItsEnd) {
    nexthopsAre(1);
    const auto context = contextOf(mplsFrame({{100}}, ip4));
    const auto set = lookupIn("default", PayloadType::automatic);
    const auto label = labelContext(context, set);
    EXPECT_FALSE(context->packetContext()->parsedPkt().complete());
    handler->processMplsVia(label);
    EXPECT_TRUE(context->packetContext()->parsedPkt().complete());
}

TEST_F(IpLookupVia, WithNothingUnderTheLabelThereIsNoOamToLookFor) {
    process(mplsFrame({{100}}, {}), lookupIn("default", PayloadType::automatic));
    EXPECT_EQ(trace, lines({"No inner headers for auto decided payload"}));
}

TEST_F(IpLookupVia, WhereAnAddressIsAlreadyThereOnlyAnUnknownPayloadTypeIsCounted) {
    const std::pair<PayloadType, std::size_t> cases[]{
        {PayloadType::none, 0}, {PayloadType{6}, 1}, {PayloadType{255}, 1}};
    const Lumo::IpGenAddr address = Lumo::IpGenAddr::ipv4(udpPacket(0x0a000001).data() + 16);
    for (const auto& [payload, actions] : cases) {
        const auto set = lookupIn("default", payload);
        nexthopsAre(1);
        nexthops->nexthopFront()->addressIs(address);
        EXPECT_EQ(handler->processMplsVia(labelContext(contextOf(mplsFrame({{100}}, ip4)), set)),
                  1);
        EXPECT_EQ(nexthop().address(), address);
        EXPECT_EQ(rewrites(), 1U);
        EXPECT_EQ(counterActions(), actions) << static_cast<int>(payload);
    }
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(IpLookupVia, AHeaderThatThePacketHasLostSinceItWasParsedIsNoInnerHeader) {
    const std::pair<PayloadType, const char*> cases[]{
        {PayloadType::ipv4, "No inner headers for v4 payload"},
        {PayloadType::automatic, "No inner headers for auto decided payload"}};
    const Bytes frame = mplsFrame({{100}}, ip4);
    const Bytes labelAlone = mplsFrame({{100}}, {});
    for (const auto& [payload, reason] : cases) {
        counters = Tessel::make<OvixNamedCounters>();
        const auto set = lookupIn("default", payload);
        nexthopsAre(1);
        const auto context = contextOf(frame);
        const auto label = labelContext(context, set);
        context->packetContext()->replacePacket(Lumo::globalPktManager()->newPkt(labelAlone),
                                                PktCtxParse::keep);
        EXPECT_EQ(handler->processMplsVia(label), 1);
        expectDrop(reason);
    }
}

TEST_F(IpLookupVia, AnEthernetPayloadOfAnIpTypeIsNoOam) {
    process(mplsFrame({{100}}, ethernet), lookupIn("default", PayloadType::ipv4));
    EXPECT_FALSE(nexthop().isCpuTrapNexthop());
    EXPECT_EQ(trace, lines({"Next header is not v4 or v6"}));
}

TEST_F(IpLookupVia, BothViaTypesAreServedFromTheRegistryByHandlersOfTheirOwn) {
    const auto& registry = *plugin->mplsViaTypeHandlerRegistry();
    const Ptr<MplsViaTypeHandler> perVrf = registry.handler(LfibViaType::ipLookup);
    const Ptr<MplsViaTypeHandler> perPrefix = registry.handler(LfibViaType::ipLookupPerPrefix);
    ASSERT_TRUE(perVrf && perPrefix);
    EXPECT_NE(perVrf, perPrefix);
    for (const auto& one : {perVrf, perPrefix}) {
        const auto lookup = Tessel::ptrCast<MplsIpLookupViaTypeHandler>(one);
        ASSERT_TRUE(lookup);
        EXPECT_EQ(lookup->lfibTables(), plugin->lfibTables());
        EXPECT_EQ(lookup->counterCollection(), plugin->lfibCounterCollection());
    }
    plugin->doRegisterMplsViaTypeHandlers();
    EXPECT_NE(registry.handler(LfibViaType::ipLookup), perVrf);
    EXPECT_NE(registry.handler(LfibViaType::ipLookupPerPrefix), perPrefix);
}

TEST_F(IpLookupVia, ALabelledFrameLeavesThePluginWithVrfAndAddress) {
    for (const auto type : {LfibViaType::ipLookup, LfibViaType::ipLookupPerPrefix}) {
        writers[decap]->ipLookupRouteIs(key(100), type, "red", PayloadType::automatic);
        const auto output = routeFrame(mplsFrame({{100}}, ip6));
        ASSERT_EQ(output->nexthops()->size(), 1U);
        const RoutingNexthop& out = *output->nexthops()->nexthopFront();
        EXPECT_EQ(out.vrfName().view(), "red");
        EXPECT_EQ(out.address().text(), "2001:db8::2");
    }
}

TEST_F(IpLookupVia, ADroppedFrameLeavesThePluginWithoutANextHop) {
    writers[decap]->ipLookupRouteIs(key(100), LfibViaType::ipLookup, "red", PayloadType::ethernet);
    EXPECT_TRUE(routeFrame(mplsFrame({{100}}, ethernet))->nexthops()->empty());
    EXPECT_EQ(counted("Drop", "Ethernet is unsupported as a payload type"), 1U);
}

} // namespace

} // namespace MplsIpLookupViaTypeHandlerTest
