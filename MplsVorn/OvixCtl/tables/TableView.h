#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Mpls/Hardware/Status.h"
#include "Mpls/LabelRoute.h"
#include "Published/PublishedTables.h"

namespace OvixCtl {

/// The tables that have entries to show, all but the interface names, by their id.
inline constexpr std::size_t entryTables = Tessel::words<Mpls::TableId>.size();

/// The names of the LFIBs, the first of the tables.
constexpr auto lfibWords() noexcept {
    const auto all = Tessel::wordList<Mpls::TableId>();
    std::array<std::string_view, Mpls::lfibs> names{};
    std::copy_n(all.begin(), names.size(), names.begin());
    return names;
}

/// What the key of an entry is called in messages.
constexpr std::string_view nounOf(Mpls::TableId table) noexcept {
    return table == Mpls::TableId::hardwareAdjacencies ? "adjacency"
           : table == Mpls::TableId::mvpnIntfStatus    ? "VRF"
                                                       : "label";
}
/// What the key of an entry is called in JSON: a label, an adjacency's id or a VRF's id.
constexpr std::string_view keyNameOf(Mpls::TableId table) noexcept {
    return table == Mpls::TableId::hardwareAdjacencies ? "id"
           : table == Mpls::TableId::mvpnIntfStatus    ? "vrfId"
                                                       : "label";
}

/// Why an entry cannot be read.
struct Damage {
    std::string what;

    friend bool operator==(const Damage&, const Damage&) noexcept = default;
};

/// An entry of a table, whole and independent of the tables' memory.
struct Entry {
    Mpls::TableId table{};
    std::uint32_t key = 0; ///< a label, an adjacency's id or a VRF's id
    std::variant<Damage, Mpls::LabelRoute, Mpls::Hardware::Route, Mpls::Hardware::AdjacencyVias,
                 Routing::Multicast::MvpnVrfIntfId>
        content;
    std::optional<Mpls::RouteOwner> waitsFor{}; ///< of a label route: whose route is published

    /// Null when the entry can be read.
    const Damage* damage() const noexcept { return std::get_if<Damage>(&content); }

    friend bool operator==(const Entry&, const Entry&) noexcept = default;
};

/// The generation that a reader holds, entry by entry. Damage is the content of the entry that has
/// it; only a generation that has been replaced throws, Tessel::SnapshotLost.
class TableView {
  public:
    /// Throws CorruptionDetected when the memory holds other tables than these.
    explicit TableView(const Ptr<Tessel::TableReader>& reader) : tables_(reader) {}

    const Tessel::TableReader& reader() const noexcept { return tables_.tables(); }

    struct Keys {
        std::vector<std::uint32_t> keys; ///< in order, each once
        std::vector<std::string> damage; ///< what hides entries whose keys are unknown
    };
    /// The keys of a table that have an entry. Those of multicast VPNs are VRFs, not places.
    Keys keys(Mpls::TableId table) const;
    /// Whether there is anything at a key of any table but that of the multicast VPNs.
    bool has(Mpls::TableId table, std::uint32_t key) const;
    /// The entry of a key that has one.
    Entry entry(Mpls::TableId table, std::uint32_t key) const;
    /// By id, whether an adjacency was programmed along with a transit route.
    std::vector<bool> derivedAdjacencies() const;
    /// The label routes that wait for those of other owners, by label.
    std::vector<Entry> waiting() const;

  private:
    Keys mvpnKeys() const;

    Mpls::PublishedTables tables_;
};

/// A copy of the newest generation of the tables that are published under a name. Refuses when
/// there are no tables; throws CorruptionDetected when their header is damaged, and SnapshotLost
/// when they kept changing faster than they could be copied.
Tessel::Result<Ptr<Tessel::TableReader>> freezeTables(const std::string& name);

/// Refuses tables that do not exist, saying how they are made.
Tessel::Result<void> checkTablesExist(const std::string& name);

/// The live tables, for reading. Refuses when there are none.
Tessel::Result<Ptr<Tessel::TableReader>> openTables(const std::string& name);

} // namespace OvixCtl
