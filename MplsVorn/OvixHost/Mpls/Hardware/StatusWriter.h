#pragma once

#include <cstdint>
#include <vector>

#include "Mpls/Hardware/Adjacency.h"
#include "Mpls/Hardware/Status.h"
#include "Tables/TableWriter.h"

namespace Mpls::Hardware {

/// The writing side of the hardware status: makes the changes of a batch, which readers see once
/// the tables' writer commits it. An adjacency's key is a number below 2^20; a larger one, or a
/// route of more or less than one label, throws std::invalid_argument. Full tables throw
/// std::length_error and are left as they were.
class StatusWriter {
  public:
    explicit StatusWriter(Tessel::TableWriter& tables) noexcept : tables_(&tables) {}

    /// As this batch has it; the default route when there is none.
    Route route(RouteKey key) const;
    bool hasAdjacency(std::uint32_t key) const {
        return static_cast<bool>(tables_->entry(adjacencyTable, key));
    }

    /// The adjacency may come later.
    void routeIs(const Route& route);
    /// False when there is no such route.
    bool routeDel(RouteKey key);
    void adjacencyIs(std::uint64_t key, const Adjacency& adjacency);
    /// False when there is no such adjacency. Routes may still name it.
    bool adjacencyDel(std::uint64_t key);

    std::uint32_t routes() const noexcept { return tables_->entries(routeTable); }

  private:
    static constexpr auto routeTable = static_cast<std::size_t>(TableId::hardwareRoutes);
    static constexpr auto adjacencyTable = static_cast<std::size_t>(TableId::hardwareAdjacencies);

    Tessel::TableWriter* tables_;
};

} // namespace Mpls::Hardware
