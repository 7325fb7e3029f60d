#include "Answers/CpuAnswers.h"

#include "Config/Config.h"
#include "ConfigTesting.h"
#include "EchoTesting.h"
#include "HeapCount.h"
#include "LocalTables.h"
#include "Published/TransitRoutes.h"

namespace CpuAnswersTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using namespace TestSupport::Raw;

namespace {

constexpr PortIndex core = 0;
constexpr PortIndex customer = 1;

class CpuAnswersTest : public testing::Test {
  protected:
    CpuAnswersTest() {
        Mpls::ViaOptions toCore;
        toCore.intf = Lumo::IntfId("core");
        Mpls::LabelRoute route;
        route.label = Lumo::MplsLabel(100);
        route.vias = {{Mpls::Via::pop(toCore).value(), 1}};
        EXPECT_TRUE(Mpls::transitRouteIs(tables.publisher, route));
        tables.publisher.lfib(Mpls::TableId::decapLfib)
            .ipLookupRouteIs(Mpls::RouteKey::fromLabel(Lumo::MplsLabel(500)),
                             Mpls::LfibViaType::ipLookup, "red", Mpls::PayloadType::automatic);
        tables.commit();
    }

    /// The frames that answer one that was punted, without their link headers.
    std::vector<Bytes> answersTo(PortIndex port, const Bytes& frame) {
        answers.transmit({port, {}, frame, static_cast<std::uint32_t>(frame.size())});
        std::vector<Bytes> all;
        for (const CpuAnswers::Frame& answer : answers.take()) {
            EXPECT_EQ(answer.port, port);
            all.push_back(from(answer.bytes, 12, answer.bytes.size() - 12));
        }
        return all;
    }
    /// "routed", "along the LSP with 100 200", or "none".
    std::string pathOf(PortIndex port, const Bytes& frame) {
        const std::vector<Bytes> all = answersTo(port, frame);
        if (all.empty()) {
            return "none";
        }
        if (all[0][0] != 0x88) {
            return "routed";
        }
        std::string path = "along the LSP with";
        for (std::size_t at = 2;; at += 4) {
            const auto entry = Lumo::MplsLabelEntry::load(all[0].data() + at);
            path += " " + std::to_string(entry.label().value());
            if (entry.bos()) {
                return path;
            }
        }
    }
    static Bytes packet(const std::string& source, const std::string& destination,
                        std::uint8_t ttl = 64) {
        Ipv4 header;
        header.source = address(source);
        header.destination = address(destination);
        header.ttl = ttl;
        return ipv4(header, udp());
    }
    static Bytes packet6(const std::string& source, const std::string& destination,
                         std::uint8_t hopLimit = 64) {
        return packet6(source, destination, udp(), hopLimit);
    }
    static Bytes packet6(const std::string& source, const std::string& destination,
                         const Bytes& payload, std::uint8_t hopLimit = 64) {
        Bytes bytes = ipv6({.hopLimit = hopLimit}, payload);
        std::copy_n(Lumo::IpGenAddr::fromText(source).bytes().begin(), 16, bytes.begin() + 8);
        std::copy_n(Lumo::IpGenAddr::fromText(destination).bytes().begin(), 16, bytes.begin() + 24);
        return bytes;
    }
    static std::uint32_t address(const std::string& text) {
        return Lumo::NetU32::load(Lumo::IpGenAddr::fromText(text).bytes().data()).value();
    }

    class Counting : public TransmitPort {
      public:
        void transmit(const Frame&) override { ++frames; }
        std::size_t frames = 0;
    };

    const AgentConfig config = configOf(R"(
ports:
  - {name: core, mac: "02:00:00:00:00:01", addresses: [10.0.1.1/24, 10.0.9.1/31, "fe80::1/64", "2001:db8::1/64"]}
  - {name: customer, mac: "02:00:00:00:00:02", vrf: red, addresses: [192.168.1.1/24]}
)",
                                        "test.yaml");
    ForwardingTables forwarding{config};
    TestSupport::LocalTables tables;
    Counting cpu;
    CpuAnswers answers{cpu, config, forwarding, tables.published};
};

} // namespace

