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
#include "tables/TableView.h"

namespace OvixCtl {

/// An entry that has changed since the last look.
struct WatchedChange {
    enum class Kind : std::uint8_t { added, removed, changed };

    Kind kind{};
    Mpls::TableId table{};
    std::uint32_t key = 0;
    std::optional<Entry> now; ///< unset exactly for a removed one
};

/// Finds the changes of live tables since its construction. Of each entry it keeps only whether
/// there is one.
class TableWatch {
  public:
    /// Throws CorruptionDetected when the memory holds other tables, or damaged ones.
    explicit TableWatch(Ptr<Tessel::TableReader> reader);

    const Tessel::TableReader& reader() const noexcept { return *reader_; }

    /// Goes over to the tables that the name leads to, if these are others by now: what differs has
    /// changed. Returns whether it has. Throws what opening them throws.
    bool follow();

    /// The changes since the last look, by table and key; the reader then holds the generation that
    /// they are of. Throws CorruptionDetected for a damaged generation or page; the next look goes
    /// on behind it.
    std::vector<WatchedChange> look();

  private:
    using Keys = std::bitset<Tessel::TableLayout::maxKey + std::size_t{1}>;
    using Vpns = std::map<std::uint32_t, Entry>;
    using Place = std::pair<Mpls::TableId, std::uint32_t>;

    void start();
    void collect();
    std::vector<WatchedChange> read() const;
    void readEntry(const Place& place, std::vector<WatchedChange>& changes) const;
    void readVpns(std::vector<WatchedChange>& changes) const;
    Vpns vpnsNow() const;
    void remember(const std::vector<WatchedChange>& changes);

    Ptr<Tessel::TableReader> reader_;
    TableView view_;
    std::vector<Tessel::TableChanges> changes_; ///< by table
    /// By table but that of the multicast VPNs, where an entry's place is not its key.
    std::vector<std::unique_ptr<Keys>> present_;
    Vpns vpns_;
    std::set<Place> pending_; ///< found, and not yet read
};

} // namespace OvixCtl
