#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "Listing/Listings.h"
#include "Mpls/LabelRoute.h"
#include "State/OvixLfibCounterCollection.h"
#include "Summary/JsonText.h"
#include "Tessel/Exceptions.h"
#include "Tessel/Words.h"

namespace OvixAgent {

namespace {

using Counter::OvixLfibCounterCollection;
using Counter::PktCounterCollectionHolder;
using WayJson = nlohmann::ordered_json;

constexpr std::uint32_t labelsAtOnce = OvixLfibCounterCollection::labelsAtOnce;

/// Goes through the counters of all labels, a few at a time.
class LabelWalk {
  public:
    explicit LabelWalk(const PktCounterCollectionHolder& holder) : holder_(&holder) {}

    /// False when there are no more.
    template <typename Visitor>
    bool step(Visitor&& visit) {
        if (collection_ >= holder_->collections().size()) {
            return false;
        }
        const OvixLfibCounterCollection& counters = *holder_->collections()[collection_];
        const auto visitOne = [&](Mpls::RouteKey key, const Counter::PktCounter& counter) {
            visit(LabelTraffic{key.topLabel().value(), {counter.packets(), counter.bytes()}});
        };
        if (label_ <= Lumo::MplsLabel::max) {
            constexpr std::uint32_t mostly = 16; // times without any
            for (std::uint32_t i = 0; i < mostly; ++i, label_ += labelsAtOnce) {
                counters.visitLabels(label_, visitOne);
            }
        } else {
            counters.visitDeeper(visitOne);
            label_ = 0;
            ++collection_;
        }
        return true;
    }

  private:
    const PktCounterCollectionHolder* holder_;
    std::size_t collection_ = 0;
    std::uint32_t label_ = 0;
};

bool isMore(const LabelTraffic& a, const LabelTraffic& b) {
    return a.traffic.frames != b.traffic.frames ? a.traffic.frames > b.traffic.frames
                                                : a.label < b.label;
}

/// Keeps the most of what it is given, as a heap whose front is the least of them.
class MostOf {
  public:
    explicit MostOf(std::size_t most) : most_(most) {}
    void add(const LabelTraffic& label) {
        if (kept_.size() == most_ && (most_ == 0 || !isMore(label, kept_.front()))) {
            return;
        }
        if (kept_.size() == most_) {
            std::pop_heap(kept_.begin(), kept_.end(), isMore);
            kept_.pop_back();
        }
        kept_.push_back(label);
        std::push_heap(kept_.begin(), kept_.end(), isMore);
    }
    /// The most of them first.
    std::vector<LabelTraffic> taken() {
        std::sort_heap(kept_.begin(), kept_.end(), isMore);
        return std::move(kept_);
    }

  private:
    std::size_t most_;
    std::vector<LabelTraffic> kept_;
};

} // namespace

Listing labelListing(const PktCounterCollectionHolder& holder) {
    return [walk = LabelWalk(holder)](std::string& entry) mutable {
        return walk.step([&entry](const LabelTraffic& label) {
            entry += (entry.empty() ? "" : ",") + labelText(label);
        });
    };
}

Listing topLabelListing(const PktCounterCollectionHolder& holder, std::size_t most) {
    return
        [walk = LabelWalk(holder), kept = MostOf(most), isWalking = true,
         found = std::vector<LabelTraffic>(), next = std::size_t{0}](std::string& entry) mutable {
            if (isWalking) {
                isWalking = walk.step([&kept](const LabelTraffic& label) { kept.add(label); });
                if (!isWalking) {
                    found = kept.taken();
                }
                return true;
            }
            if (next >= found.size()) {
                return false;
            }
            entry = labelText(found[next++]);
            return true;
        };
}

namespace {

WayJson viaJson(const Mpls::WeightedVia& weighted, const PortTable& ports) {
    const Port* const port = ports.byIntfId(weighted.via.intf());
    const bool hasNexthop = weighted.via.nexthop().family() != Lumo::IpFamily::none;
    WayJson labels = WayJson::array();
    for (const Lumo::MplsLabel label : weighted.via.labels()) {
        labels.push_back(label.value());
    }
    const std::uint64_t fec = weighted.via.fec();
    return {{"port", port != nullptr ? WayJson(port->name) : WayJson(nullptr)},
            {"nexthop", hasNexthop ? WayJson(weighted.via.nexthop().text()) : WayJson(nullptr)},
            {"labels", std::move(labels)},
            {"fec", fec != 0 ? WayJson(fec) : WayJson(nullptr)},
            {"weight", weighted.weight}};
}

WayJson setJson(std::uint32_t label, Mpls::TableId table, Mpls::LfibViaSetType type,
                const std::vector<Mpls::WeightedVia>& vias, const PortTable& ports) {
    WayJson list = WayJson::array();
    for (const Mpls::WeightedVia& via : vias) {
        list.push_back(viaJson(via, ports));
    }
    return {{"label", label},
            {"table", Tessel::wordOf(table)},
            {"multicast", type == Mpls::LfibViaSetType::multicast},
            {"vias", std::move(list)}};
}

/// Looks for labels that have several vias: in the LFIBs, and of the hardware status for what does
/// not follow from them.
class WeightedSearch {
  public:
    WeightedSearch(const Mpls::PublishedTables& published, const PortTable& ports,
                   std::uint32_t from, std::size_t most)
        : published_(&published), ports_(&ports), label_(from), most_(most) {}