TEST_F(CpuAnswersTest, AnAnswerIsRoutedWhereTheSourceIsRoutable) {
    const Bytes near = packet("10.0.1.9", "10.9.0.1");
    EXPECT_EQ(pathOf(core, labelled({{100, 0, 1}}, near)), "routed");
    const Bytes far = packet("172.16.0.1", "10.9.0.1");
    EXPECT_EQ(pathOf(core, labelled({{100, 0, 1}}, far)), "along the LSP with 100");
}

TEST_F(CpuAnswersTest, AddressesOfAVpnAreNotRoutedHere) {
    const Bytes near = packet("10.0.1.9", "10.9.0.1");
    EXPECT_EQ(pathOf(core, labelled({{100, 0, 1}, {500, 0, 64}}, near)),
              "along the LSP with 100 500");
    const Bytes ofVpn = packet("192.168.1.9", "10.9.0.1");
    EXPECT_EQ(pathOf(core, labelled({{500, 0, 1}}, ofVpn)), "along the LSP with 500");
}

TEST_F(CpuAnswersTest, LabelsThatEndHereLeadNoAnswerToASourceWithoutARoute) {
    const Bytes ofCore = packet("10.0.1.9", "10.9.0.1");
    const Bytes ofVpn = packet("192.168.1.9", "10.9.0.1");
    const Bytes far = packet("172.16.0.1", "10.9.0.1");
    EXPECT_EQ(pathOf(core, labelled({{500, 0, 1}}, ofCore)), "none");
    EXPECT_EQ(pathOf(core, labelled({{0, 0, 1}}, far)), "none");
    EXPECT_EQ(pathOf(core, labelled({{777, 0, 1}}, far)), "none");
    EXPECT_EQ(pathOf(core, labelled({{500, 0, 1}, {7}, {5000, 0, 0}}, ofCore)), "none");
    EXPECT_EQ(pathOf(core, labelled({{500, 0, 1}, {7}, {5000, 0, 0}}, ofVpn)),
              "along the LSP with 500 7 5000");
    EXPECT_EQ(pathOf(core, labelled({{500, 0, 1}, {100}}, far)), "along the LSP with 500 100");
}

TEST_F(CpuAnswersTest, ALabelMayExpireBeneathLabelsThatEndHere) {
    const Bytes near = packet("10.0.1.9", "10.9.0.1");
    EXPECT_EQ(pathOf(core, labelled({{500}, {100, 0, 1}}, near)), "along the LSP with 500 100");
    EXPECT_EQ(pathOf(core, labelled({{500}, {7}, {5000, 0, 0}, {100, 0, 1}}, near)),
              "along the LSP with 500 7 5000 100");
    EXPECT_EQ(pathOf(core, labelled({{0}, {100, 0, 1}}, near)), "along the LSP with 0 100");
    EXPECT_EQ(pathOf(core, labelled({{500}, {7}, {5000, 0, 0}, {100}}, near)), "none");
    EXPECT_EQ(pathOf(core, labelled({{777}, {100, 0, 1}}, near)), "none");
}

TEST_F(CpuAnswersTest, AnIpPacketIsAnsweredInTheVrfOfItsPort) {
    const auto ofVpn = join({eth(ethIpv4), packet("192.168.1.9", "192.168.2.1", 1)});
    EXPECT_EQ(pathOf(customer, ofVpn), "routed");
    EXPECT_EQ(pathOf(core, ofVpn), "none");
}

TEST_F(CpuAnswersTest, APacketToThisDeviceDoesNotExpireInItsVrf) {
    const auto frameTo = [](const std::string& destination) {
        return join({eth(ethIpv4), packet("192.168.1.9", destination, 1)});
    };
    EXPECT_EQ(pathOf(customer, frameTo("192.168.1.1")), "none");
    EXPECT_EQ(pathOf(customer, frameTo("10.0.1.1")), "routed"); // nobody's, in that VRF
}

