#include "Mpls/LfibWriter.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "Mpls/PackedVia.h"

namespace Mpls {

using namespace LfibLayout;

namespace {

std::span<std::byte> initialized(std::span<std::byte> memory) {
    Header header{};
    header.magic = magic;
    header.version = version;
    header.heapUnits = 1;
    header.regionBytes = memory.size();
    std::copy(LfibStatus::entityTypeName.begin(), LfibStatus::entityTypeName.end(),
              header.typeName.begin());
    std::memcpy(memory.data(), &header, sizeof header);
    return memory;
}

void checkWeights(std::span<const WeightedVia> vias) {
    if (vias.size() > LfibViaSet::capacity) {
        throw std::invalid_argument("more than 599 vias");
    }
    std::uint64_t total = 0;
    for (const WeightedVia& via : vias) {
        total += via.weight;
    }
    if (total == 0 || total > std::numeric_limits<std::uint32_t>::max()) {
        throw std::invalid_argument("the weights of the vias add up to " + std::to_string(total) +
                                    ", not to 1 to 4294967295");
    }
}

void checkKey(RouteKey key) {
    if (key.depth() != 1) {
        throw std::invalid_argument("only routes of one label are kept");
    }
}

std::span<const std::byte> asBytes(std::span<const std::uint8_t> bytes) noexcept {
    return std::as_bytes(bytes);
}

} // namespace

LfibWriter::LfibWriter(const std::string& name, std::size_t heapBytes)
    : memory_(heapOffset + heapBytes),
      status_(Tessel::make<LfibStatus>(name, initialized(memory_.bytes()))) {}

void LfibWriter::routeIs(RouteKey key, LfibViaType viaType, LfibViaSetType setType,
                         std::span<const WeightedVia> vias) {
    checkKey(key);
    checkWeights(vias);
    LfibViaSet set;
    set.type = setType;
    set.viaKeys.push({0, viaType, 0, 0, 0});
    addIpVias(set, vias);
    point(key, addOwningViaSet(set));
}

void LfibWriter::ipLookupRouteIs(RouteKey key, LfibViaType viaType, const L3::VrfName& vrf,
                                 PayloadType payload) {
    checkKey(key);
    std::array<std::uint8_t, vrfNameOffset + 100> body{};
    body[0] = static_cast<std::uint8_t>(payload);
    body[1] = static_cast<std::uint8_t>(vrf.size());
    std::copy_n(vrf.view().begin(), vrf.size(), body.begin() + vrfNameOffset);
    publishSingle(
        key, viaType, LfibViaSetType::unicast,
        add(Kind::ipLookupVia, asBytes(std::span(body).first(vrfNameOffset + vrf.size()))));
}

void LfibWriter::multicastIpLookupRouteIs(RouteKey key, const LfibMulticastIpLookupVia& via,
                                          std::span<const WeightedVia> branches) {
    checkKey(key);
    if (branches.size() >= LfibViaSet::capacity) {
        throw std::invalid_argument("more than 598 vias beside the tail");
    }
    const std::uint32_t tail = add(Kind::multicastVia, std::as_bytes(std::span(&via, 1)));
    LfibViaSet set;
    set.type = LfibViaSetType::multicast;
    set.viaKeys.push({0, LfibViaType::multicastIpLookup, 0, tail, 0});
    set.members.push({tail, 1, 0});
    addIpVias(set, branches);
    point(key, addOwningViaSet(set));
}

// On failure what the set already owns is given back.
void LfibWriter::addIpVias(LfibViaSet& set, std::span<const WeightedVia> vias) {
    try {
        for (const WeightedVia& via : vias) {
            const PackedVia packed(via.via);
            set.members.push({add(Kind::ipVia, asBytes(packed.bytes())), via.weight, 0});
        }
    } catch (const std::length_error&) {
        releaseMembers(set);
        throw;
    }
}

void LfibWriter::publishSingle(RouteKey key, LfibViaType type, LfibViaSetType setType,
                               std::uint32_t viaUnit) {
    LfibViaSet set;
    set.type = setType;
    set.viaKeys.push({0, type, 0, viaUnit, 0});
    set.members.push({viaUnit, 1, 0});
    point(key, addOwningViaSet(set));
}

void LfibWriter::rawRouteIs(RouteKey key, const LfibViaSet& set) {
    checkKey(key);
    point(key, addViaSet(set, false));
}

void LfibWriter::routeDel(RouteKey key) {
    if (indexEntry(key) != 0) {
        point(key, {});
    }
}

std::size_t LfibWriter::usedBytes() const noexcept {
    return sizeof(Header) + header().routes * sizeof(std::uint64_t) + liveUnits_ * unit;
}

std::uint64_t& LfibWriter::indexEntry(RouteKey key) const {
    checkKey(key);
    auto* index = reinterpret_cast<std::uint64_t*>(memory_.bytes().data() + indexOffset);
    return index[key.topLabel().value()];
}

// The new record stands whole before the route points at it, and the old one goes only afterwards.
void LfibWriter::point(RouteKey key, LfibViaSetKey viaSet) {
    std::uint64_t& entry = indexEntry(key);
    const LfibViaSetKey old{entry};
    entry = viaSet.value;
    if (old.value == 0) {
        ++header().routes;
    } else {
        releaseViaSet(old);
    }
    if (viaSet.value == 0) {
        --header().routes;
    }
    status_->publish(LfibStatus::routeAttr, key.value());
}

std::uint32_t LfibWriter::add(Kind kind, std::span<const std::byte> body) {
    const auto units = static_cast<std::uint16_t>(1 + (body.size() + unit - 1) / unit);
    std::uint32_t at = header().heapUnits;
    if (auto same = free_.find(units); same != free_.end() && !same->second.empty()) {
        at = same->second.back();
        same->second.pop_back();
    } else if ((std::size_t{at} + units) * unit + heapOffset > memory_.bytes().size()) {
        throw std::length_error(status_->name() + " is full");
    } else {
        header().heapUnits += units;
    }
    std::byte* to = memory_.bytes().data() + heapOffset + std::size_t{at} * unit;
    std::copy(body.begin(), body.end(), to + unit);
    const RecordHeader head{kind, units, ++serial_};
    std::memcpy(to, &head, sizeof head);
    liveUnits_ += units;
    return at;
}

void LfibWriter::release(std::uint32_t unitIndex) noexcept {
    auto* head = reinterpret_cast<RecordHeader*>(memory_.bytes().data() + heapOffset +
                                                 std::size_t{unitIndex} * unit);
    head->kind = Kind::free;
    liveUnits_ -= head->units;
    free_[head->units].push_back(unitIndex);
}

LfibViaSetKey LfibWriter::addViaSet(const LfibViaSet& set, bool ownsVias) {
    std::vector<std::byte> body(sizeof(ViaSetRecord));
    const ViaSetRecord fixed{static_cast<std::uint8_t>(set.type),
                             set.origin,
                             set.flags,
                             static_cast<std::uint8_t>(ownsVias),
                             static_cast<std::uint16_t>(set.viaKeys.size()),
                             static_cast<std::uint16_t>(set.members.size())};
    std::memcpy(body.data(), &fixed, sizeof fixed);
    const auto append = [&](std::span<const std::byte> bytes) {
        body.insert(body.end(), bytes.begin(), bytes.end());
    };
    append(std::as_bytes(set.viaKeys.view()));
    append(std::as_bytes(set.members.view()));
    const std::uint32_t at = add(Kind::viaSet, body);
    return viaSetKey(at, serial_);
}

LfibViaSetKey LfibWriter::addOwningViaSet(const LfibViaSet& set) {
    try {
        return addViaSet(set, true);
    } catch (const std::length_error&) {
        releaseMembers(set);
        throw;
    }
}

void LfibWriter::releaseMembers(const LfibViaSet& set) noexcept {
    for (const LfibWeightedVia& member : set.members.view()) {
        release(member.viaIndex);
    }
}

void LfibWriter::releaseViaSet(LfibViaSetKey key) {
    ViaSetRecord fixed;
    std::memcpy(&fixed,
                memory_.bytes().data() + heapOffset + std::size_t{unitOf(key)} * unit +
                    sizeof(RecordHeader),
                sizeof fixed);
    if (fixed.ownsVias != 0) {
        releaseMembers(status_->viaSet(key));
    }
    release(unitOf(key));
}

} // namespace Mpls