    bool step(std::string& entry) {
        constexpr std::uint32_t atOnce = 16;
        constexpr std::uint32_t mostRoutes = 16384;
        if (isOver_ || label_ > Lumo::MplsLabel::max) {
            return false;
        }
        if (found_ >= most_ || routes_ >= mostRoutes) {
            entry = WayJson{{"next", label_}}.dump();
            isOver_ = true;
            return true;
        }
        skipEmptyPage();
        for (std::uint32_t i = 0; i < atOnce && label_ <= Lumo::MplsLabel::max && entry.empty();
             ++i) {
            look(label_++, entry);
        }
        return true;
    }

  private:
    static constexpr auto hardware = static_cast<std::size_t>(Mpls::TableId::hardwareRoutes);

    /// Most of a million labels have no routes, page by page.
    void skipEmptyPage() {
        const Tessel::TableReader& tables = published_->tables();
        constexpr std::uint32_t entries = Tessel::TableLayout::pageEntries;
        const auto isEmpty = [&](std::size_t table) {
            return tables.pageMadeIn(table, label_ / entries) == 0;
        };
        bool isWholeEmpty = isEmpty(hardware);
        for (std::size_t table = 0; table < Mpls::lfibs && isWholeEmpty; ++table) {
            isWholeEmpty = isEmpty(table);
        }
        label_ = isWholeEmpty ? (label_ / entries + 1) * entries : label_;
    }
    void look(std::uint32_t label, std::string& entry) {
        const auto key = Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label));
        try {
            for (std::size_t table = 0; table < Mpls::lfibs && entry.empty(); ++table) {
                lookIn(static_cast<Mpls::TableId>(table), key, entry);
            }
            if (entry.empty() && published_->tables().entry(hardware, label)) {
                lookInHardware(key, entry);
            }
        } catch (const Tessel::CorruptionDetected&) {
            // The tables' readers report it when a frame meets it.
        } catch (const Tessel::SnapshotLost&) {
            // The next entries are of the generation after it.
        } catch (const Tessel::RangeError&) {
        }
        found_ += entry.empty() ? 0 : 1;
    }
    void lookIn(Mpls::TableId table, Mpls::RouteKey key, std::string& entry) {
        const Mpls::LfibStatus& lfib = *published_->lfib(table);
        const Mpls::LfibViaSetKey set = lfib.route(key).viaSetKey;
        if (set == Mpls::LfibViaSetKey()) {
            return;
        }
        ++routes_;
        if (lfib.viaSet(set).members.size() < 2) {
            return;
        }
        const auto route = Mpls::readLabelRoute(lfib, table, key.topLabel());
        if (route && route.value().vias.size() > 1) {
            entry = dumped(setJson(key.topLabel().value(), table, route.value().setType,
                                   route.value().vias, *ports_));
        }
    }
    void lookInHardware(Mpls::RouteKey key, std::string& entry) {
        ++routes_;
        const Mpls::Hardware::Route route = published_->hardware()->route(key);
        const auto adjacency =
            route.derived ? nullptr : published_->hardware()->adjacency(route.adjacencyKey);
        if (!adjacency || adjacency->entries(false).size() < 2) {
            return;
        }
        if (const auto content = adjacency->content()) {
            entry = dumped(setJson(key.topLabel().value(), Mpls::TableId::hardwareRoutes,
                                   content.value().setType, content.value().vias, *ports_));
        }
    }

    const Mpls::PublishedTables* published_;
    const PortTable* ports_;
    std::uint32_t label_;
    std::size_t most_;
    std::size_t found_ = 0;
    std::uint32_t routes_ = 0;
    bool isOver_ = false;
};

} // namespace

Listing weightedListing(const Mpls::PublishedTables& published, const PortTable& ports,
                        std::uint32_t from, std::size_t most) {
    return [search = WeightedSearch(published, ports, from, most)](std::string& entry) mutable {
        return search.step(entry);
    };
}

} // namespace OvixAgent
