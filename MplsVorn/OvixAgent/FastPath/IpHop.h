#pragma once

#include "FastPath/PacketWork.h"
#include "State/Fib.h"
#include "State/ForwardingTables.h"

namespace OvixAgent {

/// Routes IP packets that are forwarded without further ado; every other is for the forwarder.
class IpHop {
  public:
    /// The tables must outlive it.
    explicit IpHop(ForwardingTables& tables) noexcept : tables_(&tables) {}

    /// Routes the packet, which no rewrite has changed and whose source is to be checked as
    /// `asked`: finds its line, decrements its TTL and pushes its route's labels. False, and its
    /// bytes are as they were, when it is for the forwarder.
    bool route(const Fib& fib, ReversePath asked, PacketWork& work, EgressLine& line) const;

  private:
    const IpRouteVia* viaFor(const Fib& fib, const Lumo::IpGenAddr& destination,
                             const PacketWork& work) const;
    const Lumo::EthAddr* macFor(const IpRouteVia& via, const Lumo::IpGenAddr& destination) const;

    ForwardingTables* tables_;
};

} // namespace OvixAgent