TEST_F(CpuAnswersTest, AnAnswerHasTheTagsOfItsFrame) {
    const auto answerTo = [&](const Bytes& frame) {
        const std::vector<Bytes> all = answersTo(core, frame);
        return all.size() == 1 && all[0].size() > 14 ? hex(cut(all[0], 14)) : "";
    };
    const Bytes near = packet("10.0.1.9", "10.9.0.1");
    const Bytes far = packet("172.16.0.1", "10.9.0.1");
    const auto taggedOnce = [](const Bytes& of) {
        return join({eth(ethVlan), tag(7, ethMpls), stack({{100, 0, 1}}), of});
    };
    EXPECT_EQ(answerTo(taggedOnce(near)).substr(0, 14), "81000007080045");
    EXPECT_EQ(answerTo(taggedOnce(far)).substr(0, 20), "810000078847000641ff");
    EXPECT_EQ(answerTo(tagged({{100, 0, 1}}, near)).substr(0, 22), "88a800058100e00a080045");
    EXPECT_EQ(answerTo(tagged({{100, 0, 1}}, far)), "88a800058100e00a8847000641ff");
    EXPECT_EQ(answerTo(labelled({{100, 0, 1}}, near)).substr(0, 6), "080045");
}

TEST_F(CpuAnswersTest, AnswersAreCountedSentOrSuppressed) {
    using Counts = std::vector<std::pair<std::string, std::uint64_t>>;
    EXPECT_EQ(answers.counts(), Counts());
    const Bytes near = labelled({{100, 0, 1}}, packet("10.0.1.9", "10.9.0.1"));
    answersTo(core, near);
    EXPECT_EQ(answers.counts(), (Counts{{"time exceeded: sent", 1}}));
    const Bytes big = labelled({{100, 0, 9}}, ipv6({}, udp(1, 2, counting(1600))));
    answers.tooBig({core, {}, big, static_cast<std::uint32_t>(big.size())}, big, 1500);
    answersTo(core, labelled({{100, 0, 1}}, packet("10.0.1.9", "224.0.0.5"))); // never answered
    EXPECT_EQ(answers.counts(), (Counts{{"time exceeded: sent", 1}, {"too big: sent", 1}}));
    std::size_t sent = 1;
    for (int i = 0; i < 1000; ++i) {
        sent += answersTo(core, near).size();
    }
    EXPECT_LT(sent, 1001U);
    EXPECT_EQ(answers.counts(), (Counts{{"time exceeded: sent", sent},
                                        {"time exceeded: suppressed", 1001 - sent},
                                        {"too big: sent", 1}}));
}

TEST_F(CpuAnswersTest, OneSourceLeavesAnswersToOthers) {
    const auto sentTo = [&](const std::string& source) {
        std::size_t sent = 0;
        for (int i = 0; i < 1000; ++i) {
            sent += answersTo(core, labelled({{100, 0, 1}}, packet(source, "10.9.0.1"))).size();
        }
        return sent;
    };
    const std::size_t perSource = AnswerRates().perSource.burst;
    EXPECT_LE(sentTo("10.0.1.9"), 2 * perSource); // the clock goes on
    EXPECT_GE(sentTo("10.0.9.0"), perSource);
}

TEST_F(CpuAnswersTest, EveryPuntedFrameGoesToTheCpuAndAnswersAreCountedWhenTaken) {
    const Bytes near = packet("10.0.1.9", "10.9.0.1");
    answersTo(core, labelled({{100, 0, 1}}, near));
    answersTo(core, labelled({{100, 0, 64}}, near));
    EXPECT_EQ(cpu.frames, 2U);
    EXPECT_EQ(answers.taken(), 1U);
}

