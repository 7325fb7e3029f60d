#include "Mpls/LfibStatus.h"

#include <array>
#include <cstring>
#include <limits>

#include "Mpls/LfibLayout.h"
#include "Mpls/PackedVia.h"
#include "Tessel/Exceptions.h"

namespace Mpls {

using namespace LfibLayout;
using Tessel::RecordKind;
using Tessel::TableRef;

namespace {

template <std::size_t words>
using Words = std::array<std::uint64_t, words>;

template <typename T>
T valueAt(const std::uint8_t* from) noexcept {
    T value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

std::span<const std::uint8_t> asBytes(std::span<const std::uint64_t> words) noexcept {
    return {reinterpret_cast<const std::uint8_t*>(words.data()), words.size_bytes()};
}

/// Whether one of the members can be chosen by weight, if that is how the set is used.
bool weightsAreLegal(const LfibViaSet& set) noexcept {
    std::uint64_t total = 0;
    for (const LfibWeightedVia& member : set.members.view()) {
        total += member.weight;
    }
    const bool chosen = set.type != LfibViaSetType::multicast && set.members.size() > 1;
    return !chosen || (total > 0 && total <= std::numeric_limits<std::uint32_t>::max());
}

TableRef refOf(const LfibViaKey& key) noexcept {
    return TableRef::of(key.index, key.check);
}

} // namespace

LfibStatus::LfibStatus(Ptr<const Tessel::TableReader> tables, TableId table)
    : LfibViaSource(std::string(describe(table).path)), tables_(std::move(tables)),
      table_(tables_->table(describe(table).path, entityTypeName)) {}

LfibViaSet LfibStatus::viaSet(LfibViaSetKey key) const {
    LfibViaSet set;
    if (key.value == 0) {
        return set;
    }
    Words<maxViaSetWords> copied; // set as far as it is used
    const TableRef ref{key.value};
    const auto bytes = asBytes(tables_->read(ref, RecordKind::viaSet, copied, "via set at unit"));
    if (bytes.size() < sizeof(ViaSetWord)) {
        tables_->refuse("via set at unit", ref.unit());
    }
    const auto fixed = valueAt<ViaSetWord>(bytes.data());
    Tessel::BoundedList<LfibViaKey, LfibViaSet::capacity>::checkCount(fixed.viaKeys);
    Tessel::BoundedList<LfibWeightedVia, LfibViaSet::capacity>::checkCount(fixed.members);
    const std::size_t keyBytes = fixed.viaKeys * sizeof(LfibViaKey);
    if (sizeof fixed + keyBytes + fixed.members * sizeof(LfibWeightedVia) > bytes.size()) {
        tables_->refuse("via set lists at unit", ref.unit());
    }
    set.key = key;
    set.type = static_cast<LfibViaSetType>(fixed.type);
    set.owner = fixed.owner;
    set.flags = fixed.flags;
    set.preference = fixed.preference;
    set.viaKeys.assign(bytes.data() + sizeof fixed, fixed.viaKeys);
    set.members.assign(bytes.data() + sizeof fixed + keyBytes, fixed.members);
    if (!weightsAreLegal(set)) {
        tables_->refuse("weights of via set at unit", ref.unit());
    }
    set.source = Ptr<const LfibViaSource>(this);
    return set;
}

LfibIpLookupVia LfibStatus::ipLookupVia(const LfibViaKey& key) const {
    Words<maxViaWords> copied;
    const auto bytes = asBytes(
        tables_->read(refOf(key), RecordKind::ipLookupVia, copied, "IP lookup via at unit"));
    const std::size_t length = bytes.size() > vrfNameOffset ? bytes[1] : bytes.size();
    if (bytes.empty() || length > bytes.size() - vrfNameOffset || length > 100) {
        tables_->refuse("VRF name of IP lookup via at unit", key.index);
    }
    const auto* name = reinterpret_cast<const char*>(bytes.data() + vrfNameOffset);
    return {key, L3::VrfName(std::string_view(name, length)), static_cast<PayloadType>(bytes[0])};
}

LfibMulticastIpLookupVia LfibStatus::multicastIpLookupVia(const LfibViaKey& key) const {
    Words<maxViaWords> copied;
    const auto bytes = asBytes(tables_->read(refOf(key), RecordKind::multicastVia, copied,
                                             "multicast IP lookup via at unit"));
    if (bytes.size() < sizeof(LfibMulticastIpLookupVia)) {
        tables_->refuse("multicast IP lookup via at unit", key.index);
    }
    return valueAt<LfibMulticastIpLookupVia>(bytes.data());
}

Ovix::OvixMplsVia LfibStatus::readIpVia(const LfibWeightedVia& member) const {
    Ovix::OvixMplsVia via;
    Words<maxViaWords> copied;
    const TableRef ref = TableRef::of(member.viaIndex, member.check);
    const auto words = tables_->read(ref, RecordKind::ipVia, copied, "IP via at unit");
    if (!PackedVia::unpack(asBytes(words), via)) {
        tables_->refuse("fields of IP via at unit", member.viaIndex);
    }
    return via;
}

Ovix::OvixMplsVia LfibStatus::ipVia(const LfibWeightedVia& member) const {
    return Tessel::readOrDefault(*this, [&] { return readIpVia(member); });
}

} // namespace Mpls
