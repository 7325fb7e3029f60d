#pragma once

#include "Live/ports/FrameSegments.h"
#include "Live/ports/LivePort.h"
#include "Live/ports/PacketRing.h"
#include "State/Frame.h"

namespace OvixAgent {

/// Makes of a frame in the receive ring the frame that was on the wire, in place: its outermost tag
/// is written before its EtherType again, and a checksum that a sender on this host has left to the
/// hardware is completed. The frame must not be one of several segments.
void toWireFrame(const RingFrame& received, Frame& frame, LiveCounts& counts) noexcept;

/// The same for a frame of several segments, which are to be had from `segments` afterwards, while
/// the frame is in the ring. When they cannot be had the reason is counted, and there are none.
void toWireFrames(const RingFrame& received, FrameSegments& segments, LiveCounts& counts) noexcept;

} // namespace OvixAgent