TEST_F(CpuAnswersTest, AnAnswerHasTheAddressThatItsPortHasNow) {
    const Bytes expired = labelled({{100, 0, 1}}, packet("10.0.1.9", "10.9.0.1"));
    const auto sourceOf = [&] { return hex(from(answersTo(core, expired).at(0), 14, 4)); };
    EXPECT_EQ(sourceOf(), "0a000101");
    AgentConfig other = config;
    other.ports[core].addresses[0].address = Lumo::IpGenAddr::fromText("10.0.1.77");
    answers.configure(other);
    EXPECT_EQ(sourceOf(), "0a00014d");
}

TEST_F(CpuAnswersTest, WhatIsSwitchedOffIsNotAnswered) {
    AgentConfig silent = config;
    silent.answers[static_cast<std::size_t>(AnswerReason::timeExceeded)] = {{}, {}};
    answers.configure(silent);
    EXPECT_EQ(pathOf(core, labelled({{100, 0, 1}}, packet("10.0.1.9", "10.9.0.1"))), "none");
    const Bytes near = join({eth(ethIpv4), packet("10.0.1.9", "10.9.0.1")});
    answers.undelivered({core, {}, near, static_cast<std::uint32_t>(near.size())}, Reason::noRoute);
    EXPECT_EQ(answers.take().size(), 1U);
}

TEST_F(CpuAnswersTest, BeyondTheLimitNothingIsBuilt) {
    Ipv4 fields;
    fields.source = 0x0a000109;
    fields.destination = 0x7f000001;
    const Bytes ping = labelled({{0}}, ipv4(fields, udp(49152, 3503, message({}))));
    const Bytes expired = labelled({{100, 0, 1}}, packet("10.0.1.9", "10.9.0.1"));
    for (const Bytes& frame : {ping, expired}) {
        const auto cost = [&] {
            const std::uint64_t before = TestSupport::heapAllocations;
            answers.transmit({core, {}, frame, static_cast<std::uint32_t>(frame.size())});
            return TestSupport::heapAllocations - before;
        };
        for (int i = 0; i < 1000; ++i) {
            cost();
        }
        answers.take();
        std::vector<std::uint64_t> costs;
        for (int i = 0; i < 99; ++i) {
            costs.push_back(cost());
        }
        std::sort(costs.begin(), costs.end());
        EXPECT_LE(costs[50], 3U); // reading the packet and its labels
    }
}

TEST_F(CpuAnswersTest, OwnFramesAreNotAnswered) {
    const Bytes expired = labelled({{100, 0, 1}}, packet("10.0.1.9", "10.9.0.1"));
    answers.transmit({core, {}, expired, static_cast<std::uint32_t>(expired.size()), true});
    EXPECT_TRUE(answers.take().empty());
}

TEST_F(CpuAnswersTest, AReplyAlertsRoutersIfTheRequestAsksForIt) {
    Ipv4 fields;
    fields.source = 0xac100001; // known at the end of the LSP only
    fields.destination = 0x7f000001;
    for (const std::uint8_t mode : {std::uint8_t{2}, std::uint8_t{3}}) {
        const Bytes ping = ipv4(fields, udp(49152, 3503, message({.replyMode = mode})));
        const Bytes frame = labelled({{1}, {100}}, ping);
        answers.transmit({core, {}, frame, static_cast<std::uint32_t>(frame.size())});
        const auto all = answers.take();
        ASSERT_EQ(all.size(), 1U);
        EXPECT_TRUE(all[0].isOwn);
        EXPECT_EQ(all[0].alertsRouters, mode == 3);
        EXPECT_EQ(hex(from(all[0].bytes, 12, 6)), "8847000641ff");
    }
}

