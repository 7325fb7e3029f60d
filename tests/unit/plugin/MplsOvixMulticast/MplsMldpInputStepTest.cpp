#include "MplsOvixMulticast/MplsMldpInputStep.h"

#include "MulticastTesting.h"

namespace MplsMldpInputStepTest {

namespace {

using namespace Ovix;
using namespace TestSupport;
using Kind = InputVerdict::Kind;
using Raw::eth;
using Raw::filled;
using Raw::join;
using Raw::tag;

constexpr std::uint16_t ethException = 0x8139;
const Bytes labels = Raw::stack({{500, 5, 60}});
const Lumo::IntfId vlan100 = Lumo::VlanIntfId::vlanIdToIntfId(100);
const Lumo::IntfId east{"east"};

Bytes u64(std::uint64_t value) {
    return join({Raw::u32(static_cast<std::uint32_t>(value >> 32U)),
                 Raw::u32(static_cast<std::uint32_t>(value))});
}

struct Special {
    std::uint16_t tci = 0xa00b; ///< VLAN 11
    std::uint32_t vrf = 7;
    Lumo::IntfId pmsi = vlan100;
};

Bytes special(const Special& fields = {}, const Bytes& mpls = join({labels, filled(22, 0xab)})) {
    return join({eth(Raw::ethVlan), tag(fields.tci, ethException), Raw::u32(fields.vrf),
                 filled(8, 0xee), u64(fields.pmsi.value()), mpls});
}

class MldpInputStep : public MulticastFixture {
  protected:
    MldpInputStep() { mvpn->vrfIntfIdIs({7}, vlan100); }

    InputVerdict process(const Bytes& frame, bool counting = true) {
        packet = Tessel::make<PacketContext>(Lumo::globalPktManager()->newPkt(frame));
        packet->receivedAs(7, counting ? counters.get() : nullptr);
        received = packet->pkt();
        trace.clear();
        handles.clear();
        return step->process(packet);
    }
    /// The packet as the step left it.
    Bytes left() const { return {packet->pkt()->data().begin(), packet->pkt()->data().end()}; }
    void expectUntouched(const Bytes& frame) const {
        EXPECT_EQ(packet->pkt(), received);
        EXPECT_EQ(left(), frame);
    }

