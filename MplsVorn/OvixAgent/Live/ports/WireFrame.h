#pragma once

#include "Live/ports/FrameSegments.h"
#include "Live/ports/LivePort.h"
#include "Live/ports/PacketRing.h"
#include "State/Frame.h"

namespace OvixAgent {

/// Turns a frame in the receive ring into the wire frame, in place: its outermost tag is put back
/// before its EtherType, and a checksum that the sender has left to the hardware is completed. The
/// frame must not hold several segments.
void toWireFrame(const RingFrame& received, Frame& frame, LiveCounts& counts) noexcept;

/// The same for a frame of several segments, which `segments` returns while the frame is in the
/// ring. When it cannot be cut, the reason is counted and there are no segments.
void toWireFrames(const RingFrame& received, FrameSegments& segments, LiveCounts& counts) noexcept;

} // namespace OvixAgent