TEST_F(CpuAnswersTest, AReplyUnderARouterAlertLabelGoesOnByTheLabelBeneath) {
    Ipv4 fields;
    fields.source = 0x0a000109;
    fields.destination = 0xac100001;
    const Bytes reply = ipv4(fields, udp(3503, 49152, message({.type = 2})));
    const auto onward = [&](const Bytes& frame) {
        answers.transmit({core, {}, frame, static_cast<std::uint32_t>(frame.size())});
        return answers.take();
    };
    const Bytes arrived = labelled({{1, 0, 9}, {100, 5, 44}}, reply);
    const auto all = onward(arrived);
    ASSERT_EQ(all.size(), 1U);
    EXPECT_FALSE(all[0].isOwn);
    EXPECT_TRUE(all[0].alertsRouters);
    EXPECT_EQ(all[0].port, core);
    EXPECT_EQ(hex(from(all[0].bytes, 0, 12)), "020000000001000000000000");
    EXPECT_EQ(from(all[0].bytes, 12, all[0].bytes.size() - 12),
              join({u16(ethMpls), stack({{100, 5, 44}}), reply}));
    EXPECT_EQ(answers.counts(), (std::vector<std::pair<std::string, std::uint64_t>>{
                                    {"LSP echo: replies passed on", 1}}));
    Bytes toGroup = arrived;
    toGroup[0] = 1;
    const Bytes others[]{toGroup, labelled({{100}}, reply), labelled({{1}}, reply),
                         labelled({{0}, {1}, {100}}, reply),
                         labelled({{1}, {100}}, packet("10.0.1.9", "10.9.0.1"))};
    for (const Bytes& other : others) {
        EXPECT_TRUE(onward(other).empty());
    }
    std::size_t passed = 0;
    for (int i = 0; i < 1000; ++i) {
        passed += onward(arrived).size();
    }
    EXPECT_LT(passed, 1000U); // as many as replies of its own
}

TEST_F(CpuAnswersTest, AnEchoInAFrameToAGroupIsAnsweredByTheLabelOfATreeOnly) {
    Mpls::ViaOptions toCore;
    toCore.intf = Lumo::IntfId("core");
    Mpls::LabelRoute tree;
    tree.label = Lumo::MplsLabel(600);
    tree.setType = Mpls::LfibViaSetType::multicast;
    tree.vias = {{Mpls::Via::pop(toCore).value(), 1}};
    EXPECT_TRUE(Mpls::transitRouteIs(tables.publisher, tree));
    tables.commit();
    Ipv4 fields;
    fields.source = 0x0a000109;
    fields.destination = 0x7f000001;
    const Bytes ping = ipv4(fields, udp(49152, 3503, message({})));
    const auto answered = [&](const std::vector<Entry>& labels, bool toGroup) {
        Bytes frame = labelled(labels, ping);
        frame[0] = toGroup ? 1 : 2;
        return answersTo(core, frame).size();
    };
    for (const auto& labels : {std::vector<Entry>{{600, 0, 1}}, {{1}, {600, 0, 1}}}) {
        EXPECT_EQ(answered(labels, true), 1U);
        EXPECT_EQ(answered(labels, false), 1U);
    }
    for (const auto& labels : {std::vector<Entry>{{100, 0, 1}}, {{1}, {100, 0, 1}}, {{0}}, {{1}}}) {
        EXPECT_EQ(answered(labels, true), 0U);
        EXPECT_EQ(answered(labels, false), 1U);
    }
    EXPECT_EQ(answers.counts().back(),
              (std::pair<std::string, std::uint64_t>{
                  "LSP echo unanswered: frame to a group of stations", 4}));
}

