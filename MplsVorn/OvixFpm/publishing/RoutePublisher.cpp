#include "publishing/RoutePublisher.h"

#include <array>
#include <stdexcept>

#include "Published/TransitRoutes.h"

namespace OvixFpm {

using Mpls::RouteKey;
using Mpls::TableId;

namespace {

L3::RouteKey keyOf(const Destination& destination) {
    return {destination.table(), destination.prefix(), destination.length()};
}

/// The labels as vias carry them, three bytes each.
std::vector<std::uint8_t> packed(const std::vector<Lumo::MplsLabel>& labels) {
    std::vector<std::uint8_t> bytes;
    for (const Lumo::MplsLabel label : labels) {
        for (const unsigned shift : {16U, 8U, 0U}) {
            bytes.push_back(static_cast<std::uint8_t>(label.value() >> shift));
        }
    }
    return bytes;
}

L3::Route::Kind kindOf(RouteEnd end) noexcept {
    return end == RouteEnd::local ? L3::Route::Kind::local : L3::Route::Kind::drop;
}

} // namespace

RoutePublisher::RoutePublisher(Mpls::TablePublisher& tables, InterfaceLookup& interfaces)
    : tables_(&tables), interfaces_(&interfaces) {
    const Tessel::TableReader reader(tables.tables().name(), tables.tables().memory());
    for (const TableId table : {TableId::transitLfib, TableId::decapLfib}) {
        reader.forEach(static_cast<std::size_t>(table), [&](std::uint32_t label, Tessel::TableRef) {
            labels_.insert(Lumo::MplsLabel(label));
        });
    }
    markStale();
}

std::string RoutePublisher::apply(const RouteChange& change) {
    try {
        if (const auto* label = std::get_if<LabelRoute>(&change)) {
            route(*label);
        } else if (const auto* prefix = std::get_if<PrefixRoute>(&change)) {
            route(*prefix);
        } else {
            withdrawWhatIsNamedBy(change);
        }
        return {};
    } catch (const std::exception& refused) {
        std::string reason = refused.what();
        try {
            // An old route would lead where the new one says not to go.
            withdrawWhatIsNamedBy(change);
        } catch (const std::exception& stuck) {
            reason += std::string("; and the old route stays: ") + stuck.what();
        }
        return reason;
    }
}

void RoutePublisher::withdrawWhatIsNamedBy(const RouteChange& change) {
    if (const auto* gone = std::get_if<LabelWithdrawal>(&change)) {
        withdraw(gone->label.label());
    } else if (const auto* route = std::get_if<LabelRoute>(&change)) {
        withdraw(route->label().label());
    } else if (const auto* prefixGone = std::get_if<PrefixWithdrawal>(&change)) {
        withdraw(keyOf(prefixGone->destination));
    } else {
        withdraw(keyOf(std::get<PrefixRoute>(change).destination()));
    }
}

void RoutePublisher::withdraw(const L3::RouteKey& key) {
    tables_->ipRoutes().routeDel(key);
    stalePrefixes_.erase(key);
}

void RoutePublisher::route(const LabelRoute& route) {
    const RouteKey key = RouteKey::fromLabel(route.label().label());
    const NextHop& first = route.nextHops().front();
    if (route.nextHops().size() == 1 && first.isInterfaceOnly() && interfaceOf(first).isVrf) {
        Mpls::transitRouteDel(*tables_, key);
        tables_->lfib(TableId::decapLfib)
            .ipLookupRouteIs(key, Mpls::LfibViaType::ipLookup,
                             L3::VrfName(std::string_view(interfaceOf(first).name)),
                             Mpls::PayloadType::automatic);
    } else {
        const auto vias = viasOf(route.nextHops(), true, route.ttlPropagated().value_or(true));
        tables_->lfib(TableId::decapLfib).routeDel(key);
        Mpls::transitRouteIs(*tables_, key, vias);
    }
    labels_.insert(key.topLabel());
    staleLabels_.erase(key.topLabel());
}

void RoutePublisher::route(const PrefixRoute& route) {
    L3::Route made;
    made.key = keyOf(route.destination());
    made.vrf = vrfOf(made.key.table);
    if (route.nextHops() != nullptr) {
        for (const NextHop& hop : *route.nextHops()) {
            mustBeForwardedBy(hop, made.vrf);
        }
        made.kind = L3::Route::Kind::forward;
        made.ways =
            Mpls::Hardware::Adjacency::create(viasOf(*route.nextHops(), false, true), {}, false);
    } else {
        made.kind = kindOf(*route.end());
    }
    tables_->ipRoutes().routeIs(made);
    stalePrefixes_.erase(made.key);
}

void RoutePublisher::withdraw(Lumo::MplsLabel label) {
    const RouteKey key = RouteKey::fromLabel(label);
    Mpls::transitRouteDel(*tables_, key);
    tables_->lfib(TableId::decapLfib).routeDel(key);
    labels_.erase(label);
    staleLabels_.erase(label);
}

const HostInterface& RoutePublisher::interfaceOf(const NextHop& hop) {
    const auto& found = interfaces_->find(hop.way().interface());
    if (!found) {
        throw std::runtime_error("there is no interface " + std::to_string(hop.way().interface()));
    }
    return *found;
}

/// Throws for a way that a packet cannot go as zebra tells it.
void RoutePublisher::mustBeForwardedBy(const NextHop& hop, const L3::VrfName& vrf) {
    // zebra leaves out a next hop of the other family (RFC 4659): nobody knows who takes the
    // labels.
    if (!hop.labels().empty() && !hop.way().hasGateway()) {
        throw std::invalid_argument("labels are to be pushed toward no next hop");
    }
    // In its own VRF the device stands for this host.
    const HostInterface& interface = interfaceOf(hop);
    if (interface.isVrf && interface.name != vrf.view()) {
        throw std::invalid_argument("routes are not followed into VRF " + interface.name);
    }
}

L3::VrfName RoutePublisher::vrfOf(std::uint32_t table) {
    if (table == L3::RouteKey::mainTable) {
        return {};
    }
    const auto found = interfaces_->vrfOfTable(table);
    if (!found) {
        throw std::runtime_error("routing table " + std::to_string(table) + " is no VRF's");
    }
    return {std::string_view(*found)};
}

std::vector<Mpls::WeightedRecord> RoutePublisher::viasOf(const NextHops& hops, bool ofLabel,
                                                         bool uniform) {
    using Lumo::MplsLabelAction;
    std::vector<Mpls::WeightedRecord> vias;
    for (const NextHop& hop : hops) {
        Mpls::WeightedRecord& made = vias.emplace_back();
        made.weight = hop.weight();
        made.via.intfId = tables_->interfaces().intfId(interfaceOf(hop).name);
        made.via.nexthop = hop.way().gateway();
        made.via.payloadType = static_cast<std::uint32_t>(Mpls::PayloadType::automatic);
        made.via.ttlMode =
            static_cast<std::uint32_t>(uniform ? Mpls::TtlMode::uniform : Mpls::TtlMode::pipe);
        if (ofLabel) {
            made.via.labelAction = static_cast<std::uint32_t>(
                hop.labels().empty() ? MplsLabelAction::pop : MplsLabelAction::swap);
        } else if (!hop.labels().empty()) {
            made.via.labelAction = static_cast<std::uint32_t>(MplsLabelAction::push);
        }
        if (!made.via.labelsIs(packed(hop.labels()))) {
            throw std::length_error("too many labels");
        }
    }
    return vias;
}

void RoutePublisher::commit() {
    tables_->commit();
    interfaces_->forget();
}

void RoutePublisher::markStale() {
    staleLabels_ = labels_;
    const auto keys = tables_->ipRoutes().keys();
    stalePrefixes_ = {keys.begin(), keys.end()};
}

std::size_t RoutePublisher::sweep() {
    const std::size_t swept = staleRoutes();
    for (const L3::RouteKey& key : stalePrefixes_) {
        tables_->ipRoutes().routeDel(key);
    }
    stalePrefixes_.clear();
    const std::set<Lumo::MplsLabel> labels = staleLabels_;
    for (const Lumo::MplsLabel label : labels) {
        withdraw(label);
    }
    return swept;
}

} // namespace OvixFpm
