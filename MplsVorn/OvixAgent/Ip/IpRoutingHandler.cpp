#include "Ip/IpRoutingHandler.h"

#include "Ovix/packet/IpHeaderAccess.h"

namespace OvixAgent {

IpRoutingHandler::IpRoutingHandler(Ovix::PktHdrType type, PortTable& ports)
    : RoutingHandler(std::string(Ovix::pktHdrName(type))), type_(type), ports_(&ports) {}

void IpRoutingHandler::processPacket(const Ptr<Ovix::RoutingOutput>& output,
                                     const Ptr<Ovix::RoutingContext>& context,
                                     const Ptr<Ovix::PacketHeader>& header,
                                     const Ptr<Ovix::RoutingVrfRoot>&) {
    auto nexthop = Tessel::make<Ovix::RoutingNexthop>(Lumo::IntfId());
    nexthop->addressIs(type_ == Ovix::PktHdrType::ipv4 ? Ovix::ipv4Destination(*header)
                                                       : Ovix::ipv6Destination(*header));
    if (const Port* port = ports_->byIntfId(context->ingressIntfId())) {
        nexthop->vrfNameIs(port->vrf);
    }
    output->nexthops()->nexthopEnq(std::move(nexthop));
}

} // namespace OvixAgent
