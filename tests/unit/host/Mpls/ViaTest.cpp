#include "Mpls/Via.h"

#include <gtest/gtest.h>
#include <string>

#include "TableTesting.h"

namespace ViaTest {

namespace {

using Lumo::MplsLabel;
using Lumo::MplsLabelAction;
using Mpls::PayloadType;
using Mpls::TtlMode;
using Mpls::Via;
using Mpls::ViaOptions;
using Ovix::OvixMplsVia;
using Labels = std::vector<MplsLabel>;

ViaOptions toEast() {
    ViaOptions options;
    options.intf = Lumo::IntfId("east");
    options.nexthop = Lumo::IpGenAddr::fromText("10.0.2.2");
    return options;
}

Labels stackOf(std::size_t depth) {
    return Labels(depth, MplsLabel(1000));
}

std::string refusalOf(const Tessel::Result<Via>& via) {
    return via ? "" : via.refused().what;
}

TEST(Via, EachConstructorMakesItsLabelOperation) {
    const Labels labels{MplsLabel(200), MplsLabel(MplsLabel::max)};
    EXPECT_EQ(Via::swap(labels, toEast()).value().action(), MplsLabelAction::swap);
    EXPECT_EQ(Via::swap(labels, toEast()).value().labels(), labels);
    EXPECT_EQ(Via::push(labels, toEast()).value().action(), MplsLabelAction::push);
    EXPECT_EQ(Via::push(labels, toEast()).value().labels(), labels);
    EXPECT_EQ(Via::pop(toEast()).value().action(), MplsLabelAction::pop);
    EXPECT_TRUE(Via::pop(toEast()).value().labels().empty());
    EXPECT_EQ(Via::forward(toEast()).value().action(), MplsLabelAction::none);
}

TEST(Via, ALookUpNamesItsVrfAndLeadsToNoPort) {
    const Via red = Via::popAndLookUp("red", PayloadType::ipv4).value();
    EXPECT_TRUE(red.isLookUp());
    EXPECT_EQ(red.action(), MplsLabelAction::pop);
    EXPECT_EQ(red.options().vrf.view(), "red");
    EXPECT_EQ(red.options().payload, PayloadType::ipv4);
    EXPECT_EQ(Via::popAndLookUp("", PayloadType::automatic).value().options().vrf.view(),
              "default");
    Ovix::OvixMplsVia inRed = Via::pop(toEast()).value().record();
    inRed.vrfName = "red";
    EXPECT_FALSE(Via::fromRecord(inRed).value().isLookUp());
}

TEST(Via, WhatCouldHaveNoEffectIsRefused) {
    ViaOptions options = toEast();
    options.vrf = "red";
    EXPECT_EQ(refusalOf(Via::pop(options)),
              "vrf goes with a lookup, which leads to no interface, nexthop or fec");
    for (const PayloadType payload : {PayloadType::ethernet, PayloadType::undefined}) {
        options = toEast();
        options.payload = payload;
        EXPECT_EQ(refusalOf(Via::swap(stackOf(1), options)), "only a pop exposes a payload");
        EXPECT_EQ(refusalOf(Via::push(stackOf(1), options)), "only a pop exposes a payload");
        EXPECT_TRUE(Via::pop(options));
        ViaOptions ofFec;
        ofFec.payload = payload;
        EXPECT_EQ(refusalOf(Via::towardFec(1, MplsLabelAction::swap, stackOf(1), ofFec)),
                  "only a pop exposes a payload");
    }
    options.tcUniform = true;
    options.payload = PayloadType::ipv6;
    EXPECT_TRUE(Via::pop(options));
    options.payload = PayloadType::ethernet;
    EXPECT_EQ(refusalOf(Via::pop(options)),
              "tc uniform writes the class of a packet (RFC 3270), and an Ethernet frame has none");
}

TEST(Via, EveryOptionComesBack) {
    ViaOptions options = toEast();
    options.ttl = TtlMode::pipe;
    options.tc = 0;
    options.pushTc = 7;
    options.pushTtl = 9;
    options.mtu = 1400;
    options.vlan = 4094;
    options.controlWord = true;
    EXPECT_EQ(Via::swap(stackOf(2), options).value().options(), options);
    options = toEast();
    options.tcUniform = true;
    options.payload = PayloadType::ipv4;
    EXPECT_EQ(Via::pop(options).value().options(), options);
    EXPECT_EQ(Via::pop(toEast()).value().options(), toEast());
    options = toEast();
    options.entropy = true;
    options.ttl = TtlMode::pipe;
    options.pushTtl = 255;
    EXPECT_EQ(Via::push(stackOf(1), options).value().options(), options);
}

TEST(Via, TakesOneToThirtyThreeLabels) {
    EXPECT_EQ(Via::push(stackOf(33), toEast()).value().labels(), stackOf(33));
    for (const std::size_t depth : {std::size_t{0}, std::size_t{34}, std::size_t{100000}}) {
        const std::string refusal =
            std::to_string(depth) + " labels given, push and swap take 1 to 33";
        EXPECT_EQ(refusalOf(Via::swap(stackOf(depth), toEast())), refusal);
        EXPECT_EQ(refusalOf(Via::push(stackOf(depth), toEast())), refusal);
    }
    EXPECT_EQ(refusalOf(Via::swap(Labels{MplsLabel(16), Lumo::implicitNull}, toEast())),
              "label 3 (implicit null) never stands in a frame (RFC 3032 section 2.1)");
}

TEST(Via, LeadsToAnInterfaceANextHopOrAFec) {
    const char* const nowhere = "leads nowhere: interface, nexthop or fec is needed";
    EXPECT_EQ(refusalOf(Via::pop({})), nowhere);
    EXPECT_EQ(refusalOf(Via::forward({})), nowhere);
    EXPECT_EQ(refusalOf(Via::swap(stackOf(1), {})), nowhere);
    ViaOptions options;
    options.vrf = "red";
    EXPECT_EQ(refusalOf(Via::pop(options)), nowhere);
    options = {};
    options.intf = Lumo::IntfId("east");
    EXPECT_TRUE(Via::pop(options));
    options = {};
    options.nexthop = Lumo::IpGenAddr::fromText("::2");
    EXPECT_TRUE(Via::pop(options));
    EXPECT_TRUE(Via::towardFec(1, MplsLabelAction::swap, stackOf(1), {}));
    EXPECT_EQ(refusalOf(Via::towardFec(0, MplsLabelAction::swap, stackOf(1), {})), nowhere);
}

TEST(Via, TowardAFecLabelsArePushedOrSwappedAndNothingElse) {
    for (const MplsLabelAction action : {MplsLabelAction::push, MplsLabelAction::swap}) {
        const Via via = Via::towardFec(Via::maxFec, action, stackOf(2), {}).value();
        EXPECT_EQ(via.action(), action);
        EXPECT_EQ(via.fec(), Via::maxFec);
        EXPECT_EQ(via.labels(), stackOf(2));
    }
    EXPECT_EQ(Via::pop(toEast()).value().fec(), 0U);
    EXPECT_EQ(refusalOf(Via::towardFec(1, MplsLabelAction::pop, {}, {})),
              "only push and swap lead to a fec");
    void (*const more[])(ViaOptions&){
        [](ViaOptions& options) { options.intf = Lumo::IntfId("east"); },
        [](ViaOptions& options) { options.nexthop = Lumo::IpGenAddr::fromText("::1"); },
        [](ViaOptions& options) { options.vrf = "red"; },
        [](ViaOptions& options) { options.mtu = 1400; },
        [](ViaOptions& options) { options.vlan = 7; },
        [](ViaOptions& options) { options.controlWord = true; },
    };
    for (const auto& change : more) {
        ViaOptions options;
        change(options);
        EXPECT_EQ(refusalOf(Via::towardFec(1, MplsLabelAction::swap, stackOf(1), options)),
                  "the next hops of a fec have its interface, nexthop, vrf, mtu and vlan");
    }
}

TEST(Via, ANextHopIsTheAddressOfOneStation) {
    for (const char* const none : {"0.0.0.0", "0.1.2.3", "127.0.0.1", "224.0.0.1", "240.0.0.1",
                                   "255.255.255.255", "::", "::1", "ff02::1"}) {
        ViaOptions options = toEast();
        options.nexthop = Lumo::IpGenAddr::fromText(none);
        EXPECT_EQ(refusalOf(Via::pop(options)),
                  std::string("next hop ") + none + " is not the address of one station");
    }
    for (const char* const one : {"1.0.0.0", "169.254.1.1", "223.255.255.255", "fe80::1", "::2"}) {
        ViaOptions options = toEast();
        options.nexthop = Lumo::IpGenAddr::fromText(one);
        EXPECT_TRUE(Via::pop(options)) << one;
    }
}

TEST(Via, APushTtlInUniformModeIsRefused) {
    ViaOptions options = toEast();
    options.pushTtl = 9;
    EXPECT_EQ(refusalOf(Via::push(stackOf(1), options)),
              "push-ttl 9 goes with ttl pipe; in uniform mode pushed labels have the packet's TTL "
              "(RFC 3443)");
    options.ttl = TtlMode::pipe;
    EXPECT_TRUE(Via::push(stackOf(1), options));
}

TEST(Via, APushTtlOfASwapThatPushesNothingIsRefused) {
    ViaOptions options = toEast();
    options.ttl = TtlMode::pipe;
    options.pushTtl = 9;
    EXPECT_EQ(refusalOf(Via::swap(stackOf(1), options)),
              "push-ttl 9 goes with a push, and with a swap to several labels");
    EXPECT_TRUE(Via::swap(stackOf(2), options));
}

TEST(Via, ATrafficClassThatNoLabelWouldShowIsRefused) {
    const char* const noLabels = "tc 0 goes with push and swap, which write labels";
    ViaOptions options = toEast();
    options.tc = 0;
    EXPECT_EQ(refusalOf(Via::pop(options)), noLabels);
    EXPECT_EQ(refusalOf(Via::forward(options)), noLabels);
    EXPECT_TRUE(Via::push(stackOf(1), options));
    options = toEast();
    options.pushTtl = 9;
    EXPECT_EQ(refusalOf(Via::pop(options)),
              "push-ttl 9 goes with push and swap, which write labels");
    options = toEast();
    options.tcUniform = true;
    EXPECT_EQ(refusalOf(Via::swap(stackOf(1), options)), "tc uniform goes with pop");
    EXPECT_EQ(refusalOf(Via::forward(options)), "tc uniform goes with pop");
    options = toEast();
    options.pushTc = 0;
    const char* const oneLabel = "push-tc 0 goes with a swap to several labels";
    EXPECT_EQ(refusalOf(Via::swap(stackOf(1), options)), oneLabel);
    EXPECT_EQ(refusalOf(Via::push(stackOf(2), options)), oneLabel);
    EXPECT_TRUE(Via::swap(stackOf(2), options));
}

TEST(Via, ARecordThatIsLegalIsTheViaItCameFrom) {
    const Via swap = Via::swap(stackOf(2), toEast()).value();
    const Via lookUp = Via::popAndLookUp("red", PayloadType::ipv6).value();
    EXPECT_EQ(Via::fromRecord(swap.record()).value(), swap);
    EXPECT_EQ(Via::fromRecord(lookUp.record()).value(), lookUp);
    EXPECT_NE(swap, lookUp);
}

struct Damage {
    const char* refusal;
    void (*change)(OvixMplsVia&);
};

TEST(Via, ARecordThatIsNotLegalIsRefused) {
    const OvixMplsVia whole = Via::swap(stackOf(2), toEast()).value().record();
    const std::vector<Damage> damages{
        {"label action 4 is unknown", [](OvixMplsVia& via) { via.labelAction = 4; }},
        {"only push and swap take labels", [](OvixMplsVia& via) { via.labelAction = 2; }},
        {"payload type 6 is unknown", [](OvixMplsVia& via) { via.payloadType = 6; }},
        {"TTL mode 2 is unknown", [](OvixMplsVia& via) { via.ttlMode = 2; }},
        {"traffic class 8 is not 0 to 7", [](OvixMplsVia& via) { via.trafficClass = 8; }},
        {"traffic class 31 is not 0 to 7", [](OvixMplsVia& via) { via.trafficClass = 0x1f; }},
        {"traffic class 527 is not 0 to 7", [](OvixMplsVia& via) { via.trafficClass = 0x20f; }},
        {"push TTL 256 is not 1 to 255", [](OvixMplsVia& via) { via.pushTtl = 256; }},
        {"VLAN 4095 is not 1 to 4094", [](OvixMplsVia& via) { via.nexthopVlan = 4095; }},
        {"FEC id 72057594037927936 has more than 56 bits",
         [](OvixMplsVia& via) { via.fecIdHigh = 1U << 24U; }},
        {"an entropy label is added by a push only (RFC 6790 section 4.2)",
         [](OvixMplsVia& via) { via.entropy = true; }},
        {"the label stack of a via ends within a label",
         [](OvixMplsVia& via) { via.labels = std::string_view("abcd"); }},
        {"label 1048576 has more than 20 bits",
         [](OvixMplsVia& via) { via.labels = std::string_view("\x10\0\0", 3); }},
        {"label 3 (implicit null) never stands in a frame (RFC 3032 section 2.1)",
         [](OvixMplsVia& via) { via.labels = std::string_view("\0\0\3", 3); }},
        {"0 labels given, push and swap take 1 to 33",
         [](OvixMplsVia& via) { via.labels = std::string_view(); }},
    };
    for (const Damage& damage : damages) {
        OvixMplsVia record = whole;
        damage.change(record);
        EXPECT_EQ(refusalOf(Via::fromRecord(record)), damage.refusal);
    }
    EXPECT_EQ(refusalOf(Via::fromRecord(OvixMplsVia())), "the via leads nowhere");
}

} // namespace

} // namespace ViaTest
