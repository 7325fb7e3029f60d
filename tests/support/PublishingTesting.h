#pragma once

#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "LocalTables.h"
#include "Published/InterfaceNames.h"
#include "publishing/RoutePublisher.h"

namespace PublishingTesting {

/// The interfaces of a host that does not exist, those of the recordings among them.
class MadeUpInterfaces : public OvixFpm::InterfaceLookup {
  public:
    std::map<std::uint32_t, OvixFpm::KernelLink> all{
        {1, {"lo", 0}}, {3, {"west0", 0}}, {5, {"east0", 0}}, {9, {"red", 10}}};
    std::map<std::uint32_t, std::string> vrfs{{10, "red"}};
    mutable unsigned asked = 0;
    mutable unsigned askedForVrfs = 0;

  protected:
    std::optional<OvixFpm::KernelLink> ask(std::uint32_t index) const override {
        ++asked;
        const auto found = all.find(index);
        return found != all.end() ? std::optional(found->second) : std::nullopt;
    }
    std::map<std::uint32_t, std::string> askForVrfs() const override {
        ++askedForVrfs;
        return vrfs;
    }
};

/// What the tables hold, as text; empty when there is nothing.
class TablesAsText {
  public:
    explicit TablesAsText(const Ptr<Tessel::TableReader>& tables)
        : reader_(tables), hardware_(Tessel::make<Mpls::Hardware::Status>(tables)),
          decap_(Tessel::make<Mpls::LfibStatus>(tables, Mpls::TableId::decapLfib)),
          transit_(Tessel::make<Mpls::LfibStatus>(tables, Mpls::TableId::transitLfib)),
          routes_(tables) {}

    /// How a label is switched: "swap 2000 via 192.0.2.2 west0 weight 1, ...".
    std::string transit(std::uint32_t label) const {
        const Mpls::RouteKey key = Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label));
        const Mpls::Hardware::Route route = hardware_->route(key);
        const bool isInLfib{transit_->route(key).viaSetKey.value != 0};
        if (isInLfib != (route.routeKey == key)) {
            return "the LFIB and the hardware differ";
        }
        return isInLfib ? viasText(hardware_->adjacency(route)->content().value().vias) : "";
    }
    /// The VRF that a label's payload is looked up in.
    std::string decap(std::uint32_t label) const {
        const auto route = decap_->route(Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label)));
        if (!route.viaSetKey.value) {
            return "";
        }
        return std::string(
            decap_->ipLookupVia(decap_->viaSet(route.viaSetKey).viaKeys[0]).vrfName.view());
    }
    std::string ip(const std::string& prefix, unsigned length,
                   std::uint32_t table = L3::RouteKey::mainTable) const {
        std::string found;
        reader_->forEach(routes_.table(), [&](std::uint32_t place, Tessel::TableRef) {
            const L3::Route route = *routes_.at(place);
            if (route.key.table == table && route.key.length == length &&
                route.key.prefix.text() == prefix) {
                EXPECT_EQ(found, "") << "twice: " << prefix;
                found = route.vrf.empty() ? "" : std::string(route.vrf.view()) + ": ";
                found += route.kind == L3::Route::Kind::forward ? viasText(route.vias)
                                                                : Tessel::wordOf(route.kind);
            }
        });
        return found;
    }
    std::size_t ipRoutes() const { return routes_.size(); }
    std::size_t labels() const { return transit_->routes() + decap_->routes(); }

  private:
    std::string viasText(const std::vector<Mpls::WeightedVia>& vias) const {
        std::string all;
        for (const Mpls::WeightedVia& via : vias) {
            all += (all.empty() ? "" : ", ") + viaText(via.via) + " weight " +
                   std::to_string(via.weight);
        }
        return all;
    }
    std::string viaText(const Mpls::Via& via) const {
        std::string all(Tessel::wordOf(via.action()));
        std::string separator = " ";
        for (const Lumo::MplsLabel label : via.labels()) {
            all += separator + label.prettyString();
            separator = "/";
        }
        all += all.empty() ? "" : " ";
        all += via.nexthop().empty() ? "" : "via " + via.nexthop().text() + " ";
        const Interface::Names names = Interface::Names::read(*reader_);
        const auto name = names.name(via.intf());
        return all + (name.empty() ? "?" : std::string(name)) +
               (via.options().ttl == Mpls::TtlMode::pipe ? " pipe" : "");
    }

    Ptr<Tessel::TableReader> reader_;
    Ptr<Mpls::Hardware::Status> hardware_;
    Ptr<Mpls::LfibStatus> decap_;
    Ptr<Mpls::LfibStatus> transit_;
    L3::Routes routes_;
};

inline OvixFpm::NextHop hop(const std::vector<std::uint32_t>& labels, const std::string& gateway,
                            std::uint32_t interface, std::uint16_t weight = 1) {
    std::vector<Lumo::MplsLabel> stack;
    for (const std::uint32_t label : labels) {
        stack.emplace_back(label);
    }
    return {stack, Lumo::IpGenAddr::fromText(gateway), interface, weight};
}

inline L3::RouteKey to(const std::string& prefix, std::uint8_t length,
                       std::uint32_t table = L3::RouteKey::mainTable) {
    return {table, Lumo::IpGenAddr::fromText(prefix), length};
}

inline OvixFpm::RouteChange labelRoute(std::uint32_t label, std::vector<OvixFpm::NextHop> hops,
                                       std::optional<bool> ttlPropagated = std::nullopt) {
    return {Lumo::MplsLabel(label),
            OvixFpm::Route{196, std::move(hops), std::nullopt, ttlPropagated}};
}
inline OvixFpm::RouteChange prefixRoute(const L3::RouteKey& key,
                                        std::vector<OvixFpm::NextHop> hops) {
    return {key, OvixFpm::Route{196, std::move(hops), std::nullopt, std::nullopt}};
}
inline OvixFpm::RouteChange prefixRoute(const L3::RouteKey& key, OvixFpm::RouteEnd end) {
    return {key, OvixFpm::Route{196, {}, end, std::nullopt}};
}
inline OvixFpm::RouteChange withdrawn(std::uint32_t label) {
    return {Lumo::MplsLabel(label), std::nullopt};
}
inline OvixFpm::RouteChange withdrawn(const L3::RouteKey& key) {
    return {key, std::nullopt};
}

} // namespace PublishingTesting
