// Multicast LSPs and the multicast-VPN interfaces in a configuration, and what is published of
// them.

#include <gtest/gtest.h>

#include "ConfigTesting.h"
#include "Mpls/Hardware/Status.h"
#include "State/MvpnIntfStatus.h"
#include "Tables/AgentState.h"

namespace ConfigMulticastTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

std::string decap(const std::string& route) {
    return twoPorts + "lfib:\n  decap:\n    - {label: 100, " + route + "}\n";
}
std::string mvpn(const std::string& list) {
    return twoPorts + "mvpn:\n" + list;
}

const std::string via = "{interface: eth1, action: swap, labels: [300]}";

/// What the tables say of label 100.
struct Published {
    explicit Published(const std::string& text)
        : made(AgentState::ofConfig(configOf(text), "t.yaml", "multicast").value()) {}

    Mpls::LfibViaSet set() const {
        const auto& lfib = *state.tables().lfib(Mpls::TableId::decapLfib);
        return lfib.viaSet(lfib.route(Mpls::RouteKey::fromLabel(Lumo::MplsLabel(100))).viaSetKey);
    }
    Ptr<Routing::Multicast::MvpnIntfStatus> mvpnStatus() const {
        using Status = Routing::Multicast::MvpnIntfStatus;
        const auto& tables = state.manager()->shmEntitySource()->entityManager();
        tables->mount(Status::mountPath, Status::entityTypeName, Tessel::MountKind::reading);
        return tables->fetch<Status>(Status::mountPath).entity;
    }
    std::unique_ptr<AgentState> made;
    AgentState& state = *made;
};

} // namespace

TEST(ConfigMulticast, ARouteIsUnicastUnlessToldOtherwise) {
    for (const auto& [told, isMulticast] :
         {std::pair{"", false}, {"multicast: false, ", false}, {"multicast: true, ", true}}) {
        const std::string text = decap(std::string(told) + "vias: [" + via + ", " + via + "]");
        EXPECT_EQ(configOf(text, "t.yaml").labelRoutes.at(0).value.isMulticast(), isMulticast);
        const Mpls::LfibViaSet set = Published(text).set();
        EXPECT_EQ(set.type == Mpls::LfibViaSetType::multicast, isMulticast) << told;
        EXPECT_EQ(set.members.size(), 2U);
    }
}

TEST(ConfigMulticast, ATailStandsAloneOrWithVias) {
    for (const auto& [vias, members] :
         {std::pair{std::string(), 1U}, {", via: " + via, 2U}, {", vias: [" + via + "]", 2U}}) {
        const Published published(decap("multicast: true, tail: {vlan: 4094}" + vias));
        const Mpls::LfibViaSet set = published.set();
        EXPECT_EQ(set.members.size(), members) << vias;
        ASSERT_EQ(set.viaKeys.size(), 1U);
        EXPECT_EQ(set.viaKeys[0].viaType, Mpls::LfibViaType::multicastIpLookup);
        const auto tail = published.state.tables()
                              .lfib(Mpls::TableId::decapLfib)
                              ->multicastIpLookupVia(set.viaKeys[0]);
        EXPECT_EQ((std::uint64_t{tail.intfIdHigh} << 32U) | tail.intfIdLow,
                  Lumo::VlanIntfId::vlanIdToIntfId(4094).value());
    }
}

TEST(ConfigMulticast, AnAdjacencyMayBeMulticast) {
    const std::string text = twoPorts +
                             "hardware:\n  adjacencies:\n    - {id: 1, multicast: true, "
                             "vias: [" +
                             via + "]}\n    - {id: 2, vias: [" + via + "]}\n";
    const Published published(text);
    const auto status = published.state.pluginContext()
                            ->entityManager()
                            ->fetch<Mpls::Hardware::Status>("routing/hardware/mpls/status")
                            .entity;
    EXPECT_EQ(status->adjacency(1)->setType(), Mpls::LfibViaSetType::multicast);
    EXPECT_EQ(status->adjacency(2)->setType(), Mpls::LfibViaSetType::unicast);
}

