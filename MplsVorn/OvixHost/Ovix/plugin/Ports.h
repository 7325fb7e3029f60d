#pragma once

#include <string_view>

#include "Lumo/IntfId.h"
#include "Lumo/Pkt.h"
#include "Tessel/FlatMap.h"
#include "Tessel/Ptr.h"

namespace Ovix {

/// One of the agent's ports as its plugins see it. What is sent here is neither routed nor
/// rewritten.
class Port : public Tessel::Counted {
  public:
    explicit Port(Lumo::IntfId intf) noexcept : intf_(intf) {}

    Lumo::IntfId intfId() const noexcept { return intf_; }
    /// As traces show it; lives as long as the port.
    virtual std::string_view shortName() const noexcept = 0;

    /// Sends a whole frame, its Ethernet header first; the packet stays the caller's. False when
    /// the port does not take it: it is down, or the frame is too big for it.
    virtual bool send(const Ptr<Lumo::Pkt>& packet) = 0;

  private:
    Lumo::IntfId intf_;
};

/// The agent's ports by interface id, the device's own CPU among them.
class Ports : public Tessel::Counted {
  public:
    /// Adds a port; one of the same interface is replaced.
    void portIs(const Ptr<Port>& port) { ports_[port->intfId().value()] = port; }

    /// Empty when the interface has none.
    Ptr<Port> port(Lumo::IntfId intf) const noexcept {
        const Ptr<Port>* found = ports_.find(intf.value());
        return found != nullptr ? *found : nullptr;
    }

  private:
    Tessel::FlatMap<Ptr<Port>> ports_;
};

} // namespace Ovix
