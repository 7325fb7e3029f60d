#pragma once

#include <bitset>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "Tables/TableChanges.h"
#include "route/EntryTable.h"
#include "route/RouteView.h"
#include "tables/TableView.h"

namespace OvixCtl {

/// An entry that is no longer as it was when last looked at.
struct WatchedChange {
    enum class Kind : std::uint8_t { added, removed, changed };

    Kind kind{};
    Mpls::TableId table{};
    std::uint32_t key = 0;
    std::optional<RouteView> now; ///< unset exactly for a removed one
};

/// Finds what changes in live tables, from what they held at first. Keeps of each entry only
/// whether it is there.
class TableWatch {
  public:
    /// Throws CorruptionDetected when the tables are others than these or cannot be read.
    explicit TableWatch(Ptr<Tessel::TableReader> reader);

    const Tessel::TableReader& reader() const noexcept { return *reader_; }

    /// What has changed since the last look, by table and key, as the generation has it that the
    /// reader holds afterwards. Throws CorruptionDetected for a generation or a page that cannot be
    /// right; the next look goes on behind it.
    std::vector<WatchedChange> look();

  private:
    using Keys = std::bitset<Tessel::TableLayout::maxKey + std::size_t{1}>;
    using Vpns = std::map<std::uint32_t, RouteView>;
    using Entry = std::pair<Mpls::TableId, std::uint32_t>;

    void start();
    void collect();
    std::vector<WatchedChange> read() const;
    void readEntry(const Entry& entry, std::vector<WatchedChange>& changes) const;
    void readVpns(std::vector<WatchedChange>& changes) const;
    Vpns vpnsNow() const;
    void remember(const std::vector<WatchedChange>& changes);

    Ptr<Tessel::TableReader> reader_;
    TableView view_;
    std::vector<Tessel::TableChanges> changes_; ///< by table
    /// By table but that of the multicast VPNs, where an entry's place is not its key.
    std::vector<std::unique_ptr<Keys>> present_;
    Vpns vpns_;
    std::set<Entry> pending_; ///< found, and not yet read
};

} // namespace OvixCtl
