#include "Forwarding/Outgoing.h"

#include <algorithm>
#include <cassert>

#include "Wire/LabelStack.h"

namespace OvixAgent {

Wire::Bytes Outgoing::labels() const noexcept {
    const Wire::Bytes bytes = packet().pkt()->data();
    if (packet().outerType() != Ovix::PktHdrType::mpls) {
        return {};
    }
    Wire::LabelWalk walk(bytes);
    for (Lumo::MplsLabelEntry entry; walk.next(entry);) {
    }
    return bytes.first(bytes.size() - walk.rest().size());
}

std::uint32_t Outgoing::mtu() const noexcept {
    assert(egress.port != nullptr);
    return nexthop.mtu() != 0 ? std::min(nexthop.mtu(), egress.port->mtu) : egress.port->mtu;
}

bool Outgoing::pushLinkHeader(Ovix::PacketContext& to) const {
    assert(egress.port != nullptr);
    const Port& port = *egress.port;
    const VlanTags sent = tagsToSend(tags, port.tagging, nexthop.vlanId());
    if (to.outerType() == Ovix::PktHdrType::eth) { // a customer's frame, whose tags stay
        return port.tagging.kind != Tagging::Kind::subInterface || insertTags(*to.pkt(), sent);
    }
    return pushLink(to, port.mac, egress.mac, sent);
}

void Outgoing::emit(const Ovix::PacketContext& sent, std::size_t missing) const {
    assert(egress.port != nullptr && egress.port->out != nullptr);
    const std::span<const std::uint8_t> bytes = sent.pkt()->data();
    egress.port->sent.add(bytes.size());
    egress.port->out->transmit(
        {frame.port, frame.time, bytes, static_cast<std::uint32_t>(bytes.size() + missing)});
}

Ptr<Lumo::Pkt> packetOf(Wire::Bytes labels, const IpFragment& fragment) {
    Ptr<Lumo::Pkt> packet = Lumo::globalPktManager()->newPkt();
    const Wire::Bytes header = fragment.header();
    const std::size_t size = labels.size() + header.size() + fragment.payload.size();
    auto at = packet->newSharedHeadData(size).begin();
    at = std::copy(labels.begin(), labels.end(), at);
    at = std::copy(header.begin(), header.end(), at);
    std::copy(fragment.payload.begin(), fragment.payload.end(), at);
    return packet;
}

} // namespace OvixAgent
