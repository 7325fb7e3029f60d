#pragma once

#include "Ovix/routing/RoutingHandler.h"
#include "State/PortTable.h"

namespace OvixAgent {

/// Routes the frames that came as IP packets: to their destination, in the VRF of the port that
/// they came in at.
class IpRoutingHandler : public Ovix::RoutingHandler {
  public:
    /// Of one family: `type` says which, and names the handler. The ports must outlive it.
    IpRoutingHandler(Ovix::PktHdrType type, PortTable& ports);

    void processPacket(const Ptr<Ovix::RoutingOutput>& output,
                       const Ptr<Ovix::RoutingContext>& context,
                       const Ptr<Ovix::PacketHeader>& header,
                       const Ptr<Ovix::RoutingVrfRoot>& vrfRoot) override;

  private:
    Ovix::PktHdrType type_;
    PortTable* ports_;
};

} // namespace OvixAgent
