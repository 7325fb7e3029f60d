#pragma once

#include <string>

#include "Ovix/routing/HandlersByName.h"
#include "Ovix/routing/RoutingContext.h"

namespace Ovix {

/// Decides where the frames of one protocol go.
class RoutingHandler : public Tessel::Counted {
  public:
    explicit RoutingHandler(std::string name) : name_(std::move(name)) {}

    const std::string& name() const noexcept { return name_; }

    /// Leaves the decision in the routing output. `header` is the frame's outermost routed header.
    virtual void processPacket(const Ptr<RoutingOutput>& output, const Ptr<RoutingContext>& context,
                               const Ptr<PacketHeader>& header,
                               const Ptr<RoutingVrfRoot>& vrfRoot) = 0;

  private:
    std::string name_;
};

/// The agent's routing handlers by name.
class RoutingHandlers : public HandlersByName<RoutingHandler> {};

} // namespace Ovix
