#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "Mpls/LfibLayout.h"
#include "Mpls/LfibRecords.h"
#include "Mpls/LfibStatus.h"
#include "Mpls/TableMemory.h"
#include "Ovix/OvixMplsVia.h"

namespace Mpls {

/// A via and its share of the flows.
struct WeightedVia {
    Ovix::OvixMplsVia via;
    std::uint32_t weight = 1;
};

/// The writing side of one LFIB: owns the memory and publishes route changes on the reading side of
/// this process. Records that a change leaves unused are used again. One writer per table.
class LfibWriter {
  public:
    /// Room for 2^20 routes of a via each, or correspondingly larger ones.
    static constexpr std::size_t defaultHeapBytes = std::size_t{1} << 28U;

    explicit LfibWriter(const std::string& name, std::size_t heapBytes = defaultHeapBytes);

    const Ptr<LfibStatus>& status() const noexcept { return status_; }

    /// Publishes a route with a via set of one via key. Weights must add up to more than 0 and less
    /// than 2^32, and there are at most 599 vias: std::invalid_argument otherwise. A full table
    /// throws std::length_error and changes nothing.
    void routeIs(RouteKey key, LfibViaType viaType, LfibViaSetType setType,
                 std::span<const WeightedVia> vias);
    /// The same for a via that pops and looks up in a VRF.
    void ipLookupRouteIs(RouteKey key, LfibViaType viaType, const L3::VrfName& vrf,
                         PayloadType payload);
    /// The same for the tail of a multicast LSP, and for the `branches` that go on from it, at most
    /// 598, whose weights mean nothing.
    void multicastIpLookupRouteIs(RouteKey key, const LfibMulticastIpLookupVia& via,
                                  std::span<const WeightedVia> branches = {});
    /// Publishes a route with a via set as given, whatever it says; its vias stay unowned.
    void rawRouteIs(RouteKey key, const LfibViaSet& set);

    /// Nothing happens when there is no such route.
    void routeDel(RouteKey key);

    /// Touched by what is published: the header, the routes' index entries and the records.
    std::size_t usedBytes() const noexcept;

    std::span<std::byte> memory() const noexcept { return memory_.bytes(); }

  private:
    LfibLayout::Header& header() const noexcept {
        return *reinterpret_cast<LfibLayout::Header*>(memory_.bytes().data());
    }
    std::uint64_t& indexEntry(RouteKey key) const;
    std::uint32_t add(LfibLayout::Kind kind, std::span<const std::byte> body);
    void release(std::uint32_t unitIndex) noexcept;
    void addIpVias(LfibViaSet& set, std::span<const WeightedVia> vias);
    LfibViaSetKey addViaSet(const LfibViaSet& set, bool ownsVias);
    LfibViaSetKey addOwningViaSet(const LfibViaSet& set);
    void releaseMembers(const LfibViaSet& set) noexcept;
    void releaseViaSet(LfibViaSetKey key);
    void point(RouteKey key, LfibViaSetKey viaSet);
    void publishSingle(RouteKey key, LfibViaType type, LfibViaSetType setType,
                       std::uint32_t viaUnit);

    TableMemory memory_;
    Ptr<LfibStatus> status_;
    std::map<std::uint16_t, std::vector<std::uint32_t>> free_; ///< units by record size
    std::uint32_t serial_ = 0;
    std::size_t liveUnits_ = 0;
};

} // namespace Mpls
