#include "Mpls/LfibStatus.h"

#include <cstring>

#include "Mpls/PackedVia.h"
#include "Tessel/Exceptions.h"

namespace Mpls {

using namespace LfibLayout;

namespace {

template <typename T>
T load(std::span<const std::byte> bytes, std::size_t at) noexcept {
    T value;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

} // namespace

LfibStatus::LfibStatus(std::string name, std::span<const std::byte> memory)
    : LfibViaSource(std::move(name)), memory_(memory) {
    if (memory.size() <= heapOffset || header().regionBytes != memory.size()) {
        corrupt("region size", memory.size());
    }
    if (header().magic != magic) {
        corrupt("magic", header().magic);
    }
    if (header().version != version) {
        corrupt("version", header().version);
    }
    const std::string_view type(header().typeName.data(),
                                strnlen(header().typeName.data(), header().typeName.size()));
    if (type != entityTypeName) {
        throw Tessel::CorruptionDetected(this->name() + ": table of type \"" + std::string(type) +
                                         "\" is not a " + std::string(entityTypeName));
    }
}

// The record's bytes behind its header; empty when the record has been freed.
std::span<const std::byte> LfibStatus::record(std::uint32_t unitIndex, Kind kind,
                                              std::string_view what) const {
    const std::size_t used = std::size_t{header().heapUnits} * unit;
    const std::size_t at = std::size_t{unitIndex} * unit;
    if (unitIndex == 0 || at + unit > used || heapOffset + used > memory_.size()) {
        corrupt(what, unitIndex);
    }
    const auto found = load<RecordHeader>(memory_, heapOffset + at);
    if (found.kind == Kind::free) {
        return {};
    }
    const std::size_t size = found.units * unit;
    if (found.kind != kind || size <= unit || at + size > used) {
        corrupt(what, unitIndex);
    }
    return memory_.subspan(heapOffset + at + unit, size - unit);
}

LfibViaSet LfibStatus::viaSet(LfibViaSetKey key) const {
    LfibViaSet set;
    if (key.value == 0) {
        return set;
    }
    const std::span<const std::byte> bytes = record(unitOf(key), Kind::viaSet, "via set at unit");
    if (bytes.empty() ||
        load<RecordHeader>(memory_, heapOffset + std::size_t{unitOf(key)} * unit).serial !=
            serialOf(key)) {
        return set;
    }
    const auto fixed = load<ViaSetRecord>(bytes, 0);
    Tessel::BoundedList<LfibViaKey, LfibViaSet::capacity>::checkCount(fixed.viaKeys);
    Tessel::BoundedList<LfibWeightedVia, LfibViaSet::capacity>::checkCount(fixed.members);
    const std::size_t keyBytes = fixed.viaKeys * sizeof(LfibViaKey);
    if (sizeof fixed + keyBytes + fixed.members * sizeof(LfibWeightedVia) > bytes.size()) {
        corrupt("via set lists at unit", unitOf(key));
    }
    set.key = key;
    set.type = static_cast<LfibViaSetType>(fixed.type);
    set.origin = fixed.origin;
    set.flags = fixed.flags;
    set.viaKeys.assign(bytes.data() + sizeof fixed, fixed.viaKeys);
    set.members.assign(bytes.data() + sizeof fixed + keyBytes, fixed.members);
    set.source = Ptr<const LfibViaSource>(this);
    return set;
}

LfibIpLookupVia LfibStatus::ipLookupVia(const LfibViaKey& key) const {
    const std::span<const std::byte> bytes =
        record(key.index, Kind::ipLookupVia, "IP lookup via at unit");
    if (bytes.empty()) {
        return {};
    }
    const auto length = static_cast<std::size_t>(bytes[1]);
    if (length > bytes.size() - vrfNameOffset || length > 100) {
        corrupt("VRF name of IP lookup via at unit", key.index);
    }
    const auto* name = reinterpret_cast<const char*>(bytes.data() + vrfNameOffset);
    return {key, L3::VrfName(std::string_view(name, length)), static_cast<PayloadType>(bytes[0])};
}

LfibMulticastIpLookupVia LfibStatus::multicastIpLookupVia(const LfibViaKey& key) const {
    const std::span<const std::byte> bytes =
        record(key.index, Kind::multicastVia, "multicast IP lookup via at unit");
    if (bytes.empty()) {
        return {};
    }
    if (bytes.size() < sizeof(LfibMulticastIpLookupVia)) {
        corrupt("multicast IP lookup via at unit", key.index);
    }
    return load<LfibMulticastIpLookupVia>(bytes, 0);
}

Ovix::OvixMplsVia LfibStatus::ipVia(std::uint32_t index) const {
    Ovix::OvixMplsVia via;
    try {
        const std::span<const std::byte> bytes = record(index, Kind::ipVia, "IP via at unit");
        if (!bytes.empty() &&
            !PackedVia::unpack({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()},
                               via)) {
            corrupt("fields of IP via at unit", index);
        }
    } catch (const Tessel::CorruptionDetected& corruption) {
        doCorruptionDetected(corruption.what());
        return {};
    }
    return via;
}

void LfibStatus::corrupt(std::string_view what, std::uint64_t at) const {
    throw Tessel::CorruptionDetected(name() + ": " + std::string(what) + " " + std::to_string(at) +
                                     " cannot be right");
}

void LfibStatus::doCorruptionDetected(std::string_view message) const {
    ++corruptions_;
    lastCorruption_ = message;
}

} // namespace Mpls
