#include "State/Pseudowires.h"

#include "ForwarderTesting.h"
#include "Ovix/rewrite/MplsPushRewriteImpl.h"

namespace PseudowiresTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

/// The west and the plain port are attachment circuits, with and without control word.
const std::string pseudowireConfig = testConfig + R"(
pseudowires:
  - {name: red, port: west, label: 500, interface: east, nexthop: 10.0.2.2, labels: [100, 101]}
  - {name: blue, port: plain, label: 600, control-word: false, interface: east, nexthop: 10.0.2.2}
)";

std::vector<std::uint32_t> labelsOf(const Ovix::RewriteInfo& info) {
    const auto operation =
        dynamic_cast<const Ovix::EthOverMplsRewriteInfo&>(info).labels.operation();
    std::vector<std::uint32_t> labels;
    for (std::size_t i = 0; i < operation.depth(); ++i) {
        labels.push_back(operation.label(i).value());
    }
    return labels;
}

std::vector<std::string_view> namesOf(const Ovix::RewriteInfos& infos) {
    std::vector<std::string_view> names;
    for (const Ptr<Ovix::RewriteInfo>& info : infos.rewrites()) {
        names.push_back(info->typeName().text());
    }
    return names;
}

/// Puts one label entry in front of the frame, in the place of the plugin's rewrite.
class FakePush : public Ovix::RewriteImpl {
  public:
    std::string_view name() const noexcept override { return "FakePush"; }
    Ptr<const Ovix::RewriteInfo> baseInfo() const noexcept override { return nullptr; }
    Ptr<Ovix::RoutingException> apply(const Ptr<Ovix::RoutingContext>& context) override {
        const Bytes pushed = stack({{500, 0, 255}});
        Ovix::PacketContext& packet = *context->packetContext();
        std::copy(pushed.begin(), pushed.end(), packet.pkt()->pushFront(4).begin());
        packet.outerTypeIs(Ovix::PktHdrType::mpls);
        return nullptr;
    }
    static Ptr<Ovix::RewriteImpl> fromInfo(const Ptr<Ovix::RewriteInfo>&) {
        return Tessel::make<FakePush>();
    }
};

class PseudowireForwarding : public ForwarderFixture {
  protected:
    PseudowireForwarding() {
        tables.pseudowires = Pseudowires(configOf(pseudowireConfig, "test.yaml"));
    }

    void receiveAt(PortNumber port, const Bytes& frame) {
        forwarder->receive({port, {}, frame, static_cast<std::uint32_t>(frame.size())});
    }
    /// A labelled frame at the east port, popped to Ethernet towards a port.
    void deliver(const std::string& port, const Bytes& payload, const std::string& address = "") {
        handler->decide = always(withRewrite(
            nexthop(port, address), Tessel::make<Ovix::MplsPopRewriteInfo>(
                                        Mpls::PayloadType::ethernet, Mpls::TtlMode::uniform)));
        receiveAt(east, join({eth(ethMpls), stack({{501}}), payload}));
    }
    void pluginPushes() {
        manager->sharedObjects()->rewriteInfoImplMap()->mapIs("EthOverMplsRewriteInfo",
                                                              FakePush::fromInfo);
    }

    const Bytes customer = join({eth(ethVlan), tag(5, 0x88b5), filled(46, 7)});
};

L2::Pseudowire signalled(const std::string& circuit = "west") {
    L2::Pseudowire made;
    made.name = "RED/mpw0";
    made.circuit = circuit;
    made.neighbour = Lumo::IpGenAddr::fromText("10.255.0.4");
    made.localLabel = 501;
    made.remoteLabel = 500;
    made.controlWord = false;
    made.state = L2::Pseudowire::State::up;
    return made;
}

/// West is the circuit of a signalled pseudowire.
class SignalledPseudowire : public ForwarderFixture {
  protected:
    SignalledPseudowire() {
        manager->sharedObjects()->rewriteInfoImplMap()->mapIs("EthOverMplsRewriteInfo",
                                                              FakePush::fromInfo);
        tables.signalledAre({signalled()});
    }

    void routesAre(const std::string& routes) {
        tables.configure(configOf(testConfig + "routes: [" + routes + "]", "test.yaml"));
    }
    /// What leaves east of the customer's frame, behind the link header.
    Frames leaving() {
        out[east].frames.clear();
        receive(customer);
        return out[east].frames;
    }

