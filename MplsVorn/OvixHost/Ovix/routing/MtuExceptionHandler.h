#pragma once

#include <string>

#include "Lumo/IntfId.h"
#include "Ovix/routing/HandlersByName.h"
#include "Ovix/routing/RoutingContext.h"

namespace Ovix {

/// Deals with the frames of one protocol that are too big for the interface they should leave by.
class MtuExceptionHandler : public Tessel::Counted {
  public:
    explicit MtuExceptionHandler(std::string name) : name_(std::move(name)) {}

    /// The protocol, for example "Mpls".
    const std::string& name() const noexcept { return name_; }

    /// Called on the packet thread with the frame as it would have been sent, its Ethernet header
    /// first; the agent drops it afterwards. `context` has a packet context; `egress` is the
    /// interface whose MTU is exceeded.
    virtual void handle(const Ptr<RoutingContext>& context, Lumo::IntfId egress) = 0;

  private:
    std::string name_;
};

/// The agent's MTU exception handlers by the name of their protocol.
class MtuExceptionHandlers : public HandlersByName<MtuExceptionHandler> {};

} // namespace Ovix
