#pragma once

#include <optional>

#include "FastPath/PacketWork.h"
#include "State/Fib.h"
#include "State/ForwardingTables.h"

namespace OvixAgent {

/// Routes IP packets that are forwarded without further ado; every other is for the forwarder.
class IpHop {
  public:
    /// The tables must outlive it.
    explicit IpHop(ForwardingTables& tables) noexcept : tables_(&tables) {}

    /// Routes the packet, which no rewrite has changed: its TTL is decremented and its route's
    /// labels are pushed. Unset, and the packet is as it was, when it is for the forwarder.
    std::optional<Frame> route(const Fib& fib, PacketWork work, Port*& port) const;

  private:
    const IpRouteVia* viaFor(const Fib& fib, const PacketWork& work) const;
    const Lumo::EthAddr* macFor(const IpRouteVia& via, const PacketWork& work) const;

    ForwardingTables* tables_;
};

} // namespace OvixAgent
