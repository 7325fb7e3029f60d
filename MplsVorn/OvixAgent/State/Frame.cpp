#include "State/Frame.h"

namespace OvixAgent {

// Not in the header: callers would be compiled to ask first whether a port does it this way.
void TransmitPort::transmitBurst(std::span<const Frame> frames) {
    for (const Frame& frame : frames) {
        transmit(frame);
    }
}

} // namespace OvixAgent
