#pragma once

#include <string>

#include "Lumo/IntfId.h"
#include "Ovix/routing/LabelDecision.h"
#include "Ovix/routing/RoutingContext.h"
#include "Tessel/NamedList.h"

namespace Ovix {

/// What a plugin offers the agent for one protocol, for example "Mpls".
class ProtocolHandler : public Tessel::Counted {
  public:
    explicit ProtocolHandler(std::string name) : name_(std::move(name)) {}

    /// The protocol.
    const std::string& name() const noexcept { return name_; }

  private:
    std::string name_;
};

/// Decides where the frames of one protocol go.
class RoutingHandler : public ProtocolHandler {
  public:
    using ProtocolHandler::ProtocolHandler;

    /// Leaves the decision in the routing output. `header` is the frame's outermost routed header.
    virtual void processPacket(const Ptr<RoutingOutput>& output, const Ptr<RoutingContext>& context,
                               const Ptr<PacketHeader>& header,
                               const Ptr<RoutingVrfRoot>& vrfRoot) = 0;

    /// What processPacket() does with a frame by the label on its top, which is no special-purpose
    /// one, has a TTL above 1 and `beneath` under it. False when that depends on more, or the
    /// handler cannot say; `decision` is then unspecified. Throws what reading tables throws.
    virtual bool decide(Lumo::MplsLabel, Beneath, LabelDecision&) { return false; }
    /// Changes when decisions may no longer hold for another reason than a change of the label
    /// tables.
    virtual std::uint64_t decisionVersion() const noexcept { return 0; }
};

/// Handles the frames of one protocol that are too big for the interface they should leave by.
class MtuExceptionHandler : public ProtocolHandler {
  public:
    using ProtocolHandler::ProtocolHandler;

    /// Called on the packet thread with the frame as it would have been sent, its Ethernet header
    /// first; the agent drops it afterwards. `context` has a packet context; `egress` is the
    /// interface whose MTU is exceeded.
    virtual void handle(const Ptr<RoutingContext>& context, Lumo::IntfId egress) = 0;
};

/// The agent's handlers of one kind; a later one for the same protocol replaces the earlier.
template <typename Handler>
class HandlersByProtocol : public Tessel::NamedList<Handler> {
  public:
    void handlerIs(Ptr<Handler> handler) { this->add(std::move(handler)); }
    /// Empty when there is none for that protocol.
    Ptr<Handler> handler(std::string_view protocol) const noexcept { return this->named(protocol); }
};

class RoutingHandlers : public HandlersByProtocol<RoutingHandler> {};
class MtuExceptionHandlers : public HandlersByProtocol<MtuExceptionHandler> {};

} // namespace Ovix
