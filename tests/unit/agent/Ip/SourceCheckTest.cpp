#include "Ip/SourceCheck.h"

#include "IpTesting.h"

namespace SourceCheckTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

Bytes from(const std::string& source, const std::string& destination = "10.9.0.1") {
    Ipv4 fields;
    fields.source = Lumo::NetU32::load(Lumo::IpGenAddr::fromText(source).bytes().data()).value();
    fields.destination =
        Lumo::NetU32::load(Lumo::IpGenAddr::fromText(destination).bytes().data()).value();
    return ipv4(fields, udp());
}

/// In a frame to 01-00-5e-00-00-05, an IPv4 group.
Bytes toGroup(Bytes frame) {
    const Bytes group{1, 0, 0x5e, 0, 0, 5};
    std::copy(group.begin(), group.end(), frame.begin());
    return frame;
}

class SourceCheck : public IpRouting {
  protected:
    /// The reason of the only frame that was dropped since, or "forwarded".
    std::string fateOf(const Bytes& frame, std::uint32_t port = west) {
        const ReasonCounts before = dropped();
        receiveAt(port, frame);
        for (const auto& [reason, count] : dropped()) {
            const auto known = before.find(reason);
            if (known == before.end() || known->second != count) {
                return reason;
            }
        }
        return "forwarded";
    }
    std::string fateOfPacket(const Bytes& packet, std::uint32_t port = west) {
        return fateOf(ipFrame(packet), port);
    }
};

constexpr const char* martian = "IP source never to be forwarded";
constexpr const char* notReversed = "IP source not reached by the port it came in at";
constexpr const char* notRouted = "IP source not reached by any route";
constexpr const char* toSeveral = "IP unicast in a frame to a group of stations";
constexpr const char* otherVlan = "VLAN without a sub-interface";

} // namespace

TEST_F(SourceCheck, OwnAndBroadcastAddressesAreForged) {
    for (const char* source : {"10.0.1.1", "10.0.2.1", "10.0.1.255", "10.0.2.255"}) {
        EXPECT_EQ(fateOfPacket(from(source)), martian) << source;
        EXPECT_EQ(fateOfPacket(from(source, "10.0.2.1")), martian) << source << " to the device";
    }
    EXPECT_EQ(fateOfPacket(from("10.0.3.1")), "forwarded"); // another VRF's
    EXPECT_EQ(fateOfPacket(from("10.0.3.1"), red1), martian);
    EXPECT_EQ(fateOfPacket(from("10.0.3.255"), red1), "forwarded"); // a /31 has no broadcast
    Bytes six = sixTo("2001:db8:9::1");
    const Lumo::IpGenAddr own = Lumo::IpGenAddr::fromText("2001:db8:2::ff");
    std::copy(own.bytes().begin(), own.bytes().end(), six.begin() + 8);
    EXPECT_EQ(fateOfPacket(six), martian);
}

TEST_F(SourceCheck, LoopbackAndMulticastSourcesReachNobody) {
    for (const char* destination : {"10.9.0.1", "10.0.2.1", "224.0.0.5", "255.255.255.255"}) {
        EXPECT_EQ(fateOfPacket(from("127.0.0.1", destination)), martian) << destination;
        EXPECT_EQ(fateOfPacket(from("224.0.0.1", destination)), martian) << destination;
        EXPECT_EQ(fateOfPacket(from("255.255.255.255", destination)), martian) << destination;
    }
    EXPECT_EQ(punted(), ReasonCounts{});
    receiveIp(from("0.0.0.0", "255.255.255.255")); // a host without an address yet
    EXPECT_EQ(punted(), (ReasonCounts{{"Link-local or broadcast destination", 1}}));
}

TEST_F(SourceCheck, APoppedPacketsSourceIsLookedAtInItsVrf) {
    receivePopped(from("10.0.3.1"), "10.9.0.1", "red");
    EXPECT_EQ(dropped(), (ReasonCounts{{martian, 1}}));
    receivePopped(from("10.0.2.1"), "10.9.0.1", "red");
    EXPECT_EQ(dropped(), (ReasonCounts{{martian, 1}}));
}

