#pragma once

#include "Ovix/routing/Handlers.h"

namespace Ovix {

class MplsOvixPlugin;

/// The door through which every MPLS frame enters the plugin: registered as "Mpls". It counts
/// "Drop" / "Mpls routing not enabled" while MPLS routing is off.
class MplsRoutingHandler : public RoutingHandler {
  public:
    /// The plugin owns the handler and outlives it.
    explicit MplsRoutingHandler(MplsOvixPlugin* plugin) : RoutingHandler("Mpls"), plugin_(plugin) {}

    MplsOvixPlugin* plugin() const noexcept { return plugin_; }

    void processPacket(const Ptr<RoutingOutput>& output, const Ptr<RoutingContext>& context,
                       const Ptr<PacketHeader>& header,
                       const Ptr<RoutingVrfRoot>& vrfRoot) override;

  private:
    MplsOvixPlugin* plugin_;
};

} // namespace Ovix
