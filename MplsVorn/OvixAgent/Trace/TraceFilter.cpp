#include "Trace/TraceFilter.h"

#include <array>

#include "Wire/Ethernet.h"
#include "Wire/Ip.h"
#include "Wire/LabelStack.h"

namespace OvixAgent {

namespace {

/// The port itself, one that it is a sub-interface of, or the sub-interface that the frame's tags
/// name.
bool isAtPort(const Frame& frame, PortIndex port, const PortTable& ports) noexcept {
    if (frame.port == port) {
        return true;
    }
    const Wire::Ethernet header(frame.bytes);
    if (!header || frame.port != ports.parentOf(port)) {
        return false;
    }
    std::array<std::uint16_t, 2> vlans{};
    std::size_t count = 0;
    Wire::TagWalk tags(header.etherType(), frame.bytes.subspan(Wire::Ethernet::size));
    for (Wire::Tag tag; count < vlans.size() && tags.next(tag);) {
        vlans[count++] = tag.vlanId();
    }
    const auto taker = ports.taker(frame.port, std::span(vlans).first(count));
    return taker && taker->port == port;
}

} // namespace

bool hasLabel(Wire::Bytes frame, std::uint32_t label) noexcept {
    const Wire::TagWalk tags = Wire::behindTags(frame);
    Wire::LabelWalk labels(Wire::EtherType::isMpls(tags.etherType()) ? tags.rest() : Wire::Bytes());
    for (Lumo::MplsLabelEntry entry; labels.next(entry);) {
        if (entry.label().value() == label) {
            return true;
        }
    }
    return false;
}

Lumo::IpGenAddr ipDestinationIn(Wire::Bytes frame) noexcept {
    const Wire::TagWalk tags = Wire::behindTags(frame);
    Wire::Bytes packet = tags.rest();
    if (Wire::EtherType::isMpls(tags.etherType())) {
        Wire::LabelWalk labels(packet);
        for (Lumo::MplsLabelEntry entry; labels.next(entry);) {
        }
        packet = labels.rest();
    } else if (tags.etherType() != Wire::EtherType::ipv4 &&
               tags.etherType() != Wire::EtherType::ipv6) {
        return {};
    }
    if (const Wire::Ipv4 header(packet); header && Wire::ipVersion(packet) == 4) {
        return header.destination();
    }
    if (const Wire::Ipv6 header(packet); header && Wire::ipVersion(packet) == 6) {
        return header.destination();
    }
    return {};
}

bool TraceFilter::matches(const Frame& frame, const PortTable& ports) const noexcept {
    return (!port || isAtPort(frame, *port, ports)) && (!label || hasLabel(frame.bytes, *label)) &&
           (!prefix || prefix->contains(ipDestinationIn(frame.bytes)));
}

} // namespace OvixAgent
