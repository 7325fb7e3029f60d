#pragma once

#include <cstdint>
#include <span>

#include "Lumo/IntfId.h"
#include "Mpls/LfibWriter.h"
#include "Mpls/Types.h"
#include "Ovix/OvixMplsVia.h"
#include "Tessel/Ptr.h"

namespace Mpls::Hardware {

/// Where the platform sends what a route matches: vias with weights, and backups to use instead
/// while the adjacency is marked so. Never changed once made. Vias and backups stand packed behind
/// the object in one allocation, so that a million adjacencies stay small.
class Adjacency : public Tessel::Counted {
  public:
    /// At most 599 vias and as many backups, each list's weights adding up to less than 2^32;
    /// std::invalid_argument otherwise.
    static Ptr<const Adjacency> create(std::span<const WeightedVia> vias,
                                       std::span<const WeightedVia> backups, bool useBackups,
                                       LfibViaType viaType = LfibViaType::ip,
                                       LfibViaSetType setType = LfibViaSetType::unicast);

    bool useBackups() const noexcept { return useBackups_; }
    LfibViaType viaType() const noexcept { return viaType_; }
    LfibViaSetType setType() const noexcept { return setType_; }

    /// What choosing a via needs of it.
    struct Entry {
        Lumo::IntfId intf;
        std::uint32_t weight;
        std::uint32_t packedOffset; ///< from the adjacency's start; the next entry's ends it
    };

    std::span<const Entry> entries(bool backups) const noexcept {
        const Entry* first = reinterpret_cast<const Entry*>(this + 1);
        return backups ? std::span(first + vias_, backups_) : std::span(first, vias_);
    }
    Ovix::OvixMplsVia via(bool backups, std::uint32_t index) const noexcept;

    std::size_t memoryBytes() const noexcept { return bytes_; }

    static void operator delete(void* memory) noexcept { ::operator delete(memory); }

  private:
    Adjacency() = default;
    static void* operator new(std::size_t, void* at) noexcept { return at; }

    std::uint32_t bytes_ = 0;
    std::uint16_t vias_ = 0;
    std::uint16_t backups_ = 0;
    bool useBackups_ = false;
    LfibViaType viaType_ = LfibViaType::ip;
    LfibViaSetType setType_ = LfibViaSetType::unicast;
};

} // namespace Mpls::Hardware
