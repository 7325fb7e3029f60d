#include "Trace/TraceFilter.h"

#include "Wire/Ethernet.h"
#include "Wire/Ip.h"
#include "Wire/LabelStack.h"

namespace OvixAgent {

namespace {

/// What lies behind the link header, and its type.
Wire::TagWalk behindTags(Wire::Bytes frame) noexcept {
    const Wire::Ethernet header(frame);
    Wire::TagWalk tags(header ? header.etherType() : 0,
                       header ? frame.subspan(Wire::Ethernet::size) : Wire::Bytes());
    for (Wire::Tag tag; tags.next(tag);) {
    }
    return tags;
}

} // namespace

bool hasLabel(Wire::Bytes frame, std::uint32_t label) noexcept {
    const Wire::TagWalk tags = behindTags(frame);
    Wire::LabelWalk labels(Wire::EtherType::isMpls(tags.etherType()) ? tags.rest() : Wire::Bytes());
    for (Lumo::MplsLabelEntry entry; labels.next(entry);) {
        if (entry.label().value() == label) {
            return true;
        }
    }
    return false;
}

Lumo::IpGenAddr ipDestinationIn(Wire::Bytes frame) noexcept {
    const Wire::TagWalk tags = behindTags(frame);
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
    const bool isAtPort = !port || frame.port == *port || frame.port == ports.parentOf(*port);
    return isAtPort && (!label || hasLabel(frame.bytes, *label)) &&
           (!prefix || prefix->contains(ipDestinationIn(frame.bytes)));
}

} // namespace OvixAgent