TEST_F(CpuAnswersTest, AReplyHasAsManyMappingsAsFit) {
    Mpls::LabelRoute wide;
    wide.label = Lumo::MplsLabel(700);
    for (std::uint32_t i = 0; i < 60; ++i) {
        Mpls::ViaOptions options;
        options.intf = Lumo::IntfId("core");
        options.nexthop = Lumo::IpGenAddr::fromText("10.0.1." + std::to_string(10 + i));
        const std::vector<Lumo::MplsLabel> labels{Lumo::MplsLabel(1000 + i)};
        wide.vias.push_back({Mpls::Via::swap(labels, options).value(), 1});
    }
    EXPECT_TRUE(Mpls::transitRouteIs(tables.publisher, wide));
    tables.commit();
    Ipv4 fields;
    fields.source = 0x0a000109;
    fields.destination = 0x7f000001;
    const Bytes tlvs = join({fecStack({ldp4}), mappingOf("224.0.0.2", "")});
    const Bytes ping = ipv4(fields, udp(49152, 3503, message({.tlvs = tlvs})));
    const auto sizeOfReply = [&] {
        const std::vector<Bytes> all = answersTo(core, labelled({{700, 0, 1}}, ping));
        return all.size() == 1 ? all[0].size() - 2 : 0; // without the EtherType
    };
    constexpr std::size_t mapping = 4 + 16 + 8;
    constexpr std::size_t headers = 20 + 8 + 32;
    constexpr std::size_t fitting = (1500 - headers) / mapping;
    for (int i = 0; i < 32; ++i) {
        EXPECT_EQ(sizeOfReply(), headers + fitting * mapping);
    }
    EXPECT_EQ(answers.counts().back(),
              (std::pair<std::string, std::uint64_t>{"LSP echo: mappings or other TLVs left out",
                                                     32 * (60 - fitting)}));
    forwarding.ports.ports()[core].mtu = 500;
    EXPECT_EQ(sizeOfReply(), headers + (500 - headers) / mapping * mapping);
    forwarding.ports.ports()[core].mtu = 68;
    EXPECT_EQ(sizeOfReply(), headers);
}

TEST_F(CpuAnswersTest, WhatIsNotDeliveredIsAnsweredByItsReason) {
    const auto codesFor = [&](PortIndex port, const Bytes& frame, std::string_view reason) {
        answers.undelivered({port, {}, frame, static_cast<std::uint32_t>(frame.size())}, reason);
        const auto all = answers.take();
        return all.size() == 1 ? hex(from(all[0].bytes, 14 + 20, 2)) : "none";
    };
    const Bytes near = join({eth(ethIpv4), packet("10.0.1.9", "10.9.0.1")});
    EXPECT_EQ(codesFor(core, near, Reason::noRoute), "0300");
    EXPECT_EQ(codesFor(core, near, Reason::noNeighbour), "0301");
    EXPECT_EQ(codesFor(core, near, Reason::unreachableRoute), "0301");
    EXPECT_EQ(codesFor(core, near, Reason::prohibitedRoute), "030d");
    for (const std::string_view silent : {Reason::droppingRoute, Reason::martianDestination,
                                          Reason::ipv4Checksum, Reason::multicast}) {
        EXPECT_EQ(codesFor(core, near, silent), "none") << silent;
    }
    const Bytes far = join({eth(ethIpv4), packet("172.16.0.1", "10.9.0.1")});
    EXPECT_EQ(codesFor(core, far, Reason::noRoute), "none");
    using Counts = std::vector<std::pair<std::string, std::uint64_t>>;
    EXPECT_EQ(answers.counts(), (Counts{{"unreachable: sent", 4}}));
}

TEST_F(CpuAnswersTest, WhatIsNotAnsweredIsCountedByItsReason) {
    const auto send = [&](const Echo& echo, std::uint32_t source = 0x0a000109) {
        Ipv4 fields;
        fields.source = source;
        fields.destination = 0x7f000001;
        return answersTo(core, labelled({{0}}, ipv4(fields, udp(49152, 3503, message(echo)))))
            .size();
    };
    EXPECT_EQ(send({}), 1U);
    EXPECT_EQ(send({.replyMode = 1}), 0U);
    EXPECT_EQ(send({.replyMode = 1}), 0U);
    EXPECT_EQ(send({.type = 2}), 0U);
    EXPECT_EQ(send({}, 0xe0000001), 0U);
    Ipv4 unroutable;
    unroutable.source = 0xac100001;
    unroutable.destination = 0x7f000001;
    const Bytes unlabelled = join({eth(ethIpv4), ipv4(unroutable, udp(49152, 3503, message({})))});
    EXPECT_TRUE(answersTo(core, unlabelled).empty());
    EXPECT_EQ(send({}, 0xac100001), 0U);
    using Counts = std::vector<std::pair<std::string, std::uint64_t>>;
    EXPECT_EQ(answers.counts(), (Counts{{"LSP echo: sent", 1},
                                        {"LSP echo unanswered: not a request", 1},
                                        {"LSP echo unanswered: no reply wanted", 2},
                                        {"LSP echo unanswered: source is not a single host", 1},
                                        {"LSP echo unanswered: no path to the source", 2}}));
    const Bytes toLoopback6 = packet6("2001:db8::9", "::1", udp(49152, 3503, message({})));
    const Bytes toHost = packet6("2001:db8::9", "2001:db8:5::1", udp(49152, 3503, message({})));
    const Bytes otherPort = packet6("2001:db8::9", "::1", udp(49152, 3504, message({})));
    for (const Bytes& given : {toLoopback6, toHost, otherPort}) {
        EXPECT_TRUE(answersTo(core, labelled({{2}}, given)).empty());
    }
    EXPECT_EQ(answers.counts().back(),
              (std::pair<std::string, std::uint64_t>{"LSP echo unanswered: not sent to 127.0.0.0/8 "
                                                     "or ::ffff:127.0.0.0/104",
                                                     2}));
}