    const Bytes customer = join({eth(ethVlan), tag(5, 0x88b5), filled(46, 7)});
    const Bytes whole = join({stack({{500, 0, 255}}), customer});
};

} // namespace

TEST(Pseudowires, KnowTheWayToTheOtherEndByAttachmentCircuit) {
    Pseudowires pseudowires(configOf(pseudowireConfig, "test.yaml"));
    ASSERT_EQ(pseudowires.all().size(), 2U);
    EXPECT_EQ(pseudowires.ofPort(1), nullptr);
    EXPECT_EQ(pseudowires.ofPort(2), nullptr);
    const Pseudowire* red = pseudowires.ofPort(0);
    ASSERT_NE(red, nullptr);
    EXPECT_EQ(red->name, "red");
    EXPECT_TRUE(red->controlWord);
    EXPECT_EQ(red->remote->intfId(), Lumo::IntfId("east"));
    EXPECT_EQ(red->remote->address().text(), "10.0.2.2");
    EXPECT_EQ(
        namesOf(red->remote->rewriteInfos()),
        (std::vector<std::string_view>{"EthOverMplsRewriteInfo", "ControlWordPushRewriteInfo"}));
    EXPECT_EQ(labelsOf(*red->remote->rewriteInfos().rewrites().front()),
              (std::vector<std::uint32_t>{100, 101, 500}));
    const Pseudowire* blue = pseudowires.ofPort(3);
    ASSERT_NE(blue, nullptr);
    EXPECT_FALSE(blue->controlWord);
    EXPECT_EQ(namesOf(blue->remote->rewriteInfos()),
              std::vector<std::string_view>{"EthOverMplsRewriteInfo"});
    EXPECT_EQ(labelsOf(*blue->remote->rewriteInfos().rewrites().front()),
              std::vector<std::uint32_t>{600});
}

TEST_F(PseudowireForwarding, AFrameOfAnAttachmentCircuitIsSentWholeWhateverItIs) {
    pluginPushes();
    handler->decide = [](const auto&, const auto&) { FAIL() << "routed"; };
    const Bytes frames[]{customer, labelled(), join({eth(ethIpv4), packet()}), eth(0x88b5)};
    for (const Bytes& frame : frames) {
        receiveAt(plain, frame);
        EXPECT_EQ(out[east].frames.back(),
                  join({eastHeader(ethMpls), stack({{500, 0, 255}}), frame}));
    }
    EXPECT_EQ(out[east].frames.size(), 4U);
    EXPECT_EQ(summary().pseudowires[1].sent.frames, 4U);
    EXPECT_EQ(summary().pseudowires[1].sent.bytes,
              frames[0].size() + frames[1].size() + frames[2].size() + frames[3].size());
}

TEST_F(PseudowireForwarding, WhatCannotBeSentIsDroppedForAReasonAndNotCountedAsSent) {
    receiveAt(west, filled(13, 0));
    receiveAt(west, customer); // no plugin has registered the rewrite
    pluginPushes();
    receiveAt(plain, join({eth(0x88b5), filled(100, 0)}));
    EXPECT_EQ(dropped(), (ReasonCounts{{"Shorter than an Ethernet header", 1},
                                       {"No plugin applies the rewrite", 1},
                                       {"MTU exceeded", 1}}));
    EXPECT_EQ(summary().pseudowires[0].sent, Traffic{});
    EXPECT_EQ(summary().pseudowires[1].sent, Traffic{});
}

TEST_F(PseudowireForwarding, NothingIsSentWhileMplsRoutingIsOff) {
    pluginPushes();
    AgentConfig off = configOf(pseudowireConfig, "test.yaml");
    off.mplsRouting = false;
    tables.pseudowires = Pseudowires(off);
    receiveAt(west, customer);
    EXPECT_EQ(dropped(), (ReasonCounts{{"MPLS routing not enabled", 1}}));
}

