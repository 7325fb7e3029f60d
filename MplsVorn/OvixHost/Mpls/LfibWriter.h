#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "Mpls/LabelRoute.h"
#include "Mpls/LfibLayout.h"
#include "Mpls/LfibRecords.h"
#include "Mpls/TableDirectory.h"
#include "Mpls/Via.h"
#include "Tables/TableWriter.h"

namespace Mpls {

/// The writing side of one LFIB: makes the changes of a batch, which readers see once the tables'
/// writer commits it. Everything here throws std::invalid_argument for a key of more or less than
/// one label, and std::length_error, having changed nothing, when the tables are full.
class LfibWriter {
  public:
    LfibWriter(Tessel::TableWriter& tables, TableId table) noexcept
        : tables_(&tables), table_(static_cast<std::size_t>(table)) {}

    /// The route of a label in this LFIB, in place of the one it has. Refused, with nothing
    /// changed, when the weights or the number of the vias are out of range, or the tables are
    /// full.
    Tessel::Result<void> routeIs(const LabelRoute& route);

    /// A route with a via set of one via key. Weights must add up to more than 0 and less than
    /// 2^32, and there are at most 599 vias: std::invalid_argument otherwise.
    void routeIs(RouteKey key, LfibViaType viaType, LfibViaSetType setType,
                 std::span<const WeightedRecord> vias);
    /// The same for a via that pops and looks up in a VRF.
    void ipLookupRouteIs(RouteKey key, LfibViaType viaType, const L3::VrfName& vrf,
                         PayloadType payload);
    /// The same for the tail of a multicast LSP, and for the `branches` that go on from it, at most
    /// 598, whose weights mean nothing.
    void multicastIpLookupRouteIs(RouteKey key, const LfibMulticastIpLookupVia& via,
                                  std::span<const WeightedRecord> branches = {});
    /// A route with a via set as given, unchecked.
    void rawRouteIs(RouteKey key, const LfibViaSet& set);

    /// False when there is no such route.
    bool routeDel(RouteKey key);

    /// In the table of routes that wait: one of any LFIB, at a place.
    Tessel::Result<void> waitingRouteIs(std::uint32_t place, const LabelRoute& route);
    bool waitingRouteDel(std::uint32_t place) { return tables_->recordEntryDel(table_, place); }

    bool has(RouteKey key) const {
        return static_cast<bool>(tables_->entry(table_, key.topLabel().value()));
    }
    std::uint32_t routes() const noexcept { return tables_->entries(table_); }

  private:
    struct ViaWords {
        Tessel::RecordKind kind;
        std::size_t first; ///< in words_
        std::size_t count;
    };

    void begin(RouteKey key, LfibViaSetType setType, LfibViaType viaType);
    void addVia(Tessel::RecordKind kind, std::span<const std::uint8_t> bytes, std::uint32_t weight);
    void addIpVias(std::span<const WeightedRecord> vias);
    Tessel::Result<void> write(RouteKey key, const LabelRoute& route);
    void publish(RouteKey key);

    Tessel::TableWriter* tables_;
    std::size_t table_;
    // The route in the making; kept so that room is made once.
    std::uint8_t owner_ = 0;
    std::uint8_t flags_ = 0;
    std::uint8_t preference_ = 0;
    std::optional<LfibLayout::WaitingWord> waits_;
    LfibViaSet set_;
    std::vector<ViaWords> vias_;
    std::vector<std::uint64_t> words_; ///< of the vias
    std::vector<std::uint64_t> own_;
    std::vector<std::uint64_t> behind_;
};

} // namespace Mpls