TEST_F(CpuAnswersTest, AFloodOfUndeliveredPacketsCostsNothingFromTheHeap) {
    const Bytes near = join({eth(ethIpv4), packet("10.0.1.9", "10.9.0.1")});
    const Frame frame{core, {}, near, static_cast<std::uint32_t>(near.size())};
    const auto suppressed = [&] {
        const auto counts = answers.counts();
        return counts.empty() || counts.back().first != "unreachable: suppressed"
                   ? 0
                   : counts.back().second;
    };
    for (int i = 0; i < 1000; ++i) {
        answers.undelivered(frame, Reason::noRoute);
    }
    const std::uint64_t first = suppressed();
    EXPECT_GT(first, 0U);
    EXPECT_LT(answers.take().size(), 1000U);
    std::uint64_t withoutHeap = 0;
    for (int i = 0; i < 100; ++i) {
        const std::uint64_t before = TestSupport::heapAllocations;
        answers.undelivered(frame, Reason::noRoute);
        withoutHeap += TestSupport::heapAllocations == before ? 1U : 0U;
    }
    EXPECT_GE(withoutHeap, 90U); // a token may have come in meanwhile
}

TEST_F(CpuAnswersTest, NoErrorIsSentAboutASubnetBroadcast) {
    const auto path = [&](PortIndex port, const char* source, const char* destination) {
        return pathOf(port, labelled({{100, 0, 1}}, packet(source, destination)));
    };
    EXPECT_EQ(path(core, "10.0.1.9", "10.0.1.255"), "none");
    EXPECT_EQ(path(core, "10.0.1.255", "10.0.2.1"), "none");
    EXPECT_EQ(path(core, "10.0.1.9", "10.0.1.254"), "routed");
    EXPECT_EQ(path(core, "10.0.1.9", "10.0.9.1"), "routed"); // of two routers, with no broadcast
    EXPECT_EQ(path(core, "10.0.1.9", "192.168.1.255"), "routed"); // a broadcast in another VRF
    EXPECT_EQ(path(customer, "192.168.1.9", "192.168.1.255"), "none");
}

TEST_F(CpuAnswersTest, AnErrorToALinkLocalSourceStaysOnTheLink) {
    const Bytes near = packet6("fe80::9", "2001:db8:5::1", 1);
    EXPECT_EQ(pathOf(core, join({eth(ethIpv6), near})), "routed");
    EXPECT_EQ(pathOf(core, labelled({{100, 0, 1}}, near)), "none");
    const Bytes global = packet6("2001:db8::9", "2001:db8:5::1", 1);
    EXPECT_EQ(pathOf(core, labelled({{100, 0, 1}}, global)), "routed");
    const Bytes ofIpv4 = packet("169.254.1.1", "10.9.0.1");
    EXPECT_EQ(pathOf(core, labelled({{100, 0, 1}}, ofIpv4)), "none");
}

} // namespace CpuAnswersTest
