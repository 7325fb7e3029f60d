#pragma once

#include <cstdint>

#include "Mpls/LfibRecords.h"
#include "Mpls/OvixMplsVia.h"
#include "Mpls/Types.h"
#include "Tessel/Ptr.h"

namespace Ovix {

/// The ways to forward what carries one label: vias with weights, of which one is chosen or, in a
/// multicast set, all are used. Never changed once built. Indices run from 0 to numVias() - 1.
class OvixMplsViaSet : public Tessel::Counted {
  public:
    virtual std::uint32_t numVias() const noexcept = 0;
    virtual Mpls::LfibViaType viaType(std::uint32_t index) const noexcept = 0;
    virtual std::uint32_t weight(std::uint32_t index) const noexcept = 0;
    /// An invalid via when the record cannot be read.
    virtual OvixMplsVia via(std::uint32_t index) const = 0;
    virtual Mpls::LfibViaSetType type() const noexcept = 0;
    /// The key under which the table of the via's type holds it; the default key when the set was
    /// not built from a table.
    virtual Mpls::LfibViaKey viaKey(std::uint32_t) const noexcept { return {}; }

    /// The table that the set was read from; null when it was not read from one.
    virtual const Mpls::LfibViaSource* source() const noexcept { return nullptr; }

    bool isMulticast() const noexcept { return type() == Mpls::LfibViaSetType::multicast; }
};

} // namespace Ovix
