#include "FrameBytes.h"
#include "MadeUpVias.h"
#include "Ovix/rewrite/MplsRewrites.h"

namespace ReservedLabelsTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

const Bytes toHost = Raw::ipv4({.destination = 0xc0000201}, Raw::udp());
const Bytes toIpv6Host = Raw::ipv6({.destination = 9}, Raw::udp());
const Bytes lspPing = Raw::ipv4({.destination = 0x7f000001}, Raw::udp(1024, 3503));

class ReservedLabels : public MadeUpViasFixture {
  protected:
    /// Pops one label of a frame with that payload; `inner` is the header taken for the inner one.
    void pop(std::uint32_t label, bool bos, const Bytes& payload, std::int32_t inner = 2,
             bool counting = true) {
        const auto context = contextOf(mplsFrame({{label}}, payload), counting);
        const auto header = context->packetContext()->parsedPkt().header(inner);
        trace.clear();
        plugin->handleReservedLabel(context, nexthop, header, entryOf(label, 64, bos));
    }
    /// The payload types of the pops queued, which are all in uniform mode.
    std::vector<Mpls::PayloadType> pops() const {
        std::vector<Mpls::PayloadType> payloads;
        for (const auto& info : nexthop->rewriteInfos().rewrites()) {
            const auto popInfo = Tessel::ptrCast<MplsPopRewriteInfo>(info);
            EXPECT_TRUE(popInfo) << info->typeName().text();
            if (popInfo) {
                payloads.push_back(popInfo->payload);
                EXPECT_EQ(popInfo->ttlMode, Mpls::TtlMode::uniform);
            }
        }
        return payloads;
    }
    void renew() {
        nexthop = Tessel::make<RoutingNexthop>(Lumo::IntfId());
        counters = Tessel::make<OvixNamedCounters>();
    }

    using Payloads = std::vector<Mpls::PayloadType>;
    Ptr<RoutingNexthop> nexthop = Tessel::make<RoutingNexthop>(Lumo::IntfId());
};

TEST_F(ReservedLabels, AboveTheBottomALabelIsOnlyPopped) {
    for (const std::uint32_t label : {0U, 2U, 7U, 12345U}) {
        for (const Bytes& payload : {toHost, lspPing, Bytes()}) {
            renew();
            pop(label, false, payload);
            EXPECT_EQ(pops(), Payloads{Mpls::PayloadType::none});
            EXPECT_TRUE(nexthop->unresolved());
            EXPECT_TRUE(nexthop->vrfName().empty());
            EXPECT_TRUE(counters->counters().empty());
            EXPECT_TRUE(trace.empty());
        }
    }
}

TEST_F(ReservedLabels, AtTheBottomThePayloadDecidesAndNotTheLabel) {
    for (const std::uint32_t label : {0U, 2U, 7U, 12345U}) {
        renew();
        pop(label, true, toHost);
        EXPECT_EQ(pops(), Payloads{Mpls::PayloadType::ipv4});
        EXPECT_EQ(nexthop->address().text(), "192.0.2.1");
        EXPECT_TRUE(nexthop->vrfName().empty());
        EXPECT_TRUE(nexthop->intfId().empty());
        renew();
        pop(label, true, toIpv6Host);
        EXPECT_EQ(pops(), Payloads{Mpls::PayloadType::ipv6});
        EXPECT_EQ(nexthop->address().text(), "2001:db8::9");
        EXPECT_TRUE(counters->counters().empty());
        EXPECT_TRUE(nexthop->rewriteInfos().finalCounterActions().empty());
    }
}

TEST_F(ReservedLabels, WithoutAnInnerHeaderTheBottomIsADrop) {
    pop(0, true, {});
    EXPECT_EQ(everythingCounted(),
              (std::vector{row("Drop", "No inner header for reserved label bos")}));
    EXPECT_EQ(trace, lines({"No inner header for reserved label bos"}));
    EXPECT_TRUE(nexthop->unresolved());
    EXPECT_TRUE(pops().empty());
    pop(0, true, {}, 2, false);
    EXPECT_EQ(trace, lines({"No inner header for reserved label bos"}));
    EXPECT_EQ(counted("Drop", "No inner header for reserved label bos"), 1U);
}

TEST_F(ReservedLabels, OverAnotherThanAnIpHeaderTheBottomIsADropNamingTheHeader) {
    const Bytes ethernet = Raw::join({Raw::eth(Raw::ethIpv4), toHost});
    pop(2, true, ethernet);
    const char* text = "Unknown inner header type for reserved label bos: Eth";
    EXPECT_EQ(everythingCounted(), (std::vector{row("Drop", text)}));
    EXPECT_EQ(trace, lines({"Next header is not v4 or v6", text}));
    EXPECT_TRUE(nexthop->unresolved());
    EXPECT_TRUE(pops().empty());
    pop(2, true, ethernet, 2, false);
    EXPECT_TRUE(traced(text));
    EXPECT_EQ(counted("Drop", text), 1U);
}

TEST_F(ReservedLabels, AnotherHeaderTypeIsNamedByItsOwnName) {
    pop(0, true, toHost, 3);
    EXPECT_EQ(counted("Drop", "Unknown inner header type for reserved label bos: Udp"), 1U);
}

TEST_F(ReservedLabels, AnOamPacketAtTheBottomIsPuntedInTheDefaultVrf) {
    for (const std::uint32_t label : {0U, 2U, 7U, 12345U}) {
        renew();
        nexthop->vrfNameIs(L3::VrfName("red"));
        pop(label, true, lspPing);
        EXPECT_TRUE(nexthop->isCpuTrapNexthop());
        EXPECT_EQ(nexthop->vrfName().view(), "default");
        EXPECT_EQ(pops(), Payloads{Mpls::PayloadType::none});
        EXPECT_EQ(everythingCounted(),
                  (std::vector{row("Action", "MPLS Oam packet, reset vrf to default")}));
        EXPECT_EQ(trace, lines({"MPLS Oam packet, reset vrf to default"}));
    }
}

TEST_F(ReservedLabels, AnOamPacketWithoutCountersIsPuntedJustTheSame) {
    pop(0, true, lspPing, 2, false);
    EXPECT_TRUE(nexthop->isCpuTrapNexthop());
    EXPECT_TRUE(traced("MPLS Oam packet, reset vrf to default"));
}

TEST_F(ReservedLabels, ThePopsOfSeveralLabelsAddUp) {
    const auto output = routeFrame(mplsFrame({{0}, {7}, {5000, 0}, {2}}, toHost));
    ASSERT_EQ(output->nexthops()->size(), 1U);
    nexthop = output->nexthops()->nexthopFront();
    EXPECT_EQ(pops(), (Payloads{Mpls::PayloadType::none, Mpls::PayloadType::none,
                                Mpls::PayloadType::none, Mpls::PayloadType::ipv4}));
    EXPECT_EQ(nexthop->address().text(), "192.0.2.1");
}

TEST_F(ReservedLabels, AnUnknownLabelUnderAnExplicitNullLeavesNoNexthop) {
    EXPECT_TRUE(routeFrame(mplsFrame({{0}, {4242}}, toHost))->nexthops()->empty());
    EXPECT_EQ(everythingCounted(), (std::vector{row("Drop", "No via set in lfib %s for %s", 4)}));
}

} // namespace

} // namespace ReservedLabelsTest