TEST(ConfigMulticast, RefusesWhatCannotBeMeant) {
    const struct {
        std::string text;
        std::string error;
    } rows[] = {
        {decap("multicast: true, type: ip-lookup, via: {vrf: red}"),
         "t.yaml:6: lfib.decap[0].type: a multicast route is of type ip"},
        {decap("tail: {vlan: 100}, via: " + via),
         "t.yaml:6: lfib.decap[0].tail: only a multicast route has a tail"},
        {decap("multicast: true"), "t.yaml:6: lfib.decap[0].vias: missing"},
        {decap("multicast: 1, via: " + via),
         "t.yaml:6: lfib.decap[0].multicast: \"1\" is not true or false"},
        {decap("multicast: true, tail: {}"), "t.yaml:6: lfib.decap[0].tail.vlan: missing"},
        {decap("multicast: true, tail: {vlan: 0}"),
         "t.yaml:6: lfib.decap[0].tail.vlan: vlan 0 is out of range (1..4094)"},
        {decap("multicast: true, tail: {vlan: 4095}"),
         "t.yaml:6: lfib.decap[0].tail.vlan: vlan 4095 is out of range (1..4094)"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(errorOf(row.text), row.error);
    }
}

TEST(ConfigMulticast, ATailTakesOnePlaceOfTheLargestSet) {
    std::string vias = via;
    for (int i = 1; i < 598; ++i) {
        vias += ", " + via;
    }
    const std::string begin = "multicast: true, tail: {vlan: 100}, vias: [";
    EXPECT_EQ(Published(decap(begin + vias + "]")).set().members.size(), 599U);
    const auto refused =
        AgentState::ofConfig(configOf(decap(begin + vias + ", " + via + "]")), "t.yaml");
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.refused().what,
              "t.yaml:6: lfib.decap: label 100: more than 598 vias beside the tail");
}

TEST(ConfigMulticast, InterfacesOfVrfsArePublished) {
    const Published published(mvpn("  - {vrf-id: 7, vlan: 100}\n"
                                   "  - {vrf-id: 4294967295, interface: eth2}\n"));
    const auto status = published.mvpnStatus();
    ASSERT_TRUE(status);
    EXPECT_EQ(status->vrfIntfId({7}).intfId, Lumo::VlanIntfId::vlanIdToIntfId(100));
    EXPECT_EQ(status->vrfIntfId({0xffffffff}).intfId, Lumo::IntfId("eth2"));
    EXPECT_EQ(status->vrfIntfId({8}), Routing::Multicast::MvpnVrfIntfId());
}

TEST(ConfigMulticast, RefusesInterfacesOfVrfsThatCannotBeMeant) {
    const struct {
        const char* list;
        const char* error;
    } rows[] = {
        {"  - {vlan: 100}\n", "t.yaml:5: mvpn[0].vrf-id: missing"},
        {"  - {vrf-id: 7}\n", "t.yaml:5: mvpn[0]: VRF id 7 lacks its vlan or interface"},
        {"  - {vrf-id: 7, vlan: 100, interface: eth1}\n",
         "t.yaml:5: mvpn[0].interface: \"eth1\" and vlan 100 cannot both be given"},
        {"  - {vrf-id: 4294967296, vlan: 100}\n",
         "t.yaml:5: mvpn[0].vrf-id: VRF id 4294967296 is out of range (0..4294967295)"},
        {"  - {vrf-id: 7, vlan: 0}\n", "t.yaml:5: mvpn[0].vlan: vlan 0 is out of range (1..4094)"},
        {"  - {vrf-id: 7, vlan: 100}\n  - {vrf-id: 7, vlan: 101}\n",
         "t.yaml:6: mvpn[1].vrf-id: VRF id 7 is already defined at line 5"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(errorOf(mvpn(row.list)), row.error);
    }
}

} // namespace ConfigMulticastTest