TEST_F(PseudowireForwarding, AFrameFromTheOtherEndLeavesTheAttachmentCircuitAsItIs) {
    deliver("west", join({filled(4, 0), customer}));
    deliver("plain", customer); // tagging: none is not for the customer's tags
    deliver("plain", customer, "10.0.4.2");
    EXPECT_EQ(out[west].frames, Frames{customer});
    EXPECT_EQ(out[plain].frames, (Frames{customer, customer}));
    EXPECT_EQ(summary().pseudowires[0].delivered, (Traffic{1, customer.size()}));
    EXPECT_EQ(summary().pseudowires[1].delivered, (Traffic{2, 2 * customer.size()}));
}

TEST_F(PseudowireForwarding, TheMtuOfAnAttachmentCircuitCountsNeitherHeaderNorTags) {
    const Bytes full = join({eth(ethVlan), tag(5, 0x88b5), filled(1500, 7)});
    deliver("plain", full);
    deliver("plain", join({full, {7}}));
    EXPECT_EQ(out[plain].frames, Frames{full});
    EXPECT_EQ(dropped(), (ReasonCounts{{"MTU exceeded", 1}}));
}

TEST_F(PseudowireForwarding, NobodyIsToldThatACustomersFrameIsTooBig) {
    struct : DropListener {
        void tooBig(const Frame&, std::span<const std::uint8_t>, std::uint32_t) override { ++told; }
        void undelivered(const Frame&, std::string_view) override { ++told; }
        int told = 0;
    } listener;
    tables.drops = &listener;
    pluginPushes();
    receiveAt(plain, join({eth(0x88b5), filled(100, 0)}));
    deliver("plain", join({eth(ethIpv4), filled(1501, 7)}));
    EXPECT_EQ(dropped(), (ReasonCounts{{"MTU exceeded", 2}}));
    EXPECT_EQ(listener.told, 0);
    handler->decide = always(withRewrite(nexthop("east", "10.0.2.2"), swapInfo(300)));
    receiveAt(dark, join({eth(ethMpls), stack({{100}}), filled(100, 0)}));
    EXPECT_EQ(listener.told, 1);
}

TEST_F(PseudowireForwarding, AMessageOfTheAssociatedChannelGoesToTheCpuAsItCameIn) {
    const Bytes message = join({{0x10, 0, 0, 7}, filled(24, 1)});
    deliver("west", message);
    EXPECT_EQ(cpu.frames, Frames{join({eth(ethMpls), stack({{501}}), message})});
    EXPECT_EQ(summary().punted.counts(), (ReasonCounts{{"Pseudowire associated channel", 1}}));
    EXPECT_EQ(summary().pseudowires[0].delivered, Traffic{});
}

TEST_F(PseudowireForwarding, APortOfNoPseudowireTakesEthernetWithoutControlWord) {
    const Bytes frame = join({eth(ethIpv4), packet()});
    const Bytes behindZeros = join({filled(4, 0), frame});
    deliver("east", frame);
    deliver("east", behindZeros);
    deliver("east", filled(13, 1));
    EXPECT_EQ(out[east].frames, (Frames{frame, behindZeros}));
    EXPECT_EQ(dropped(), (ReasonCounts{{"Pseudowire payload shorter than an Ethernet header", 1}}));
}

TEST_F(SignalledPseudowire, TheTunnelIsTheRouteOfTheMoment) {
    routesAre("{prefix: 10.255.0.4/32, via: {nexthop: 10.0.2.2, labels: [300]}}");
    EXPECT_EQ(leaving(), Frames{join({eastHeader(ethMpls), entry({300, 0, 255}, false), whole})});
    routesAre("{prefix: 10.255.0.4/32, via: {nexthop: 10.0.2.2, labels: [301, 302]}}");
    EXPECT_EQ(leaving(), Frames{join({eastHeader(ethMpls), entry({301, 0, 255}, false),
                                      entry({302, 0, 255}, false), whole})});
    EXPECT_EQ(summary().pseudowires.at(0).sent.frames, 1U); // since the last configuration
}