TEST_F(SourceCheck, TheReversePathIsAskedForAsThePortSays) {
    const struct {
        ReversePath asked;
        const char* source;
        const char* fate;
    } cases[]{
        {ReversePath::off, "192.0.2.9", "forwarded"},
        {ReversePath::loose, "192.0.2.9", notRouted},    // no route
        {ReversePath::loose, "10.9.9.1", notRouted},     // a route that drops
        {ReversePath::loose, "10.8.0.7", "forwarded"},   // by another port
        {ReversePath::strict, "192.0.2.9", notReversed}, //
        {ReversePath::strict, "10.8.0.7", notReversed},  // by another port
        {ReversePath::strict, "10.0.1.9", "forwarded"},  // the port's subnet
        {ReversePath::strict, "10.0.2.9", notReversed},  // another's
        {ReversePath::strict, "10.66.0.9", "forwarded"}, // one of several vias
    };
    L3::Route both;
    both.kind = L3::Route::Kind::forward;
    both.key = {L3::RouteKey::mainTable, Lumo::IpGenAddr::fromText("10.66.0.0"), 16};
    for (const char* port : {"east", "west"}) {
        Mpls::ViaOptions options;
        options.intf = Lumo::IntfId(port);
        both.vias.push_back({Mpls::Via::forward(options).value(), 1});
    }
    tables.vrfs->fibIs("").routeIs(both.key.range(), resolve(both, ports, nullptr));
    for (const auto& given : cases) {
        ports.ports()[west].reversePath = given.asked;
        EXPECT_EQ(fateOfPacket(from(given.source)), given.fate)
            << given.source << ' ' << Tessel::wordOf(given.asked);
    }
    ports.ports()[west].reversePath = ReversePath::strict;
    EXPECT_EQ(fateOfPacket(from("192.0.2.9", "10.0.1.1")), notReversed) << "to the device";
    const Summary before = summary();
    receiveIp(from("0.0.0.0", "255.255.255.255"));
    EXPECT_EQ(summary().punted.total(), before.punted.total() + 1);
    receivePopped(from("192.0.2.9"), "10.9.0.1"); // brought by a label
    EXPECT_EQ(dropped().at(notReversed), before.dropped.counts().at(notReversed));
}

TEST_F(SourceCheck, UnicastIsNotTakenFromFramesToGroups) {
    const std::vector<Bytes> links{
        eth(ethIpv4),
        join({eth(ethVlan), tag(0, ethIpv4)}),
    };
    for (const Bytes& link : links) {
        EXPECT_EQ(fateOf(toGroup(join({link, packetTo("10.9.0.1")}))), toSeveral);
        EXPECT_EQ(fateOf(toGroup(join({link, packetTo("10.0.1.1")}))), toSeveral);
    }
    EXPECT_EQ(punted(), ReasonCounts{});
    receiveAt(west, toGroup(ipFrame(packetTo("224.0.0.5"))));
    receiveAt(west, toGroup(ipFrame(packetTo("255.255.255.255"))));
    receiveAt(west, toGroup(ipFrame(packetTo("10.0.1.255"))));
    EXPECT_EQ(summary().punted.total(), 3U);
}

TEST_F(SourceCheck, ATaggedPacketIsNotRoutedInTheVrfOfThePort) {
    const Bytes packet = packetTo("10.9.0.1");
    const struct {
        const char* what;
        Bytes link;
        const char* fate;
    } cases[]{
        {"no tag", eth(ethIpv4), "forwarded"},
        {"a priority", join({eth(ethVlan), tag(0x6000, ethIpv4)}), "forwarded"},
        {"a VLAN", join({eth(ethVlan), tag(7, ethIpv4)}), otherVlan},
        {"a service VLAN", join({eth(ethServiceVlan), tag(7, ethIpv4)}), otherVlan},
        {"a VLAN behind a priority", join({eth(ethVlan), tag(0, ethVlan), tag(7, ethIpv4)}),
         otherVlan},
        {"two VLANs", join({eth(ethVlan), tag(7, ethVlan), tag(8, ethIpv4)}), otherVlan},
    };
    for (const auto& given : cases) {
        EXPECT_EQ(fateOf(join({given.link, packet})), given.fate) << given.what;
        EXPECT_EQ(fateOf(toGroup(join({given.link, packet}))),
                  given.fate == otherVlan ? otherVlan : toSeveral)
            << given.what;
    }
    ports.ports()[west].tagging = {Tagging::Kind::vlan, 7, 0};
    EXPECT_EQ(fateOf(join({cases[2].link, packet})), "forwarded") << "the VLAN of the port";
    EXPECT_EQ(fateOf(join({cases[5].link, packet})), otherVlan);
}

TEST_F(SourceCheck, ATagUnderAnExplicitNullIsNoWayIntoTheVrfEither) {
    const auto receiveNull = [&](const Bytes& link) {
        auto to = nexthop("", "10.9.0.1");
        to->rewriteInfos().rewriteInfoEnq(popInfo());
        handler->decide = always(to);
        return fateOf(join({link, stack({{0}}), packetTo("10.9.0.1")}));
    };
    EXPECT_EQ(receiveNull(eth(ethMpls)), "forwarded");
    EXPECT_EQ(receiveNull(join({eth(ethVlan), tag(7, ethMpls)})), otherVlan);
}

TEST_F(SourceCheck, WhatTheRouterMakesItselfIsTrusted) {
    ports.ports()[west].reversePath = ReversePath::strict;
    const Bytes frame = join({eth(ethVlan), tag(7, ethIpv4), from("10.0.1.1")});
    forwarder->receive({west, {}, frame, static_cast<std::uint32_t>(frame.size()), true});
    EXPECT_EQ(onlyFrame().first, east);
}

} // namespace SourceCheckTest
