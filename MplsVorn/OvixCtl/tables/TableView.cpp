#include "tables/TableView.h"

#include <algorithm>
#include <array>
#include <cassert>

#include "Published/WaitingRoutes.h"
#include "Tessel/Exceptions.h"

namespace OvixCtl {

using Mpls::RouteKey;
using Mpls::TableId;
using Routing::Multicast::MvpnVrfIntfId;
using Tessel::TableRef;
using namespace Tessel::TableLayout;

namespace {

/// Visits the entries of a table, `visit(key, ref)`; a damaged page hides no other.
template <typename Visitor>
void visitEntries(const Tessel::TableReader& tables, std::size_t table,
                  std::vector<std::string>& damage, Visitor&& visit) {
    for (std::size_t page = 0; page < directoryPages; ++page) {
        const auto first = static_cast<std::uint32_t>(page * pageEntries);
        if (tables.pageMadeIn(table, page) == 0) {
            continue;
        }
        try {
            for (std::uint32_t key = first; key < first + pageEntries; ++key) {
                if (const TableRef ref = tables.entry(table, key)) {
                    visit(key, ref);
                }
            }
        } catch (const Tessel::CorruptionDetected& corruption) {
            damage.emplace_back(corruption.what());
        }
    }
}

using Content = decltype(Entry::content);

template <class T>
Content contentOf(const Tessel::Result<T>& read) {
    return read ? Content(read.value()) : Damage{read.refused().what};
}

MvpnVrfIntfId readMvpn(const Tessel::TableReader& tables, TableRef ref) {
    std::array<std::uint64_t, 2> words{};
    constexpr std::string_view what = "multicast VPN interface at unit";
    if (tables.read(ref, Tessel::RecordKind::mvpnIntf, words, what).size() != words.size()) {
        tables.refuse(what, ref.unit());
    }
    return {{static_cast<std::uint32_t>(words[0])}, Lumo::IntfId::fromValue(words[1])};
}

} // namespace

TableView::Keys TableView::keys(TableId table) const {
    if (table == TableId::mvpnIntfStatus) {
        return mvpnKeys();
    }
    Keys found;
    visitEntries(reader(), static_cast<std::size_t>(table), found.damage,
                 [&](std::uint32_t key, TableRef) { found.keys.push_back(key); });
    return found;
}

TableView::Keys TableView::mvpnKeys() const {
    Keys found;
    const auto table = static_cast<std::size_t>(TableId::mvpnIntfStatus);
    visitEntries(reader(), table, found.damage, [&](std::uint32_t, TableRef ref) {
        try {
            found.keys.push_back(readMvpn(reader(), ref).vrfId.value);
        } catch (const Tessel::CorruptionDetected& corruption) {
            found.damage.emplace_back(corruption.what());
        }
    });
    std::sort(found.keys.begin(), found.keys.end());
    found.keys.erase(std::unique(found.keys.begin(), found.keys.end()), found.keys.end());
    return found;
}

bool TableView::has(TableId table, std::uint32_t key) const {
    try {
        return static_cast<bool>(reader().entry(static_cast<std::size_t>(table), key));
    } catch (const Tessel::CorruptionDetected&) {
        return true; // occupied, whatever it is
    }
}

std::vector<bool> TableView::derivedAdjacencies() const {
    std::vector<bool> found(maxKey + std::size_t{1});
    for (const std::uint32_t label : keys(TableId::hardwareRoutes).keys) {
        const Entry read = entry(TableId::hardwareRoutes, label);
        const auto* route = std::get_if<Mpls::Hardware::Route>(&read.content);
        if (route != nullptr && route->derived) {
            found.at(route->adjacencyKey) = true;
        }
    }
    return found;
}

std::vector<Entry> TableView::waiting() const {
    std::vector<Entry> all;
    for (Mpls::LabelRoute& route : Mpls::readWaitingRoutes(tables_.reader())) {
        Entry waiting{route.table, route.label.value(), std::move(route), {}};
        for (std::size_t i = 0; i < Mpls::lfibs && !waiting.waitsFor; ++i) {
            const auto table = static_cast<TableId>(i);
            if (has(table, waiting.key)) {
                const Entry published = entry(table, waiting.key);
                const auto* first = std::get_if<Mpls::LabelRoute>(&published.content);
                waiting.waitsFor = first != nullptr ? first->owner : Mpls::RouteOwner::byHand;
            }
        }
        all.push_back(std::move(waiting));
    }
    return all;
}

Entry TableView::entry(TableId table, std::uint32_t key) const {
    const auto read = [&]() -> Content {
        switch (table) {
        case TableId::hardwareRoutes:
            return tables_.hardware()->route(RouteKey::fromLabel(Lumo::MplsLabel(key)));
        case TableId::hardwareAdjacencies:
            return contentOf(tables_.hardware()->adjacency(key)->content());
        case TableId::mvpnIntfStatus:
            return tables_.mvpn()->vrfIntfId({key});
        default:
            assert(Mpls::isLfib(table));
            return contentOf(
                Mpls::readLabelRoute(*tables_.lfib(table), table, Lumo::MplsLabel(key)));
        }
    };
    try {
        return {table, key, read(), {}};
    } catch (const Tessel::CorruptionDetected& corruption) {
        return {table, key, Damage{corruption.what()}, {}};
    } catch (const Tessel::RangeError& range) {
        return {table, key, Damage{range.what()}, {}};
    }
}

} // namespace OvixCtl
