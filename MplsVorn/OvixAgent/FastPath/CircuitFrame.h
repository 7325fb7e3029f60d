#pragma once

#include "Lumo/MplsLabel.h"
#include "State/Pseudowires.h"
#include "Wire/ControlWord.h"
#include "Wire/Ethernet.h"
#include "Wire/LabelStack.h"

namespace OvixAgent {

/// The customer's frame that a packet carries behind its pseudowire label; empty when it is not
/// plainly one.
inline Wire::Bytes customersFrame(const Pseudowire& pseudowire, Wire::Bytes packet) noexcept {
    Wire::LabelWalk labels(packet);
    Lumo::MplsLabelEntry entry;
    for (int left = pseudowire.flowLabel ? 2 : 1; left > 0; --left) {
        if (!labels.next(entry) || entry.bos() != (left == 1)) {
            return {};
        }
    }
    if (pseudowire.flowLabel && entry.label().isSpecialPurpose()) {
        return {};
    }
    Wire::Bytes payload = labels.rest();
    if (pseudowire.controlWord) {
        const Wire::ControlWord controlWord(payload);
        if (!controlWord || !controlWord.isData()) {
            return {};
        }
        payload = payload.subspan(Wire::ControlWord::size);
    }
    return payload.size() >= Wire::Ethernet::size ? payload : Wire::Bytes();
}

} // namespace OvixAgent
