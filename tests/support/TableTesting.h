#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "Mpls/LfibWriter.h"
#include "Mpls/OvixMplsVia.h"

/// What the tests of the label tables share.
namespace TableTesting {

inline Mpls::RouteKey key(std::uint32_t label) {
    return Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label));
}

/// A via as a routing daemon would publish it.
inline Mpls::WeightedRecord swapVia(std::uint32_t mtu = 1400, std::uint32_t weight = 1) {
    Mpls::WeightedRecord made;
    made.weight = weight;
    made.via.labelAction = static_cast<std::uint32_t>(Lumo::MplsLabelAction::swap);
    made.via.intfId = Lumo::IntfId("eth1");
    made.via.nexthop = Lumo::IpGenAddr::fromText("10.0.0.1");
    made.via.labels = std::string_view("\0\1\2", 3);
    made.via.nexthopMtu = mtu;
    return made;
}

/// A route of the transit LFIB.
inline Mpls::LabelRoute transitRoute(std::uint32_t label,
                                     const std::vector<Mpls::WeightedRecord>& vias) {
    Mpls::LabelRoute route;
    route.label = Lumo::MplsLabel(label);
    for (const Mpls::WeightedRecord& via : vias) {
        route.vias.push_back({Mpls::Via::fromRecord(via.via).value(), via.weight});
    }
    return route;
}

struct Field {
    const char* name;
    std::function<void(Ovix::OvixMplsVia&)> change;
};

/// One change of each field of a via, in the order of the record.
inline const std::vector<Field>& fields() {
    using Via = Ovix::OvixMplsVia;
    static const std::string longText(100, 'v');
    static const std::vector<Field> all = {
        {"labelAction", [](Via& via) { via.labelAction = 3; }},
        {"trafficClass", [](Via& via) { via.trafficClass = 0; }},
        {"controlWord", [](Via& via) { via.controlWord = true; }},
        {"entropy", [](Via& via) { via.entropy = true; }},
        {"payloadType", [](Via& via) { via.payloadType = 0x7f; }},
        {"ttlMode", [](Via& via) { via.ttlMode = 0x80; }},
        {"labels", [](Via& via) { via.labels = std::string_view(longText); }},
        {"pushTtl", [](Via& via) { via.pushTtl = 0xffff; }},
        {"intfId", [](Via& via) { via.intfId = Lumo::IntfId::fromValue(~std::uint64_t{0}); }},
        {"nexthop", [](Via& via) { via.nexthop = Lumo::IpGenAddr(Lumo::IpFamily::ipv6); }},
        {"vrfName", [](Via& via) { via.vrfName = std::string_view(longText); }},
        {"fecIdHigh", [](Via& via) { via.fecIdHigh = 0xffffffff; }},
        {"fecIdLow", [](Via& via) { via.fecIdLow = 1; }},
        {"nexthopMtu", [](Via& via) { via.nexthopMtu = 0x4000; }},
        {"nexthopVlan", [](Via& via) { via.nexthopVlan = 4094; }},
    };
    return all;
}

/// Remembers every change that is published.
class Heard : public Tessel::Subscriber {
  public:
    using Change = std::pair<Tessel::AttrId, std::uint64_t>;
    std::vector<Change> changes;
    std::function<void()> onReport = [] {};

    void attributeChanged(const Tessel::Entity&, Tessel::AttrId attribute,
                          std::uint64_t changed) override {
        changes.emplace_back(attribute, changed);
        onReport();
    }
};

} // namespace TableTesting
