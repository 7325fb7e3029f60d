#include "MplsOvixMulticast/MplsMulticastIpLookupViaTypeHandler.h"

#include "MulticastTesting.h"
#include "Ovix/viaset/ViaSets.h"
#include "Tessel/Exceptions.h"

namespace MplsMulticastIpLookupViaTypeHandlerTest {

namespace {

using namespace Ovix;
using namespace TestSupport;
using Raw::eth;
using Raw::join;
using Raw::stack;
using Raw::tag;

const Lumo::IntfId vlan100 = Lumo::VlanIntfId::vlanIdToIntfId(100);
const Bytes ip4 = Raw::ipv4({.destination = 0xe8010101}, Raw::udp());
const Bytes ip6 = Raw::ipv6({}, Raw::udp());

class MulticastTail : public MulticastFixture {
  protected:
    void tailIs(Lumo::IntfId intf) {
        writers[decap]->multicastIpLookupRouteIs(key(500), tailOn(intf));
    }
    /// Sends the frame to the tail; it gets no next hop.
    void expectNoNexthop(const Bytes& frame, bool counting = true) {
        trace.clear();
        handles.clear();
        EXPECT_TRUE(routeFrame(frame, counting)->nexthops()->empty());
    }
    /// The same for a tagged frame.
    void expectTaggedNoNexthop(const Bytes& frame) {
        trace.clear();
        const auto context = contextOf(frame);
        const auto output = Tessel::make<RoutingOutput>();
        plugin->handleMplsFrame(output, context, context->packetContext()->parsedPkt().header(2),
                                nullptr);
        EXPECT_TRUE(output->nexthops()->empty());
    }
    static Bytes labelled(const Bytes& payload = ip4) {
        return join({eth(Raw::ethMpls), stack({{500}}), payload});
    }
    /// What the CPU gets on a VLAN.
    static Bytes delivered(std::uint16_t vlan, std::uint16_t etherType, const Bytes& packet) {
        return join({eth(Raw::ethVlan), tag(vlan, etherType), packet});
    }
};

TEST_F(MulticastTail, DeliversToTheCpuOnTheVlanOfTheLookup) {
    const auto cpu = cpuPort();
    tailIs(vlan100);
    expectNoNexthop(labelled());
    EXPECT_EQ(cpu->frames, Frames{delivered(100, Raw::ethIpv4, ip4)});
    EXPECT_TRUE(traced("No dot1q tag"));
    EXPECT_EQ(trace.back(), "Pkt 7: Sent special packet to CPU.");
    EXPECT_EQ(handles.back(), "Ovix::MplsMulticast");
    EXPECT_TRUE(everythingCounted().empty());
}

TEST_F(MulticastTail, TheMacAddressesAreThoseOfTheFrame) {
    const auto cpu = cpuPort();
    tailIs(vlan100);
    for (const std::uint8_t mac : {std::uint8_t{0x10}, std::uint8_t{0x20}}) {
        Bytes frame = labelled();
        Bytes expected = delivered(100, Raw::ethIpv4, ip4);
        for (std::size_t i = 0; i < 12; ++i) {
            frame[i] = expected[i] = static_cast<std::uint8_t>(mac + i);
        }
        expectNoNexthop(frame);
        EXPECT_EQ(cpu->frames.back(), expected);
    }
}

TEST_F(MulticastTail, TheTagOfTheFrameIsReplaced) {
    const auto cpu = cpuPort();
    tailIs(vlan100);
    for (const auto tci : std::vector<std::uint16_t>{0xe000, 0x000b, 0xffff}) {
        cpu->frames.clear();
        expectTaggedNoNexthop(
            join({eth(Raw::ethVlan), tag(tci, Raw::ethMpls), stack({{500}}), ip4}));
        EXPECT_EQ(cpu->frames, Frames{delivered(100, Raw::ethIpv4, ip4)}) << tci;
        EXPECT_TRUE(traced("Detected dot1q tag")) << tci;
    }
}

TEST_F(MulticastTail, SeveralTagsAreNotUnderstood) {
    const auto cpu = cpuPort();
    tailIs(vlan100);
    const Bytes two = join({tag(11, Raw::ethVlan), tag(12, Raw::ethMpls)});
    const Bytes three = join({tag(10, Raw::ethVlan), two});
    for (const Bytes& tags : {two, three}) {
        expectTaggedNoNexthop(join({eth(Raw::ethVlan), tags, stack({{500}}), ip4}));
        EXPECT_EQ(trace.back(), "Pkt 7: Unexpected number of tags");
    }
    EXPECT_TRUE(cpu->frames.empty());
    EXPECT_TRUE(everythingCounted().empty());
}

TEST_F(MulticastTail, TheEtherTypeIsThatOfThePacket) {
    const auto cpu = cpuPort();
    tailIs(vlan100);
    expectNoNexthop(labelled(ip6));
    EXPECT_EQ(cpu->frames, Frames{delivered(100, Raw::ethIpv6, ip6)});
}

TEST_F(MulticastTail, ALookupThatIsOnNoVlanNamesNone) {
    const auto cpu = cpuPort();
    tailIs(Lumo::IntfId("east"));
    expectNoNexthop(labelled());
    tailIs(Lumo::VlanIntfId::vlanIdToIntfId(0x5064)); // twelve bits stand in a tag
    expectNoNexthop(labelled());
    EXPECT_EQ(cpu->frames,
              (Frames{delivered(0, Raw::ethIpv4, ip4), delivered(0x064, Raw::ethIpv4, ip4)}));
}

TEST_F(MulticastTail, WhatIsNotIpIsDropped) {
    const auto cpu = cpuPort();
    tailIs(vlan100);
    const Bytes payloads[] = {{}, {0x45}, Raw::filled(60, 0), Raw::filled(60, 0x90)};
    for (const Bytes& payload : payloads) {
        expectNoNexthop(labelled(payload));
        EXPECT_EQ(trace.back(), "Pkt 7: Multicast payload is not IP");
    }
    EXPECT_TRUE(cpu->frames.empty());
    EXPECT_EQ(everythingCounted(), std::vector{row("Drop", "Multicast payload is not IP", 4)});
}

TEST_F(MulticastTail, APacketWithoutItsEthernetHeaderIsDropped) {
    const auto cpu = cpuPort();
    tailIs(vlan100);
    const auto packet = Tessel::make<PacketContext>(
        Lumo::globalPktManager()->newPkt(join({stack({{500}}), ip4})), PktHdrType::mpls);
    const auto context = Tessel::make<RoutingContext>(7U, packet, counters);
    const auto output = Tessel::make<RoutingOutput>();
    plugin->handleMplsFrame(output, context, packet->parsedPkt().header(0), nullptr);
    EXPECT_TRUE(output->nexthops()->empty());
    EXPECT_TRUE(cpu->frames.empty());
    EXPECT_EQ(everythingCounted(), std::vector{row("Drop", "Multicast payload is not IP")});
}

TEST_F(MulticastTail, ALookupRecordThatHoldsNothingDrops) {
    const auto cpu = cpuPort();
    writers[decap]->multicastIpLookupRouteIs(key(500), {});
    expectNoNexthop(labelled());
    EXPECT_EQ(everythingCounted(), std::vector{row("Drop", "No multicastIpLookupVia")});
    EXPECT_EQ(trace.back(), "Pkt 7: No multicastIpLookupVia");
    EXPECT_TRUE(cpu->frames.empty());
    expectNoNexthop(labelled(), false);
    EXPECT_EQ(trace.back(), "Pkt 7: No multicastIpLookupVia");
    EXPECT_EQ(counted("Drop", "No multicastIpLookupVia"), 1U);
    expectNoNexthop(join({eth(Raw::ethMpls), stack({{500}, {501}}), ip4}));
    EXPECT_EQ(counted("Drop", "No multicastIpLookupVia"), 2U);
    EXPECT_EQ(counted("Drop", "Unexpected MPLS packet with bos as false"), 0U);
}

/// A table whose generation is replaced while it is read.
class LostTable : public Mpls::LfibViaSource {
  public:
    LostTable() : LfibViaSource("lost") {}
    std::string_view typeName() const noexcept override { return "LostTable"; }
    OvixMplsVia ipVia(const Mpls::LfibWeightedVia&) const override {
        throw Tessel::SnapshotLost("replaced");
    }
};

TEST_F(MulticastTail, NothingIsDeliveredBeforeAllOfTheRouteHasBeenRead) {
    const auto cpu = cpuPort();
    Mpls::LfibViaSet bud;
    bud.type = Mpls::LfibViaSetType::multicast;
    bud.members.push({1, 1, 0});
    bud.members.push({2, 1, 0});
    bud.source = Tessel::make<LostTable>();
    const auto set = Tessel::make<OvixMulticastDecapViaSet>(bud, tailOn(vlan100));
    const auto routing = contextOf(labelled());
    const auto context = Tessel::make<MplsContext>(
        routing, entryOf(500, 64, true), routing->packetContext()->parsedPkt().header(2), set,
        nullptr, Lumo::MplsStackEntryIndex(0), oneNexthop());
    EXPECT_THROW(plugin->handleViaSet(context), Tessel::SnapshotLost);
    EXPECT_TRUE(cpu->frames.empty());
}

TEST_F(MulticastTail, ALabelThatIsNotTheLastIsDroppedBeforeTheCpuIsLookedUp) {
    tailIs(vlan100);
    for (const bool hasCpu : {false, true}) {
        const auto cpu = hasCpu ? cpuPort() : nullptr;
        expectNoNexthop(join({eth(Raw::ethMpls), stack({{500}, {501}}), ip4}));
        EXPECT_EQ(trace.back(), "Pkt 7: Unexpected MPLS packet with bos as false");
        EXPECT_TRUE(!cpu || cpu->frames.empty());
    }
    EXPECT_EQ(counted("Drop", "Unexpected MPLS packet with bos as false"), 2U);
}

TEST_F(MulticastTail, WithoutACpuPortTheFrameIsIgnored) {
    tailIs(vlan100);
    expectNoNexthop(labelled());
    EXPECT_EQ(trace.back(), "Pkt 7: Port for CPU does not exist, Ignore");
    EXPECT_TRUE(everythingCounted().empty());
}

TEST_F(MulticastTail, ABudNodeWhoseTailFailsAgreesWithItsBranches) {
    const Mpls::WeightedRecord branch{swapVia(300), 1};
    const auto expectOneReplica = [&](const Bytes& frame) {
        EXPECT_EQ(routeFrame(frame)->nexthops()->size(), 1U);
        EXPECT_EQ(counted("Exceptional",
                          "Handler for multicast via %s returned inconsistent processing result"),
                  0U);
    };
    writers[decap]->multicastIpLookupRouteIs(key(500), tailOn(vlan100), {&branch, 1});
    expectOneReplica(labelled());
    EXPECT_TRUE(traced("Port for CPU does not exist, Ignore"));
    expectOneReplica(join({eth(Raw::ethMpls), stack({{500}, {501}}), ip4}));
    EXPECT_EQ(counted("Drop", "Unexpected MPLS packet with bos as false"), 1U);
    writers[decap]->multicastIpLookupRouteIs(key(500), {}, {&branch, 1});
    expectOneReplica(labelled());
    EXPECT_EQ(counted("Drop", "No multicastIpLookupVia"), 1U);
}

TEST_F(MulticastTail, WhatTheCpuDoesNotTakeIsDropped) {
    cpuPort()->takes = false;
    tailIs(vlan100);
    expectNoNexthop(labelled());
    EXPECT_FALSE(traced("Sent special packet to CPU."));
    EXPECT_EQ(trace.back(), "Pkt 7: CPU port refused the special packet");
    EXPECT_EQ(everythingCounted(), std::vector{row("Drop", "CPU port refused the special packet")});
}

TEST_F(MulticastTail, BehindAnExplicitNullTheLabelIsTheLast) {
    const auto cpu = cpuPort();
    tailIs(vlan100);
    expectNoNexthop(join({eth(Raw::ethMpls), stack({{0}, {500}}), ip4}));
    EXPECT_EQ(cpu->frames, Frames{delivered(100, Raw::ethIpv4, ip4)});
}

TEST_F(MulticastTail, AnUnsetViaIndexIsAnInternalError) {
    const auto handler = mplsMulticastIpLookupViaTypeHandlerFactory(
        Mpls::LfibViaType::multicastIpLookup, plugin->lfibTables(), manager->ports());
    const auto context = Tessel::make<MplsContext>(contextOf(labelled()), entryOf(500), nullptr,
                                                   Tessel::make<MadeUpViaSet>(), nullptr,
                                                   Lumo::MplsStackEntryIndex(0), oneNexthop());
    EXPECT_DEATH(handler->processMplsVia(context),
                 "MplsVorn/OvixPlugin/MplsOvixMulticast.*processMplsVia.*"
                 "viaIndex must be set for transit vias");
}

} // namespace

} // namespace MplsMulticastIpLookupViaTypeHandlerTest
