#include "Answers/CpuAnswers.h"

#include "AnswersTesting.h"
#include "Config/Config.h"
#include "LocalTables.h"
#include "Mpls/TransitRoutes.h"

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using namespace TestSupport::Wire;

namespace {

constexpr PortIndex core = 0;
constexpr PortIndex customer = 1;

class CpuAnswersTest : public testing::Test {
  protected:
    CpuAnswersTest() {
        Mpls::WeightedVia via;
        via.via.intfId = Lumo::IntfId("core");
        via.via.labelAction = static_cast<std::uint32_t>(Lumo::MplsLabelAction::pop);
        Mpls::transitRouteIs(tables.publisher, Mpls::RouteKey::fromLabel(Lumo::MplsLabel(100)),
                             std::vector{via});
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
    std::string wayTo(PortIndex port, const Bytes& frame) {
        const std::vector<Bytes> all = answersTo(port, frame);
        if (all.empty()) {
            return "none";
        }
        if (all[0][0] != 0x88) {
            return "routed";
        }
        std::string way = "along the LSP with";
        for (std::size_t at = 2;; at += 4) {
            const auto entry = Lumo::MplsLabelEntry::load(all[0].data() + at);
            way += " " + std::to_string(entry.label().value());
            if (entry.bos()) {
                return way;
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
    static std::uint32_t address(const std::string& text) {
        return Lumo::NetU32::load(Lumo::IpGenAddr::fromText(text).bytes().data()).value();
    }

    class Nowhere : public TransmitPort {
      public:
        void transmit(const Frame&) override {}
    };

    const AgentConfig config = parseConfig(R"(
ports:
  - {name: core, mac: "02:00:00:00:00:01", addresses: [10.0.1.1/24]}
  - {name: customer, mac: "02:00:00:00:00:02", vrf: red, addresses: [192.168.1.1/24]}
)",
                                           "test.yaml");
    ForwardingTables forwarding{config};
    TestSupport::LocalTables tables;
    Nowhere cpu;
    CpuAnswers answers{cpu, config, forwarding, tables.published};
};

} // namespace

TEST_F(CpuAnswersTest, AnAnswerIsRoutedWhereTheSourceIsRoutable) {
    const Bytes near = packet("10.0.1.9", "10.9.0.1");
    EXPECT_EQ(wayTo(core, labelled({{100, 0, 1}}, near)), "routed");
    const Bytes far = packet("172.16.0.1", "10.9.0.1");
    EXPECT_EQ(wayTo(core, labelled({{100, 0, 1}}, far)), "along the LSP with 100");
}

TEST_F(CpuAnswersTest, TheAddressesOfAVpnAreNotThoseThatAreRoutedHere) {
    const Bytes near = packet("10.0.1.9", "10.9.0.1");
    EXPECT_EQ(wayTo(core, labelled({{100, 0, 1}, {500, 0, 64}}, near)),
              "along the LSP with 100 500");
    EXPECT_EQ(wayTo(core, labelled({{500, 0, 1}}, near)), "along the LSP with 500");
}

TEST_F(CpuAnswersTest, AnIpPacketIsAnsweredInTheVrfOfItsPort) {
    const auto ofVpn = join({eth(ethIpv4), packet("192.168.1.9", "192.168.2.1", 1)});
    EXPECT_EQ(wayTo(customer, ofVpn), "routed");
    EXPECT_EQ(wayTo(core, ofVpn), "none");
}

TEST_F(CpuAnswersTest, WhatIsForThisDeviceIsNotSpentInItsVrfAlone) {
    const auto frameTo = [](const std::string& destination) {
        return join({eth(ethIpv4), packet("192.168.1.9", destination, 1)});
    };
    EXPECT_EQ(wayTo(customer, frameTo("192.168.1.1")), "none");
    EXPECT_EQ(wayTo(customer, frameTo("10.0.1.1")), "routed"); // nobody's, in that VRF
}