    Ptr<MplsMldpInputStep> step =
        mplsMldpInputStepFactory(mvpn, manager->ports(), manager->packetParser());
    Ptr<PacketContext> packet;
    Ptr<Lumo::Pkt> received;
};

TEST_F(MldpInputStep, LeavesEveryOtherFrameAlone) {
    const std::string untagged = "Not a 8021q packet.";
    const std::string nothing = "Not special packet. Nothing to do for Vlan ";
    const Bytes tagged = join({eth(Raw::ethVlan), tag(0x6064, Raw::ethMpls), labels});
    const struct {
        const char* what;
        Bytes frame;
        std::string line;
    } rows[] = {
        {"labelled", join({eth(Raw::ethMpls), labels}), untagged},
        {"service tag", join({eth(Raw::ethServiceVlan), tag(11, ethException)}), untagged},
        {"exception frame without a tag", join({eth(ethException), filled(40, 0)}), untagged},
        {"nothing", {}, untagged},
        {"short of its EtherType", {2, 0, 0, 0, 0, 1, 2, 0, 0, 0, 1, 2, 0x81}, untagged},
        {"tagged and labelled", tagged, nothing + "100"},
        {"tagged IPv4", join({eth(Raw::ethVlan), tag(0, Raw::ethIpv4)}), nothing + "0"},
        {"VLAN 4095", join({eth(Raw::ethVlan), tag(0xffff, Raw::ethIpv4)}), nothing + "4095"},
        {"nothing behind the TPID", eth(Raw::ethVlan), nothing + "0"},
        {"nothing behind the VLAN", join({eth(Raw::ethVlan), {0x00, 0x64}}), nothing + "100"},
        {"half a tag", join({eth(Raw::ethVlan), {0x00, 0x64, 0x81}}), nothing + "100"},
        {"two tags",
         join({eth(Raw::ethVlan), tag(11, Raw::ethVlan), tag(12, ethException), filled(40, 0)}),
         nothing + "11"},
        {"three tags",
         join({eth(Raw::ethVlan), tag(11, Raw::ethVlan), tag(12, Raw::ethVlan),
               tag(13, ethException), filled(40, 0)}),
         nothing + "11"},
        {"service tag behind", join({eth(Raw::ethVlan), tag(11, Raw::ethServiceVlan)}),
         nothing + "11"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(process(row.frame).kind, Kind::unchanged) << row.what;
        expectUntouched(row.frame);
        EXPECT_EQ(trace, lines({row.line})) << row.what;
    }
    EXPECT_TRUE(everythingCounted().empty());
}

TEST_F(MldpInputStep, EveryLengthOfASpecialPacketHasAVerdict) {
    const Bytes whole = special();
    ASSERT_GE(whole.size(), 60U);
    for (std::size_t size = 0; size <= 60; ++size) {
        const Kind expected = size < 18   ? Kind::unchanged
                              : size < 38 ? Kind::refused
                                          : Kind::modified;
        const Bytes frame(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(process(frame).kind, expected) << size;
        EXPECT_EQ(left().size(), size < 38 ? size : size - 20) << size;
        EXPECT_FALSE(trace.empty()) << size;
    }
    EXPECT_EQ(everythingCounted(),
              std::vector{row("Exceptional", "MPLS exception header cut short", 20)});
}

TEST_F(MldpInputStep, AHeaderCutShortIsRefusedAsItIs) {
    Bytes frame = special();
    frame.resize(37);
    const InputVerdict verdict = process(frame);
    EXPECT_EQ(verdict.kind, Kind::refused);
    EXPECT_STREQ(verdict.reason, "MPLS exception header cut short");
    expectUntouched(frame);
    EXPECT_EQ(trace, lines({"Detected special MPLS_EXCEPTION header for Vlan 11",
                            "MPLS exception header cut short"}));
}

TEST_F(MldpInputStep, AVlanInterfaceMakesItATaggedFrameThatGoesOn) {
    EXPECT_EQ(process(special()).kind, Kind::modified);
    // priority 0, though it came with 5
    EXPECT_EQ(left(), join({eth(Raw::ethVlan), tag(100, Raw::ethMpls), labels, filled(22, 0xab)}));
    EXPECT_EQ(trace, lines({"Detected special MPLS_EXCEPTION header for Vlan 11",
                            "Modified packet contains dot1q header with vlan 100",
                            "Modified packet, continue Ovix processing"}));
    EXPECT_TRUE(everythingCounted().empty());
}

TEST_F(MldpInputStep, TheModifiedPacketIsParsedAgain) {
    packet = Tessel::make<PacketContext>(Lumo::globalPktManager()->newPkt(special()));
    packet->outerTypeIs(PktHdrType::mpls);
    ASSERT_TRUE(packet->parsedPkt().header(0));
    EXPECT_EQ(step->process(packet).kind, Kind::modified);
    const auto tags = packet->parsedPkt().header(1);
    ASSERT_TRUE(tags);
    EXPECT_EQ(tags->pktHdrType(), PktHdrType::vlanTags);
    const auto mpls = packet->parsedPkt().header(2);
    ASSERT_TRUE(mpls);
    EXPECT_EQ((*mplsHeaderData(*mpls)->begin()).label().value(), 500U);
}

TEST_F(MldpInputStep, TheVlanThatItCameWithDoesNotMatter) {
    for (const auto tci : std::vector<std::uint16_t>{0x0000, 0x0001, 0x0fff, 0xffff, 0xe064}) {
        EXPECT_EQ(process(special({tci})).kind, Kind::modified) << tci;
        EXPECT_EQ(left()[14], 0) << tci;
        EXPECT_EQ(left()[15], 100) << tci;
        EXPECT_EQ(trace[0], "Pkt 7: Detected special MPLS_EXCEPTION header for Vlan " +
                                std::to_string(tci & 0xfff));
    }
}

TEST_F(MldpInputStep, AnEmptyMplsPartLeavesTheLinkHeaderAlone) {
    EXPECT_EQ(process(special({}, {})).kind, Kind::modified);
    EXPECT_EQ(left(), join({eth(Raw::ethVlan), tag(100, Raw::ethMpls)}));
}

TEST_F(MldpInputStep, AnotherInterfaceMakesItAnUntaggedFrameForItsPort) {
    mvpn->vrfIntfIdIs({7}, east);
    const auto port = portIs(east, "east");
    const Bytes frame = special({0x2064, 7, east});
    EXPECT_EQ(process(frame).kind, Kind::sent);
    const Frames sent{join({eth(Raw::ethMpls), labels, filled(22, 0xab)})};
    EXPECT_EQ(port->frames, sent);
    EXPECT_EQ(sent[0].size(), frame.size() - 24);
    EXPECT_EQ(trace, lines({"Detected special MPLS_EXCEPTION header for Vlan 100",
                            "Sending modified packet out on east"}));
    EXPECT_TRUE(everythingCounted().empty());
}

TEST_F(MldpInputStep, WithoutAPortTheUntaggedFrameIsRefused) {
    mvpn->vrfIntfIdIs({7}, east);
    const InputVerdict verdict = process(special({11, 7, east}));
    EXPECT_EQ(verdict.kind, Kind::refused);
    EXPECT_STREQ(verdict.reason, "No port for the VRF's interface");
    EXPECT_EQ(trace.back(),
              "Pkt 7: Port for " + std::to_string(east.value()) + " does not exist, Ignore");
    EXPECT_EQ(left(), join({eth(Raw::ethMpls), labels, filled(22, 0xab)}));
    EXPECT_TRUE(everythingCounted().empty());
}

TEST_F(MldpInputStep, APortThatDoesNotSendRefusesTheFrame) {
    mvpn->vrfIntfIdIs({7}, east);
    portIs(east, "east")->takes = false;
    const InputVerdict verdict = process(special({11, 7, east}));
    EXPECT_EQ(verdict.kind, Kind::refused);
    EXPECT_STREQ(verdict.reason, "Port of the VRF's interface does not send");
}

TEST_F(MldpInputStep, AVlanInterfaceWithoutAVlanCountsAsNone) {
    const Lumo::IntfId vlan0 = Lumo::VlanIntfId::vlanIdToIntfId(0);
    mvpn->vrfIntfIdIs({7}, vlan0);
    const auto port = portIs(vlan0, "vlan0");
    EXPECT_EQ(process(special({11, 7, vlan0})).kind, Kind::sent);
    EXPECT_EQ(port->frames.at(0).size(), special().size() - 24);
}

TEST_F(MldpInputStep, AnUnknownVrfIsRefusedAsItIs) {
    for (const std::uint32_t vrf : {0U, 8U, 0xffffffffU}) {
        const Bytes frame = special({11, vrf});
        const InputVerdict verdict = process(frame);
        EXPECT_EQ(verdict.kind, Kind::refused);
        EXPECT_STREQ(verdict.reason, "MvpnIntfStatus entry not found for vrf ID %s");
        expectUntouched(frame);
        EXPECT_EQ(trace,
                  lines({"Detected special MPLS_EXCEPTION header for Vlan 11",
                         "MvpnIntfStatus entry not found for vrf ID " + std::to_string(vrf)}));
    }
    EXPECT_EQ(everythingCounted(),
              std::vector{row("Exceptional", "MvpnIntfStatus entry not found for vrf ID %s", 3)});
}

TEST_F(MldpInputStep, AnyNumberOfAVrfMayBeKnown) {
    for (const std::uint32_t vrf : {0U, 0x01020304U, 0xffffffffU}) {
        mvpn->vrfIntfIdIs({vrf}, vlan100);
        EXPECT_EQ(process(special({11, vrf})).kind, Kind::modified) << vrf;
    }
    EXPECT_TRUE(everythingCounted().empty());
}

TEST_F(MldpInputStep, WithoutCountersAnUnknownVrfIsOnlyTraced) {
    EXPECT_EQ(process(special({11, 8}), false).kind, Kind::refused);
    EXPECT_EQ(trace.back(), "Pkt 7: MvpnIntfStatus entry not found for vrf ID 8");
    EXPECT_TRUE(everythingCounted().empty());
}

TEST_F(MldpInputStep, WithoutInterfaceStatusNoVrfIsKnown) {
    step =
        MplsMldpInputStep::MplsMldpInputStepIs(nullptr, manager->ports(), manager->packetParser());
    EXPECT_EQ(process(special()).kind, Kind::refused);
    EXPECT_EQ(counted("Exceptional", "MvpnIntfStatus entry not found for vrf ID %s"), 1U);
}

TEST_F(MldpInputStep, ACorruptEntryIsReportedToTheTableAndReadsAsNone) {
    mvpn->entryIs({7}, {{8}, vlan100});
    EXPECT_EQ(process(special()).kind, Kind::refused);
    EXPECT_EQ(counted("Exceptional", "MvpnIntfStatus entry not found for vrf ID %s"), 1U);
    EXPECT_EQ(mvpn->corruptionsDetected(), 1U);
    EXPECT_EQ(mvpn->lastCorruption(), "mvpnIntfStatus: place 7 names vrf ID 8");
}

TEST_F(MldpInputStep, AnotherPmsiInterfaceIsNotLetIntoTheVrf) {
    const Lumo::IntfId other = Lumo::VlanIntfId::vlanIdToIntfId(101);
    for (const Lumo::IntfId own : {vlan100, east}) {
        mvpn->vrfIntfIdIs({7}, own);
        const auto port = portIs(east, "east");
        const InputVerdict verdict = process(special({11, 7, other}));
        EXPECT_EQ(verdict.kind, Kind::refused);
        EXPECT_STREQ(verdict.reason, "PMSI interface is not the VRF's");
        EXPECT_TRUE(port->frames.empty());
        EXPECT_EQ(trace, lines({"Detected special MPLS_EXCEPTION header for Vlan 11",
                                "PMSI IntfId " + std::to_string(own.value()) +
                                    " mismatch with packet " + std::to_string(other.value())}));
        // found out on the frame as rewritten
        EXPECT_EQ(left().size(), special().size() - (own == vlan100 ? 20 : 24));
    }
    EXPECT_TRUE(everythingCounted().empty());
}

TEST_F(MldpInputStep, TracesOnTheMulticastSource) {
    auto& source = TraceSource::named("MplsMulticast", "Ovix::MplsMulticast");
    source.ringLevelIs(0);
    process(special({11, 8}));
    source.ringLevelIs(TraceSource::off);
    EXPECT_EQ(handles, (std::vector<std::string>(2, "Ovix::MplsMulticast")));
    std::string last;
    TraceOutput::instance().ring().visit([&](const TraceRing::Record& record) {
        last = std::string(record.tag) + " " + std::string(record.line.view());
    });
    EXPECT_EQ(last, "MplsMulticast Pkt 7: MvpnIntfStatus entry not found for vrf ID 8");
}

} // namespace

} // namespace MplsMldpInputStepTest
