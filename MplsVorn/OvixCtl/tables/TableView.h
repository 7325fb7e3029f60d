#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Published/InterfaceNames.h"
#include "Published/PublishedTables.h"
#include "Tables/TableReader.h"
#include "route/RouteView.h"

namespace OvixCtl {

/// The generation that a reader holds, entry by entry. What cannot be right becomes a DamagedView;
/// only a generation that has gone throws, Tessel::SnapshotLost.
class TableView {
  public:
    /// Throws CorruptionDetected when the memory holds other tables than these.
    explicit TableView(const Ptr<Tessel::TableReader>& reader);

    const Tessel::TableReader& reader() const noexcept { return tables_.tables(); }

    struct Keys {
        std::vector<std::uint32_t> keys; ///< in order, each once
        std::vector<std::string> damage; ///< what hid entries whose keys nobody can tell
    };
    /// The keys of a table that have an entry. Multicast VPNs are known by VRF, not by place.
    Keys keys(Mpls::TableId table) const;
    /// Whether there is anything at a key of any table but that of the multicast VPNs.
    bool has(Mpls::TableId table, std::uint32_t key) const;
    /// The entry of a key that has one.
    RouteView entry(Mpls::TableId table, std::uint32_t key) const;

  private:
    Keys mvpnKeys() const;

    Mpls::PublishedTables tables_;
};

} // namespace OvixCtl
