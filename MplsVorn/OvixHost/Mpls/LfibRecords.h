#pragma once

#include <array>
#include <cstdint>
#include <cstring>

#include "Lumo/IntfId.h"
#include "Mpls/RouteKey.h"
#include "Mpls/Types.h"
#include "Tessel/BoundedList.h"
#include "Tessel/Entity.h"

namespace Ovix {
struct OvixMplsVia;
}

namespace Mpls {

/// Names a via within the table of its type.
///
///      0        1        2        3        4                 8                12
///     +--------+--------+-----------------+-----------------+-----------------+
///     | owner  |viaType |    reserved     |      index      |      check      |
///     +--------+--------+-----------------+-----------------+-----------------+
struct LfibViaKey {
    std::uint8_t owner = 0; ///< who put the via there; opaque to forwarding
    LfibViaType viaType = LfibViaType::none;
    std::uint16_t reserved = 0;
    std::uint32_t index = 0; ///< within the table of the via's type
    std::uint32_t check = 0; ///< of the via's record

    friend bool operator==(const LfibViaKey&, const LfibViaKey&) noexcept = default;
};
static_assert(sizeof(LfibViaKey) == 12);

/// Names a via set; the default key names none.
struct LfibViaSetKey {
    std::uint64_t value = 0;

    friend bool operator==(LfibViaSetKey, LfibViaSetKey) noexcept = default;
};

/// A label's route. Default: no such route.
struct LfibRoute {
    RouteKey routeKey;
    LfibViaSetKey viaSetKey;

    friend bool operator==(const LfibRoute&, const LfibRoute&) noexcept = default;
};

/// One member of a via set: a via of the table of the set's via type, and its share of the flows.
struct LfibWeightedVia {
    std::uint32_t viaIndex = 0;
    std::uint32_t weight = 0;
    std::uint32_t check = 0; ///< of the via's record

    friend bool operator==(const LfibWeightedVia&, const LfibWeightedVia&) noexcept = default;
};
static_assert(sizeof(LfibWeightedVia) == 12);

/// Where the vias of a via set are read from: the table that the set came from.
class LfibViaSource : public Tessel::Entity {
  public:
    using Entity::Entity;

    /// The IP via of a member, copied out; an invalid via when it is damaged.
    virtual Ovix::OvixMplsVia ipVia(const LfibWeightedVia& member) const = 0;
};

/// A via set as published. It names one via key; the set's members and their weights stand in
/// `members`, and each member is a via of the key's type.
struct LfibViaSet {
    static constexpr std::size_t capacity = 599;

    LfibViaSet() noexcept = default;
    explicit LfibViaSet(LfibViaSetKey setKey) noexcept : key(setKey) {}

    LfibViaSetKey key;
    LfibViaSetType type = LfibViaSetType::unicast;
    std::uint8_t owner = 0;      ///< who put the set there; opaque to forwarding
    std::uint8_t flags = 0;      ///< reserved
    std::uint8_t preference = 0; ///< among owners; opaque to forwarding
    Tessel::BoundedList<LfibViaKey, capacity> viaKeys;
    Tessel::BoundedList<LfibWeightedVia, capacity> members;
    /// Not part of the record: the table it was read from; empty for a record made elsewhere.
    Ptr<const LfibViaSource> source;

    bool isEq(const LfibViaSet& other) const noexcept {
        return key == other.key && type == other.type && owner == other.owner &&
               flags == other.flags && preference == other.preference && viaKeys == other.viaKeys &&
               members == other.members;
    }
};

/// Pop and look up in a VRF.
struct LfibIpLookupVia {
    LfibViaKey viaKey;
    L3::VrfName vrfName;
    PayloadType payloadType = PayloadType::undefined;

    friend bool operator==(const LfibIpLookupVia&, const LfibIpLookupVia&) noexcept = default;
};

/// The tail of a multicast LSP: deliver to the CPU on the VLAN of the lookup.
struct LfibMulticastIpLookupVia {
    std::uint32_t index = 0;      ///< of the via key
    std::uint32_t vrfId = 0;      ///< the VRF of the lookup
    std::uint32_t intfIdHigh = 0; ///< the lookup's interface (Lumo::IntfId), upper half
    std::uint32_t intfIdLow = 0;  ///< lower half
    std::uint32_t rpfId = 0;      ///< identifies the upstream of the LSP; opaque to forwarding
    std::uint8_t payloadType = 0; ///< PayloadType

    /// A lookup on an interface, with nothing else set.
    static LfibMulticastIpLookupVia toward(Lumo::IntfId intf) noexcept {
        LfibMulticastIpLookupVia via;
        via.intfIdHigh = static_cast<std::uint32_t>(intf.value() >> 32U);
        via.intfIdLow = static_cast<std::uint32_t>(intf.value());
        return via;
    }
    Lumo::IntfId intf() const noexcept {
        return Lumo::IntfId::fromValue((std::uint64_t{intfIdHigh} << 32U) | intfIdLow);
    }

    friend bool operator==(const LfibMulticastIpLookupVia&,
                           const LfibMulticastIpLookupVia&) noexcept = default;
};

} // namespace Mpls
