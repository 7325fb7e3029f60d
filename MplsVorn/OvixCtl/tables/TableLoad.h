#pragma once

#include <array>
#include <map>
#include <vector>

#include "Published/TablePublisher.h"
#include "tables/TableDiff.h"
#include "tables/TableView.h"

namespace OvixCtl {

/// Puts entries in the place of those that the tables have of one owner, and of all that have no
/// owner: what the platform has programmed, and multicast VPNs. All is part of the publisher's
/// batch.
class TableLoad {
  public:
    TableLoad(Mpls::TablePublisher& publisher, Mpls::RouteOwner owner);

    /// A label route is the owner's from now on, unless it is of another owner, who has published
    /// it or will. Refuses what the tables refuse, and a label or id
    /// that has come before; the batch is then to be discarded.
    Tessel::Result<void> add(const Entry& entry);
    /// Removes what has not come. Throws std::exception for what the tables refuse, and for a
    /// hardware route through an adjacency that is not there.
    void finish();

    /// Entries that were equal are not counted.
    const ChangeCounts& counts() const noexcept { return counts_; }
    /// Routes of other owners that were not taken.
    std::size_t leftOut() const noexcept { return leftOut_; }

  private:
    bool isOfAnother(const Mpls::LabelRoute& route) const;
    Tessel::Result<void> addRoute(const Entry& entry);
    void finishAdjacencies();
    void finishHardwareRoutes();
    void finishMvpn();
    void removeOthers();

    Mpls::TablePublisher* publisher_;
    Mpls::RouteOwner owner_;
    std::array<std::vector<bool>, Mpls::lfibs> given_;               ///< labels by LFIB
    std::map<Mpls::TableId, std::map<std::uint32_t, Entry>> others_; ///< of all other tables
    std::vector<bool> derived_; ///< adjacencies by id: lines before have them as derived
    ChangeCounts counts_;
    std::size_t leftOut_ = 0;
};

} // namespace OvixCtl
