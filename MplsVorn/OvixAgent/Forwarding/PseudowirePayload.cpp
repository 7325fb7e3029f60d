#include "Forwarding/PseudowirePayload.h"

#include <cassert>

#include "Wire/ControlWord.h"
#include "Wire/Ethernet.h"
#include "Wire/LabelStack.h"

namespace OvixAgent {

using Wire::ControlWord;
using Wire::Ethernet;

Fate removeFlowLabel(Ovix::PacketContext& packet) {
    assert(packet.outerType() == Ovix::PktHdrType::mpls);
    Wire::LabelWalk walk(packet.pkt()->data());
    Lumo::MplsLabelEntry flow;
    if (!walk.next(flow) || !walk.isAtBottom()) {
        return drop(Reason::noFlowLabel);
    }
    packet.pkt()->popFront(Lumo::MplsLabelEntry::size);
    packet.outerTypeIs(Ovix::PktHdrType::eth);
    return forwarded;
}

Fate removeControlWord(Ovix::PacketContext& packet, const Pseudowire* pseudowire) {
    const Wire::Bytes payload = packet.pkt()->data();
    if (pseudowire == nullptr || !pseudowire->controlWord) {
        return payload.size() < Ethernet::size ? drop(Reason::pseudowireCutShort) : forwarded;
    }
    const ControlWord controlWord(payload);
    if (!controlWord) {
        return drop(Reason::pseudowireCutShort);
    }
    if (controlWord.isAssociatedChannel()) {
        return punt(Reason::associatedChannel);
    }
    if (!controlWord.isData()) {
        return drop(Reason::noControlWord);
    }
    if (payload.size() < ControlWord::size + Ethernet::size) {
        return drop(Reason::pseudowireCutShort);
    }
    packet.pkt()->popFront(ControlWord::size);
    packet.outerTypeIs(Ovix::PktHdrType::eth);
    return forwarded;
}

} // namespace OvixAgent
