#include "Published/IpRoutes.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <tuple>

namespace L3 {

using Lumo::IpFamily;
using Lumo::IpGenAddr;
using Mpls::Hardware::Adjacency;
using Tessel::TableRef;

namespace {

// A route's record: the table, the prefix' length, its family, the kind of the route and the size
// of the VRF's name in the first word, the prefix in two; behind them the name, filled up with
// zeros, and the words of an adjacency.
//
//      0       4        5        6      7           8                24
//     +-------+--------+--------+------+-----------+----------------+----------+-----------
//     | table | length | family | kind | name size |     prefix     | VRF name | adjacency
//     +-------+--------+--------+------+-----------+----------------+----------+-----------
constexpr std::size_t keyWords = 3;

constexpr std::size_t nameWords(std::size_t size) noexcept {
    return (size + sizeof(std::uint64_t) - 1) / sizeof(std::uint64_t);
}

std::vector<std::uint64_t> pack(const Route& route) {
    std::vector<std::uint64_t> words(keyWords + nameWords(route.vrf.size()));
    words[0] = route.key.table | (std::uint64_t{route.key.length} << 32U) |
               (std::uint64_t{static_cast<std::uint8_t>(route.key.prefix.family())} << 40U) |
               (std::uint64_t{static_cast<std::uint8_t>(route.kind)} << 48U) |
               (std::uint64_t{route.vrf.size()} << 56U);
    std::memcpy(&words[1], route.key.prefix.bytes().data(),
                route.key.prefix.family() == IpFamily::ipv4 ? IpGenAddr::ipv4Size
                                                            : IpGenAddr::ipv6Size);
    if (!route.vrf.empty()) {
        std::memcpy(&words[keyWords], route.vrf.view().data(), route.vrf.size());
    }
    if (route.kind == Route::Kind::forward) {
        Mpls::Hardware::AdjacencyVias content;
        content.vias = route.vias;
        const auto adjacency = Adjacency::create(content);
        words.insert(words.end(), adjacency->words().begin(), adjacency->words().end());
    }
    return words;
}

/// All but the adjacency. None when that is no route.
std::optional<Route> unpack(std::span<const std::uint64_t> words) {
    if (words.size() < keyWords) {
        return std::nullopt;
    }
    Route route;
    route.key.table = static_cast<std::uint32_t>(words[0]);
    route.key.length = static_cast<std::uint8_t>(words[0] >> 32U);
    const auto family = static_cast<IpFamily>(words[0] >> 40U & 0xffU);
    route.kind = static_cast<Route::Kind>(words[0] >> 48U & 0xffU);
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(&words[1]);
    if (family == IpFamily::ipv4 && route.key.length <= 32) {
        route.key.prefix = IpGenAddr::ipv4(bytes);
    } else if (family == IpFamily::ipv6 && route.key.length <= 128) {
        route.key.prefix = IpGenAddr::ipv6(bytes);
    } else {
        return std::nullopt;
    }
    const std::size_t size = words[0] >> 56U;
    if (size > VrfName::maxSize || nameWords(size) > words.size() - keyWords) {
        return std::nullopt;
    }
    route.vrf = std::string_view(reinterpret_cast<const char*>(words.data() + keyWords), size);
    const bool known = route.kind >= Route::Kind::forward && route.kind <= Route::Kind::prohibit;
    return known ? std::optional(route) : std::nullopt;
}

/// The vias of a forwarding route. False when they are not legal.
bool unpackVias(std::span<const std::uint64_t> words, Route& route) {
    const auto adjacency =
        Adjacency::fromWords(words.subspan(keyWords + nameWords(route.vrf.size())));
    auto content = adjacency ? adjacency->content() : Tessel::Refused{};
    if (!content) {
        return false;
    }
    route.vias = std::move(content).value().vias;
    return true;
}

} // namespace

bool operator<(const RouteKey& a, const RouteKey& b) noexcept {
    const auto order = [](const RouteKey& key) {
        return std::tuple(key.table, static_cast<std::uint8_t>(key.prefix.family()),
                          key.prefix.bytes(), key.length);
    };
    return order(a) < order(b);
}

std::optional<Route> Routes::at(std::uint32_t place) const {
    constexpr std::string_view what = "IP route at unit";
    const TableRef ref = tables_->entry(table_, place);
    if (!ref) {
        return std::nullopt;
    }
    words_.resize(tables_->headOf(ref, what).ownWords);
    tables_->read(ref, Tessel::RecordKind::ipRoute, words_, what);
    std::optional<Route> route = unpack(words_);
    if (!route || (route->kind == Route::Kind::forward && !unpackVias(words_, *route))) {
        tables_->refuse(what, ref.unit());
    }
    return route;
}

RoutesWriter::RoutesWriter(Tessel::TableWriter& tables, std::size_t table)
    : tables_(&tables), table_(table) {
    discard();
}

void RoutesWriter::discard() {
    places_.clear();
    freePlaces_.clear();
    nextPlace_ = 0;
    for (std::uint32_t found = 0; found < tables_->entries(table_); ++nextPlace_) {
        const TableRef ref = tables_->entry(table_, nextPlace_);
        if (!ref) {
            freePlaces_.push_back(nextPlace_);
            continue;
        }
        ++found;
        if (const auto route = unpack(tables_->record(ref).subspan(1))) {
            places_.emplace(route->key, nextPlace_);
        }
    }
}

void RoutesWriter::routeIs(const Route& route) {
    const auto known = places_.find(route.key);
    const std::uint32_t place = known != places_.end() ? known->second
                                : freePlaces_.empty()  ? nextPlace_
                                                       : freePlaces_.back();
    if (place > Tessel::TableLayout::maxKey) {
        throw std::length_error("more than 1048576 IP routes");
    }
    tables_->recordEntryIs(table_, place, Tessel::RecordKind::ipRoute, pack(route));
    if (known == places_.end()) {
        places_.emplace(route.key, place);
        if (freePlaces_.empty()) {
            ++nextPlace_;
        } else {
            freePlaces_.pop_back();
        }
    }
}

bool RoutesWriter::routeDel(const RouteKey& key) {
    const auto known = places_.find(key);
    if (known == places_.end()) {
        return false;
    }
    [[maybe_unused]] const bool wasThere = tables_->recordEntryDel(table_, known->second);
    assert(wasThere && known->second < nextPlace_);
    freePlaces_.push_back(known->second);
    places_.erase(known);
    return true;
}

std::vector<RouteKey> RoutesWriter::keys() const {
    std::vector<RouteKey> all;
    for (const auto& [key, place] : places_) {
        all.push_back(key);
    }
    return all;
}

} // namespace L3
