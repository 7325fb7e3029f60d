#include "whatif/Ways.h"

#include <algorithm>
#include <fmt/format.h>
#include <numeric>

#include "Tessel/Exceptions.h"
#include "Tessel/TypeName.h"

namespace OvixCtl {

using Mpls::RouteKey;
using Mpls::TableId;

namespace {

std::uint64_t mixed(std::uint64_t hash, std::uint64_t value) noexcept {
    hash ^= value;
    hash *= 0x9e3779b97f4a7c15U;
    return hash ^ (hash >> 29U);
}

std::uint64_t hashOf(const Lumo::IpGenAddr& address) noexcept {
    const auto& bytes = address.bytes();
    return Tessel::hashText({reinterpret_cast<const char*>(bytes.data()), bytes.size()}) +
           static_cast<std::uint64_t>(address.family());
}

/// "swap 200", "push 1/2", "pop".
std::string operationText(const Ovix::OvixMplsVia& record) {
    const auto via = Mpls::Via::fromRecord(record);
    if (!via) {
        return {};
    }
    std::string labels;
    for (const Lumo::MplsLabel label : via.value().labels()) {
        labels += (labels.empty() ? " " : "/") + label.prettyString();
    }
    return Tessel::textOf(via.value().action()) + labels;
}

/// The links of these tables, of which one may be down.
Ptr<Ovix::HwStatusViaHelper> linksOf(const Mpls::PublishedTables& tables,
                                     const Assumptions& assumed) {
    if (assumed.downLinks.empty()) {
        return nullptr; // every via is usable
    }
    auto status = Tessel::make<Interface::EthIntfStatusDir>();
    std::vector<Lumo::IntfId> known; // a few, of many adjacencies
    tables.hardware()->forEachAdjacency([&](std::uint32_t key) {
        try {
            const auto adjacency = tables.hardware()->adjacency(key);
            for (const bool backups : {false, true}) {
                for (const auto& entry :
                     adjacency ? adjacency->entries(backups)
                               : std::span<const Mpls::Hardware::Adjacency::Entry>()) {
                    if (std::find(known.begin(), known.end(), entry.intf) == known.end()) {
                        known.push_back(entry.intf);
                        status->intfStatusIs(entry.intf, !assumed.isDown(entry.intf));
                    }
                }
            }
        } catch (const Tessel::CorruptionDetected&) {
            // Leads nowhere before and after.
        }
    });
    return Tessel::make<Ovix::HwStatusViaHelper>(status, nullptr);
}

/// Shares of the same place, put together; what has no weight is left out.
void add(Way& way, Share share) {
    const auto same = std::find_if(way.shares.begin(), way.shares.end(), [&](const Share& other) {
        return other.kind == share.kind && other.intf == share.intf &&
               other.nexthop == share.nexthop && other.id == share.id && other.vrf == share.vrf &&
               other.labels == share.labels;
    });
    if (same != way.shares.end() && !way.isMulticast) {
        same->weight += share.weight;
    } else if (share.weight > 0 || way.isMulticast) {
        way.shares.push_back(std::move(share));
    }
}

/// Shares in their lowest terms, so that equal ways are equal.
void reduce(Way& way) {
    std::uint64_t divisor = 0;
    for (const Share& share : way.shares) {
        divisor = std::gcd(divisor, share.weight);
    }
    for (Share& share : way.shares) {
        share.weight = way.isMulticast ? 1 : share.weight / std::max<std::uint64_t>(divisor, 1);
    }
}

} // namespace

bool Way::isLost() const noexcept {
    return std::all_of(shares.begin(), shares.end(),
                       [](const Share& share) { return share.kind == Share::Kind::lost; });
}

std::uint64_t Way::hash() const noexcept {
    std::uint64_t hash = isMulticast ? 1 : 2;
    for (const Share& share : shares) {
        hash = mixed(hash, static_cast<std::uint64_t>(share.kind));
        hash = mixed(hash, share.intf.value());
        hash = mixed(hash, hashOf(share.nexthop));
        hash = mixed(hash, share.id + Tessel::hashText(share.vrf));
        hash = mixed(hash, Tessel::hashText(share.labels));
        hash = mixed(hash, share.weight);
    }
    return hash;
}

double percentOf(const Share& share, const Way& way) noexcept {
    std::uint64_t total = 0;
    for (const Share& each : way.shares) {
        total += each.weight;
    }
    return way.isMulticast || total == 0
               ? 100.0
               : 100.0 * static_cast<double>(share.weight) / static_cast<double>(total);
}

std::string wayText(const Way& way, const IntfText& interfaces) {
    std::string text;
    for (const Share& share : way.shares) {
        std::string place;
        switch (share.kind) {
        case Share::Kind::lost:
            place = "lost";
            break;
        case Share::Kind::lookUp:
            place = "VRF " + share.vrf;
            break;
        case Share::Kind::fec:
            place = fmt::format("FEC {}", share.id);
            break;
        case Share::Kind::cpu:
            place = "CPU";
            break;
        case Share::Kind::link:
            place = share.intf.empty() ? "" : "dev " + interfaces.word(share.intf);
            if (share.nexthop.family() != Lumo::IpFamily::none) {
                place += (place.empty() ? "via " : " via ") + share.nexthop.text();
            }
            place += (place.empty() || share.labels.empty() ? "" : " ") + share.labels;
        }
        text +=
            fmt::format("{}{} {:.1f} %", text.empty() ? "" : ", ", place, percentOf(share, way));
    }
    return text.empty() ? "nowhere" : text;
}

Ways::Ways(const Mpls::PublishedTables& tables, const Assumptions& assumed)
    : tables_(&tables), assumed_(assumed), links_(linksOf(tables, assumed)) {
    for (const TableId table : {TableId::decapLfib, TableId::evpnEthernetSegmentFilterLfib,
                                TableId::pseudowireLfib, TableId::evpnEtreeLeafLabelLfib}) {
        bool isEmpty = true;
        tables.lfib(table)->forEachRoute([&](const Mpls::LfibRoute&) { isEmpty = false; });
        if (!isEmpty) {
            lfibs_.push_back(table);
        }
    }
}

Share Ways::shareOf(const Ovix::OvixMplsVia& via, std::uint64_t weight) const {
    Share share;
    share.weight =
        assumed_.weighted && via.nexthop == *assumed_.weighted ? assumed_.weight : weight;
    if (!via) {
        share.kind = Share::Kind::lost;
    } else if (via.fecId() != 0) {
        share.kind = Share::Kind::fec;
        share.id = via.fecId();
    } else {
        share.intf = via.intfId;
        share.nexthop = via.nexthop;
    }
    if (assumed_.comparesLabels && via) {
        share.labels = operationText(via);
    }
    return share;
}

/// Where `sharesStay`, the flows of a via whose link is down stay with it, and are lost.
Way Ways::ofViaSet(const Ovix::OvixMplsViaSet& viaSet, bool sharesStay) const {
    Way way;
    way.isMulticast = viaSet.isMulticast();
    for (std::uint32_t i = 0; i < viaSet.numVias(); ++i) {
        Share share = shareOf(viaSet.via(i), viaSet.weight(i));
        // One that is left alone takes all flows, whatever its weight.
        share.weight = viaSet.numVias() == 1 ? 1 : share.weight;
        if (sharesStay && !share.intf.empty() && !isUp(share.intf)) {
            share = {Share::Kind::lost, {}, {}, 0, {}, share.weight};
        }
        add(way, std::move(share));
    }
    reduce(way);
    return way;
}

/// Unset when the table does not have the label.
std::optional<Way> Ways::ofLfib(TableId table, std::uint32_t label) const {
    const Mpls::LfibStatus& lfib = *tables_->lfib(table);
    const auto key = RouteKey::fromLabel(Lumo::MplsLabel(label));
    const Mpls::LfibViaSetKey viaSetKey = lfib.route(key).viaSetKey;
    if (viaSetKey == Mpls::LfibViaSetKey()) {
        return std::nullopt;
    }
    const Mpls::LfibViaSet viaSet = lfib.viaSet(viaSetKey);
    if (viaSet.viaKeys.size() != 1) {
        return std::nullopt;
    }
    const Mpls::LfibViaKey viaKey = viaSet.viaKeys[0];
    if (Mpls::looksUp(viaKey.viaType)) {
        const auto via = lfib.ipLookupVia(Ovix::OvixLfibViaSet(viaSet, viaKey).viaKey(0));
        const auto vrf = via.vrfName.view().empty() ? L3::defaultVrf : via.vrfName.view();
        return Way{{{Share::Kind::lookUp, {}, {}, 0, std::string(vrf), 1}}, false};
    }
    if (viaKey.viaType == Mpls::LfibViaType::multicastIpLookup) {
        const Ovix::OvixMulticastDecapViaSet set(viaSet, lfib.multicastIpLookupVia(viaKey));
        Way way = ofViaSet(set, true);
        way.shares.back() = {Share::Kind::cpu, {}, {}, 0, {}, 1};
        return way;
    }
    return ofViaSet(Ovix::OvixLfibViaSet(viaSet, viaKey), true);
}

Way Ways::ofLabel(std::uint32_t label) const {
    try {
        for (const TableId table : lfibs_) {
            if (auto way = ofLfib(table, label)) {
                return *way;
            }
        }
        const auto route = tables_->hardware()->route(RouteKey::fromLabel(Lumo::MplsLabel(label)));
        const auto adjacency = route == Mpls::Hardware::Route() || route.unprogrammed
                                   ? nullptr
                                   : tables_->hardware()->adjacency(route.adjacencyKey);
        if (!adjacency) {
            return {};
        }
        const auto set =
            Tessel::make<Ovix::OvixHwViaSet>(adjacency, links_, adjacency->useBackups());
        return set->hasValidVia() ? ofViaSet(*set, false) : Way();
    } catch (const Tessel::CorruptionDetected&) {
        return {};
    }
}

/// The flows of vias whose links are down take the others; where all are down, they are lost.
Way Ways::ofPrefix(const L3::Route& route,
                   const std::function<bool(const Mpls::Via& via)>& leads) const {
    if (route.kind != L3::Route::Kind::forward) {
        Share share;
        share.kind = route.kind == L3::Route::Kind::local ? Share::Kind::cpu : Share::Kind::lost;
        return {{share}, false};
    }
    Way way;
    for (const Mpls::WeightedVia& via : route.vias) {
        if (isUp(via.via.intf())) {
            Share share = shareOf(via.via.record(), via.weight);
            share.weight = route.vias.size() == 1 ? 1 : share.weight;
            if (!leads(via.via)) {
                share = {Share::Kind::lost, {}, {}, 0, {}, share.weight};
            }
            add(way, std::move(share));
        }
    }
    reduce(way);
    return way;
}

bool Ways::concerns(const Mpls::Hardware::Adjacency& adjacency) const {
    for (const bool backups : {false, true}) {
        const auto entries = adjacency.entries(backups);
        for (std::uint32_t i = 0; i < entries.size(); ++i) {
            if (assumed_.isDown(entries[i].intf) ||
                (assumed_.weighted && adjacency.via(backups, i).nexthop == *assumed_.weighted)) {
                return true;
            }
        }
    }
    return false;
}

bool Ways::concerns(const L3::Route& route) const {
    return std::any_of(route.vias.begin(), route.vias.end(), [&](const Mpls::WeightedVia& via) {
        return concerns(via.via.intf(), via.via.nexthop());
    });
}

bool Ways::concerns(TableId lfib, const Mpls::LfibRoute& route) const {
    try {
        const Mpls::LfibViaSet viaSet = tables_->lfib(lfib)->viaSet(route.viaSetKey);
        if (viaSet.viaKeys.size() != 1 || Mpls::looksUp(viaSet.viaKeys[0].viaType)) {
            return false;
        }
        const Ovix::OvixLfibViaSet set(viaSet, viaSet.viaKeys[0]);
        for (std::uint32_t i = 0; i < set.numVias(); ++i) {
            const Ovix::OvixMplsVia via = set.via(i);
            if (concerns(via.intfId, via.nexthop)) {
                return true;
            }
        }
    } catch (const Tessel::CorruptionDetected&) {
        // Leads nowhere before and after.
    }
    return false;
}

} // namespace OvixCtl
