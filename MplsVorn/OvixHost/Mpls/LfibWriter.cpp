#include "Mpls/LfibWriter.h"

#include <array>
#include <cassert>
#include <cstddef>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

#include "Mpls/PackedVia.h"

namespace Mpls {

using namespace LfibLayout;
using Tessel::RecordKind;

namespace {

template <typename T>
std::span<const std::uint8_t> asBytes(const T& value) noexcept {
    return {reinterpret_cast<const std::uint8_t*>(&value), sizeof value};
}

void checkDepth(RouteKey key) {
    if (key.depth() != 1) {
        throw std::invalid_argument("only routes of one label are kept");
    }
}

/// The own words of a via set: its fixed word and its lists, one behind the other.
void packViaSet(const LfibViaSet& set, const std::optional<WaitingWord>& waits,
                std::vector<std::uint64_t>& own) {
    const ViaSetWord fixed{static_cast<std::uint8_t>(set.type),
                           set.owner,
                           set.flags,
                           set.preference,
                           static_cast<std::uint16_t>(set.viaKeys.size()),
                           static_cast<std::uint16_t>(set.members.size())};
    const auto keys = std::as_bytes(set.viaKeys.view());
    const auto members = std::as_bytes(set.members.view());
    own.assign(wordsFor(sizeof fixed + keys.size() + members.size()), 0);
    auto* to = reinterpret_cast<std::byte*>(own.data());
    std::memcpy(to, &fixed, sizeof fixed);
    std::copy(keys.begin(), keys.end(), to + sizeof fixed);
    std::copy(members.begin(), members.end(), to + sizeof fixed + keys.size());
    if (waits) {
        own.push_back(waits->word());
    }
}

} // namespace

std::uint64_t checkedWeight(std::span<const WeightedRecord> vias) {
    if (vias.size() > LfibViaSet::capacity) {
        throw std::invalid_argument("more than 599 vias");
    }
    std::uint64_t total = 0;
    for (const WeightedRecord& via : vias) {
        total += via.weight;
    }
    if (total > std::numeric_limits<std::uint32_t>::max()) {
        throw std::invalid_argument("the weights of the vias add up to " + std::to_string(total) +
                                    ", more than 4294967295");
    }
    return total;
}

std::vector<WeightedRecord> recordsOf(std::span<const WeightedVia> vias) {
    std::vector<WeightedRecord> records;
    records.reserve(vias.size());
    for (const WeightedVia& via : vias) {
        records.push_back({via.via.record(), via.weight});
    }
    return records;
}

Tessel::Result<void> LfibWriter::routeIs(const LabelRoute& route) {
    assert(static_cast<std::size_t>(route.table) == table_);
    return write(route.key(), route);
}

Tessel::Result<void> LfibWriter::waitingRouteIs(std::uint32_t place, const LabelRoute& route) {
    assert(!isLfib(static_cast<TableId>(table_)) && isLfib(route.table));
    if (place > Tessel::TableLayout::maxKey) {
        return Tessel::Refused{"more than 1048576 routes that wait for other owners"};
    }
    waits_ = WaitingWord(route.label, route.table);
    const auto done = write(RouteKey::fromLabel(Lumo::MplsLabel(place)), route);
    waits_.reset();
    return done;
}

Tessel::Result<void> LfibWriter::write(RouteKey key, const LabelRoute& route) {
    owner_ = static_cast<std::uint8_t>(route.owner);
    flags_ = route.flags;
    preference_ = route.preference;
    try {
        if (route.tail) {
            multicastIpLookupRouteIs(key, *route.tail, recordsOf(route.vias));
        } else if (route.isLookUp()) {
            const ViaOptions lookUp = route.vias.front().via.options();
            ipLookupRouteIs(key, route.viaType, lookUp.vrf, lookUp.payload);
        } else {
            routeIs(key, route.viaType, route.setType, recordsOf(route.vias));
        }
        return {};
    } catch (const std::exception& refused) {
        return Tessel::Refused{refused.what()};
    }
}

void LfibWriter::routeIs(RouteKey key, LfibViaType viaType, LfibViaSetType setType,
                         std::span<const WeightedRecord> vias) {
    if (checkedWeight(vias) == 0) {
        throw std::invalid_argument("the weights of the vias add up to 0");
    }
    begin(key, setType, viaType);
    addIpVias(vias);
    publish(key);
}

void LfibWriter::ipLookupRouteIs(RouteKey key, LfibViaType viaType, const L3::VrfName& vrf,
                                 PayloadType payload) {
    begin(key, LfibViaSetType::unicast, viaType);
    std::array<std::uint8_t, vrfNameOffset + 100> body{};
    body[0] = static_cast<std::uint8_t>(payload);
    body[1] = static_cast<std::uint8_t>(vrf.size());
    std::copy_n(vrf.view().begin(), vrf.size(), body.begin() + vrfNameOffset);
    addVia(RecordKind::ipLookupVia, std::span(body).first(vrfNameOffset + vrf.size()), 1);
    publish(key);
}

void LfibWriter::multicastIpLookupRouteIs(RouteKey key, const LfibMulticastIpLookupVia& via,
                                          std::span<const WeightedRecord> branches) {
    if (branches.size() >= LfibViaSet::capacity) {
        throw std::invalid_argument("more than 598 vias beside the tail");
    }
    begin(key, LfibViaSetType::multicast, LfibViaType::multicastIpLookup);
    // The padding behind the last field is not part of the record.
    constexpr std::size_t used = offsetof(LfibMulticastIpLookupVia, payloadType) + 1;
    addVia(RecordKind::multicastVia, asBytes(via).first(used), 1);
    addIpVias(branches);
    publish(key);
}

void LfibWriter::rawRouteIs(RouteKey key, const LfibViaSet& set) {
    begin(key, set.type, LfibViaType::none);
    set_ = set;
    publish(key);
}

bool LfibWriter::routeDel(RouteKey key) {
    checkDepth(key);
    return tables_->recordEntryDel(table_, key.topLabel().value());
}

void LfibWriter::begin(RouteKey key, LfibViaSetType setType, LfibViaType viaType) {
    checkDepth(key);
    set_ = {};
    set_.type = setType;
    set_.owner = std::exchange(owner_, std::uint8_t{0});
    set_.flags = std::exchange(flags_, std::uint8_t{0});
    set_.preference = std::exchange(preference_, std::uint8_t{0});
    set_.viaKeys.push({0, viaType, 0, 0, 0});
    vias_.clear();
    words_.clear();
}

void LfibWriter::addIpVias(std::span<const WeightedRecord> vias) {
    for (const WeightedRecord& via : vias) {
        addVia(RecordKind::ipVia, PackedVia(via.via).bytes(), via.weight);
    }
}

void LfibWriter::addVia(RecordKind kind, std::span<const std::uint8_t> bytes,
                        std::uint32_t weight) {
    const std::size_t first = words_.size();
    const std::size_t count = wordsFor(bytes.size());
    assert(count <= maxViaWords && set_.members.size() == vias_.size());
    words_.resize(first + count);
    std::memcpy(words_.data() + first, bytes.data(), bytes.size());
    vias_.push_back({kind, first, count});
    set_.members.push({0, weight, 0});
}

// All of the route is written before the label's entry refers to it.
void LfibWriter::publish(RouteKey key) {
    packViaSet(set_, waits_, own_);
    const std::size_t ownUnits = 1 + own_.size();
    const std::uint32_t unit = tables_->take(ownUnits + vias_.size() + words_.size());
    behind_.clear();
    LfibViaSet placed;
    placed = set_;
    placed.members = {};
    for (std::size_t i = 0; i < vias_.size(); ++i) {
        const std::span<const std::uint64_t> via(words_.data() + vias_[i].first, vias_[i].count);
        const auto at = static_cast<std::uint32_t>(unit + ownUnits + behind_.size());
        const auto [head, ref] = Tessel::TableWriter::seal(at, vias_[i].kind, via);
        behind_.push_back(head);
        behind_.insert(behind_.end(), via.begin(), via.end());
        placed.members.push({ref.unit(), set_.members[i].weight, ref.check()});
    }
    if (vias_.empty()) {
        placed.members = set_.members;
    } else if (vias_.front().kind != RecordKind::ipVia) {
        const LfibWeightedVia& first = placed.members[0];
        placed.viaKeys = {};
        placed.viaKeys.push({0, set_.viaKeys[0].viaType, 0, first.viaIndex, first.check});
    }
    assert(placed.members.size() == set_.members.size() && own_.size() + 1 == ownUnits);
    packViaSet(placed, waits_, own_);
    tables_->replaceRecord(table_, key.topLabel().value(),
                           tables_->recordIs(unit, RecordKind::viaSet, own_, behind_));
}

} // namespace Mpls