TEST_F(SignalledPseudowire, WithoutLabelsOnlyTheOtherEndItselfGetsTheFrame) {
    const std::string unlabelled = "{prefix: 10.255.0.4/32, via: {nexthop: 10.0.2.2}}";
    routesAre(unlabelled);
    EXPECT_EQ(leaving(), Frames());
    L2::Pseudowire adjacent = signalled();
    adjacent.adjacent = {Lumo::IpGenAddr::fromText("10.0.9.9"),
                         Lumo::IpGenAddr::fromText("10.0.2.2")};
    tables.signalledAre({adjacent});
    EXPECT_EQ(leaving(), Frames{join({eastHeader(ethMpls), whole})});
    adjacent.neighbour = Lumo::IpGenAddr::fromText("10.0.2.2"); // on the link
    adjacent.adjacent.clear();
    tables.signalledAre({adjacent});
    EXPECT_EQ(leaving(), Frames{join({eastHeader(ethMpls), whole})});
    EXPECT_EQ(dropped(), (ReasonCounts{{"No tunnel to the pseudowire's other end", 1}}));
}

TEST_F(SignalledPseudowire, WithoutARouteThereIsNoTunnel) {
    for (const char* routes : {"", "{prefix: 10.255.0.4/32, drop: true}"}) {
        routesAre(routes);
        EXPECT_EQ(leaving(), Frames());
    }
    L2::Pseudowire own = signalled();
    own.neighbour = Lumo::IpGenAddr::fromText("10.0.2.1");
    tables.signalledAre({own});
    EXPECT_EQ(leaving(), Frames());
    EXPECT_EQ(dropped(), (ReasonCounts{{"No tunnel to the pseudowire's other end", 3}}));
}

TEST_F(SignalledPseudowire, OneThatIsDownDropsForItsReason) {
    using State = L2::Pseudowire::State;
    L2::Pseudowire down = signalled();
    for (const auto& entry : Tessel::words<State>) {
        if (entry.value != State::up) {
            down.state = entry.value;
            tables.signalledAre({down});
            EXPECT_EQ(leaving(), Frames());
        }
    }
    L2::Pseudowire impossible = signalled(); // as damaged tables may have it
    impossible.remoteLabel = 3;
    tables.signalledAre({impossible});
    EXPECT_EQ(leaving(), Frames());
    EXPECT_EQ(dropped(), (ReasonCounts{{"Pseudowire is down by one of its ends", 1},
                                       {"Pseudowire has no label at one of its ends", 2},
                                       {"Pseudowire has an impossible label", 2},
                                       {"Pseudowire has ends with different MTUs", 1},
                                       {"Pseudowire is not Ethernet point to point", 3},
                                       {"Pseudowire is not signalled any more", 1}}));
}

TEST_F(SignalledPseudowire, ItsCountsStayWhileItIsPublishedAgainAndItStaysThroughAReload) {
    routesAre("{prefix: 10.255.0.4/32, via: {nexthop: 10.0.2.2, labels: [300]}}");
    leaving();
    L2::Pseudowire other = signalled("plain");
    other.name = "BLUE/mpw1";
    tables.signalledAre({other, signalled()});
    leaving();
    EXPECT_EQ(summary().pseudowires.at(1).sent.frames, 2U);
    routesAre("");
    ASSERT_NE(tables.pseudowires.ofPort(west), nullptr);
    EXPECT_EQ(tables.pseudowires.ofPort(west)->name, "RED/mpw0");
    tables.signalledAre({});
    EXPECT_FALSE(tables.pseudowires.isCircuit(west));
}

TEST_F(SignalledPseudowire, TheConfigurationsCircuitsAndTheFirstOneCountMore) {
    tables.configure(configOf(pseudowireConfig, "test.yaml"));
    L2::Pseudowire second = signalled("dark");
    second.name = "LATE/mpw1";
    tables.signalledAre({signalled(), signalled("dark"), second, signalled("nowhere")});
    EXPECT_EQ(tables.pseudowires.ofPort(west)->name, "red");
    EXPECT_EQ(tables.pseudowires.ofPort(dark)->name, "RED/mpw0");
    EXPECT_EQ(tables.pseudowires.all().size(), 3U);
    EXPECT_EQ(tables.pseudowires.signalled().size(), 4U);
}

TEST_F(SignalledPseudowire, WithAnotherEndThatIsNoStationHasNoTunnel) {
    for (const char* const address : {"127.0.0.1", "224.0.0.5", "0.0.0.0", "::1", "ff02::5"}) {
        L2::Pseudowire odd = signalled();
        odd.neighbour = Lumo::IpGenAddr::fromText(address);
        tables.signalledAre({odd});
        EXPECT_EQ(leaving(), Frames()) << address;
    }
}

} // namespace PseudowiresTest
